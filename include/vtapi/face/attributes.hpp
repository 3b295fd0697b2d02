// The attributes of devices as constants that know the type of their values:
//
//   std::optional<std::string_view> text = row.get(voltaris::name);
//
// A value whose length is not what its type needs is an absent value. Nothing here needs values to
// be aligned.
#ifndef VTAPI_FACE_ATTRIBUTES_HPP
#define VTAPI_FACE_ATTRIBUTES_HPP

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vtapi/catalogue.h"
#include "vtapi/face/error.hpp"
#include "vtapi/face/identity.hpp"
#include "vtapi/face/values.hpp"
#include "vtapi/values.h"

namespace voltaris {

// RawValue is a value as the library hands it out, or null. The flat form of the two records that
// hold pointers is that of owning copies.
struct RawValue {
  const void* at = nullptr;
  std::uint32_t length = 0;
  bool is_flat = false;

  bool present() const { return at != nullptr && length != 0; }
  std::string_view characters() const { return {static_cast<const char*>(at), length}; }
};

namespace detail {

template <class T>
T Load(const void* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

template <class T>
std::optional<T> LoadExactly(const RawValue& raw) {
  if (raw.length != sizeof(T)) return std::nullopt;
  return Load<T>(raw.at);
}

template <class T>
std::string BytesOf(const T& value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// Encoded is a value to be set: its bytes in host order, or what is wrong with it.
struct Encoded {
  std::string bytes;
  std::string fault;

  friend bool operator==(const Encoded&, const Encoded&) = default;
};

// Faulty says what is wrong with a value.
VTAPI_FACE_COLD inline Encoded Faulty(std::initializer_list<std::string_view> parts) {
  return {{}, Join(parts)};
}

inline bool HasZero(std::string_view text) { return text.find('\0') != std::string_view::npos; }

// JoinKeywords makes a text with commas in between; an item that would not come out of it again is
// a fault.
inline Encoded JoinKeywords(const std::vector<std::string>& items) {
  Encoded joined;
  for (const std::string& item : items) {
    if (item.empty() || HasZero(item) || item.find(',') != std::string::npos) {
      return detail::Faulty({"a keyword must not be empty, nor hold a comma or a zero byte"});
    }
    if (!joined.bytes.empty()) joined.bytes += ',';
    joined.bytes += item;
  }
  return joined;
}

// FlatReader reads the flat form of a record: what FlatWriter wrote.
class FlatReader {
 public:
  explicit FlatReader(std::string_view rest) : rest_(rest) {}

  template <class T>
  bool Take(T& value) {
    if (rest_.size() < sizeof value) return false;
    std::memcpy(&value, rest_.data(), sizeof value);
    rest_.remove_prefix(sizeof value);
    return true;
  }
  bool TakeCounted(std::string_view& bytes) {
    std::uint32_t size = 0;
    if (!Take(size) || rest_.size() < size) return false;
    bytes = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return true;
  }
  bool AtEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

class FlatWriter {
 public:
  template <class T>
  void Put(const T& value) {
    bytes_ += BytesOf(value);
  }
  void PutCounted(std::string_view bytes) {
    Put(static_cast<std::uint32_t>(bytes.size()));
    bytes_ += bytes;
  }
  std::string Take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

inline std::string_view OrEmpty(const char* text) {
  return text != nullptr ? std::string_view(text) : std::string_view();
}

}  // namespace detail

// The kinds of values: the type that a getter gives (value_type) with its decoding and, where it
// can be set, the type that a setter takes (set_type) with its encoding.
namespace kind {

using detail::Encoded;

// Text ends at its zero byte, or where the value ends.
struct Text {
  using value_type = std::string_view;
  using set_type = std::string_view;

  static std::optional<value_type> Decode(const RawValue& raw) {
    const std::string_view all = raw.characters();
    return all.substr(0, all.find('\0'));
  }
  static Encoded Encode(set_type value) {
    // The library holds the length, with a zero byte, in eight bits.
    constexpr std::size_t longest = 254;
    if (detail::HasZero(value) || value.size() > longest) {
      return detail::Faulty({"a text has at most 254 characters, and no zero byte among them"});
    }
    return {std::string(value), {}};
  }
};

// Keywords travel with a zero byte behind each, which the last may lack, or as a text with commas.
struct Keywords {
  using value_type = std::vector<std::string>;
  using set_type = std::vector<std::string>;

  static std::optional<value_type> Decode(const RawValue& raw) {
    std::string_view rest = raw.characters();
    if (rest.back() == '\0') rest.remove_suffix(1);
    value_type items;
    if (rest.empty()) return items;
    constexpr std::string_view ends("\0,", 2);
    for (;;) {
      const std::size_t end = rest.find_first_of(ends);
      items.emplace_back(rest.substr(0, end));
      if (end == std::string_view::npos) return items;
      rest.remove_prefix(end + 1);
    }
  }
  static Encoded Encode(const set_type& value) {
    constexpr std::size_t longest = 254;
    Encoded joined = detail::JoinKeywords(value);
    if (joined.bytes.size() > longest) {
      return detail::Faulty(
          {"keywords must have at most 254 characters, commas in between included"});
    }
    return joined;
  }
};

// Integer travels as Wire, and is told as Shown, of which least to most can be set.
template <class Wire, class Shown, std::int64_t least = std::numeric_limits<Wire>::min(),
          std::int64_t most = std::numeric_limits<Wire>::max()>
struct Integer {
  using value_type = Shown;
  using set_type = std::int64_t;

  static std::optional<value_type> Decode(const RawValue& raw) {
    const auto value = detail::LoadExactly<Wire>(raw);
    return value ? std::optional<value_type>(*value) : std::nullopt;
  }
  static Encoded Encode(set_type value) {
    if (value < least || value > most) {
      return detail::Faulty({"must be from ", std::to_string(least), " to ", std::to_string(most),
                             ", not ", std::to_string(value)});
    }
    return {detail::BytesOf(static_cast<Wire>(value)), {}};
  }
};

// ReadOnly is a kind without what sets it.
template <class Other>
struct ReadOnly {
  using value_type = typename Other::value_type;

  static std::optional<value_type> Decode(const RawValue& raw) { return Other::Decode(raw); }
};

template <class Enumeration>
struct Enumerated {
  using value_type = Enumeration;
  using set_type = Enumeration;

  static std::optional<value_type> Decode(const RawValue& raw) {
    const auto number = detail::LoadExactly<std::int32_t>(raw);
    return number ? std::optional(static_cast<Enumeration>(*number)) : std::nullopt;
  }
  static Encoded Encode(set_type value) {
    return {detail::BytesOf(static_cast<std::int32_t>(value)), {}};
  }
};

// Power takes the units of its row besides.
struct Power {
  using value_type = Usage;
  using set_type = std::uint16_t;

  static std::optional<value_type> Decode(const RawValue& raw, std::optional<int> exponent) {
    const auto value = detail::LoadExactly<std::uint16_t>(raw);
    return value ? std::optional(Usage{*value, exponent}) : std::nullopt;
  }
  static Encoded Encode(set_type value) { return {detail::BytesOf(value), {}}; }
};

template <class Number>
struct Vector {
  using value_type = PowerVector<Number>;
  using set_type = std::array<Number, kLevelCount>;

  static std::optional<value_type> Decode(const RawValue& raw, std::optional<int> exponent) {
    const auto numbers = detail::LoadExactly<set_type>(raw);
    return numbers ? std::optional(value_type{*numbers, exponent}) : std::nullopt;
  }
  static Encoded Encode(const set_type& value) { return {detail::BytesOf(value), {}}; }
};

struct Entity {
  using value_type = EntityId;

  static std::optional<value_type> Decode(const RawValue& raw) {
    const auto entry = detail::LoadExactly<AckEntry>(raw);
    return entry ? std::optional(EntityId(*entry)) : std::nullopt;
  }
};

struct SocketAddress {
  using value_type = Address;

  static std::optional<value_type> Decode(const RawValue& raw) {
    const auto socket_address = detail::LoadExactly<sockaddr_in>(raw);
    if (!socket_address) return std::nullopt;
    Address result;
    std::memcpy(result.bytes.data(), &socket_address->sin_addr, result.bytes.size());
    result.port = ntohs(socket_address->sin_port);
    return result;
  }
};

// The two records: the library gives the record itself, with the length of its wire form.
struct NeighborRecord {
  using value_type = Neighbor;
  static constexpr std::uint32_t kLeastWireSize = 44;

  static std::optional<value_type> Decode(const RawValue& raw) {
    if (raw.is_flat) return DecodeFlat(raw.characters());
    if (raw.length < kLeastWireSize) return std::nullopt;
    const auto record = detail::Load<::neighbor>(raw.at);
    Neighbor result;
    std::memcpy(result.device.bytes.data(), record.id.bytes, result.device.bytes.size());
    result.label = detail::OrEmpty(record.label);
    if (record.data != nullptr) {
      result.data = {static_cast<const std::uint8_t*>(record.data), record.data_len};
    }
    result.flag = record.flag;
    return result;
  }
  static std::string Flatten(const value_type& value) {
    detail::FlatWriter writer;
    writer.Put(value.device.bytes);
    writer.PutCounted(value.label);
    writer.PutCounted({reinterpret_cast<const char*>(value.data.data()), value.data.size()});
    writer.Put(value.flag);
    return writer.Take();
  }

 private:
  static std::optional<value_type> DecodeFlat(std::string_view bytes) {
    detail::FlatReader reader(bytes);
    Neighbor result;
    std::string_view data;
    if (!reader.Take(result.device.bytes) || !reader.TakeCounted(result.label) ||
        !reader.TakeCounted(data) || !reader.Take(result.flag) || !reader.AtEnd()) {
      return std::nullopt;
    }
    result.data = {reinterpret_cast<const std::uint8_t*>(data.data()), data.size()};
    return result;
  }
};

struct RecurrenceRecord {
  using value_type = Recurrence;
  using set_type = Recurrence;
  static constexpr std::uint32_t kLeastWireSize = 10;

  static std::optional<value_type> Decode(const RawValue& raw) {
    if (raw.is_flat) return DecodeFlat(raw.characters());
    if (raw.length < kLeastWireSize) return std::nullopt;
    const auto record = detail::Load<::recurrence>(raw.at);
    return Recurrence{detail::OrEmpty(record.text), record.byte1, record.byte2, record.flag};
  }
  static std::string Flatten(const value_type& value) {
    detail::FlatWriter writer;
    writer.PutCounted(value.text);
    writer.Put(value.byte1);
    writer.Put(value.byte2);
    writer.Put(value.flag);
    return writer.Take();
  }
  // What is set is kept in the flat form.
  static Encoded Encode(const set_type& value) {
    constexpr std::size_t longest =
        245;  // the library holds the length of the record in eight bits
    if (detail::HasZero(value.text) || value.text.size() > longest) {
      return detail::Faulty(
          {"the text must not hold a zero byte, and have at most 245 characters"});
    }
    return {Flatten(value), {}};
  }
  static std::optional<value_type> DecodeFlat(std::string_view bytes) {
    detail::FlatReader reader(bytes);
    Recurrence result;
    if (!reader.TakeCounted(result.text) || !reader.Take(result.byte1) ||
        !reader.Take(result.byte2) || !reader.Take(result.flag) || !reader.AtEnd()) {
      return std::nullopt;
    }
    return result;
  }
};

}  // namespace kind

// Attribute is one attribute of the catalogue.
template <std::int32_t of_number, class OfKind>
struct Attribute {
  static constexpr std::int32_t number = of_number;  // enum vt_attribute
  using Kind = OfKind;
  using value_type = typename OfKind::value_type;
};

// AnyAttribute is an Attribute, SettableAttribute one whose values can be part of a query.
template <class A>
concept AnyAttribute = requires {
  A::number;
  typename A::Kind;
  typename A::value_type;
};
template <class A>
concept SettableAttribute = AnyAttribute<A> && requires {
  typename A::Kind::set_type;
};

// The catalogue.
inline constexpr Attribute<VT_ATTRIBUTE_ID, kind::Entity> identity{};
inline constexpr Attribute<VT_ATTRIBUTE_ROLE, kind::Text> role{};
inline constexpr Attribute<VT_ATTRIBUTE_DOMAIN, kind::Text> domain{};
inline constexpr Attribute<VT_ATTRIBUTE_NAME, kind::Text> name{};
inline constexpr Attribute<VT_ATTRIBUTE_KEYWORDS, kind::Keywords> keywords{};
inline constexpr Attribute<VT_ATTRIBUTE_ERROR_STRING, kind::Text> error_text{};
inline constexpr Attribute<VT_ATTRIBUTE_UNITS, kind::Integer<std::int8_t, int>> units{};
inline constexpr Attribute<VT_ATTRIBUTE_USAGE, kind::Power> usage{};
inline constexpr Attribute<VT_ATTRIBUTE_LEVEL, kind::Integer<std::uint8_t, int, 0, 10>> level{};
inline constexpr Attribute<VT_ATTRIBUTE_IMPORTANCE, kind::Integer<std::uint8_t, int>> importance{};
inline constexpr Attribute<VT_ATTRIBUTE_ENTITY_TYPE, kind::Enumerated<EntityType>> entity_type{};
inline constexpr Attribute<VT_ATTRIBUTE_REPLY_TO, kind::SocketAddress> address{};
inline constexpr Attribute<VT_ATTRIBUTE_NEIGHBOR, kind::NeighborRecord> neighbor{};
inline constexpr Attribute<VT_ATTRIBUTE_NEIGHBOR_COUNT, kind::Integer<std::uint16_t, int>>
    neighbor_count{};
inline constexpr Attribute<VT_ATTRIBUTE_NANNY_VECTOR, kind::Integer<std::uint32_t, std::uint32_t>>
    nanny_vector{};
inline constexpr Attribute<VT_ATTRIBUTE_DELTA_VECTOR, kind::Vector<std::int32_t>> delta_vector{};
inline constexpr Attribute<VT_ATTRIBUTE_USAGE_CALIBER, kind::Enumerated<Caliber>> caliber{};
inline constexpr Attribute<VT_ATTRIBUTE_USAGE_VECTOR, kind::Vector<std::uint16_t>> usage_vector{};
inline constexpr Attribute<VT_ATTRIBUTE_QUERY_TIMEOUT,
                           kind::ReadOnly<kind::Integer<std::uint8_t, int>>>
    query_timeout{};
inline constexpr Attribute<VT_ATTRIBUTE_RECURRENCE, kind::RecurrenceRecord> recurrence{};
inline constexpr Attribute<VT_ATTRIBUTE_TEXT_21, kind::Text> text_21{};
inline constexpr Attribute<VT_ATTRIBUTE_USAGE_CATEGORY, kind::Enumerated<Category>> category{};

// visit_attribute calls visitor with the attribute of that number, for numbers that are known when
// the program runs; false when there is none.
template <class Visitor>
constexpr bool visit_attribute(std::int32_t number, Visitor visitor) {
  const auto visit_one = [number, &visitor](auto attribute) {
    if (attribute.number != number) return false;
    visitor(attribute);
    return true;
  };
  const auto visit_one_of = [&visit_one](auto... attributes) {
    return (visit_one(attributes) || ...);
  };
  return visit_one_of(identity, role, domain, name, keywords, error_text, units, usage, level,
                      importance, entity_type, address, neighbor, neighbor_count, nanny_vector,
                      delta_vector, caliber, usage_vector, query_timeout, recurrence, text_21,
                      category);
}

// word_of gives the word for an attribute number, "" for another.
constexpr std::string_view word_of(std::int32_t number) {
  constexpr std::array<std::string_view, 23> words = {"",
                                                      "identity",
                                                      "role",
                                                      "domain",
                                                      "name",
                                                      "keywords",
                                                      "error",
                                                      "units",
                                                      "usage",
                                                      "level",
                                                      "importance",
                                                      "entity-type",
                                                      "address",
                                                      "neighbor",
                                                      "neighbor-count",
                                                      "nanny-vector",
                                                      "delta-vector",
                                                      "caliber",
                                                      "usage-vector",
                                                      "query-timeout",
                                                      "recurrence",
                                                      "text-21",
                                                      "category"};
  static_assert(words.size() == VT_ATTRIBUTE_USAGE_CATEGORY + 1);
  if (number < 1 || number > VT_ATTRIBUTE_USAGE_CATEGORY) return {};
  return words[static_cast<std::size_t>(number)];
}

}  // namespace voltaris

#endif  // VTAPI_FACE_ATTRIBUTES_HPP
