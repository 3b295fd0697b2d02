/*
 * What every other piece of the interface needs: the fixed-width types, the mark of an exported
 * name and the guards that give it C linkage. It declares nothing of its own.
 */
#ifndef VTAPI_BASE_H
#define VTAPI_BASE_H

#include <stddef.h>
#include <stdint.h>

/* VT_API marks an exported name; the library is built with all other names hidden. */
#ifndef VT_API
#if defined(__GNUC__)
#define VT_API __attribute__((visibility("default")))
#else
#define VT_API
#endif
#endif

#ifdef __cplusplus
#define VT_BEGIN_DECLS extern "C" {
#define VT_END_DECLS }
#else
#define VT_BEGIN_DECLS
#define VT_END_DECLS
#endif

#endif /* VTAPI_BASE_H */
