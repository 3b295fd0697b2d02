// What to ask: a QueryDescription, which is a value and can be executed any number of times on any
// number of nodes, and the Query that is built from it for one execution.
#ifndef VTAPI_FACE_QUERY_HPP
#define VTAPI_FACE_QUERY_HPP

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vtapi/event.h"
#include "vtapi/face/attributes.hpp"
#include "vtapi/face/error.hpp"
#include "vtapi/keywords.h"
#include "vtapi/query.h"
#include "vtapi/tlv.h"

namespace voltaris {

// Query owns a query of the C interface that was not executed yet; one that was is inside of the
// Collection or the Results that came of it.
class Query {
 public:
  // get is the query for calls of the C interface; null in one that was moved from.
  ::Query* get() const { return query_.get(); }

 private:
  friend class QueryDescription;
  friend class Collection;
  friend class Fleet;

  struct Release {
    void operator()(::Query* query) const { voltaris_releaseQuery(query); }
  };

  explicit Query(::Query* query) : query_(query) {}

  std::unique_ptr<::Query, Release> query_;
};

enum class QueryKind { kCollect, kSet, kSum };

// QueryDescription says what to ask of which devices:
//
//   const auto lamps = voltaris::collect_query("office")
//                          .get(voltaris::name, voltaris::usage)
//                          .where(voltaris::role, "lamp*");
//
// What cannot travel is reported when the query is built, with the part that is to blame.
class QueryDescription {
 public:
  QueryDescription(QueryKind of_kind, std::string of_domain)
      : kind_(of_kind), domain_(std::move(of_domain)) {}

  // get asks for attributes, each of which becomes a column of the rows; usage and the two vectors
  // bring their units. A sum has usage and delta_vector alone. In a set query, attributes that
  // devices would take for something to set cannot be asked for: what is set is told anyway.
  template <AnyAttribute... Attributes>
  QueryDescription& get(Attributes... attributes) & {
    (gets_.push_back(attributes.number), ...);
    return *this;
  }
  template <AnyAttribute... Attributes>
  QueryDescription get(Attributes... attributes) && {
    get(attributes...);
    return std::move(*this);
  }

  // set sets an attribute, and makes it a column. Of a set query only.
  template <SettableAttribute A>
  QueryDescription& set(A attribute, const typename A::Kind::set_type& value) & {
    assignments_.push_back({attribute.number, A::Kind::Encode(value)});
    return *this;
  }
  template <SettableAttribute A>
  QueryDescription set(A attribute, const typename A::Kind::set_type& value) && {
    set(attribute, value);
    return std::move(*this);
  }

  // where selects devices. Several of one kind are alternatives, different kinds must all hold.
  // Names and roles may end in a star. Devices with any of the keywords are meant.
  QueryDescription& where(decltype(identity), const DeviceId& device) & {
    devices_.push_back(device);
    return *this;
  }
  QueryDescription& where(decltype(role), std::string_view pattern) & {
    roles_.emplace_back(pattern);
    return *this;
  }
  QueryDescription& where(decltype(name), std::string_view pattern) & {
    names_.emplace_back(pattern);
    return *this;
  }
  QueryDescription& where(decltype(keywords), const std::vector<std::string>& any_of) & {
    keywords_.insert(keywords_.end(), any_of.begin(), any_of.end());
    return *this;
  }
  QueryDescription& where(decltype(category), Category wanted) & {
    categories_.push_back(wanted);
    return *this;
  }
  template <AnyAttribute A, class Value>
  QueryDescription where(A attribute, const Value& value) && {
    where(attribute, value);
    return std::move(*this);
  }
  QueryDescription where(decltype(keywords) attribute, const std::vector<std::string>& any_of) && {
    where(attribute, any_of);
    return std::move(*this);
  }

  // priority is 100 unless it is said; devices obey queries whose priority is not below their
  // importance.
  QueryDescription& priority(std::uint8_t number) & {
    priority_ = number;
    return *this;
  }
  QueryDescription priority(std::uint8_t number) && {
    priority(number);
    return std::move(*this);
  }

  // timeout is how long devices may take, 1 to 180 seconds, 6 unless it is said.
  QueryDescription& timeout(std::chrono::seconds time) & {
    timeout_ = time;
    return *this;
  }
  QueryDescription timeout(std::chrono::seconds time) && {
    timeout(time);
    return std::move(*this);
  }

  QueryKind query_kind() const { return kind_; }
  const std::string& query_domain() const { return domain_; }
  std::uint8_t priority() const { return priority_; }
  std::chrono::seconds timeout() const { return timeout_; }

  // build makes a Query for one execution, or tells which part of the description is at fault.
  Expected<Query> build() const;

  friend bool operator==(const QueryDescription&, const QueryDescription&) = default;

 private:
  struct Assignment {
    std::int32_t number;
    detail::Encoded value;

    friend bool operator==(const Assignment&, const Assignment&) = default;
  };
  using Fault = std::optional<Error>;

  static constexpr std::int64_t kLongestTimeout = 180;

  Fault Check() const;
  Fault CheckColumns() const;
  Fault CheckQualifiers() const;
  ::Query* Create() const;
  Fault Fill(::Query& query) const;
  Fault AddQualifiers(::Query& query) const;
  static Fault AddAssignment(::Query& query, const Assignment& assignment);
  static Fault AddElement(::Query& query, std::uint32_t type, const void* value, std::uint32_t size,
                          const std::string& what);
  static bool Fits(const ::Query& query, std::size_t size);
  static Error TooLong(const std::string& what);
  static Error NoMemory(const std::string& what);

  QueryKind kind_;
  std::string domain_;
  std::uint8_t priority_ = 100;
  std::chrono::seconds timeout_{6};
  std::vector<std::int32_t> gets_;
  std::vector<Assignment> assignments_;
  std::vector<DeviceId> devices_;
  std::vector<std::string> roles_;
  std::vector<std::string> names_;
  std::vector<std::string> keywords_;
  std::vector<Category> categories_;
};

// The three kinds of query: to read attributes, to set some, to have the sum of some.
inline QueryDescription collect_query(std::string of_domain) {
  return {QueryKind::kCollect, std::move(of_domain)};
}
inline QueryDescription set_query(std::string of_domain) {
  return {QueryKind::kSet, std::move(of_domain)};
}
inline QueryDescription sum_query(std::string of_domain) {
  return {QueryKind::kSum, std::move(of_domain)};
}

// is_plain tells whether a text has only the characters that names of devices should have: letters,
// digits, blanks and ~!@#$%^&()_-+={}[]\:.,></, and at least one of them.
inline bool is_plain(const std::string& text) {
  constexpr int blanks_allowed = 2;
  return !detail::HasZero(text) && vtn_string_in_whitelist(text.c_str(), blanks_allowed) != 0;
}

namespace detail {

// IsControl tells the attributes that a set query must not ask for: the request carries a zero,
// which a device would take for the value to set.
constexpr bool IsControl(std::int32_t number) {
  return number == VT_ATTRIBUTE_LEVEL || number == VT_ATTRIBUTE_IMPORTANCE ||
         number == VT_ATTRIBUTE_NANNY_VECTOR || number == VT_ATTRIBUTE_RECURRENCE ||
         number == VT_ATTRIBUTE_QUERY_TIMEOUT;
}

constexpr bool IsSummable(std::int32_t number) {
  return number == VT_ATTRIBUTE_USAGE || number == VT_ATTRIBUTE_DELTA_VECTOR;
}

// Succeeds makes a call that returns 0 unless it fails. What is left in errno tells of memory that
// the call could do without, after a fashion: that is no success here.
template <class Call>
bool Succeeds(Call call) {
  errno = 0;
  return call() == 0 && errno != ENOMEM;
}

}  // namespace detail

inline Expected<Query> QueryDescription::build() const {
  if (Fault fault = Check()) return std::move(*fault);
  Query query(Create());
  // The library makes a query without its domain where there is no memory for that.
  if (query.get() == nullptr ||
      cv_get_next_tlv(query.get()->event, CV_CORVANE_TLV_TYPE_DOMAIN) == nullptr) {
    return NoMemory("the query");
  }
  if (Fault fault = Fill(*query.get())) return std::move(*fault);
  return Expected<Query>(std::move(query));
}

// Check finds what can be found without a query.
inline QueryDescription::Fault QueryDescription::Check() const {
  if (detail::HasZero(domain_)) {
    return detail::MakeError(Cause::kBadDomain, {"the domain must not hold a zero byte"});
  }
  if (timeout_.count() < 1 || timeout_.count() > kLongestTimeout) {
    return detail::MakeError(
        Cause::kBadTimeout,
        {"the time-out must be from 1 to 180 seconds, not ", std::to_string(timeout_.count())});
  }
  if (Fault fault = CheckColumns()) return fault;
  return CheckQualifiers();
}

inline QueryDescription::Fault QueryDescription::CheckColumns() const {
  for (const Assignment& assignment : assignments_) {
    const std::string word(word_of(assignment.number));
    if (kind_ != QueryKind::kSet) {
      return detail::MakeError(Cause::kBadAttribute, {word, " can be set by a set query only"});
    }
    if (!assignment.value.fault.empty()) {
      return detail::MakeError(Cause::kBadValue, {word, ": ", assignment.value.fault});
    }
  }
  for (const std::int32_t number : gets_) {
    const std::string word(word_of(number));
    if (kind_ == QueryKind::kSum && !detail::IsSummable(number)) {
      return detail::MakeError(Cause::kBadAttribute,
                               {"a sum can be had of usage and of delta-vector, not of ", word});
    }
    if (kind_ == QueryKind::kSet && detail::IsControl(number)) {
      return detail::MakeError(Cause::kBadAttribute,
                               {"a set query that asks for ", word, " would set it to 0"});
    }
  }
  return std::nullopt;
}

inline QueryDescription::Fault QueryDescription::CheckQualifiers() const {
  for (const auto& [word, patterns] : {std::pair{"role", &roles_}, std::pair{"name", &names_}}) {
    for (const std::string& pattern : *patterns) {
      if (!detail::HasZero(pattern)) continue;
      return detail::MakeError(Cause::kBadQualifier,
                               {"the qualifier ", word, " must not hold a zero byte"});
    }
  }
  if (const std::string fault = detail::JoinKeywords(keywords_).fault; !fault.empty()) {
    return detail::MakeError(Cause::kBadQualifier, {"the qualifier keywords: ", fault});
  }
  return std::nullopt;
}

inline ::Query* QueryDescription::Create() const {
  switch (kind_) {
    case QueryKind::kSet:
      return voltaris_createSetQuery(domain_.c_str(), priority_);
    case QueryKind::kSum:
      return voltaris_createSumQuery(domain_.c_str(), priority_);
    case QueryKind::kCollect:
      break;
  }
  return voltaris_createCollectQuery(domain_.c_str(), priority_);
}

// Fits is the library's own estimate, for what the library does not hold against it: the domain,
// and elements that are added directly.
inline bool QueryDescription::Fits(const ::Query& query, std::size_t size) {
  constexpr std::size_t allowance = 180;
  return vt_get_total_tlvs_data_size(query.event) + allowance + size <= VT_MAX_PDU_SIZE;
}

inline Error QueryDescription::TooLong(const std::string& what) {
  return detail::MakeError(Cause::kTooLong,
                           {what, " could not be added: a query must fit into 1400 bytes"});
}

inline Error QueryDescription::NoMemory(const std::string& what) {
  return detail::MakeError(Cause::kNoMemory, {what, " could not be made: out of memory"}, ENOMEM);
}

inline QueryDescription::Fault QueryDescription::Fill(::Query& query) const {
  if (!Fits(query, 0)) return TooLong("the domain");
  if (Fault fault = AddQualifiers(query)) return fault;
  for (const Assignment& assignment : assignments_) {
    if (Fault fault = AddAssignment(query, assignment)) return fault;
  }
  for (const std::int32_t number : gets_) {
    if (detail::Succeeds([&] { return voltaris_addGetAttribute(&query, number); })) continue;
    const std::string what(word_of(number));
    return errno == ENOMEM ? NoMemory(what) : TooLong(what);
  }
  return std::nullopt;
}

inline QueryDescription::Fault QueryDescription::AddQualifiers(::Query& query) const {
  const auto add = [&query](std::int32_t number, const void* value, const std::string& what) {
    if (detail::Succeeds([&] { return voltaris_addQualifier(&query, number, value); })) {
      return Fault();
    }
    return Fault(errno == ENOMEM ? NoMemory(what) : TooLong(what));
  };
  for (const Category wanted : categories_) {
    const auto number = static_cast<std::int32_t>(wanted);
    if (Fault fault = AddElement(query, VT_TLV_USAGE_CATEGORY, &number, sizeof number,
                                 "the qualifier category")) {
      return fault;
    }
  }
  for (const DeviceId& device : devices_) {
    sender_id wanted{};
    std::memcpy(wanted.id.bytes, device.bytes.data(), sizeof wanted.id.bytes);
    const std::string what = detail::Join({"the qualifier identity ", device.text()});
    if (Fault fault = add(VT_ATTRIBUTE_ID, &wanted, what)) return fault;
  }
  for (const std::string& pattern : roles_) {
    const std::string what = detail::Join({"the qualifier role ", pattern});
    if (Fault fault = add(VT_ATTRIBUTE_ROLE, pattern.c_str(), what)) return fault;
  }
  for (const std::string& pattern : names_) {
    const std::string what = detail::Join({"the qualifier name ", pattern});
    if (Fault fault = add(VT_ATTRIBUTE_NAME, pattern.c_str(), what)) return fault;
  }
  // In one list, for devices look at the first keywords of a query only.
  if (const std::string list = detail::JoinKeywords(keywords_).bytes; !list.empty()) {
    const std::string what = detail::Join({"the qualifier keywords ", list});
    if (Fault fault = add(VT_ATTRIBUTE_KEYWORDS, list.c_str(), what)) return fault;
  }
  const auto seconds = static_cast<std::uint8_t>(timeout_.count());
  return add(VT_ATTRIBUTE_QUERY_TIMEOUT, &seconds, "the time-out");
}

inline QueryDescription::Fault QueryDescription::AddAssignment(::Query& query,
                                                               const Assignment& assignment) {
  const std::string what(word_of(assignment.number));
  const std::string& bytes = assignment.value.bytes;
  // The library takes a record or a number where its type may lie.
  alignas(std::max_align_t) std::array<char, sizeof(::delta_vector)> aligned{};
  const void* value = bytes.c_str();
  std::string text;  // cppcheck-suppress variableScope; the record points to it
  if (assignment.number == VT_ATTRIBUTE_RECURRENCE) {
    const auto parts = kind::RecurrenceRecord::DecodeFlat(bytes);
    if (!parts) return detail::MakeError(Cause::kBadValue, {what});
    text = parts->text;
    const ::recurrence record = {text.data(), parts->byte1, parts->byte2, parts->flag};
    static_assert(sizeof record <= sizeof aligned);
    std::memcpy(aligned.data(), &record, sizeof record);
    value = aligned.data();
  } else if (vtn_getTypeLength(
                 static_cast<std::uint32_t>(vt_get_tlv_enum_type(assignment.number))) != 0) {
    std::memcpy(aligned.data(), bytes.data(), std::min(bytes.size(), aligned.size()));
    value = aligned.data();
  }
  if (detail::Succeeds(
          [&] { return voltaris_addSetAttribute(&query, assignment.number, value); })) {
    return std::nullopt;
  }
  return errno == ENOMEM ? NoMemory(what) : TooLong(what);
}

// AddElement adds a qualifier that the qualifier call does not know.
inline QueryDescription::Fault QueryDescription::AddElement(::Query& query, std::uint32_t type,
                                                            const void* value, std::uint32_t size,
                                                            const std::string& what) {
  constexpr std::uint32_t qualifier = 1;
  if (!Fits(query, VT_TLV_HEADER_SIZE + size)) return TooLong(what);
  if (cv_add_tlv_common(query.event, type, VT_TLV_HEADER_SIZE + size, value, qualifier) != 0) {
    return NoMemory(what);
  }
  return std::nullopt;
}

}  // namespace voltaris

#endif  // VTAPI_FACE_QUERY_HPP
