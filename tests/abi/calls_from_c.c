/*
 * Calls every exported function once from C99, through the public header alone, with valid
 * arguments, and looks at what comes back. calls_every_export holds the calls made here against
 * the list of exports. Ends with 0 when all was well.
 */
#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "vtapi.h"

static int num_checks;
static int num_failures;

#define CHECK(condition) check((condition) != 0, #condition, __LINE__)

static void check(int holds, const char* text, int line) {
  ++num_checks;
  if (holds) return;
  ++num_failures;
  fprintf(stderr, "calls_from_c.c:%d: %s does not hold\n", line, text);
}

static const char identity[] = "0123456789abcdef0123456789abcdef0001";
static const uint8_t key_bytes[20] = "a key of 20 bytes..";

/* Support */

static int num_lines;

static void count_line(uint32_t level, const char* text) {
  (void)level;
  (void)text;
  ++num_lines;
}

static void log_settings(void) {
  CHECK(getLogLevel() == VT_LOG_INFO);
  CHECK(getLogFile() == stdout);
  CHECK(getLogCallback() == NULL);
  CHECK(getLogCallbackEnable() == 0);
  setLogFile(stderr);
  CHECK(getLogFile() == stderr);
  setLogFile(NULL);
  CHECK(setLogCallback(count_line) == 1);
  CHECK(getLogCallback() == count_line);
  enableLogCallback(1);
  CHECK(getLogCallbackEnable() == 1);
  setLogLevel(VT_LOG_TRACE);
  CHECK(getLogLevel() == VT_LOG_TRACE);
  voltaris_dump_digest(key_bytes);
  CHECK(num_lines == 1);
}

static void version(void) { CHECK(strcmp(voltaris_utl_getVersion(), "-2.0.136") == 0); }

static void hashes(void) {
  static const uint8_t expected[20] = {0x4f, 0xd0, 0xb2, 0x15, 0x27, 0x6e, 0xf1, 0x2f, 0x2b, 0x3e,
                                       0x4c, 0x8e, 0xca, 0xc2, 0x81, 0x14, 0x98, 0xb6, 0x56, 0xfc};
  uint8_t digest[VT_DIGEST_SIZE];
  hmac_context context;
  char text[41];
  memset(&context, 0, sizeof context);
  hmac_shainit(&context, "key", 3);
  hmac_sha_msg(&context, "abc", 3, digest);
  CHECK(memcmp(digest, expected, sizeof digest) == 0);
  hmac_shaupdate(&context, "abc", 3);
  hmac_shafinal(digest, &context);
  CHECK(memcmp(digest, expected, sizeof digest) == 0);
  hmac_sha("key", 3, "abc", 3, digest);
  CHECK(memcmp(digest, expected, sizeof digest) == 0);
  sha_hash("a", 1, "bc", 2, digest);
  sha1DigestToString(text, digest);
  CHECK(strcmp(text, "a9993e364706816aba3e25717850c26c9cd0d89d") == 0);
  CHECK(macAddressToString(text, digest) == 0);
  CHECK(strcmp(text, "A9:99:3E:36:47:06") == 0);
}

static void identifiers(void) {
  static const uint8_t mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  uint8_t uuid[VT_UUID_SIZE];
  uint8_t buf[48];
  char text[34];
  CHECK(uuidFromMacAddress(uuid, mac) == 0);
  CHECK(convertUuidString(text, uuid) == 0);
  CHECK(memcmp(text, "e0d00de0000000000000001122334455", 32) == 0);
  CHECK(voltaris_utl_createUuidFromMac(text, mac) == 0);
  CHECK(memcmp(text, "e0d00de0000000000000001122334455", 32) == 0);
  CHECK(generateUuid(uuid) == 0);
  CHECK(newUUID(buf) == (char*)buf + 16);
  CHECK(voltaris_utl_createUuid(text) == 0);
  CHECK(voltaris_utl_createUuidFromDetails(text, "ABCDEFGHIJKLMNOPQR", "123", "45678", "abcdef") ==
        0);
  CHECK(memcmp(text, "ABCDEFGHIJKLMNOPQR12345678abcdef", 32) == 0);
  voltaris_idtos(text, "ABCDEFGHIJKLMNOPQR12345678abcdef", 3);
  CHECK(strcmp(text, "ABC") == 0);
}

static int in_order(void* existing, void* added) { return existing < added ? 1 : -1; }

static void queues(void) {
  queue q;
  queue_element e[3];
  memset(&q, 0, sizeof q);
  memset(e, 0, sizeof e);
  CHECK(queue_init(&q, 10) == 1);
  CHECK(enqueue(&q, &e[0]) == 1);
  CHECK(m_enqueue(&q, &e[1]) == 1);
  CHECK(queryqueuedepth(&q) == 2);
  CHECK(queryqueuesize(&q) == 10);
  CHECK(peekqueuehead(&q) == &e[0]);
  CHECK(peekqueuetail(&q) == &e[1]);
  CHECK(checkqueue(&q, &e[1]) == 1);
  CHECK(validqueue(&q, 1) == 1);
  CHECK(dequeue(&q) == &e[0]);
  CHECK(m_dequeue(&q) == &e[1]);
  CHECK(requeue(&q, &e[0]) == 1);
  CHECK(m_requeue(&q, &e[1]) == 1);
  CHECK(insqueue(&q, &e[2], &e[1]) == 1);
  CHECK(unqueue(&q, &e[1]) == 1);
  CHECK(m_unqueue(&q, &e[0]) == 1);
  CHECK(queue_insert_comp(&q, &e[0], in_order) == 1);
  CHECK(remqueue(&q, &e[2], &e[0]) == &e[2]);
  CHECK(unqueuenext(&q, &q) == 1);
  CHECK(peekqueuehead(&q) == NULL);
}

/* Codec */

struct constant {
  const char* name;
  int32_t value;
};

static void enumeration(const char* (*e2s)(int32_t), int32_t (*s2e)(const char*),
                        const struct constant* constants, size_t count) {
  size_t i;
  CHECK(s2e(constants[0].name) == constants[0].value);
  CHECK(s2e("no such name") == VT_UNKNOWN_NAME);
  for (i = 0; i < count; ++i) CHECK(strcmp(e2s(constants[i].value), constants[i].name) == 0);
}

#define CONSTANT(name, value, match) {#name, (value)},
#define ENUMERATION(word, LIST)                                    \
  do {                                                             \
    static const struct constant constants[] = {LIST(CONSTANT)};   \
    enumeration(cv_util_e2s_##word, cv_util_s2e_##word, constants, \
                sizeof constants / sizeof constants[0]);           \
  } while (0);

static void catalogue(void) {
  Tlv tlv;
  memset(&tlv, 0, sizeof tlv);
  tlv.type = 13;
  tlv.length = 12;
  CV_ENUMERATION_LIST(ENUMERATION)
  CHECK(vtn_getTypeLength(13) == 2);
  CHECK(vt_get_tlv_size(&tlv) == 12);
  CHECK(cv_is_combo_tlv(43) == 1);
  CHECK(vt_get_tlv_enum_type(VT_ATTRIBUTE_USAGE) == 13);
  CHECK(vt_get_external_tlv_enum_type(13) == VT_ATTRIBUTE_USAGE);
  CHECK(vt_get_internal_nanny_bit_type(0) == 5);
  CHECK(vt_get_class_enum_type(VT_QUERY) == 10);
  CHECK(vt_get_action_enum_type(VT_QUERY, VT_QUERY_COLLECT) == 11);
}

/* What every unpack call reports to. */
static uint32_t consumed;
static int32_t remaining;
static uint32_t status;

static void start(int32_t len) {
  consumed = 0;
  remaining = len;
  status = 77;
}

static int all_was_read(uint32_t len) { return consumed == len && remaining == 0 && status == 0; }

#define SCALAR(T, type, number)                                       \
  do {                                                                \
    const type in = (number);                                         \
    type out = 0;                                                     \
    type* copy;                                                       \
    CHECK(vt_pack_##T(wire, &in) == sizeof in);                       \
    start((int32_t)sizeof in);                                        \
    vt_unpack_##T(wire, &out, &consumed, &remaining, &status);        \
    CHECK(all_was_read(sizeof in));                                   \
    CHECK(out == in);                                                 \
    start((int32_t)sizeof in);                                        \
    copy = vt_unpack_##T##_ptr(wire, &consumed, &remaining, &status); \
    CHECK(all_was_read(sizeof in));                                   \
    CHECK(copy != NULL && *copy == in);                               \
    vt_free_ptr(copy);                                                \
    copy = vt_clone_##T##_ptr(&in, &status);                          \
    CHECK(status == 0);                                               \
    CHECK(copy != NULL && *copy == in);                               \
    vt_free_ptr(copy);                                                \
  } while (0)

static void scalars(void) {
  uint8_t wire[8];
  const int32_t yes = 1;
  int32_t flag = 0;
  SCALAR(int8, int8_t, -3);
  SCALAR(uint8, uint8_t, 200);
  SCALAR(uint16, uint16_t, 50000);
  SCALAR(int32, int32_t, -70000);
  SCALAR(uint32, uint32_t, 0x80000001u);
  SCALAR(long, int32_t, -70001);
  CHECK(vt_pack_boolean(wire, &yes) == 4);
  start(4);
  vt_unpack_boolean(wire, &flag, &consumed, &remaining, &status);
  CHECK(all_was_read(4));
  CHECK(flag == yes);
}

static void texts_and_blocks(void) {
  uint8_t wire[16];
  int32_t len = 0;
  char* text;
  void* block;
  CHECK(vt_pack_string_tlv(wire, "abc") == 3);
  start(3);
  text = vt_unpack_string_tlv_ptr(wire, 3, &consumed, &remaining, &status);
  CHECK(all_was_read(3));
  CHECK(text != NULL && strcmp(text, "abc") == 0);
  vt_free_ptr(text);

  CHECK(vt_pack_string(wire, "abc") == 7);
  start(7);
  text = vt_unpack_string_ptr(wire, &consumed, &remaining, &status);
  CHECK(all_was_read(7));
  CHECK(text != NULL && strcmp(text, "abc") == 0);
  vt_free_ptr(text);

  text = vt_clone_string("abc", &status);
  CHECK(status == 0);
  CHECK(text != NULL && strcmp(text, "abc") == 0);
  vt_free_ptr(text);

  CHECK(vt_pack_void_tlv(wire, "abc", 3) == 3);
  start(3);
  block = vt_unpack_void_tlv_ptr(wire, 3, &consumed, &remaining, &status);
  CHECK(all_was_read(3));
  CHECK(block != NULL && memcmp(block, "abc", 3) == 0);
  vt_free_ptr(block);

  CHECK(vt_pack_void(wire, "abc", 3) == 7);
  start(7);
  block = vt_unpack_void_ptr(wire, &len, &consumed, &remaining, &status);
  CHECK(all_was_read(7));
  CHECK(len == 3);
  CHECK(block != NULL && memcmp(block, "abc", 3) == 0);
  vt_free_ptr(block);

  block = vt_clone_void_ptr("abc", 3, &status);
  CHECK(status == 0);
  CHECK(block != NULL && memcmp(block, "abc", 3) == 0);
  vt_free_ptr(block);
}

static void identity_structures(void) {
  uint8_t wire[64];
  sender_id sender;
  sender_id sender_copy;
  sender_id* sender_ptr;
  event_id event;
  event_id event_copy;
  event_id* event_ptr;
  corvane_id id;
  corvane_id* id_ptr;
  memset(&sender, 'a', sizeof sender);
  sender.number = 5;
  memset(&event, 'b', sizeof event);
  event.number = 6;

  CHECK(vt_pack_corvane_id(wire, &sender.id) == 32);
  start(32);
  vt_unpack_corvane_id(wire, &id, &consumed, &remaining, &status);
  CHECK(all_was_read(32));
  CHECK(corvane_id_cmp(&id, &sender.id) == 0);
  start(32);
  id_ptr = vt_unpack_corvane_id_ptr(wire, &consumed, &remaining, &status);
  CHECK(all_was_read(32));
  CHECK(id_ptr != NULL && corvane_id_cmp(id_ptr, &event.id) == 'a' - 'b');
  vt_free_ptr(id_ptr);

  CHECK(vt_get_sender_id_size(&sender) == 36);
  CHECK(vt_pack_sender_id(wire, &sender) == 36);
  start(36);
  sender_ptr = vt_unpack_sender_id_ptr(wire, &consumed, &remaining, &status);
  CHECK(all_was_read(36));
  CHECK(sender_ptr != NULL && sender_ptr->number == 5);
  vt_free_ptr(sender_ptr);
  CHECK(vt_clone_sender_id(&sender, &sender_copy, &status) == 0);
  CHECK(sender_copy.number == 5);
  sender_ptr = vt_clone_sender_id_ptr(&sender, &status);
  CHECK(sender_ptr != NULL && sender_ptr->number == 5);
  vt_free_ptr(sender_ptr);

  CHECK(vt_get_event_id_size(&event) == 36);
  CHECK(vt_pack_event_id(wire, &event) == 36);
  start(36);
  event_ptr = vt_unpack_event_id_ptr(wire, &consumed, &remaining, &status);
  CHECK(all_was_read(36));
  CHECK(event_ptr != NULL && event_ptr->number == 6);
  vt_free_ptr(event_ptr);
  CHECK(vt_clone_event_id(&event, &event_copy, &status) == 0);
  CHECK(event_copy.number == 6);
  event_ptr = vt_clone_event_id_ptr(&event, &status);
  CHECK(event_ptr != NULL && event_ptr->number == 6);
  vt_free_ptr(event_ptr);
}

static void header_structures(void) {
  char data[] = "data";
  char name[] = "name";
  uint8_t wire[64];
  device_header device;
  device_header device_copy;
  usage_cmn_hdr usage;
  usage_cmn_hdr usage_copy;
  memset(&device, 0, sizeof device);
  device.data_len = 4;
  device.data = data;
  memset(&usage, 0, sizeof usage);
  usage.value = -1;
  usage.text1 = name;
  usage.text2 = name;
  usage.text3 = name;

  CHECK(vt_get_deviceheader_size(&device) == 40);
  CHECK(vt_pack_deviceheader(wire, &device) == 40);
  start(40);
  vt_unpack_deviceheader(wire, &device_copy, &consumed, &remaining, &status);
  CHECK(all_was_read(40));
  CHECK(device_copy.data_len == 4);
  vt_free_deviceheader(&device_copy);
  CHECK(vt_clone_deviceheader(&device, &device_copy, &status) == 0);
  CHECK(device_copy.data != NULL && memcmp(device_copy.data, data, 4) == 0);
  vt_free_deviceheader(&device_copy);
  CHECK(device_copy.data == NULL);

  CHECK(vt_get_usage_cmn_hdr_size(&usage) == 35);
  CHECK(vt_pack_usage_cmn_hdr(wire, &usage) == 35);
  start(35);
  vt_unpack_usage_cmn_hdr(wire, &usage_copy, &consumed, &remaining, &status);
  CHECK(all_was_read(35));
  CHECK(usage_copy.text3 != NULL && strcmp(usage_copy.text3, name) == 0);
  vt_free_usage_cmn_hdr(&usage_copy);
  CHECK(vt_clone_usage_cmn_hdr(&usage, &usage_copy, &status) == 0);
  CHECK(usage_copy.value == -1);
  vt_free_usage_cmn_hdr(&usage_copy);
  CHECK(usage_copy.text1 == NULL);
}

static void value_structures(void) {
  char text[] = "text";
  uint8_t wire[64];
  alarm_value alarm_in;
  alarm_value* alarm_ptr;
  recurrence recurrence_in;
  recurrence* recurrence_ptr;
  neighbor neighbor_in;
  neighbor* neighbor_ptr;
  delta_vector deltas;
  delta_vector* deltas_ptr;
  usage_vector usages;
  usage_vector* usages_ptr;
  memset(&alarm_in, 0, sizeof alarm_in);
  alarm_in.value2 = -9;
  memset(&recurrence_in, 0, sizeof recurrence_in);
  recurrence_in.text = text;
  memset(&neighbor_in, 0, sizeof neighbor_in);
  neighbor_in.label = text;
  neighbor_in.flag = 3;
  memset(&deltas, 1, sizeof deltas);
  memset(&usages, 1, sizeof usages);

  CHECK(vt_get_alarm_size(&alarm_in) == 14);
  CHECK(vt_pack_alarm(wire, &alarm_in) == 14);
  start(14);
  alarm_ptr = vt_unpack_alarm_ptr(wire, &consumed, &remaining, &status);
  CHECK(all_was_read(14));
  CHECK(alarm_ptr != NULL && alarm_ptr->value2 == -9);
  vt_free_ptr(alarm_ptr);
  alarm_ptr = vt_clone_alarm_ptr(&alarm_in, &status);
  CHECK(alarm_ptr != NULL && alarm_ptr->value2 == -9);
  vt_free_ptr(alarm_ptr);

  CHECK(vt_get_recurrence_size(&recurrence_in) == 14);
  CHECK(vt_pack_recurrence(wire, &recurrence_in) == 14);
  start(14);
  recurrence_ptr = vt_unpack_recurrence_ptr(wire, &consumed, &remaining, &status);
  CHECK(all_was_read(14));
  CHECK(recurrence_ptr != NULL && strcmp(recurrence_ptr->text, text) == 0);
  vt_free_recurrence_ptr(recurrence_ptr);
  recurrence_ptr = vt_clone_recurrence_ptr(&recurrence_in, &status);
  CHECK(recurrence_ptr != NULL && strcmp(recurrence_ptr->text, text) == 0);
  vt_free_recurrence_ptr(recurrence_ptr);

  CHECK(vt_get_neighbor_size(&neighbor_in) == 48);
  CHECK(vt_pack_neighbor(wire, &neighbor_in) == 48);
  start(48);
  neighbor_ptr = vt_unpack_neighbor_ptr(wire, &consumed, &remaining, &status);
  CHECK(all_was_read(48));
  CHECK(neighbor_ptr != NULL && neighbor_ptr->flag == 3);
  vt_free_neighbor_ptr(neighbor_ptr);
  neighbor_ptr = vt_clone_neighbor_ptr(&neighbor_in, &status);
  CHECK(neighbor_ptr != NULL && strcmp(neighbor_ptr->label, text) == 0);
  vt_free_neighbor_ptr(neighbor_ptr);

  CHECK(vt_pack_delta_vector(wire, &deltas) == 44);
  memset(&deltas, 0, sizeof deltas);
  start(44);
  vt_unpack_delta_vector(wire, &deltas, &consumed, &remaining, &status);
  CHECK(all_was_read(44));
  CHECK(deltas.values[10] == 0x01010101);
  start(44);
  deltas_ptr = vt_unpack_delta_vector_ptr(wire, &consumed, &remaining, &status);
  CHECK(deltas_ptr != NULL && deltas_ptr->values[0] == 0x01010101);
  vt_free_ptr(deltas_ptr);

  CHECK(vt_pack_usage_vector(wire, &usages) == 22);
  memset(&usages, 0, sizeof usages);
  start(22);
  vt_unpack_usage_vector(wire, &usages, &consumed, &remaining, &status);
  CHECK(all_was_read(22));
  CHECK(usages.values[10] == 0x0101);
  start(22);
  usages_ptr = vt_unpack_usage_vector_ptr(wire, &consumed, &remaining, &status);
  CHECK(usages_ptr != NULL && usages_ptr->values[0] == 0x0101);
  vt_free_ptr(usages_ptr);
}

static void elements(void) {
  static const uint8_t image[14] = {0, 0, 0, 13, 0, 0, 0, 14, 0, 0, 0, 1, 0x12, 0x34};
  const uint16_t number = 0x1234;
  uint8_t buf[14];
  uint8_t* cursor = buf;
  uint16_t* copy;
  Tlv* tlv;
  memcpy(buf, image, sizeof buf);
  start(14);
  tlv = cv_create_tlv_from_raw_buf(&remaining, &cursor);
  CHECK(tlv != NULL && tlv->qualifier == 1);
  CHECK(remaining == 0);
  CHECK(cursor == buf + 14);
  memset(buf, 0, sizeof buf);
  CHECK(cv_update_raw_buf_from_tlv(tlv, buf) == 14);
  CHECK(memcmp(buf, image, sizeof buf) == 0);
  vt_free_tlv_ptr(tlv);
  copy = vt_clone_tlv_ptr(13, 2, &number, &status);
  CHECK(status == 0);
  CHECK(copy != NULL && *copy == number);
  vt_free_ptr(copy);
}

/* Protocol */

static hmac_context keyed(void) {
  hmac_context context;
  memset(&context, 0, sizeof context);
  hmac_shainit(&context, key_bytes, sizeof key_bytes);
  return context;
}

/* new_message returns a signed message of class query, action collect, with a name element. */
static Event* new_message(const hmac_context* key, uint32_t seq) {
  Event* ev = corvane_create_my_packet();
  CHECK(ev != NULL);
  CHECK(cv_add_tlv(ev, 9, 12 + 5, "lamp") == 0);
  CHECK(vtn_createPdu(ev, 1, 0, 10, 11, identity, seq, key, 2) == 0);
  return ev;
}

static void headers(void) {
  uint8_t wire[80];
  message_header message;
  message_header message_copy;
  security_header security;
  security_header security_copy;
  uint8_t digest[VT_DIGEST_SIZE];
  memset(&message, 0, sizeof message);
  message.tlv_bytes = 17;
  memset(&security, 0, sizeof security);
  security.byte1 = 0x20;
  CHECK(cv_corvane_event_host_to_nw(&message, wire) == 0);
  CHECK(vtn_getPduSize(wire) == 65);
  CHECK(vtn_isValidPduAddress(wire, wire + 64) == 1);
  CHECK(vtn_isValidPduAddress(wire, wire + 65) == 0);
  CHECK(cv_corvane_event_nw_to_host(wire, &message_copy) == 0);
  CHECK(message_copy.tlv_bytes == 17);
  CHECK(cv_corvane_secure_host_to_nw(&security, wire) == 0);
  CHECK(wire[1] == 2);
  CHECK(cv_corvane_secure_nw_to_host(wire, &security_copy) == 0);
  CHECK(security_copy.byte1 == 0x20);
  CHECK(voltaris_utl_composeKey("secret", 6, identity, digest, 20) == 20);
  CHECK(voltaris_utl_composeNonce("secret", 6, "data", 4, digest) == 20);
}

static void outgoing_event(void) {
  const hmac_context key = keyed();
  const uint8_t level = 7;
  uint32_t tlv_bytes = 0;
  uint32_t value_len = 0;
  int32_t index = 0;
  Event* ev = corvane_create_my_packet();
  CHECK(ev != NULL);
  CHECK(cv_set_common_hdr(ev) == 0);
  CHECK(cv_add_tlv_common(ev, 14, 13, &level, 1) == 0);
  CHECK(cv_get_next_tlv(ev, 14) != NULL);
  CHECK(cv_get_next_tlv_value_common(ev, &index, 14, &value_len, 1) != NULL);
  CHECK(index == 0 && value_len == 1);
  CHECK(cv_get_timeout_val_from_query(ev) == 0);
  CHECK(vt_get_total_tlvs_data_size(ev) == 13);
  CHECK(cv_pack_event(ev, &tlv_bytes) == 0);
  CHECK(tlv_bytes == 13);
  CHECK(vtn_createPdu(ev, 1, 0, 10, 11, identity, 3, &key, 2) == 0);
  CHECK(ev->raw_len == 93);
  CHECK(cv_pack_tlvs(ev) == 0);
  CHECK(vtn_validateMessageHeader(ev, &key) == 1);
  voltaris_dump_pdu(ev);
  voltaris_dump_payload(ev->raw_hdr);
  voltaris_dump_buf(ev->raw, (int32_t)ev->raw_len);
  CHECK(cv_free_tlvs(ev) == 0);
  CHECK(ev->tlvs == NULL);
  CHECK(cv_free_data(ev) == 0);
  CHECK(ev->raw == NULL && ev->pak == NULL);
  CHECK(corvane_try_gc(ev) == 0);

  ev = new_message(&key, 4);
  CHECK(cv_free_tlvs(ev) == 0);
  free(ev->pak);
  free(ev->sec);
  vtn_releasePacket(ev);

  ev = corvane_create_my_packet();
  CHECK(ev != NULL);
  ev->state = CV_EVENT_STATE_REPLY;
  CHECK(corvane_free_rply(ev) == 0);
}

static void incoming_event(void) {
  const hmac_context key = keyed();
  Event* sent = new_message(&key, 5);
  Event* ev = cv_mkevent_from_rawbuffer((int32_t)sent->raw_len, sent->raw);
  CHECK(ev != NULL);
  CHECK(cv_unpack_event(ev, &key) == 0);
  CHECK(ev->pak->tlv_count == 1);
  CHECK(cv_cleanup_event(ev) == 0);

  /* The list alone, on an Event that already has its headers and its wire image. */
  CHECK(cv_free_tlvs(sent) == 0);
  sent->tlvs = calloc(1, sizeof *sent->tlvs);
  sent->tlv_capacity = 1;
  CHECK(cv_unpack_tlvs(sent) == 0);
  CHECK(sent->tlvs[0] != NULL && sent->tlvs[0]->type == 9);
  CHECK(cv_cleanup_event(sent) == 0);
}

static void aggregates(void) {
  const uint8_t level = 4;
  const uint16_t watts = 60;
  device_header device;
  usage_cmn_hdr usage;
  plain_entry plain;
  combo_entry combo;
  Event* ev = corvane_create_my_packet();
  CHECK(ev != NULL);
  memset(&device, 0, sizeof device);
  memcpy(device.id.bytes, identity, 32);
  memset(&usage, 0, sizeof usage);
  memset(&plain, 0, sizeof plain);
  memset(&combo, 0, sizeof combo);
  CHECK(cv_get_next_tlv_by_dh(ev, 14, &device, 0) == NULL);
  CHECK(vt_create_aggr_tlv(ev, VT_TLV_AGGREGATED | 14, &device) != NULL);
  CHECK(cv_get_next_tlv_by_dh(ev, 14, &device, 0) != NULL);
  CHECK(cv_add_aggr_type_tlv(ev, 14, &level, 1, &device, NULL) == 0);
  CHECK(cv_aggr_ack(ev, 1, &device) == 0);
  CHECK(cv_populate_aggr_tlv_data(&plain, 14, &level, 1) == 1);
  CHECK(plain.data_len == 1);
  vt_free_ptr(plain.data);
  CHECK(cv_populate_combo_tlv_data(&combo, 43, &watts, 1, &usage) == 1);
  CHECK(combo.data != NULL && memcmp(combo.data, &watts, 2) == 0);
  vt_free_ptr(combo.data);
  vt_free_usage_cmn_hdr(&combo.usage);
  CHECK(cv_cleanup_event(ev) == 0);
}

/* Filter */

static void keywords(void) {
  char text[] = "a,b";
  char* list;
  char** items;
  CHECK(cv_wildcard_match("lamp-1", "lamp*") == 1);
  CHECK(cv_comma_list2kwl(text) == 4);
  CHECK(memcmp(text, "a\0b", 4) == 0);
  CHECK(vtn_string_in_whitelist("lamp", 0) == 1);
  list = corvane_conv_kw_list("a,b");
  CHECK(list != NULL && memcmp(list, "a\0b", 4) == 0);
  free(list);
  list = cv_get_comma_sep_list("a\0b", 4);
  CHECK(list != NULL && strcmp(list, "a,b") == 0);
  free(list);
  items = createKeywordList("a, b");
  CHECK(items != NULL && strcmp(items[1], "b") == 0 && items[2] == NULL);
  freeKeywordList(items);
}

static void filters(void) {
  corvane_endpoint endpoint;
  Event* ev = corvane_create_my_packet();
  CHECK(ev != NULL);
  memset(&endpoint, 0, sizeof endpoint);
  endpoint.name = "lamp-1";
  endpoint.role = "lamp";
  endpoint.keywords = "floor1";
  CHECK(cv_add_tlv_common(ev, 9, 12 + 6, "lamp*", 1) == 0);
  CHECK(cv_exec_filter(ev, &endpoint, 0) == 1);
  CHECK(cv_sender_id_or_wildcard_filter(ev, &endpoint) == 1);
  CHECK(cv_role_filter(ev, &endpoint) == 1);
  CHECK(cv_name_filter(ev, &endpoint) == 1);
  CHECK(cv_keyword_filter(ev, &endpoint) == 1);
  CHECK(cv_category_filter(ev, &endpoint) == 1);
  CHECK(cv_cleanup_event(ev) == 0);
}

/* Transport */

/* new_listener returns a listening descriptor and its port. */
static int new_listener(int* port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  CHECK(fd >= 0);
  *port = bindTcpListener(fd, 0);
  CHECK(*port > 0);
  CHECK(listen(fd, 5) == 0);
  return fd;
}

static int accept_one(int listener) {
  uint32_t peer = 0;
  struct timeval timeout;
  int fd;
  memset(&timeout, 0, sizeof timeout);
  timeout.tv_sec = 20;
  fd = waitfor_tcp_connect(listener, &peer, &timeout);
  CHECK(fd >= 0);
  CHECK(peer == htonl(INADDR_LOOPBACK));
  return fd;
}

static void send_all(int fd, const Event* ev) {
  CHECK(send(fd, ev->raw, ev->raw_len, MSG_NOSIGNAL) == (ssize_t)ev->raw_len);
}

static void streams(void) {
  const hmac_context key = keyed();
  Event* message = new_message(&key, 6);
  SocketEndpoint endpoint;
  struct sockaddr_in sender;
  struct timeval timeout;
  uint8_t buf[VT_MAX_PDU_SIZE];
  int port = 0;
  const int listener = new_listener(&port);
  int near_fd;
  int far_fd;
  memset(&endpoint, 0, sizeof endpoint);
  memset(&sender, 0, sizeof sender);
  memset(&timeout, 0, sizeof timeout);
  timeout.tv_sec = 20;
  near_fd = openConnectedSocket(&endpoint, "127.0.0.1", (uint32_t)port);
  CHECK(near_fd >= 0 && near_fd == endpoint.descriptor);
  far_fd = accept_one(listener);
  send_all(far_fd, message);
  send_all(far_fd, message);
  CHECK(vtn_read_tcp_message(near_fd, buf, sizeof buf, &sender) == (int)message->raw_len);
  CHECK(waitfor_tcp_message(near_fd, buf, sizeof buf, &timeout) == (int)message->raw_len);
  CHECK(memcmp(buf, message->raw, message->raw_len) == 0);
  CHECK(closeSocket(far_fd) == 0);
  CHECK(closeSocket(near_fd) == 0);
  CHECK(closeSocket(listener) == 0);
  CHECK(cv_cleanup_event(message) == 0);
  errno = 5;
  CHECK(vtn_getErrorCode() == 5);
}

static void datagrams(void) {
  struct sockaddr_in address;
  socklen_t size = sizeof address;
  uint32_t needed = 0;
  uint8_t buf[16];
  const int receiver = createUdpSocket(0);
  const int sender = socket(AF_INET, SOCK_DGRAM, 0);
  CHECK(receiver >= 0);
  CHECK(bindUdpSocket(sender, 0) == sender);
  memset(&address, 0, sizeof address);
  CHECK(getsockname(receiver, (struct sockaddr*)&address, &size) == 0);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  CHECK(sendto(sender, "abc", 3, 0, (struct sockaddr*)&address, sizeof address) == 3);
  CHECK(vtn_read_udp_message(receiver, buf, sizeof buf) == 3);
  CHECK(vtn_frame_message(buf, 3, &needed) == 0 && needed == 12);
  CHECK(memcmp(buf, "abc", 3) == 0);
  CHECK(closeSocket(sender) == 0);
  CHECK(closeSocket(receiver) == 0);
}

/* Client API */

static void sessions(void) {
  Session* session = new_session();
  CHECK(session != NULL);
  CHECK(getNextSequenceNumber(session) == 0);
  CHECK(getNextSequenceNumber(session) == 1);
  voltaris_closeSession(session);
}

static void queries(void) {
  static const char name[] = "lamp";
  const uint8_t level = 3;
  sender_id id;
  Query* query = new_query();
  CHECK(query != NULL);
  memset(&id, 'a', sizeof id);
  voltaris_releaseQuery(query);
  query = voltaris_createSetQuery("office", 1);
  CHECK(query != NULL);
  CHECK(voltaris_addSetAttribute(query, VT_ATTRIBUTE_LEVEL, &level) == 0);
  CHECK(voltaris_addQualifier(query, VT_ATTRIBUTE_NAME, name) == 0);
  CHECK(voltaris_addIdQualifier(query, &id) == 0);
  CHECK(voltaris_addRoleQualifier(query, name) == 0);
  CHECK(voltaris_addNameQualifier(query, name) == 0);
  CHECK(voltaris_addKeyQualifier(query, name) == 0);
  voltaris_releaseQuery(query);
  query = voltaris_createCollectQuery("office", 1);
  CHECK(query != NULL);
  CHECK(voltaris_addGetAttribute(query, VT_ATTRIBUTE_USAGE) == 0);
  CHECK(vtn_get_tlv_index_from_query(query, VT_ATTRIBUTE_UNITS) == 1);
  voltaris_releaseQuery(query);
  query = voltaris_createSumQuery("office", 1);
  CHECK(query != NULL);
  voltaris_releaseQuery(query);
}

/* new_reply returns a signed reply with one value, or one acknowledgement, of one device. */
static Event* new_reply(uint32_t shipment, const hmac_context* key) {
  const uint8_t level = 9;
  device_header device;
  Event* ev = corvane_create_my_packet();
  CHECK(ev != NULL);
  memset(&device, 0, sizeof device);
  memcpy(device.id.bytes, identity, 32);
  if (shipment == 0) {
    CHECK(cv_add_aggr_type_tlv(ev, 14, &level, 2, &device, NULL) == 0);
  } else {
    CHECK(cv_aggr_ack(ev, 2, &device) == 0);
  }
  CHECK(vtn_createPdu(ev, 1, shipment, 10, 11, identity, 1, key, 2) == 0);
  return ev;
}

/* A fleet of two: one node refuses, one is never asked. */
static int32_t on_ended(void* context, ReplyCollection* ended, void* tag,
                        const FleetCounters* counters) {
  int* told = context;
  CHECK(ended != NULL && counters->finished >= 1);
  CHECK(tag == told);
  ++*told;
  return 0;
}

static void fleet(void) {
  int told = 0;
  void* tag = NULL;
  int port = 0;
  const int closed = new_listener(&port);
  Session* session =
      voltaris_createSession("127.0.0.1", (uint32_t)port, identity, key_bytes, sizeof key_bytes);
  Query* first = voltaris_createCollectQuery("office", 0);
  Query* second = voltaris_createCollectQuery("office", 0);
  CollectionFleet* ships = voltaris_createFleet(1);
  ReplyCollection* ended;
  CHECK(closeSocket(closed) == 0);
  CHECK(ships != NULL && session != NULL && first != NULL && second != NULL);
  CHECK(voltaris_getFleetDescriptor(ships) >= 0);
  CHECK(voltaris_getFleetTimeout(ships) == -1);
  CHECK(voltaris_addToFleet(ships, session, first, NULL, &told) != NULL);
  CHECK(voltaris_getFleetCounters(ships)->waiting == 1);
  CHECK(voltaris_runFleet(ships, on_ended, &told) == 0);
  CHECK(told == 1);
  CHECK(voltaris_addToFleet(ships, session, second, NULL, &told) != NULL);
  voltaris_cancelFleet(ships);
  CHECK(voltaris_stepFleet(ships) == 0);
  ended = voltaris_takeEnded(ships, &tag);
  CHECK(ended != NULL && tag == &told);
  CHECK(strcmp(voltaris_nameOutcome(voltaris_getCollectionOutcome(ended)), "cancelled") == 0);
  voltaris_releaseCollection(ended);
  voltaris_releaseFleet(ships);
  voltaris_releaseQuery(first);
  voltaris_releaseQuery(second);
  voltaris_closeSession(session);
}

/* A whole query: the node's side is played between execution and collection. */
static void collection(void) {
  uint8_t buf[VT_MAX_PDU_SIZE];
  int port = 0;
  const int listener = new_listener(&port);
  struct timeval timeout;
  uint32_t len = 0;
  int far_fd;
  uint8_t* level;
  ResultRow* row;
  ResultSet* result;
  Session* session =
      voltaris_createSession("127.0.0.1", (uint32_t)port, identity, key_bytes, sizeof key_bytes);
  Query* query = voltaris_createQuery(VT_QUERY, VT_QUERY_COLLECT, "office", 1);
  Event* values;
  Event* will;
  Event* wont;
  ResultCursor cursor;
  CollectionOptions options;
  ReplyCollection* collection;
  Query* again;
  ResultSet* nothing;
  CHECK(session != NULL && query != NULL);
  values = new_reply(0, &session->key);
  will = new_reply(0xFF, &session->key);
  wont = new_reply(0xFE, &session->key);
  memset(&timeout, 0, sizeof timeout);
  timeout.tv_sec = 20;
  CHECK(voltaris_addGetAttribute(query, VT_ATTRIBUTE_LEVEL) == 0);
  CHECK(voltaris_execQuery(session, query) == 0);
  far_fd = accept_one(listener);
  CHECK(waitfor_tcp_message(far_fd, buf, sizeof buf, &timeout) > 80);
  send_all(far_fd, will);
  send_all(far_fd, wont);
  send_all(far_fd, values);
  CHECK(closeSocket(far_fd) == 0);
  result = voltaris_queryResults(session, query);
  CHECK(result != NULL);
  CHECK(voltaris_getErrorCode(result) == 0);
  CHECK(voltaris_getAckCount(result) == 1);
  CHECK(voltaris_getNakCount(result) == 1);
  CHECK(voltaris_getAcks(result)[0].entity_index == 2);
  CHECK(voltaris_getNaks(result)[0].entity_index == 2);
  CHECK(voltaris_getRowCount(result) == 1);
  row = voltaris_getNextRow(result);
  CHECK(row != NULL && row->entity_index == 2);
  level = voltaris_getAttributeFromRowByType(row, VT_ATTRIBUTE_LEVEL, &len);
  CHECK(level != NULL && len == 1 && *level == 9);
  CHECK(voltaris_getNextRow(result) == NULL);
  voltaris_startCursor(&cursor, result);
  CHECK(voltaris_advanceCursor(&cursor) == 1);
  CHECK(cursor.identity.entity_index == 2);
  CHECK(voltaris_countValues(&cursor, VT_ATTRIBUTE_LEVEL) == 1);
  CHECK(voltaris_readValue(&cursor, VT_ATTRIBUTE_LEVEL, 0, &len) == level && len == 1);
  CHECK(voltaris_advanceCursor(&cursor) == 0);

  /* The same in steps, against a node that accepts and closes. */
  again = voltaris_createCollectQuery("office", 0);
  CHECK(again != NULL);
  memset(&options, 0, sizeof options);
  collection = voltaris_startCollection(session, again, &options);
  CHECK(collection != NULL);
  CHECK(voltaris_getCollectionEvents(collection) == POLLOUT);
  far_fd = accept_one(listener);
  CHECK(voltaris_stepCollection(collection) == VT_COLLECTION_PENDING);
  CHECK(waitfor_tcp_message(far_fd, buf, sizeof buf, &timeout) > 80);
  CHECK(closeSocket(far_fd) == 0);
  while (voltaris_stepCollection(collection) == VT_COLLECTION_PENDING) {
    struct pollfd watched;
    watched.fd = voltaris_getCollectionDescriptor(collection);
    watched.events = voltaris_getCollectionEvents(collection);
    (void)poll(&watched, 1, voltaris_getCollectionTimeout(collection));
  }
  CHECK(voltaris_getCollectionOutcome(collection) == VT_COLLECTION_COMPLETE);
  CHECK(voltaris_getCollectionErrno(collection) == 0);
  CHECK(voltaris_getCollectionCounters(collection)->accepted == 0);
  voltaris_cancelCollection(collection);
  nothing = voltaris_takeCollectionResult(collection);
  CHECK(nothing != NULL && voltaris_getErrorCode(nothing) == 0);
  voltaris_releaseCollection(collection);
  voltaris_releaseResult(nothing);
  voltaris_releaseQuery(again);

  /* The connection is at its end already, so the loop ends at once. */
  vtn_queryLoop(session, result);
  CHECK(result->answers_received == 3);
  vtn_processReply(values->raw, (int32_t)values->raw_len, result, &session->key);
  CHECK(result->answers_received == 4);
  add_acks(will, result);
  add_acks(wont, result);
  CHECK(voltaris_getAckCount(result) == 2);
  CHECK(voltaris_getNakCount(result) == 2);
  vtn_addResult(will, result);

  voltaris_releaseResult(result);
  voltaris_releaseQuery(query);
  voltaris_closeSession(session);
  CHECK(cv_cleanup_event(values) == 0);
  CHECK(cv_cleanup_event(will) == 0);
  CHECK(cv_cleanup_event(wont) == 0);
  CHECK(closeSocket(listener) == 0);
}

static void result_pieces(void) {
  static const uint8_t payload[16] = {0, 0, 0, 8, 0, 0, 0, 16, 0, 0, 0, 0, 'a', 'b', 'c', 'd'};
  const uint32_t entity_index = 7;
  uint16_t watts = 60;
  int32_t created = 0;
  uint32_t domain;
  AckEntry entry;
  aggregated_value aggregate;
  device_node device;
  combo_entry combo;
  entity_node* entity;
  ResultSet* result = new_resultset();
  Query* query = voltaris_createCollectQuery("office", 1);
  CHECK(result != NULL && query != NULL);
  memset(&entry, 'a', sizeof entry);
  memset(&aggregate, 0, sizeof aggregate);
  memcpy(aggregate.device.id.bytes, identity, 32);
  memset(&device, 0, sizeof device);
  device.key = &aggregate;
  memset(&combo, 0, sizeof combo);
  combo.data = &watts;
  CHECK(voltaris_addGetAttribute(query, VT_ATTRIBUTE_USAGE) == 0);
  result->query = query;
  result->acks = calloc(1028, sizeof *result->acks);
  result->naks = calloc(1028, sizeof *result->naks);
  add_ack(result, &entry);
  add_nack(result, &entry);
  CHECK(voltaris_getAckCount(result) == 1 && voltaris_getNakCount(result) == 1);
  domain = vtn_getDomainFromPayload(payload, sizeof payload);
  CHECK(memcmp(&domain, "abcd", 4) == 0);
  CHECK(dh_id_compare(&device, identity) == 1);

  entity =
      vtn_checkQueue(&device.entities, &entity_index, ent_entidx_compare, sizeof *entity, &created);
  CHECK(entity != NULL && created == 1);
  entity->entity_index = entity_index;
  CHECK(ent_entidx_compare(entity, &entity_index) == 1);
  CHECK(vtn_checkQueue(&device.entities, &entity_index, ent_entidx_compare, sizeof *entity,
                       &created) == entity);
  CHECK(created == 0);
  vtn_addTlvToResultRow(entity, VT_ATTRIBUTE_USAGE, 2, &watts, result);
  CHECK(queryqueuedepth(&entity->attributes) == 1);
  vtn_addComboTlvsToResultRow(entity, &combo, result, 43);
  CHECK(queryqueuedepth(&entity->attributes) > 1);
  while (peekqueuehead(&entity->attributes) != NULL) free(dequeue(&entity->attributes));
  free(dequeue(&device.entities));
  voltaris_releaseResult(result);
  voltaris_releaseQuery(query);
}

int main(void) {
  log_settings();
  version();
  hashes();
  identifiers();
  queues();
  catalogue();
  scalars();
  texts_and_blocks();
  identity_structures();
  header_structures();
  value_structures();
  elements();
  headers();
  outgoing_event();
  incoming_event();
  aggregates();
  keywords();
  filters();
  streams();
  datagrams();
  sessions();
  queries();
  collection();
  fleet();
  result_pieces();
  printf("%d checks, %d failures\n", num_checks, num_failures);
  return num_failures == 0 ? 0 : 1;
}
