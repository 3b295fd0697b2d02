// The records have the same layout in C++.
#include "record_layout.h"
