// Decoded messages for people and for programs.
#ifndef VT_TOOLS_MESSAGE_TEXT_H_
#define VT_TOOLS_MESSAGE_TEXT_H_

#include <nlohmann/json.hpp>

#include <cstddef>
#include <iosfwd>

#include "tools/decoded_message.h"
#include "tools/message_source.h"

namespace vt::tools {

// PrintMessage writes some lines and an empty one. number counts the messages of an input from 1.
void PrintMessage(std::ostream& out, std::size_t number, const DecodedMessage& message,
                  const Passage& passage);

// MessageJson is the same as an object.
nlohmann::ordered_json MessageJson(std::size_t number, const DecodedMessage& message,
                                   const Passage& passage);

// TimeText is such as "2026-11-21T16:43:04.000001Z".
std::string TimeText(std::uint64_t nanoseconds);

}  // namespace vt::tools

#endif  // VT_TOOLS_MESSAGE_TEXT_H_
