// Takes out of a recording what tells whose devices it is of, and keeps what they do.
#ifndef VT_RECORDING_ANONYMIZE_H_
#define VT_RECORDING_ANONYMIZE_H_

#include <array>
#include <cstdint>

#include "recording/recording.h"

namespace vt::recording {

using AnonymityKey = std::array<std::uint8_t, 32>;

// RandomKey makes a key that nobody knows. It throws std::system_error.
AnonymityKey RandomKey();

// Anonymize replaces identities by digests under the key, so that equal ones stay equal, and with
// the key forgotten nothing leads back. Entities are then in the order of their new identities, and
// texts (the domain, names, roles, each keyword, labels, error texts, attribute 21) and addresses
// are replaced by stand-ins that are counted in that order, equal ones by the same. Recurrences
// keep their text if it is a calendar expression of five fields in digits. Data of neighbors that
// is no address becomes zeros. All other numbers stay.
void Anonymize(Recording& recording, const AnonymityKey& key);

}  // namespace vt::recording

#endif  // VT_RECORDING_ANONYMIZE_H_
