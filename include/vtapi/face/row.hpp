// Rows: one for each entity of a device that answered. A Row borrows from its Results; an OwnedRow
// has its own copy of everything. Both have the same getters.
#ifndef VTAPI_FACE_ROW_HPP
#define VTAPI_FACE_ROW_HPP

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <ranges>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vtapi/catalogue.h"
#include "vtapi/face/attributes.hpp"
#include "vtapi/face/identity.hpp"
#include "vtapi/result_cursor.h"

namespace voltaris {

namespace detail {

// NamesUnits tells the kinds whose values need units.
template <class Kind>
concept TakesUnits = requires(const RawValue& raw, std::optional<int> exponent) {
  Kind::Decode(raw, exponent);
};

// IsOfTheRow tells the attributes that a row has once, and which are no values of its replies.
constexpr bool IsOfTheRow(std::int32_t number) {
  return number == VT_ATTRIBUTE_ID || number == VT_ATTRIBUTE_DOMAIN ||
         number == VT_ATTRIBUTE_REPLY_TO;
}

// UnitsSearch finds the units of one value among all values of a row, in order of arrival. Each
// usage and each vector brings a units column, so that a row may hold several units. Those of a
// value are the next behind it. A device may also tell them once for several values, in front of
// them: then the last ones before it are meant.
class UnitsSearch {
 public:
  UnitsSearch(std::int32_t number, std::size_t ordinal) : number_(number), ordinal_(ordinal) {}

  // See looks at the next value and returns whether to go on.
  bool See(std::int32_t number, const RawValue& raw) {
    if (number == number_) found_ = found_ || ordinal_-- == 0;
    if (number != VT_ATTRIBUTE_UNITS) return true;
    const auto told = LoadExactly<std::int8_t>(raw);
    if (raw.at == nullptr || !told) return true;
    units_ = *told;
    return !found_;
  }

  std::optional<int> result() const { return units_; }

 private:
  std::int32_t number_;
  std::size_t ordinal_;
  bool found_ = false;
  std::optional<int> units_;
};

// RowGetters is what rows have in common. Derived has Raw(number, ordinal), and ForEach(see), which
// calls see(number, raw) for each value in order of arrival until that returns false.
template <class Derived>
class RowGetters {
 public:
  // id names the entity, device its device; entity is its index there.
  EntityId id() const { return *get(voltaris::identity); }
  DeviceId device() const { return id().device; }
  std::uint32_t entity() const { return id().index; }

  // get returns the value of an attribute, the first or the one with that ordinal, or nothing.
  // Texts, labels and data in it lie where the row lies.
  template <AnyAttribute A>
  std::optional<typename A::value_type> get(A /*attribute*/, std::size_t ordinal = 0) const {
    const RawValue raw = self().Raw(A::number, ordinal);
    if (!raw.present()) return std::nullopt;
    if constexpr (TakesUnits<typename A::Kind>) {
      return A::Kind::Decode(raw, UnitsOf(A::number, ordinal));
    } else {
      return A::Kind::Decode(raw);
    }
  }

  // all returns all values of an attribute, in order of arrival, but those that get would not give.
  template <AnyAttribute A>
  std::vector<typename A::value_type> all(A attribute) const {
    std::vector<typename A::value_type> values;
    const std::size_t end = count(attribute);
    for (std::size_t i = 0; i < end; ++i) {
      if (auto value = get(attribute, i)) values.push_back(*std::move(value));
    }
    return values;
  }

  // count is how many values an attribute has, empty and ill-sized ones included.
  template <AnyAttribute A>
  std::size_t count(A /*attribute*/) const {
    return self().CountOf(A::number);
  }

 private:
  const Derived& self() const { return static_cast<const Derived&>(*this); }

  std::optional<int> UnitsOf(std::int32_t number, std::size_t ordinal) const {
    UnitsSearch search(number, ordinal);
    self().ForEach(
        [&search](std::int32_t seen, const RawValue& raw) { return search.See(seen, raw); });
    return search.result();
  }
};

}  // namespace detail

// OwnedRow is a copy of a row, which outlives the Results and can itself be copied.
class OwnedRow : public detail::RowGetters<OwnedRow> {
 public:
  friend bool operator==(const OwnedRow& a, const OwnedRow& b) {
    return a.values_ == b.values_ && a.bytes_ == b.bytes_;
  }

 private:
  friend class Row;
  friend class detail::RowGetters<OwnedRow>;

  struct Value {
    std::int32_t number;
    std::uint32_t start;
    std::uint32_t length;

    friend bool operator==(const Value&, const Value&) = default;
  };

  OwnedRow() = default;

  void Add(std::int32_t number, std::string_view bytes) {
    values_.push_back({number, static_cast<std::uint32_t>(bytes_.size()),
                       static_cast<std::uint32_t>(bytes.size())});
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }

  // AddCopy copies a value of a row, records in their flat form.
  void AddCopy(std::int32_t number, const RawValue& raw) {
    if (!raw.present()) {
      Add(number, {});
    } else if (number == VT_ATTRIBUTE_NEIGHBOR) {
      const auto value = kind::NeighborRecord::Decode(raw);
      Add(number, value ? kind::NeighborRecord::Flatten(*value) : std::string());
    } else if (number == VT_ATTRIBUTE_RECURRENCE) {
      const auto value = kind::RecurrenceRecord::Decode(raw);
      Add(number, value ? kind::RecurrenceRecord::Flatten(*value) : std::string());
    } else {
      Add(number, raw.characters());
    }
  }

  RawValue RawOf(const Value& value) const {
    return {bytes_.data() + value.start, value.length, true};
  }

  RawValue Raw(std::int32_t number, std::size_t ordinal) const {
    for (const Value& value : values_) {
      if (value.number == number && ordinal-- == 0) return RawOf(value);
    }
    return {};
  }

  std::size_t CountOf(std::int32_t number) const {
    std::size_t count = 0;
    for (const Value& value : values_) count += value.number == number ? 1 : 0;
    return count;
  }

  template <class See>
  void ForEach(See see) const {
    for (const Value& value : values_) {
      if (!see(value.number, RawOf(value))) return;
    }
  }

  std::vector<Value> values_;
  std::vector<char> bytes_;
};

// Row is a row of a Results, which has to exist for as long as the row or anything got from it is
// used. Rows can be read in any number of threads.
class Row : public detail::RowGetters<Row> {
 public:
  // copy returns an owning copy.
  OwnedRow copy() const {
    OwnedRow made;
    for (const std::int32_t number :
         {VT_ATTRIBUTE_ID, VT_ATTRIBUTE_DOMAIN, VT_ATTRIBUTE_REPLY_TO}) {
      if (const RawValue raw = Raw(number, 0); raw.present()) made.AddCopy(number, raw);
    }
    ForEach([&made](std::int32_t number, const RawValue& raw) {
      if (!detail::IsOfTheRow(number)) made.AddCopy(number, raw);
      return true;
    });
    return made;
  }

  // cursor is the row for calls of the C interface.
  const ResultCursor& cursor() const { return cursor_; }

 private:
  friend class RowIterator;
  friend class detail::RowGetters<Row>;

  explicit Row(const ResultCursor& at) : cursor_(at) {}

  RawValue Raw(std::int32_t number, std::size_t ordinal) const {
    RawValue raw;
    raw.at = voltaris_readValue(&cursor_, number, static_cast<std::uint32_t>(ordinal), &raw.length);
    return raw;
  }

  std::size_t CountOf(std::int32_t number) const { return voltaris_countValues(&cursor_, number); }

  template <class See>
  void ForEach(See see) const {
    const void* at = cursor_.row->attributes.head;
    while (at != nullptr) {
      const auto* node = static_cast<const attribute_node*>(at);
      if (!see(node->type, RawValue{node->value, node->length})) return;
      at = node->next;
    }
  }

  ResultCursor cursor_;
};

// RowIterator walks the rows of a Results. It is a forward iterator that gives rows by value.
class RowIterator {
 public:
  using value_type = Row;
  using difference_type = std::ptrdiff_t;
  using reference = Row;
  using pointer = void;
  using iterator_category = std::input_iterator_tag;
  using iterator_concept = std::forward_iterator_tag;

  // An iterator of nothing, and the end of every walk.
  RowIterator() = default;
  explicit RowIterator(const ResultSet* result) {
    if (result == nullptr) return;
    voltaris_startCursor(&cursor_, result);
    ++*this;
  }

  Row operator*() const { return Row(cursor_); }
  RowIterator& operator++() {
    if (voltaris_advanceCursor(&cursor_) == 0) cursor_ = {};
    return *this;
  }
  RowIterator operator++(int) {
    RowIterator before = *this;
    ++*this;
    return before;
  }

  friend bool operator==(const RowIterator& a, const RowIterator& b) {
    return a.cursor_.row == b.cursor_.row;
  }

 private:
  ResultCursor cursor_{};
};

// Rows is the rows of a Results as a range, in ascending order of device identity and entity index.
class Rows : public std::ranges::view_base {
 public:
  Rows() = default;
  explicit Rows(const ResultSet* result) : result_(result) {}

  RowIterator begin() const { return RowIterator(result_); }
  RowIterator end() const { return {}; }
  bool empty() const { return begin() == end(); }

 private:
  const ResultSet* result_ = nullptr;
};

}  // namespace voltaris

// Iterators point into the Results, not into the range.
template <>
inline constexpr bool std::ranges::enable_borrowed_range<voltaris::Rows> = true;

#endif  // VTAPI_FACE_ROW_HPP
