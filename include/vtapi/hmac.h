/*
 * HMAC-SHA1 (RFC 2104 over FIPS 180-4 SHA-1; test vectors: RFC 2202), plain SHA-1, and the text
 * forms of digests and hardware addresses.
 *
 * A context is keyed once and copied for every message, so the key is never processed again. All
 * lengths are 16 bits wide: parameters are 32 bits and their upper half is ignored. Digests are 20
 * bytes. Nothing here allocates, and one keyed context may be read by several threads at once.
 */
#ifndef VTAPI_HMAC_H
#define VTAPI_HMAC_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

#define VT_DIGEST_SIZE 20     /* bytes of a SHA-1 digest */
#define VT_HASH_BLOCK_SIZE 64 /* bytes of a SHA-1 block */

/*
 * hmac_context is a plain value of 160 bytes that may be copied byte for byte. A zero-filled
 * context that was never keyed still yields a digest, which is not an HMAC of anything.
 */
typedef struct hmac_context {
  uint32_t hash_state[24];               /* 0: running SHA-1 state, 96 bytes */
  uint8_t outer_pad[VT_HASH_BLOCK_SIZE]; /* 96: zero-padded key, each byte XORed with 0x5C */
} hmac_context;

/*
 * hmac_shainit keys the context. A key of more than 64 bytes is replaced by its SHA-1 digest. A
 * null key or a length of 0 leaves the context exactly as it was.
 */
VT_API void hmac_shainit(hmac_context* context, const void* key, uint32_t key_len);

/* hmac_shaupdate feeds len bytes of data; null data or a length of 0 does nothing. */
VT_API void hmac_shaupdate(hmac_context* context, const void* data, uint32_t len);

/*
 * hmac_shafinal writes the 20-byte digest. The context is consumed: it must be keyed again before
 * it is used for another message. Note that the digest comes first.
 */
VT_API void hmac_shafinal(uint8_t* digest, hmac_context* context);

/*
 * hmac_sha writes the HMAC of data to digest, on a context of its own, zero-filled first. With a
 * null key or a key length of 0 that context stays all zeros.
 */
VT_API void hmac_sha(const void* key, uint32_t key_len, const void* data, uint32_t len,
                     uint8_t* digest);

/*
 * hmac_sha_msg writes the HMAC of one message under a keyed context, which it copies and does not
 * change. A null context counts as one of all zeros.
 */
VT_API void hmac_sha_msg(const hmac_context* context, const void* data, uint32_t len,
                         uint8_t* digest);

/* sha_hash writes the SHA-1 of the two buffers one after the other; null or empty ones are skipped.
 */
VT_API void sha_hash(const void* first, uint32_t first_len, const void* second, uint32_t second_len,
                     uint8_t* digest);

/* sha1DigestToString writes 40 lowercase hexadecimal digits and a zero (41 bytes) to text. */
VT_API void sha1DigestToString(char* text, const uint8_t* digest);

/*
 * macAddressToString writes a 6-byte hardware address as "%02X:%02X:%02X:%02X:%02X:%02X" (18 bytes
 * with the zero) to text and returns 0.
 */
VT_API int macAddressToString(char* text, const uint8_t* mac);

/* voltaris_dump_digest logs TRACE "digest: %s" with the 20 bytes as hexadecimal digits. */
VT_API void voltaris_dump_digest(const uint8_t* digest);

VT_END_DECLS

#endif /* VTAPI_HMAC_H */
