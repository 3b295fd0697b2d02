/*
 * The records that hold decoded values, in host byte order.
 *
 * Offsets and sizes are in bytes; a/b means i386/x86-64. Texts are zero-terminated. Texts and
 * blocks inside a record belong to it and come from malloc; each may be null, which counts as
 * empty. The wire form of each record stands with its codec in structures.h.
 */
#ifndef VTAPI_VALUES_H
#define VTAPI_VALUES_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

/* corvane_id: 32 opaque bytes, compared over all 32. */
typedef struct corvane_id {
  uint8_t bytes[32];
} corvane_id;

/* sender_id: 36 bytes. */
typedef struct sender_id {
  corvane_id id;   /* 0 */
  uint32_t number; /* 32 */
} sender_id;

/* event_id: 36 bytes. */
typedef struct event_id {
  uint32_t number; /* 0 */
  corvane_id id;   /* 4 */
} event_id;

/* device_header names the device of an aggregated element: 40/48 bytes. */
typedef struct device_header {
  corvane_id id;     /* 0 */
  uint32_t data_len; /* 32: bytes at data */
  void* data;        /* 36/40: the device's socket address (16 bytes) in replies, owned */
} device_header;

/* alarm_value: 16 bytes (14 on the wire). */
typedef struct alarm_value {
  uint32_t word;  /* 0 */
  uint8_t byte1;  /* 4 */
  uint8_t byte2;  /* 5 */
  int32_t value1; /* 8 */
  int32_t value2; /* 12 */
} alarm_value;

/* recurrence: 12/16 bytes. */
typedef struct recurrence {
  char* text;    /* 0, owned */
  uint8_t byte1; /* 4/8 */
  uint8_t byte2; /* 5/9 */
  int32_t flag;  /* 8/12: all 32 bits travel */
} recurrence;

/* neighbor: 84/104 bytes, of which id, label, data and flag travel. */
typedef struct neighbor {
  uint16_t unused1;    /* 0 */
  corvane_id id;       /* 2 */
  char* label;         /* 36/40, owned */
  uint32_t data_len;   /* 40/48: bytes at data */
  void* data;          /* 44/56, owned */
  int32_t flag;        /* 48/64: all 32 bits travel */
  uint32_t unused2[8]; /* 52/68 */
} neighbor;

/* usage_cmn_hdr describes the entity of a combined entry: 24/40 bytes. */
typedef struct usage_cmn_hdr {
  uint32_t word; /* 0 */
  int32_t value; /* 4: usage caliber */
  char* text1;   /* 8: name, owned */
  char* text2;   /* 12/16: role, owned */
  int8_t small;  /* 16/24: units */
  uint8_t byte1; /* 17/25: level */
  uint8_t byte2; /* 18/26: importance */
  char* text3;   /* 20/32: keywords, owned */
} usage_cmn_hdr;

/* delta_vector: 44 bytes, one change of usage for each power level 0 to 10. */
typedef struct delta_vector {
  int32_t values[11];
} delta_vector;

/* usage_vector: 22 bytes, one usage for each power level 0 to 10. */
typedef struct usage_vector {
  uint16_t values[11];
} usage_vector;

/*
 * plain_entry is one value of an aggregated element: 12/16 bytes. After decoding, data_len is the
 * bytes of an opaque value, the length of a text with its terminator, and the bytes on the wire of
 * everything else; of entries built locally see cv_populate_aggr_tlv_data.
 */
typedef struct plain_entry {
  uint32_t tag;      /* 0: entity index */
  uint32_t data_len; /* 4: length of data */
  void* data;        /* 8: the value, owned */
} plain_entry;

/* combo_entry is one value of a combined aggregated element: 32/56 bytes. */
typedef struct combo_entry {
  uint32_t tag;        /* 0: entity index */
  usage_cmn_hdr usage; /* 4/8 */
  void* data;          /* 28/48: uint16, usage_vector or delta_vector by type, owned */
} combo_entry;

/*
 * aggregated_value is the value of an element whose type has VT_TLV_AGGREGATED: 48/64 bytes. Every
 * entry is a combo_entry if cv_is_combo_tlv(type), else a plain_entry. The array has room for
 * entry_count rounded up to a multiple of 16, and is null for a count of 0.
 */
typedef struct aggregated_value {
  device_header device; /* 0 */
  uint32_t entry_count; /* 40/48 */
  void** entries;       /* 44/56: array and entries owned */
} aggregated_value;

VT_END_DECLS

#endif /* VTAPI_VALUES_H */
