// The data fitting task record: creation, editors, queries, deletion and the
// cell-index table that the hybrid search reads.
#include "fit/task.h"

#include <cmath>
#include <cstring>

#include "qor/core.h"
#include "qor/export.h"
#include "qor/fit.h"

namespace qor::fit {
namespace {

constexpr int kAlign = 128;

inline Task *as_task(qor_df_task_t *t) { return reinterpret_cast<Task *>(t); }
inline const Task *as_task(const qor_df_task_t *t) { return reinterpret_cast<const Task *>(t); }

void release(void *p) {
  if (p) qor_serv_deallocate(p);
}

// Number of pointer-table slots for ny functions.  The count comes from the
// low 32 bits of ny, sign-extended: a record asked for 2^32 + 1 functions
// gets a one-slot table, exactly as the callers of this library expect.
int64_t slot_count(int64_t ny) { return static_cast<int64_t>(static_cast<int32_t>(ny)); }

// Allocates `slots` pointer slots; null when the count cannot be allocated.
void **allocate_slots(int64_t slots) {
  if (slots <= 0) return nullptr;
  return static_cast<void **>(qor_serv_allocate(static_cast<size_t>(slots) * sizeof(void *), kAlign));
}

// Coefficient stride of one function: order coefficients for each of the
// nx - 1 cells, except spline type 1 which keeps one more cell.
int64_t coeff_stride(const Task *t) {
  return t->type == 1 ? t->nx * t->order : t->nx * t->order - t->order;
}

// Fills a pointer table from `base` with the given element stride.  With
// `slot0_only` the other slots are left for EditIdxPtr; they are cleared so
// that a query of a slot never set reads null rather than stale memory.
template <class T>
void fill_slots(void **table, int64_t slots, const T *base, int64_t stride, bool slot0_only) {
  table[0] = const_cast<T *>(base);
  for (int64_t i = 1; i < slots; ++i)
    table[i] = slot0_only ? nullptr : const_cast<T *>(base + i * stride);
}

// Function pointer table by the y hint; returns 0 or -1001.
template <class T>
int32_t build_y_table(Task *t, const T *y) {
  const bool single = t->y_hint == QOR_DF_STORAGE_SINGLE;
  const int64_t slots = single ? 1 : slot_count(t->ny);
  void **table = allocate_slots(slots);
  if (!table) return QOR_DF_ERROR_MEM_FAILURE;
  t->y_table = table;
  t->y_slots = slots;
  fill_slots(table, slots, y, t->nx, t->y_hint == QOR_DF_STORAGE_APART);
  return 0;
}

// Coefficient pointer table (ny slots); storage chosen by bit 7 of the low
// byte of the coefficient hint.
template <class T>
int32_t build_coeff_table(Task *t, T *coeff) {
  if (t->ny == 0) return QOR_DF_ERROR_BAD_NY;
  release(t->coeff_table);
  t->coeff_table = nullptr;
  t->coeff_slots = 0;
  const int64_t slots = slot_count(t->ny);
  void **table = allocate_slots(slots);
  if (!table) return QOR_DF_ERROR_MEM_FAILURE;
  t->coeff_table = table;
  t->coeff_slots = slots;
  fill_slots(table, slots, coeff, coeff_stride(t), (t->coeff_hint & 0x80) != 0);
  return 0;
}

// Builds the cell-index table from the current nx and x.  The interval
// [x[0], x[nx-1]] is cut into M equal cells; pair j = (lo, hi) brackets the
// first breakpoint above any site whose scaled position is j.
template <class T>
int32_t build_cell_table(Task *t) {
  const int64_t nx = t->nx;
  const T *x = static_cast<const T *>(t->x);
  const int64_t m = cell_count_for(nx);
  t->cell_count = m;
  int64_t *tab = static_cast<int64_t *>(qor_serv_allocate(static_cast<size_t>(16 * m + 32), kAlign));
  if (!tab) return QOR_DF_ERROR_MEM_FAILURE;
  t->cell_table = tab;
  t->table_nx = nx;
  t->table_x = t->x;
  for (int64_t i = 0; i < 2 * m; ++i) tab[i] = -1;
  for (int64_t i = 2 * m; i < 2 * m + 4; ++i) tab[i] = 0;
  // Single precision divides in single precision: the search recomputes
  // scaled positions with this very value, so it must match bit for bit.
  const T scale = static_cast<T>(m) / (x[nx - 1] - x[0]);
  if constexpr (sizeof(T) == 4)
    t->cell_scale.s = scale;
  else
    t->cell_scale.d = scale;
  tab[0] = 0;
  for (int64_t k = 1; k < nx; ++k) {
    const T pos = (x[k] - x[0]) * scale;
    // Positions of an ascending partition lie in [0, M]; anything else (a
    // NaN or unsorted breakpoint) would index outside the table.
    if (!(pos >= T(1)) || !(pos < static_cast<T>(m + 1))) continue;
    const int64_t q = static_cast<int64_t>(pos);
    if (tab[2 * (q - 1) + 1] == -1) tab[2 * (q - 1) + 1] = k;
    tab[2 * (q + 1)] = k;  // pair M+1 is the first spare pair when q == M
  }
  tab[2 * (m - 1) + 1] = nx - 1;
  for (int64_t j = 1; j < m; ++j) {
    if (tab[2 * j] == -1) tab[2 * j] = tab[2 * (j - 1)];
    const int64_t d = m - 1 - j;  // downward from M-2
    if (tab[2 * d + 1] == -1) tab[2 * d + 1] = tab[2 * (d + 1) + 1];
  }
  tab[2 * m] = tab[2 * (m - 1)];
  tab[2 * m + 1] = tab[2 * (m - 1) + 1];
  return 0;
}

int32_t build_cell_table_for(Task *t) {
  return t->precision ? build_cell_table<double>(t) : build_cell_table<float>(t);
}

template <class T>
int32_t new_task(qor_df_task_t **out, int64_t nx, const T *x, int64_t x_hint, int64_t ny,
                 const T *y, int64_t y_hint, uint32_t int64_results) {
  if (nx < 2) return QOR_DF_ERROR_BAD_NX;
  if (!x) return QOR_DF_ERROR_NULL_X;
  if (x_hint > 4 || x_hint == 3 || x_hint < 0) return QOR_DF_ERROR_BAD_X_HINT;
  if (ny == 0 && y) return QOR_DF_ERROR_BAD_NY;
  if (ny != 0 && !y) return QOR_DF_ERROR_NULL_Y;
  if (!hint_admitted(y_hint)) return QOR_DF_ERROR_BAD_Y_HINT;
  if (!out) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;

  Task *t = static_cast<Task *>(qor_serv_allocate(sizeof(Task), kAlign));
  if (!t) return QOR_DF_ERROR_MEM_FAILURE;
  *out = reinterpret_cast<qor_df_task_t *>(t);
  std::memset(static_cast<void *>(t), 0, sizeof(Task));
  t->nx = nx;
  t->x = x;
  t->x_hint = x_hint;
  t->y_hint = y_hint;
  t->ny = ny;
  if (y) {
    const int32_t st = build_y_table(t, y);
    if (st) {
      // ny and the y hint belong to a later step: a record left behind by a
      // failed table shows only what the steps before it stored.
      t->ny = 0;
      t->y_hint = 0;
      return st;
    }
  }
  t->int64_results = int64_results;
  t->tag = kTaskTag;
  t->precision = sizeof(T) == 8 ? 1 : 0;
  t->live = 1;
  t->cell_table = nullptr;
  if (x_hint == QOR_DF_UNIFORM_PARTITION) return 0;
  return build_cell_table<T>(t);
}

template <class T>
int32_t edit_pp_spline(qor_df_task_t *task, int64_t order, int64_t type, int64_t bc_type,
                       const T *bc, int64_t ic_type, const T *ic, T *coeff, int64_t coeff_hint) {
  Task *t = as_task(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (order < 0) return QOR_DF_ERROR_BAD_SPLINE_ORDER;
  if (type < 0) return QOR_DF_ERROR_BAD_SPLINE_TYPE;
  t->order = order;
  t->type = type;
  if (!bc && static_cast<uint64_t>(bc_type) >= 3 && bc_type != 64) return QOR_DF_ERROR_NULL_BC;
  t->bc_type = bc_type;
  t->bc = bc;
  if (ic_type != 0 && !ic) return QOR_DF_ERROR_NULL_IC;
  if (ic_type == 0 && ic) return QOR_DF_ERROR_BAD_IC_TYPE;
  t->ic_type = ic_type;
  t->ic = ic;
  if (coeff) {
    // The hint decides the storage of the table built here.
    const int64_t saved = t->coeff_hint;
    t->coeff_hint = coeff_hint;
    const int32_t st = build_coeff_table(t, coeff);
    if (st) {
      t->coeff_hint = saved;
      return st;
    }
  }
  t->coeff_hint = coeff_hint;
  return 0;
}

// Makes sure that a pointer table has a slot for `index`, growing it (and
// keeping the slots already set) when ny was raised after the table was
// made.  Returns 0 or -1001.
int32_t ensure_slot(void ***table, int64_t *slots, int64_t index) {
  if (index < *slots) return 0;
  const int64_t want = index + 1;
  void **grown = allocate_slots(want);
  if (!grown) return QOR_DF_ERROR_MEM_FAILURE;
  for (int64_t i = 0; i < want; ++i) grown[i] = i < *slots ? (*table)[i] : nullptr;
  release(*table);
  *table = grown;
  *slots = want;
  return 0;
}

template <class T>
int32_t edit_ptr(qor_df_task_t *task, int64_t id, const T *p) {
  Task *t = as_task(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (t->live != 1) return 0;
  switch (id) {
    case QOR_DF_ID_X:
      if (!p) return QOR_DF_ERROR_NULL_X;
      t->x = p;  // the cell-index table is deliberately left as it is
      return 0;
    case QOR_DF_ID_Y: {
      if (!p) return QOR_DF_ERROR_NULL_Y;
      // With no functions there is no table to make: ny is wrong for this.
      if (t->ny == 0) return QOR_DF_ERROR_BAD_NY;
      release(t->y_table);
      t->y_table = nullptr;
      t->y_slots = 0;
      return build_y_table(t, p);
    }
    case QOR_DF_ID_IC:
      if (!p) return QOR_DF_ERROR_NULL_IC;
      t->ic = p;
      return 0;
    case QOR_DF_ID_BC:
      if (!p) return QOR_DF_ERROR_NULL_BC;
      t->bc = p;
      return 0;
    case QOR_DF_ID_PP_COEFF:
      if (!p) return QOR_DF_ERROR_NULL_PP_COEFF;
      return build_coeff_table(t, const_cast<T *>(p));
    default:
      return QOR_DF_ERROR_BAD_PARAM_ID;
  }
}

template <class T>
int32_t edit_idx_ptr(qor_df_task_t *task, int64_t id, int64_t index, const T *p) {
  Task *t = as_task(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (t->live != 1) return 0;
  if (id == QOR_DF_ID_Y) {
    if (!p) return QOR_DF_ERROR_NULL_Y;
    if (t->y_hint == QOR_DF_STORAGE_SINGLE) return QOR_DF_ERROR_BAD_Y_HINT;
    if (index < 0 || index >= t->ny) return QOR_DF_ERROR_BAD_FUNC_INDEX;
    if (const int32_t st = ensure_slot(&t->y_table, &t->y_slots, index)) return st;
    t->y_table[index] = const_cast<T *>(p);
    return 0;
  }
  if (id == QOR_DF_ID_PP_COEFF) {
    if (!p) return QOR_DF_ERROR_NULL_PP_COEFF;
    if (index < 0 || index >= t->ny) return QOR_DF_ERROR_BAD_FUNC_INDEX;
    if (const int32_t st = ensure_slot(&t->coeff_table, &t->coeff_slots, index)) return st;
    t->coeff_table[index] = const_cast<T *>(p);
    return 0;
  }
  return QOR_DF_ERROR_BAD_PARAM_ID;
}

template <class T>
int32_t query_ptr(const qor_df_task_t *task, int64_t id, T **out) {
  const Task *t = as_task(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (!out) return QOR_DF_ERROR_NULL_OUTPUT;
  if (t->live != 1) return 0;
  const void *p = nullptr;
  switch (id) {
    case QOR_DF_ID_X: p = t->x; break;
    case QOR_DF_ID_Y: p = t->y_slots > 0 ? t->y_table[0] : nullptr; break;
    case QOR_DF_ID_IC: p = t->ic; break;
    case QOR_DF_ID_BC: p = t->bc; break;
    case QOR_DF_ID_PP_COEFF: p = t->coeff_slots > 0 ? t->coeff_table[0] : nullptr; break;
    default: return QOR_DF_ERROR_BAD_PARAM_ID;
  }
  *out = static_cast<T *>(const_cast<void *>(p));
  return 0;
}

template <class T>
int32_t query_idx_ptr(const qor_df_task_t *task, int64_t id, int64_t index, T **out) {
  const Task *t = as_task(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (!out) return QOR_DF_ERROR_NULL_OUTPUT;
  // Index ny itself is accepted (the slot after the last function).
  if (index < 0 || index > t->ny) return QOR_DF_ERROR_BAD_FUNC_INDEX;
  if (t->live != 1) return 0;
  void **table;
  int64_t slots;
  if (id == QOR_DF_ID_Y) {
    if (t->y_hint == QOR_DF_STORAGE_SINGLE) return QOR_DF_ERROR_BAD_Y_HINT;
    table = t->y_table;
    slots = t->y_slots;
  } else if (id == QOR_DF_ID_PP_COEFF) {
    table = t->coeff_table;
    slots = t->coeff_slots;
  } else {
    return QOR_DF_ERROR_BAD_PARAM_ID;
  }
  // A slot outside the allocated table (index ny, or a table made before ny
  // was raised) is never read: it reads as null.
  *out = index < slots ? static_cast<T *>(table[index]) : nullptr;
  return 0;
}

}  // namespace

int32_t edit_val(qor_df_task_t *task, int64_t id, int64_t v) {
  Task *t = as_task(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (t->live != 1) return 0;
  switch (id) {
    case QOR_DF_ID_NX:
      if (v < 2) return QOR_DF_ERROR_BAD_NX;
      t->nx = v;  // the cell-index table is deliberately left as it is
      return 0;
    case QOR_DF_ID_X_HINT:
      if (v > 4 || v == 3 || v < 0) return QOR_DF_ERROR_BAD_X_HINT;
      t->x_hint = v;
      if (v == QOR_DF_NON_UNIFORM_PARTITION) {
        release(t->cell_table);
        t->cell_table = nullptr;
        t->table_nx = 0;
        t->table_x = nullptr;
        return build_cell_table_for(t);
      }
      return 0;
    case QOR_DF_ID_NY:
      if (v < 1) return QOR_DF_ERROR_BAD_NY;
      t->ny = v;
      return 0;
    case QOR_DF_ID_Y_HINT:
      if (!hint_admitted(v)) return QOR_DF_ERROR_BAD_Y_HINT;
      t->y_hint = v;
      return 0;
    case QOR_DF_ID_SPLINE_ORDER:
      if (v < 0) return QOR_DF_ERROR_BAD_SPLINE_ORDER;
      t->order = v;
      return 0;
    case QOR_DF_ID_SPLINE_TYPE:
      if (!((v >= 0 && v <= 5) || v == 9)) return QOR_DF_ERROR_BAD_SPLINE_TYPE;
      t->type = v;
      return 0;
    case QOR_DF_ID_IC_TYPE:
      if (!(v < 3 || (v & 8))) return QOR_DF_ERROR_BAD_IC_TYPE;
      t->ic_type = v;
      return 0;
    case QOR_DF_ID_BC_TYPE:
      if (v < 0) return QOR_DF_ERROR_BAD_BC_TYPE;
      t->bc_type = v;
      return 0;
    case QOR_DF_ID_PP_COEFF_HINT:
      if (!hint_admitted(v)) return QOR_DF_ERROR_BAD_PP_COEFF_HINT;
      t->coeff_hint = v;
      return 0;
    case QOR_DF_ID_CHECK_FLAG:
      if (static_cast<uint64_t>(v) > 1) return QOR_DF_ERROR_BAD_CHECK_FLAG;
      t->check = static_cast<int32_t>(v);
      return 0;
    default:
      return QOR_DF_ERROR_BAD_PARAM_ID;
  }
}

int32_t query_val(const qor_df_task_t *task, int64_t id, void *out) {
  const Task *t = as_task(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (!out) return QOR_DF_ERROR_NULL_OUTPUT;
  if (t->live != 1) return 0;
  int64_t v;
  switch (id) {
    case QOR_DF_ID_NX: v = t->nx; break;
    case QOR_DF_ID_X_HINT: v = t->x_hint; break;
    case QOR_DF_ID_NY: v = t->ny; break;
    case QOR_DF_ID_Y_HINT: v = t->y_hint; break;
    case QOR_DF_ID_SPLINE_ORDER: v = t->order; break;
    case QOR_DF_ID_SPLINE_TYPE: v = t->type; break;
    case QOR_DF_ID_IC_TYPE: v = t->ic_type; break;
    case QOR_DF_ID_BC_TYPE: v = t->bc_type; break;
    case QOR_DF_ID_PP_COEFF_HINT: v = t->coeff_hint; break;
    case QOR_DF_ID_CHECK_FLAG: v = t->check; break;  // sign-extended
    default: return QOR_DF_ERROR_BAD_PARAM_ID;
  }
  if (t->int64_results) {
    std::memcpy(out, &v, sizeof v);
  } else {
    const int32_t low = static_cast<int32_t>(v);
    std::memcpy(out, &low, sizeof low);
  }
  return 0;
}

int32_t delete_task(qor_df_task_t **task) {
  if (!task || !*task) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  Task *t = as_task(*task);
  release(t->y_table);
  release(t->coeff_table);
  release(t->cell_table);
  // Clear the mark so that a stale copy of the pointer is recognisably dead
  // for as long as the memory is not reused.
  t->live = 0;
  qor_serv_deallocate(t);
  *task = nullptr;
  return 0;
}

}  // namespace qor::fit

using namespace qor::fit;

extern "C" {

QOR_API int32_t qor_df_kernel_sNewTask1D(qor_df_task_t **task, int64_t nx, const float *x,
                                         int64_t x_hint, int64_t ny, const float *y,
                                         int64_t y_hint, uint32_t f) {
  return new_task(task, nx, x, x_hint, ny, y, y_hint, f);
}
QOR_API int32_t qor_df_kernel_dNewTask1D(qor_df_task_t **task, int64_t nx, const double *x,
                                         int64_t x_hint, int64_t ny, const double *y,
                                         int64_t y_hint, uint32_t f) {
  return new_task(task, nx, x, x_hint, ny, y, y_hint, f);
}
QOR_API int32_t qor_df_kernel_sEditPPSpline1D(qor_df_task_t *task, int64_t order, int64_t type,
                                              int64_t bc_type, const float *bc, int64_t ic_type,
                                              const float *ic, float *coeff, int64_t hint) {
  return edit_pp_spline(task, order, type, bc_type, bc, ic_type, ic, coeff, hint);
}
QOR_API int32_t qor_df_kernel_dEditPPSpline1D(qor_df_task_t *task, int64_t order, int64_t type,
                                              int64_t bc_type, const double *bc, int64_t ic_type,
                                              const double *ic, double *coeff, int64_t hint) {
  return edit_pp_spline(task, order, type, bc_type, bc, ic_type, ic, coeff, hint);
}
QOR_API int32_t qor_df_kernel_iEditVal(qor_df_task_t *task, int64_t id, int64_t value) {
  return edit_val(task, id, value);
}
QOR_API int32_t qor_df_kernel_sEditPtr(qor_df_task_t *task, int64_t id, const float *p) {
  return edit_ptr(task, id, p);
}
QOR_API int32_t qor_df_kernel_dEditPtr(qor_df_task_t *task, int64_t id, const double *p) {
  return edit_ptr(task, id, p);
}
QOR_API int32_t qor_df_kernel_sEditIdxPtr(qor_df_task_t *task, int64_t id, int64_t i,
                                          const float *p) {
  return edit_idx_ptr(task, id, i, p);
}
QOR_API int32_t qor_df_kernel_dEditIdxPtr(qor_df_task_t *task, int64_t id, int64_t i,
                                          const double *p) {
  return edit_idx_ptr(task, id, i, p);
}
QOR_API int32_t qor_df_kernel_iQueryVal(const qor_df_task_t *task, int64_t id, void *value) {
  return query_val(task, id, value);
}
QOR_API int32_t qor_df_kernel_sQueryPtr(const qor_df_task_t *task, int64_t id, float **p) {
  return query_ptr(task, id, p);
}
QOR_API int32_t qor_df_kernel_dQueryPtr(const qor_df_task_t *task, int64_t id, double **p) {
  return query_ptr(task, id, p);
}
QOR_API int32_t qor_df_kernel_sQueryIdxPtr(const qor_df_task_t *task, int64_t id, int64_t i,
                                           float **p) {
  return query_idx_ptr(task, id, i, p);
}
QOR_API int32_t qor_df_kernel_dQueryIdxPtr(const qor_df_task_t *task, int64_t id, int64_t i,
                                           double **p) {
  return query_idx_ptr(task, id, i, p);
}
QOR_API int32_t qor_df_kernel_DeleteTask(qor_df_task_t **task) { return delete_task(task); }

}  // extern "C"
