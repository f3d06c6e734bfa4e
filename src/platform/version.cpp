// The processor-class number by which the family's core library recognises
// this kernel library: 5, x86-64 with SSE4.2.
#include <cstdint>

#include "qor/export.h"

extern "C" QOR_API int32_t dll_cpu_version(void) { return 5; }
