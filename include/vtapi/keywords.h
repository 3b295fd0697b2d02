/*
 * Names, roles and keywords as text: wildcard matching, the two forms of keyword lists, and the
 * characters that a name may have.
 *
 * A comma list is one text with its items separated by commas. A keyword list holds the items back
 * to back, each followed by a zero byte; its size in bytes counts them all. Blocks handed out come
 * from malloc.
 */
#ifndef VTAPI_KEYWORDS_H
#define VTAPI_KEYWORDS_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

/*
 * cv_wildcard_match returns 1 when subject equals pattern or, if pattern ends in a star, begins
 * with what stands before it; else 0. A star elsewhere is an ordinary character. An empty pattern
 * matches the empty subject only; null matches nothing.
 */
VT_API int cv_wildcard_match(const char* subject, const char* pattern);

/*
 * cv_comma_list2kwl turns a comma list into a keyword list in place and returns its size, the
 * length of the text + 1; 0 for null.
 */
VT_API int cv_comma_list2kwl(char* str);

/* corvane_conv_kw_list returns the keyword list of a comma list, the caller's to free, or null. */
VT_API char* corvane_conv_kw_list(const char* str);

/*
 * cv_get_comma_sep_list returns the comma list of a keyword list of size bytes, the caller's to
 * free; null for null, a size of 0 or less, or without memory. The last item may lack its zero.
 */
VT_API char* cv_get_comma_sep_list(const char* list, int size);

/*
 * vtn_string_in_whitelist returns 1 when str is not empty and every character of it is a letter, a
 * digit or one of ~!@#$%^&()_-+={}[]\:.,></ or, when mode is 2, a blank; else 0.
 */
VT_API int vtn_string_in_whitelist(const char* str, int mode);

/*
 * createKeywordList splits str at commas, blanks and tabs, without empty items, into a
 * null-terminated array of pointers, the caller's to release with freeKeywordList; null for null or
 * without memory.
 */
VT_API char** createKeywordList(const char* str);

/* freeKeywordList releases what createKeywordList returned; null is ignored. */
VT_API void freeKeywordList(char** list);

VT_END_DECLS

#endif /* VTAPI_KEYWORDS_H */
