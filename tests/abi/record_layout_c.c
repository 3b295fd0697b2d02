/* The public header is enough for a C program, and the records have their layout there. */
#include "record_layout.h"
