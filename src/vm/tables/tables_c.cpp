// Kernel tables, cost tables and entry points of the `c` functions.
#include "vm/tables/tables.h"

#define QOR_VM_SEL_s(...)
#define QOR_VM_SEL_d(...)
#define QOR_VM_SEL_c(...) QOR_VM_ROW(__VA_ARGS__)
#define QOR_VM_SEL_z(...)

#include "vm/catalogue.inc"
