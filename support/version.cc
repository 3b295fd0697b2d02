#include "vtapi/version.h"

extern "C" const char* voltaris_utl_getVersion() { return "-2.0.136"; }
