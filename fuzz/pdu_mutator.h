// Mutation that knows how messages are made. Plain bytes hardly ever form an element that decodes,
// and never a digest that is right; this mutator takes an input apart into messages and elements,
// changes one of them, and puts lengths, counts and digests right again, but not always.
#ifndef VT_FUZZ_PDU_MUTATOR_H_
#define VT_FUZZ_PDU_MUTATOR_H_

#include <cstddef>
#include <cstdint>

#include "fuzz/target.h"

namespace vt::fuzz {

// Mutate changes the size bytes at data, which has room for room bytes, and returns the new size.
std::size_t Mutate(Layout layout, std::uint8_t* data, std::size_t size, std::size_t room,
                   unsigned seed);

}  // namespace vt::fuzz

#endif  // VT_FUZZ_PDU_MUTATOR_H_
