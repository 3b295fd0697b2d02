/*
 * Rows read through a cursor of the caller's. A cursor changes nothing: any number of them can walk
 * one ResultSet or several, in any number of threads, as long as nobody folds into it or releases
 * it; values can be read again and again.
 */
#ifndef VTAPI_RESULT_CURSOR_H
#define VTAPI_RESULT_CURSOR_H

#include "vtapi/result.h"

VT_BEGIN_DECLS

/*
 * ResultCursor: 56/72 bytes. All but identity is null before the first row and behind the last.
 * What it points at belongs to the ResultSet.
 */
typedef struct ResultCursor {
  const ResultSet* result;          /* 0 */
  const device_node* device;        /* 4/8 */
  const entity_node* row;           /* 8/16 */
  const struct sockaddr_in* sender; /* 12/24: the device's address, or null */
  AckEntry identity;                /* 16/32: of the device, and the entity index of the row */
  uint32_t at_end;                  /* 52/68: 1 behind the last row */
} ResultCursor;

/* voltaris_startCursor places a cursor in front of the first row. */
VT_API void voltaris_startCursor(ResultCursor* cursor, const ResultSet* result);

/*
 * voltaris_advanceCursor goes to the next row, in ascending order of device identity and entity
 * index, and returns 1; 0 at the end, where it stays.
 */
VT_API int32_t voltaris_advanceCursor(ResultCursor* cursor);

/* voltaris_countValues returns how many values of an attribute the row has, those without bytes
 * included. */
VT_API uint32_t voltaris_countValues(const ResultCursor* cursor, int32_t attribute);

/*
 * voltaris_readValue returns the value of an attribute with that ordinal, in order of arrival from
 * 0, and stores its length in bytes at *out_len; null, with *out_len untouched, when there is none
 * or its length is 0. Of the attributes 1 (identity and entity index, 36 bytes), 3 (domain) and 12
 * (sender) there is one, at the ordinal 0. Lengths are those of voltaris_getAttributeFromRowByType.
 * Whether a value was handed out there makes no difference here.
 */
VT_API const void* voltaris_readValue(const ResultCursor* cursor, int32_t attribute,
                                      uint32_t ordinal, uint32_t* out_len);

VT_END_DECLS

#endif /* VTAPI_RESULT_CURSOR_H */
