// The vector-math catalogue as the qor tool sees it: name, type and argument
// shape of every function, read from the library's own catalogue file.
#pragma once

namespace qor::tool {

enum class Shape { U, B, X, R2, LF, J, CU, CB, CX, CR, CC, P_PackI, P_PackV, P_PackM,
                   P_UnpackI, P_UnpackV, P_UnpackM };

struct VmFn {
  char t;
  const char *name;
  Shape shape;
};

inline constexpr VmFn kVmFns[] = {
#define QOR_VM_FN(t, F, SH, ...) {#t[0], #F, Shape::SH},
#include "../../src/vm/catalogue.inc"
#undef QOR_VM_FN
};

}  // namespace qor::tool
