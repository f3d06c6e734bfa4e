// The estimate request check of the basic statistics engine: before any
// computation, every result array that the requested estimates need under the
// chosen method must be attached to the task.
#include "qor/stats.h"
#include "stats/task.h"

namespace qor::stats {
namespace {

// Requirement bit -> (parameter identifier of its result array, status when
// the array is missing).  Bit 20 stands for "cannot be served by this method"
// and is never met.
struct Requirement {
  int id;
  int32_t status;
};
constexpr Requirement kRequirements[21] = {
    {7, -4006},  {8, -4007},  {9, -4008},  {10, -4009}, {11, -4010}, {12, -4011}, {13, -4012},
    {19, -4018}, {21, -4019}, {14, -4013}, {15, -4014}, {18, -4017}, {67, -4074}, {68, -4075},
    {69, -4076}, {70, -4077}, {71, -4078}, {72, -4079}, {73, -4080}, {74, -4081}, {0, -4029},
};
constexpr int kNeverMet = 20;

// Estimate bit -> requirement sets for the three method columns:
// [0] methods 0x2 / 0x100, [1] method 0x1, [2] methods 0x200 / 0x400 alone.
struct EstimateRow {
  uint64_t estimate;
  uint32_t need[3];
};
constexpr EstimateRow kEstimates[] = {
    {0x1, {0x1, 0x1, 0x1001}},
    {0x2, {0x2, 0x2, 0x2002}},
    {0x4, {0x4, 0x4, 0x4004}},
    {0x8, {0x8, 0x8, 0x8008}},
    {0x10, {0x13, 0x13, 0x10010}},
    {0x20, {0x27, 0x27, 0x20020}},
    {0x40, {0x4f, 0x4f, 0x40040}},
    {0x1000, {0x81, 0x81, 0x80080}},
    {0x2000, {0x101, 0x101, 0x80100}},
    {0x80, {0x25f, 0x25f, 0x251}},
    {0x100, {0x437, 0x437, 0x431}},
    {0x200, {0x813, 0x813, 0x811}},
    {0x2000000, {0x1000, 0x1000, 0x100000}},
    {0x4000000, {0x2000, 0x2000, 0x100000}},
    {0x8000000, {0x4000, 0x4000, 0x100000}},
    {0x10000000, {0x8000, 0x8000, 0x100000}},
    {0x20000000, {0x10001, 0x10003, 0x100000}},
    {0x40000000, {0x20001, 0x20007, 0x100000}},
    {0x80000000, {0x40001, 0x4000f, 0x100000}},
    {0x100000000, {0x80001, 0x80001, 0x100000}},
};

}  // namespace

int32_t check_estimate_request(const TaskRecord *t, uint64_t estimates, uint64_t method) {
  const uint64_t m = method & (QOR_SS_METHOD_FAST | QOR_SS_METHOD_1PASS |
                               QOR_SS_METHOD_CALLER_MEANS);
  int column;
  if (m == 0) {
    if (!(method & (QOR_SS_METHOD_SUMS | QOR_SS_METHOD_SUMS_ONLINE))) return QOR_SS_ERROR_BAD_METHOD;
    column = 2;
  } else if (m & (m - 1)) {
    return QOR_SS_ERROR_BAD_METHOD;  // more than one of 0x1, 0x2, 0x100
  } else {
    column = m == QOR_SS_METHOD_FAST ? 1 : 0;
  }

  uint32_t need = 0;
  for (const EstimateRow &row : kEstimates)
    if (estimates & row.estimate) need |= row.need[column];

  for (int bit = 0; bit <= kNeverMet; ++bit) {
    if (!(need & (1u << bit))) continue;
    if (bit == kNeverMet) return kRequirements[bit].status;
    const int field = kParamTable[kRequirements[bit].id].field;
    if (t->f[field] == 0) return kRequirements[bit].status;
  }
  return QOR_SS_OK;
}

int32_t check_task_data(const TaskRecord *t, int64_t *p, int64_t *n, bool *contiguous) {
  const bool wide = t->wide();
  const void *pn = t->ptr<const void>(kFieldN);
  if (!pn) return QOR_SS_ERROR_BAD_OBSERV_N;
  const int64_t nv = read_int(pn, wide);
  if (nv < 1) return QOR_SS_ERROR_BAD_OBSERV_N;
  if (!t->f[kFieldX]) return QOR_SS_ERROR_BAD_OBSERV_ADDR;
  const void *ps = t->ptr<const void>(kFieldStorage);
  if (!ps) return QOR_SS_ERROR_BAD_STORAGE_ADDR;
  const int64_t storage = read_int(ps, wide);
  if (!(storage & (kStorageCols | kStorageRows))) return QOR_SS_ERROR_STORAGE_NOT_SUPPORTED;
  // p was validated when the task was created; it is re-read because the
  // integer editor may have replaced the pointer since.
  const void *pp = t->ptr<const void>(kFieldP);
  const int64_t pv = pp ? read_int(pp, wide) : 0;
  if (pv < 1) return QOR_SS_ERROR_BAD_DIMEN;
  *p = pv;
  *n = nv;
  *contiguous = (storage & kStorageCols) != 0 || pv == 1;
  return QOR_SS_OK;
}

}  // namespace qor::stats
