// Bytes as a text in double quotes: what can be printed stands for itself, everything else is
// escaped, so that a text from the network can neither steer a terminal nor leave its line, and
// comes back byte for byte.
#ifndef VT_RECORDING_QUOTED_TEXT_H_
#define VT_RECORDING_QUOTED_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace vt::recording {

// PlainLength is the number of bytes of the printable character that bytes begins with: of ASCII
// from the blank on, or of well-formed UTF-8 that neither controls a terminal nor changes the
// direction or the place of its neighbors. 0 when it begins with none.
std::size_t PlainLength(std::string_view bytes);

// Quote puts bytes between double quotes. \" \\ \t \n \r stand for what they stand for in C, \xHH
// with two hexadecimal digits for any other byte.
std::string Quote(std::string_view bytes);

}  // namespace vt::recording

#endif  // VT_RECORDING_QUOTED_TEXT_H_
