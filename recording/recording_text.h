// The form of a recording in a file, version 1: text, one value a line. docs/recording.md is its
// description for those who write or edit such files.
#ifndef VT_RECORDING_RECORDING_TEXT_H_
#define VT_RECORDING_RECORDING_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "recording/line_reader.h"
#include "recording/recording.h"

namespace vt::recording {

inline constexpr std::size_t kMostEntities = 1'000'000;
inline constexpr std::size_t kLongestLine = 16'384;

// WriteRecording gives the text. Equal recordings give equal texts.
std::string WriteRecording(const Recording& recording);

// ReadRecording reads a text as a whole or throws RecordingError.
Recording ReadRecording(std::string_view text);

}  // namespace vt::recording

#endif  // VT_RECORDING_RECORDING_TEXT_H_
