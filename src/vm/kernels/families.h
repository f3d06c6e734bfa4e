// SIMD kernels of the transcendental function families, in namespace
// qor::vm::vec (catalogue impl `vec`).  Each family header holds operations
// in the shared driver's protocol (vec / special / fix, see core/driver.h),
// written once for float and double over the simd::V traits.
#pragma once

#include "vm/kernels/exp/exp.h"
#include "vm/kernels/log/log.h"
#include "vm/kernels/trig/trig.h"
#include "vm/kernels/erfinv/erfinv.h"
#include "vm/kernels/pow/powx.h"
