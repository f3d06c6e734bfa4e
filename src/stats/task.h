// The summary statistics task record and the helpers every estimator uses to
// read it.  The record is 93 consecutive 64-bit words; callers and other
// libraries of the family depend on the word positions, so they are spelled
// out here once and pinned by the tests.
#pragma once

#include <cstdint>
#include <cstring>

namespace qor::stats {

inline constexpr int kTaskFields = 93;
inline constexpr int kTaskAlignment = 128;

// Positions of the words that are not plain parameter pointers.
inline constexpr int kFieldWidth = 0;        // low half: width flag; high half: 2
inline constexpr int kFieldVersion = 1;      // low half: 1
inline constexpr int kFieldP = 2;
inline constexpr int kFieldN = 3;
inline constexpr int kFieldIndices = 4;
inline constexpr int kFieldX = 5;
inline constexpr int kFieldWeights = 6;
inline constexpr int kFieldStorage = 8;
inline constexpr int kFieldMeans = 11;
inline constexpr int kFieldQuantCount = 44;
inline constexpr int kFieldQuantOrders = 45;
inline constexpr int kFieldQuants = 46;
inline constexpr int kFieldMedianAbsDev = 56;
inline constexpr int kFieldMeanAbsDev = 55;
inline constexpr int kFieldScratchFirst = 80;  // 80 .. 87: estimator scratch words
inline constexpr int kFieldHookCount = 88;
inline constexpr int kFieldHookFirst = 89;  // 89 .. 91: clean-up hooks
inline constexpr int kFieldScratchBlock = 92;
inline constexpr int kMaxHooks = kFieldScratchBlock - kFieldHookFirst;

inline constexpr int64_t kStorageCols = 0x10000;
inline constexpr int64_t kStorageRows = 0x20000;

enum class ParamKind : uint8_t { kNone, kInteger, kReal };

struct ParamInfo {
  ParamKind kind;
  int8_t field;
  int16_t null_status;
};

// Row id of the parameter table (ids 1..79); row 0 is unused.
extern const ParamInfo kParamTable[80];

struct TaskRecord {
  uint64_t f[kTaskFields];

  template <class P>
  P *ptr(int field) const {
    return reinterpret_cast<P *>(static_cast<uintptr_t>(f[field]));
  }
  void set_ptr(int field, const void *p) {
    f[field] = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p));
  }
  bool wide() const { return static_cast<uint32_t>(f[kFieldWidth]) != 0; }
};
static_assert(sizeof(TaskRecord) == kTaskFields * 8, "the record is 93 words");

using CleanupHook = void (*)(TaskRecord *);

// Reads one caller integer through a pointer, 32- or 64-bit by the width flag.
inline int64_t read_int(const void *p, bool wide) {
  if (wide) {
    int64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
  }
  int32_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Entry j of a variable selection array: a 32-bit word at j (narrow) or the
// low half of the 64-bit entry j (wide).  Non-zero means "process".
inline bool selected(const void *indices, int64_t j, bool wide) {
  if (!indices) return true;
  const int32_t *w = static_cast<const int32_t *>(indices);
  return w[wide ? 2 * j : j] != 0;
}

// Fills a record for a one-variable task over n contiguous values; the
// integers it points at live in the caller-provided `ints` (64-bit, width flag
// set), so the whole task can sit on the caller's stack.
struct LocalInts {
  int64_t p = 1;
  int64_t n = 0;
  int64_t storage = kStorageCols;
  int64_t quant_count = 1;
};
void init_local_task(TaskRecord *t, LocalInts *ints, int64_t n, const void *x,
                     const void *weights);

// Estimate request check of the basic statistics engine: 0 when the task holds
// every result array the request needs under the method, else the status of
// the lowest unmet requirement (or -4029 for a bad method word).
int32_t check_estimate_request(const TaskRecord *t, uint64_t estimates, uint64_t method);

// The task data check that follows the request check: n (>= 1), x, storage
// pointer and a storage word with bit 16 or 17.  On success stores p, n and
// whether the variables are contiguous.
int32_t check_task_data(const TaskRecord *t, int64_t *p, int64_t *n, bool *contiguous);

// Registers a clean-up hook; false when every hook slot is taken.
bool add_cleanup_hook(TaskRecord *t, CleanupHook hook);

}  // namespace qor::stats
