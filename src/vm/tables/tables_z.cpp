// Kernel tables, cost tables and entry points of the `z` functions.
#include "vm/tables/tables.h"

#define QOR_VM_SEL_s(...)
#define QOR_VM_SEL_d(...)
#define QOR_VM_SEL_c(...)
#define QOR_VM_SEL_z(...) QOR_VM_ROW(__VA_ARGS__)

#include "vm/catalogue.inc"
