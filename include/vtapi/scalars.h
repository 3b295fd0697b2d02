/*
 * The codec of scalars, texts and opaque blocks.
 *
 * Conventions of every codec call:
 *   pack    writes the wire form of *src at dst, which may be at any address, and returns the bytes
 *           written. It does not check the room at dst: the caller sizes it (vt_get_tlv_size and
 *           the size calls). A null source writes nothing and returns 0 unless stated otherwise.
 *   unpack  reads from src, of which *remaining bytes are left (zero and negative: none). *consumed
 *           becomes the bytes read, which have been taken off *remaining; *status the outcome. The
 *           caller moves its own cursor. After a failure *consumed and *remaining still account
 *           for the leading parts that were read.
 *   _ptr    unpacks into a new block, which the caller releases, or returns null.
 *   clone   makes a deep copy, which the caller releases with the matching free call.
 * Integers are big-endian on the wire and need no alignment. Nothing here logs. Blocks handed out
 * come from malloc. Calls touch only their arguments, so threads need no lock of ours.
 */
#ifndef VTAPI_SCALARS_H
#define VTAPI_SCALARS_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

/* The status codes of the codec. */
enum vt_codec_status {
  VT_CODEC_OK = 0,
  VT_CODEC_NO_MEMORY = 1,
  VT_CODEC_NULL_SOURCE = 4, /* clone calls */
  VT_CODEC_SHORT_INPUT = 8
};

/* int8: 1 byte. */
VT_API uint32_t vt_pack_int8(void* dst, const int8_t* src);
VT_API void vt_unpack_int8(const void* src, int8_t* dst, uint32_t* consumed, int32_t* remaining,
                           uint32_t* status);
VT_API int8_t* vt_unpack_int8_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                  uint32_t* status);
VT_API int8_t* vt_clone_int8_ptr(const int8_t* src, uint32_t* status);

/* uint8: 1 byte. */
VT_API uint32_t vt_pack_uint8(void* dst, const uint8_t* src);
VT_API void vt_unpack_uint8(const void* src, uint8_t* dst, uint32_t* consumed, int32_t* remaining,
                            uint32_t* status);
VT_API uint8_t* vt_unpack_uint8_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                    uint32_t* status);
VT_API uint8_t* vt_clone_uint8_ptr(const uint8_t* src, uint32_t* status);

/* uint16: 2 bytes. */
VT_API uint32_t vt_pack_uint16(void* dst, const uint16_t* src);
VT_API void vt_unpack_uint16(const void* src, uint16_t* dst, uint32_t* consumed, int32_t* remaining,
                             uint32_t* status);
VT_API uint16_t* vt_unpack_uint16_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                      uint32_t* status);
VT_API uint16_t* vt_clone_uint16_ptr(const uint16_t* src, uint32_t* status);

/* boolean: 4 bytes. Deliberate: all 32 bits travel as they are, nothing is normalised. */
VT_API uint32_t vt_pack_boolean(void* dst, const int32_t* src);
VT_API void vt_unpack_boolean(const void* src, int32_t* dst, uint32_t* consumed, int32_t* remaining,
                              uint32_t* status);

/*
 * int32: 4 bytes. Deliberate: on short input the two unpack calls leave *consumed as it was, where
 * all others set it to 0.
 */
VT_API uint32_t vt_pack_int32(void* dst, const int32_t* src);
VT_API void vt_unpack_int32(const void* src, int32_t* dst, uint32_t* consumed, int32_t* remaining,
                            uint32_t* status);
VT_API int32_t* vt_unpack_int32_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                    uint32_t* status);
VT_API int32_t* vt_clone_int32_ptr(const int32_t* src, uint32_t* status);

/* uint32: 4 bytes. */
VT_API uint32_t vt_pack_uint32(void* dst, const uint32_t* src);
VT_API void vt_unpack_uint32(const void* src, uint32_t* dst, uint32_t* consumed, int32_t* remaining,
                             uint32_t* status);
VT_API uint32_t* vt_unpack_uint32_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                      uint32_t* status);
VT_API uint32_t* vt_clone_uint32_ptr(const uint32_t* src, uint32_t* status);

/* long: 4 bytes on the wire and in memory, whatever the width of the host's long. */
VT_API uint32_t vt_pack_long(void* dst, const int32_t* src);
VT_API void vt_unpack_long(const void* src, int32_t* dst, uint32_t* consumed, int32_t* remaining,
                           uint32_t* status);
VT_API int32_t* vt_unpack_long_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                   uint32_t* status);
VT_API int32_t* vt_clone_long_ptr(const int32_t* src, uint32_t* status);

/*
 * vt_free_ptr releases a block that a codec call handed out; null is ignored. A neighbor and a
 * recurrence own more than their block: release them with vt_free_neighbor_ptr and
 * vt_free_recurrence_ptr.
 */
VT_API void vt_free_ptr(void* p);

/*
 * Text that fills an element: its characters without a terminator; the length comes from the
 * element. vt_unpack_string_tlv_ptr reads len bytes into a new text of len + 1 bytes.
 */
VT_API uint32_t vt_pack_string_tlv(void* dst, const char* src);
VT_API char* vt_unpack_string_tlv_ptr(const void* src, uint32_t len, uint32_t* consumed,
                                      int32_t* remaining, uint32_t* status);

/*
 * Counted text: a 4-byte length, then the characters without a terminator. vt_pack_string writes
 * nothing at all, not even the length, for null.
 */
VT_API uint32_t vt_pack_string(void* dst, const char* src);
VT_API char* vt_unpack_string_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                  uint32_t* status);

/* vt_clone_string duplicates a text; errno is set to 0 before the duplication. */
VT_API char* vt_clone_string(const char* src, uint32_t* status);

/*
 * Opaque block that fills an element: its bytes. vt_pack_void_tlv returns len even where it copied
 * nothing because src is null. vt_unpack_void_tlv_ptr returns a block of exactly len bytes, not
 * null when len is 0.
 */
VT_API uint32_t vt_pack_void_tlv(void* dst, const void* src, uint32_t len);
VT_API void* vt_unpack_void_tlv_ptr(const void* src, uint32_t len, uint32_t* consumed,
                                    int32_t* remaining, uint32_t* status);

/*
 * Counted opaque block: a 4-byte length, then the bytes. vt_pack_void returns 4 + len; with a null
 * src it writes the length only. vt_unpack_void_ptr stores the length as it was read at len_out
 * (not when even the length is short); a length of 0 is null with status 0.
 */
VT_API uint32_t vt_pack_void(void* dst, const void* src, uint32_t len);
VT_API void* vt_unpack_void_ptr(const void* src, int32_t* len_out, uint32_t* consumed,
                                int32_t* remaining, uint32_t* status);

/* vt_clone_void_ptr copies len bytes; a block of 0 bytes is not null. */
VT_API void* vt_clone_void_ptr(const void* src, uint32_t len, uint32_t* status);

VT_END_DECLS

#endif /* VTAPI_SCALARS_H */
