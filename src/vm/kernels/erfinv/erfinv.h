#pragma once

#include "vm/kernels/core/driver.h"

namespace qor::vm::vec {}  // namespace qor::vm::vec
