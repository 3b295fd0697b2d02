// Signed messages as nodes send them, made at random from a seed: devices, entities, texts and the
// columns that are asked for all vary.
#ifndef VT_BENCH_MESSAGES_H_
#define VT_BENCH_MESSAGES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "vtapi.h"

namespace vt::bench {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t kColumns = 4;       // values of a row
inline constexpr std::size_t kRowsOfFull = 29;   // rows of a full reply
inline constexpr std::size_t kAckEntries = 300;  // entries of a full acknowledgement

// The key that everything is signed with, and the sender of it all.
std::span<const std::uint8_t> Key();
const hmac_context& KeyContext();
inline constexpr char kIdentity[] = "5d0c9a7be21f4c38a6f1d2b37e904c55#001";

// Signed is the part of an image that its digest covers.
inline std::span<const std::uint8_t> Signed(std::span<const std::uint8_t> image) {
  return image.subspan(VT_PDU_HEADER_SIZE - VT_MESSAGE_HEADER_SIZE);
}

template <auto Release>
struct ReleaseWith {
  template <class Record>
  void operator()(Record* record) const {
    Release(record);
  }
};
using EventPtr = std::unique_ptr<Event, ReleaseWith<&cv_cleanup_event>>;
using QueryPtr = std::unique_ptr<Query, ReleaseWith<&voltaris_releaseQuery>>;
using SessionPtr = std::unique_ptr<Session, ReleaseWith<&voltaris_closeSession>>;

// Column is an attribute that rows have, and how it travels.
struct Column {
  std::int32_t attribute;
  std::uint32_t type;
  std::size_t size;  // of a value on the wire; 0: a text
};
using Shape = std::array<Column, kColumns>;

class Messages {
 public:
  explicit Messages(std::uint64_t seed) : random_(seed) {}

  // Below returns a number below limit, the same in both word sizes.
  std::size_t Below(std::size_t limit) {
    return static_cast<std::size_t>(random_() % std::uint64_t{limit});
  }
  std::size_t Between(std::size_t least, std::size_t most) {
    return least + Below(most - least + 1);
  }
  template <class Sequence>
  void Shuffle(Sequence& values) {
    for (std::size_t i = values.size(); i > 1; --i) std::swap(values[i - 1], values[Below(i)]);
  }

  // Text returns a text of visible characters.
  std::string Text(std::size_t length);
  // Device returns an identity, no two alike: the digits of a random UUID or of one made from a
  // hardware address, which differ only behind 20 of their 32 digits.
  corvane_id Device();
  std::vector<corvane_id> Devices(std::size_t count);
  // NewShape returns one text or two, and numbers.
  Shape NewShape();

  // Reply returns one row of the columns for each of rows entities, which belong to one device or
  // to several; texts have 1 to 12 characters.
  Bytes Reply(const Shape& shape, std::span<const corvane_id> devices, std::size_t rows);
  // FullReply returns 29 rows in exactly 1400 bytes, of one device, or sometimes two where the
  // columns leave room for it.
  Bytes FullReply(const Shape& shape);
  // Acknowledgement tells that 300 entities of one device will answer.
  Bytes Acknowledgement();

 private:
  struct Plan;
  Plan NewPlan(const Shape& shape, std::span<const corvane_id> devices, std::size_t rows);
  EventPtr Build(const Shape& shape, std::span<const corvane_id> devices, const Plan& plan);
  std::vector<std::uint32_t> Entities(std::size_t count);
  Bytes Sign(EventPtr event, std::int32_t shipment);

  std::mt19937_64 random_;
  std::uint32_t sequence_number_ = 0;
};

// CollectQuery returns a query that asks for the columns, as it is before execution.
QueryPtr CollectQuery(const Shape& shape, std::uint32_t priority = 5);

// NewResult returns the ResultSet of a query, as collection makes it; Release releases it and
// leaves the query its attributes.
ResultSet* NewResult(Query* query);
void Release(ResultSet* result);

// Walk reads the values of all rows and returns how many there were.
std::size_t Walk(ResultSet* result, const Shape& shape);

}  // namespace vt::bench

#endif  // VT_BENCH_MESSAGES_H_
