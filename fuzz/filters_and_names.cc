// A message held against the filters of an endpoint, and arbitrary bytes given to keyword lists and
// look-ups of names. Behind the message: the importance, a byte of switches, four bytes for the
// category and the value to name, then name, role and keywords, each to its zero byte, and a text.
#include <algorithm>

#include "fuzz/check.h"
#include "fuzz/heap_meter.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "fuzz/time_limit.h"

namespace vt::fuzz {

const Layout kInputLayout = Layout::kMessages;

namespace {

// TakeText cuts the bytes up to the next zero byte off and returns them as a terminated text.
Block TakeText(Bytes& rest) {
  const auto end = std::find(rest.begin(), rest.end(), 0);
  const auto length = static_cast<std::size_t>(end - rest.begin());
  const Block text(length + 1);
  if (length != 0) std::memcpy(text.data(), rest.data(), length);
  text.data()[length] = 0;
  rest = rest.subspan(std::min(length + 1, rest.size()));
  return Block(text.bytes());
}

const char* TextOf(const Block& block) {
  return static_cast<const char*>(static_cast<const void*>(block.data()));
}

std::uint32_t category;

std::uint32_t Category(const Event* /*ev*/, const corvane_endpoint* /*endpoint*/) {
  return category;
}

// Filter checks that the filters agree with each other.
void Filter(Event& ev, const corvane_endpoint& endpoint, int importance) {
  const int role = cv_role_filter(&ev, &endpoint);
  const int name = cv_name_filter(&ev, &endpoint);
  const int keywords = cv_keyword_filter(&ev, &endpoint);
  const int of_category = cv_category_filter(&ev, &endpoint);
  const int sender = cv_sender_id_or_wildcard_filter(&ev, &endpoint);
  const int all = cv_exec_filter(&ev, &endpoint, importance);
  for (const int verdict : {role, name, keywords, of_category, sender, all}) {
    FUZZ_CHECK(verdict == 0 || verdict == 1);
  }
  std::int32_t index = 0;
  std::uint32_t length = 0;
  (void)cv_get_next_tlv_value_common(&ev, &index, CV_CORVANE_TLV_TYPE_VLTRS_ID, &length, 1);
  if (index == -1) FUZZ_CHECK(sender == (role & name & keywords & of_category));
  const bool important = ev.pak != nullptr && ev.pak->pri >= importance;
  FUZZ_CHECK(all == (important ? sender : 0));
}

// SplitIntoItems checks that keyword arrays have no empty item and no separator in one.
void SplitIntoItems(const char* text) {
  char** list = createKeywordList(text);
  FUZZ_CHECK(list != nullptr);
  for (char** item = list; *item != nullptr; ++item) {
    FUZZ_CHECK(**item != '\0' && std::strpbrk(*item, ", \t") == nullptr);
  }
  freeKeywordList(list);
}

// ConvertLists checks that a comma list survives its way to a keyword list and back.
void ConvertLists(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  char* list = corvane_conv_kw_list(text);
  FUZZ_CHECK(list != nullptr && std::memchr(list, ',', size) == nullptr);
  char* back = cv_get_comma_sep_list(list, static_cast<int>(size));
  FUZZ_CHECK(back != nullptr && std::strcmp(back, text) == 0);
  std::free(list);
  std::free(back);
}

void Match(const char* subject, const char* pattern) {
  const int matches = cv_wildcard_match(subject, pattern);
  if (std::strcmp(subject, pattern) == 0) FUZZ_CHECK(matches == 1);
  if (std::strchr(pattern, '*') == nullptr) {
    FUZZ_CHECK(matches == (std::strcmp(subject, pattern) == 0 ? 1 : 0));
  }
}

// LookUpNames looks the text and the value up in every enumeration, both ways.
// NOLINTNEXTLINE(readability-function-size): the macro makes it long
void LookUpNames(const char* text, std::int32_t value) {
#define FUZZ_LOOK_UP(word, LIST)                                                    \
  {                                                                                 \
    const std::int32_t found = cv_util_s2e_##word(text);                            \
    if (found != VT_UNKNOWN_NAME) FUZZ_CHECK(cv_util_e2s_##word(found) != nullptr); \
    const char* name = cv_util_e2s_##word(value);                                   \
    if (name != nullptr) FUZZ_CHECK(std::strlen(name) > 0);                         \
  }
  CV_ENUMERATION_LIST(FUZZ_LOOK_UP)
#undef FUZZ_LOOK_UP
  (void)vtn_getTypeLength(static_cast<std::uint32_t>(value));
  const std::int32_t attribute = vt_get_external_tlv_enum_type(static_cast<std::uint32_t>(value));
  if (attribute != -1) FUZZ_CHECK(attribute >= 1 && attribute <= 22);
  (void)vt_get_tlv_enum_type(value);
  (void)vt_get_class_enum_type(value);
  (void)vt_get_action_enum_type(value & 3, value >> 2);
}

Event* Decode(Bytes message) {
  const Block wire(message);
  Event* ev = cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(wire.size()), wire.data());
  if (ev != nullptr) (void)cv_unpack_event(ev, &RightKey());
  return ev;
}

void Run(Bytes input) {
  Event* ev = Decode(TakeMessage(input));
  const std::uint8_t importance = input.empty() ? std::uint8_t{0} : input[0];
  const unsigned switches = input.size() > 1 ? input[1] : 0;
  const std::uint32_t value = input.size() >= 6 ? Load32(input.data() + 2) : 1;
  input = input.subspan(std::min<std::size_t>(input.size(), 6));
  const Block name = TakeText(input);
  const Block role = TakeText(input);
  const Block keywords = TakeText(input);
  if (ev != nullptr) {
    corvane_endpoint endpoint;
    std::memset(&endpoint, 0, sizeof endpoint);
    if ((switches & 1) == 0) endpoint.name = TextOf(name);
    if ((switches & 2) == 0) endpoint.role = TextOf(role);
    if ((switches & 4) == 0) endpoint.keywords = TextOf(keywords);
    if ((switches & 8) == 0) endpoint.category = Category;
    std::memset(endpoint.identity, static_cast<int>(switches >> 4) + 0xA0,
                sizeof endpoint.identity);
    category = value;
    Filter(*ev, endpoint, (switches & 16) != 0 ? -importance : importance);
    cv_cleanup_event(ev);
  }
  const Block bytes(input);
  char* list = cv_get_comma_sep_list(TextOf(bytes), static_cast<int>(bytes.size()));
  FUZZ_CHECK((list != nullptr) == (bytes.size() != 0));
  if (list != nullptr) Look(list, std::strlen(list) + 1);
  std::free(list);
  const Block text = TakeText(input);
  SplitIntoItems(TextOf(text));
  ConvertLists(TextOf(text));
  Match(TextOf(text), TextOf(name));
  Match(TextOf(name), TextOf(text));
  const int strict = vtn_string_in_whitelist(TextOf(text), 1);
  FUZZ_CHECK(strict <= vtn_string_in_whitelist(TextOf(text), 2));
  LookUpNames(TextOf(text), static_cast<std::int32_t>(value));
}

}  // namespace

}  // namespace vt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vt::fuzz::TimeLimit limit;
  vt::fuzz::SetUpLog(size);
  const vt::fuzz::HeapMeter meter;
  vt::fuzz::Run({data, size});
  FUZZ_CHECK(meter.balanced());
  return 0;
}
