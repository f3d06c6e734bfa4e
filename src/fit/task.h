// Internal view of the data fitting task record.  Construction, search,
// interpolation and integration read it through this header; only the editors
// in task.cpp change it.
#pragma once

#include <cstdint>

#include "qor/fit.h"

namespace qor::fit {

// Field order is part of the record's layout and must not change: the
// fields up to `cell_scale` are the documented record; the ones after it are
// this library's own book-keeping and are never seen by callers.
struct Task {
  uint32_t int64_results;  // nonzero: integer queries write 64-bit values
  int8_t tag;              // 4 for a data fitting record
  int32_t precision;       // 1 double, 0 single
  int32_t live;            // 1 while the record is usable
  int64_t nx;
  const void *x;
  int64_t x_hint;
  int64_t ny;
  void **y_table;  // function pointer table
  int64_t y_hint;
  int64_t order;
  int64_t type;
  int64_t ic_type;
  const void *ic;
  int64_t bc_type;
  const void *bc;
  void **coeff_table;  // coefficient pointer table
  int64_t coeff_hint;
  int32_t check;
  int64_t cell_count;   // M
  int64_t *cell_table;  // 2M + 4 entries: pairs (lo, hi) for cells 0..M, 2 spare
  union {
    float s;
    double d;
  } cell_scale;

  // Book-keeping (not part of the documented record).
  int64_t y_slots;      // slots actually allocated in y_table
  int64_t coeff_slots;  // slots actually allocated in coeff_table
  int64_t table_nx;     // nx and x the cell-index table was built from, so
  const void *table_x;  // that the search can tell a stale table
};

inline constexpr int8_t kTaskTag = 4;

// Number of cells of the cell-index table for nx breakpoints.
inline int64_t cell_count_for(int64_t nx) {
  int64_t m = nx / 16;
  if (m < 17) m = 16;
  if (m > 1024) m = 1024;
  return m;
}

// The hint test shared by creation and the y / coefficient hint editors:
// admits exactly 0, 16, 32 and 128.
inline bool hint_admitted(int64_t h) {
  const uint64_t v = static_cast<uint64_t>(h);
  const uint64_t r = (v >> 4) | (v << 60);
  return r <= 8 && ((263u >> r) & 1u);
}

}  // namespace qor::fit
