/*
 * The version of the library.
 */
#ifndef VTAPI_VERSION_H
#define VTAPI_VERSION_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

/*
 * voltaris_utl_getVersion returns the constant text "-2.0.136" (leading hyphen included), the same
 * pointer on every call. It is not to be freed.
 */
VT_API const char* voltaris_utl_getVersion(void);

VT_END_DECLS

#endif /* VTAPI_VERSION_H */
