/*
 * Identities: 32 opaque bytes that name a device, a sender or a query. The usual identity is the 32
 * lowercase hexadecimal digits of a UUID (RFC 4122), which fill the field exactly and carry no
 * terminator.
 */
#ifndef VTAPI_IDENTIFIERS_H
#define VTAPI_IDENTIFIERS_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

#define VT_IDENTITY_SIZE 32 /* bytes of an identity */
#define VT_UUID_SIZE 16     /* bytes of a binary UUID */

/* convertUuidString writes the 32 digits of a 16-byte UUID to out (exactly 32 bytes); returns 0. */
VT_API int convertUuidString(char* out, const uint8_t* uuid);

/*
 * uuidFromMacAddress writes a 16-byte UUID: E0 D0 0D E0, six zero bytes, the 6 bytes of mac.
 * Returns 0.
 */
VT_API int uuidFromMacAddress(uint8_t* out, const uint8_t* mac);

/* generateUuid writes a fresh 16-byte UUID, random where the system can; returns 0. */
VT_API int generateUuid(uint8_t* out);

/*
 * newUUID writes a fresh UUID to the first 16 of the 48 bytes at buf and its 32 digits behind it,
 * and returns the address of the digits.
 */
VT_API char* newUUID(void* buf);

/* voltaris_utl_createUuid writes the 32 digits of a fresh UUID to out; returns 0. */
VT_API int voltaris_utl_createUuid(char* out);

/* voltaris_utl_createUuidFromMac writes the 32 digits of the UUID of a 6-byte mac; returns 0. */
VT_API int voltaris_utl_createUuidFromMac(char* out, const uint8_t* mac);

/*
 * voltaris_utl_createUuidFromDetails writes 32 bytes to out: 18 bytes of part1, 3 of part2, 5 of
 * part3 and 6 of part4. Returns 0, or -1 with nothing written when any pointer is null.
 */
VT_API int voltaris_utl_createUuidFromDetails(char* out, const void* part1, const void* part2,
                                              const void* part3, const void* part4);

/*
 * voltaris_idtos writes the first n bytes of a 32-byte identity to out as text, each zero byte as
 * a backspace (code 8), and terminates it. Up to n = 32 it writes n + 1 bytes; above, the 32
 * characters and zeros at 32 and 33; a negative n counts as 0.
 */
VT_API void voltaris_idtos(char* out, const void* id, int n);

VT_END_DECLS

#endif /* VTAPI_IDENTIFIERS_H */
