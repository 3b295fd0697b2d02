/*
 * The catalogue of attributes: the numbers by which an application names them, the types that
 * carry them on the wire, their fixed lengths, and the translation of classes and actions.
 *
 * Safe in any number of threads: they read constant tables, and one of them logs.
 */
#ifndef VTAPI_CATALOGUE_H
#define VTAPI_CATALOGUE_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

/* The numbers by which an application names attributes and qualifiers. */
enum vt_attribute {
  VT_ATTRIBUTE_ID = 1,           /* device identity and entity index, 36 bytes */
  VT_ATTRIBUTE_ROLE = 2,         /* text */
  VT_ATTRIBUTE_DOMAIN = 3,       /* text */
  VT_ATTRIBUTE_NAME = 4,         /* text */
  VT_ATTRIBUTE_KEYWORDS = 5,     /* keyword list: each item followed by a zero byte */
  VT_ATTRIBUTE_ERROR_STRING = 6, /* text */
  VT_ATTRIBUTE_UNITS = 7,        /* int8: decimal exponent of the watt, watts = usage x 10^units */
  VT_ATTRIBUTE_USAGE = 8,        /* uint16, scaled by the units that follow it in a row */
  VT_ATTRIBUTE_LEVEL = 9,        /* uint8: current power level, 0 to 10 */
  VT_ATTRIBUTE_IMPORTANCE = 10,  /* uint8 */
  VT_ATTRIBUTE_ENTITY_TYPE = 11, /* int32, enum cv_entity_type */
  VT_ATTRIBUTE_REPLY_TO = 12,    /* socket address, 16 bytes */
  VT_ATTRIBUTE_NEIGHBOR = 13,    /* neighbor */
  VT_ATTRIBUTE_NEIGHBOR_COUNT = 14, /* uint16 */
  VT_ATTRIBUTE_NANNY_VECTOR = 15,   /* uint32 of flags */
  VT_ATTRIBUTE_DELTA_VECTOR = 16,   /* 11 int32: change of usage for each level */
  VT_ATTRIBUTE_USAGE_CALIBER = 17,  /* int32, enum cv_corvane_usage_caliber */
  VT_ATTRIBUTE_USAGE_VECTOR = 18,   /* 11 uint16: usage at each level */
  VT_ATTRIBUTE_QUERY_TIMEOUT = 19,  /* uint8 of seconds */
  VT_ATTRIBUTE_RECURRENCE = 20,     /* recurrence */
  VT_ATTRIBUTE_TEXT_21 = 21,        /* text */
  VT_ATTRIBUTE_USAGE_CATEGORY = 22  /* int32, enum cv_corvane_usage_category */
};

/* The classes and actions by which an application names the kinds of query. */
enum vt_query_class { VT_QUERY = 1, VT_AGGREGATE = 2 };
enum vt_query_action {
  VT_QUERY_SET = 1,     /* of VT_QUERY */
  VT_QUERY_COLLECT = 2, /* of VT_QUERY */
  VT_QUERY_FURTHER = 3, /* of VT_QUERY: travels as action 14 */
  VT_AGGREGATE_SUM = 1  /* of VT_AGGREGATE */
};

/* VT_ACTION_QUERY_FURTHER is the protocol's number of the query action that has no name. */
#define VT_ACTION_QUERY_FURTHER 14

/* The element types that have no name of their own; enum cv_corvane_tlv_type has 0 to 35. */
enum vt_tlv_type {
  VT_TLV_DELTA_VECTOR = 36,
  VT_TLV_NO_VALUE = 37,
  VT_TLV_USAGE_CALIBER = 38,
  VT_TLV_USAGE_VECTOR = 39,
  VT_TLV_TEXT_40 = 40,
  VT_TLV_QUERY_TIMEOUT = 41,
  VT_TLV_ACKNOWLEDGEMENT = 42, /* no value; aggregated, its entries name entities */
  VT_TLV_COMBINED_USAGE = 43,
  VT_TLV_COMBINED_USAGE_VECTOR = 44,
  VT_TLV_COMBINED_DELTA_VECTOR = 45,
  VT_TLV_RECURRENCE = 46,
  VT_TLV_UINT32_47 = 47,
  VT_TLV_TEXT_48 = 48,
  VT_TLV_UINT16_49 = 49,
  VT_TLV_ALARM = 50,
  VT_TLV_USAGE_CATEGORY = 51,
  VT_TLV_TYPE_COUNT = 52 /* every number from here on is unknown */
};

/* The flags of a type word. */
#define VT_TLV_AGGREGATED 0x80000000u  /* the value holds one entry per entity of a device */
#define VT_TLV_NUMBER_MASK 0x3FFFFFFFu /* the type number; bit 30 is reserved */

/*
 * vtn_getTypeLength returns the size in bytes of the value that the client calls take for a type
 * number (flags are not stripped), 0 where the length varies. Sizes of records are those of the
 * 32-bit layout on every build. Any other number, and deliberately also 37, 47, 49 and 50, logs
 * WARN "unexpected type %d" and gives 255; 42 gives 4 although it carries no value.
 */
VT_API uint32_t vtn_getTypeLength(uint32_t type);

/*
 * cv_is_combo_tlv returns 1 when type without bit 31 is 43, 44 or 45, else 0. Deliberate: bit 30 is
 * not stripped, so that a type which has it set is never combined.
 */
VT_API int cv_is_combo_tlv(uint32_t type);

/* vt_get_tlv_enum_type translates an attribute number, 1 to 22, to its type; -1 for others. */
VT_API int32_t vt_get_tlv_enum_type(int32_t attribute);

/* vt_get_external_tlv_enum_type is the inverse; -1 for types (or flagged types) without number. */
VT_API int32_t vt_get_external_tlv_enum_type(uint32_t type);

/* vt_get_internal_nanny_bit_type returns 5 for 0 and -1 for anything else. */
VT_API int32_t vt_get_internal_nanny_bit_type(int32_t bit);

/* vt_get_class_enum_type translates enum vt_query_class to 10 or 11; -1 for others. */
VT_API int32_t vt_get_class_enum_type(int32_t cls);

/*
 * vt_get_action_enum_type translates an action of a class: (1, 1) to 10, (1, 2) to 11, (1, 3) to
 * 14, (2, 1) to 10; -1 for others. Deliberate: 14 is outside the named actions.
 */
VT_API int32_t vt_get_action_enum_type(int32_t cls, int32_t action);

VT_END_DECLS

#endif /* VTAPI_CATALOGUE_H */
