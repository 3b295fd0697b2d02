// The attributes of an entity as lines "word = value" of a recording: one row of a table for each.
#ifndef VT_RECORDING_ATTRIBUTE_LINES_H_
#define VT_RECORDING_ATTRIBUTE_LINES_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "recording/line_reader.h"
#include "recording/recording.h"

namespace vt::recording {

// A message has 1400 bytes, so no text that a device tells is longer.
inline constexpr std::size_t kLongestText = 1400;
// Of an entity; a device would need a thousand messages to tell as many.
inline constexpr std::size_t kMostNeighbors = 65535;
inline constexpr std::size_t kMostKeywords = 1400;

struct AttributeLines {
  std::int32_t number;  // enum vt_attribute
  // write appends the lines of what the entity holds of the attribute.
  void (*write)(const Entity& entity, std::string_view word, std::string& out);
  // read takes a value from what stands behind the equals sign. It throws RecordingError.
  void (*read)(LineReader& line, std::string_view word, Entity& entity);

  std::string_view word() const { return voltaris::word_of(number); }
};

// RecordableAttributes lists the attributes that a recording may hold, in the order in which they
// are written, which is that of their numbers. The identity and the domain are not among them: they
// stand above the values. Nor is the time-out, which is the query's.
std::span<const AttributeLines> RecordableAttributes();

// FindRecordable returns the attribute of that word, or null.
const AttributeLines* FindRecordable(std::string_view word);

}  // namespace vt::recording

#endif  // VT_RECORDING_ATTRIBUTE_LINES_H_
