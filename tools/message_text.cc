#include "tools/message_text.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ostream>
#include <string>
#include <string_view>

#include "vtapi/tlv.h"

#include "recording/quoted_text.h"

namespace vt::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kNameWidth = 18;

struct SignatureWords {
  Signature signature;
  std::string_view word;
  std::string_view sentence;
};

constexpr std::array kSignatures = {
    SignatureWords{Signature::kVerified, "verified", "signed with the key"},
    SignatureWords{Signature::kIdentity, "identity", "signed with an identity, without a key"},
    SignatureWords{Signature::kForged, "forged", "NOT signed with the key"},
    SignatureWords{Signature::kUnchecked, "unchecked", "signed with a key that is not known here"},
    SignatureWords{Signature::kNone, "none", "not signed"},
};

const SignatureWords& WordsOf(Signature signature) {
  return *std::ranges::find(kSignatures, signature, &SignatureWords::signature);
}

std::string SenderText(const message_header& header) {
  voltaris::DeviceId sender;
  std::ranges::copy(header.voltarisid, sender.bytes.begin());
  return sender.text();
}

// Digits puts zeros in front of a number that is not negative.
template <class Number>
std::string Digits(Number number, std::size_t width) {
  std::string digits = std::to_string(number);
  if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
  return digits;
}

// Inline is a value in one line; texts are quoted, so that none can leave it.
std::string Inline(const Json& value) {
  if (value.is_null()) return "-";
  if (value.is_string()) return recording::Quote(value.get_ref<const std::string&>());
  if (!value.is_structured()) return value.dump();
  std::string text;
  for (const auto& [key, member] : value.items()) {
    if (!text.empty()) text += value.is_array() ? " " : ", ";
    if (value.is_object()) text += key + " ";
    text += Inline(member);
  }
  return text.empty() ? "none" : text;
}

std::string TypeName(const DecodedElement& element) {
  if (!element.name.empty()) return element.name;
  return "type-" + std::to_string(element.type & VT_TLV_NUMBER_MASK);
}

std::string Padded(std::string text) {
  text.resize(std::max(text.size() + 1, kNameWidth), ' ');
  return text;
}

bool IsAggregate(const DecodedElement& element) {
  return (element.type & VT_TLV_AGGREGATED) != 0 && element.value.is_object();
}

void PrintElement(std::ostream& out, const DecodedElement& element) {
  out << "  " << Padded(TypeName(element));
  if (element.qualifier != 0) out << "qualifier ";
  if (!IsAggregate(element)) {
    out << Inline(element.value) << '\n';
    return;
  }
  out << "of " << Inline(element.value["device"]) << " at " << Inline(element.value["address"])
      << '\n';
  for (const Json& entry : element.value["entries"]) out << "    " << Inline(entry) << '\n';
}

std::string PassageText(const Passage& passage) {
  if (!passage.flow) return {};
  return ", " + passage.flow->from.text() + " > " + passage.flow->to.text() +
         (passage.nanoseconds == 0 ? "" : ", " + TimeText(passage.nanoseconds));
}

Json ElementJson(const DecodedElement& element) {
  Json members = {{"type", element.type & VT_TLV_NUMBER_MASK},
                  {"name", TypeName(element)},
                  {"aggregated", (element.type & VT_TLV_AGGREGATED) != 0},
                  {"qualifier", element.qualifier}};
  members["value"] = element.value;
  return members;
}

void AddPassage(Json& members, const Passage& passage) {
  if (!passage.flow) return;
  members["from"] = passage.flow->from.text();
  members["to"] = passage.flow->to.text();
  if (passage.nanoseconds != 0) members["time"] = TimeText(passage.nanoseconds);
}

}  // namespace

std::string TimeText(std::uint64_t nanoseconds) {
  // Not by way of time_t, which ends in 2038 where it has 32 bits.
  using std::chrono::seconds;
  constexpr std::uint64_t second = 1000000000;
  const std::chrono::sys_seconds time(seconds(static_cast<std::int64_t>(nanoseconds / second)));
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  return Digits(static_cast<int>(date.year()), 4) + "-" +
         Digits(static_cast<unsigned>(date.month()), 2) + "-" +
         Digits(static_cast<unsigned>(date.day()), 2) + "T" + Digits(clock.hours().count(), 2) +
         ":" + Digits(clock.minutes().count(), 2) + ":" + Digits(clock.seconds().count(), 2) + "." +
         Digits(nanoseconds % second / 1000, 6) + "Z";
}

void PrintMessage(std::ostream& out, std::size_t number, const DecodedMessage& message,
                  const Passage& passage) {
  out << "message " << number << ", " << message.size << " bytes" << PassageText(passage) << '\n';
  if (message.has_header) {
    const message_header& header = message.header;
    out << "  " << ClassName(header) << ' ' << ActionName(header) << ", " << ShipmentName(header)
        << ", sequence " << header.seq << ", priority " << int{header.pri} << ", from "
        << recording::Quote(SenderText(header)) << '\n'
        << "  " << WordsOf(message.signature).sentence << '\n';
  }
  for (const DecodedElement& element : message.elements) PrintElement(out, element);
  if (!message.fault.empty()) out << "  cannot be read: " << message.fault << '\n';
  out << '\n';
}

Json MessageJson(std::size_t number, const DecodedMessage& message, const Passage& passage) {
  Json members = {{"message", number}, {"size", message.size}};
  AddPassage(members, passage);
  if (message.has_header) {
    const message_header& header = message.header;
    members["class"] = ClassName(header);
    members["action"] = ActionName(header);
    members["shipment"] = ShipmentName(header);
    members["sequence"] = header.seq;
    members["priority"] = header.pri;
    members["sender"] = SenderText(header);
    members["version"] = header.ver;
  }
  members["signature"] = WordsOf(message.signature).word;
  Json elements = Json::array();
  for (const DecodedElement& element : message.elements) elements.push_back(ElementJson(element));
  members["elements"] = std::move(elements);
  members["fault"] = message.fault.empty() ? Json(nullptr) : Json(message.fault);
  return members;
}

}  // namespace vt::tools
