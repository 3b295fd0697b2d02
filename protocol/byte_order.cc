// The two headers between wire and host order. The host records have the size and the field order
// of the wire, but other nibbles and byte order.
#include <cstring>

#include "vtapi/pdu.h"

#include "protocol/wire_layout.h"
#include "support/reader.h"
#include "support/writer.h"

namespace {

using vt::protocol::HighNibble;
using vt::protocol::LowNibble;
using vt::protocol::Nibbles;
using vt::support::Bytes;
using vt::support::Reader;
using vt::support::Writer;

std::uint8_t ExchangeNibbles(std::uint8_t byte) {
  return Nibbles(LowNibble(byte), HighNibble(byte));
}

}  // namespace

extern "C" {

int cv_corvane_event_nw_to_host(const void* wire, message_header* host) {
  Reader in(Bytes(static_cast<const std::uint8_t*>(wire), VT_MESSAGE_HEADER_SIZE));
  Bytes identity;
  // The fields are as long as the header, so that no read fails.
  (void)in.Read(host->seq);
  (void)in.Take(VT_IDENTITY_SIZE, identity);
  (void)in.Read(host->ver);
  (void)in.Read(host->shipment);
  (void)in.Read(host->pri);
  (void)in.Read(host->type);
  (void)in.Read(host->app);
  (void)in.Read(host->class_);
  (void)in.Read(host->action);
  (void)in.Read(host->tlv_bytes);
  (void)in.Read(host->tlv_count);
  std::memcpy(host->voltarisid, identity.data(), identity.size());
  return 0;
}

int cv_corvane_event_host_to_nw(const message_header* host, void* wire) {
  Writer out(wire, VT_MESSAGE_HEADER_SIZE);
  out.Write(host->seq);
  out.Write(host->voltarisid, sizeof host->voltarisid);
  out.Write(host->ver);
  out.Write(host->shipment);
  out.Write(host->pri);
  out.Write(host->type);
  out.Write(host->app);
  out.Write(host->class_);
  out.Write(host->action);
  out.Write(host->tlv_bytes);
  out.Write(host->tlv_count);
  return 0;
}

int cv_corvane_secure_nw_to_host(const void* wire, security_header* host) {
  Reader in(Bytes(static_cast<const std::uint8_t*>(wire), VT_SECURITY_HEADER_SIZE));
  // The fields are as long as the header, so that no read fails.
  (void)in.Read(host->byte0);
  (void)in.Read(host->byte1);
  (void)in.Read(host->unnamed16);
  (void)in.Read(host->tag);
  (void)in.Read(host->unnamed8);
  (void)in.Read(host->byte9);
  (void)in.Read(host->digest_len);
  host->byte0 = ExchangeNibbles(host->byte0);
  host->byte1 = ExchangeNibbles(host->byte1);
  host->byte9 = ExchangeNibbles(host->byte9);
  return 0;
}

int cv_corvane_secure_host_to_nw(const security_header* host, void* wire) {
  Writer out(wire, VT_SECURITY_HEADER_SIZE);
  out.Write(ExchangeNibbles(host->byte0));
  out.Write(ExchangeNibbles(host->byte1));
  out.Write(host->unnamed16);
  out.Write(host->tag);
  out.Write(host->unnamed8);
  out.Write(ExchangeNibbles(host->byte9));
  out.Write(host->digest_len);
  return 0;
}

}  // extern "C"
