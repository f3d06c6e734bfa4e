// The generator registry: the current table (built-in rows plus user
// registrations) and the legacy table addressed by small identifiers.
#include <cstddef>
#include <cstring>

#include "rng/core/internal.h"

static_assert(sizeof(GeneratorRecord) == 56, "registry rows are 56 bytes");
static_assert(offsetof(GeneratorRecord, stateSize) == 0);
static_assert(offsetof(GeneratorRecord, seedCount) == 4);
static_assert(offsetof(GeneratorRecord, zeroIncluded) == 8);
static_assert(offsetof(GeneratorRecord, wordSize) == 12);
static_assert(offsetof(GeneratorRecord, bitCount) == 16);
static_assert(offsetof(GeneratorRecord, initStream) == 24);
static_assert(offsetof(GeneratorRecord, generateS) == 32);
static_assert(offsetof(GeneratorRecord, generateD) == 40);
static_assert(offsetof(GeneratorRecord, generateI) == 48);
static_assert(sizeof(StreamHeader) == 16 && offsetof(StreamHeader, chunks) == 8);
static_assert(sizeof(StreamChunk) == 40);
static_assert(offsetof(StreamChunk, size) == 4 && offsetof(StreamChunk, data) == 8 &&
              offsetof(StreamChunk, next) == 16 && offsetof(StreamChunk, key) == 24);
static_assert(sizeof(GlobalDataEntry) == 32 && offsetof(GlobalDataEntry, refCount) == 16 &&
              offsetof(GlobalDataEntry, data) == 24);

namespace {

#define QOR_ROW(size, seeds, zero, word, bits, NAME)                                   \
  GeneratorRecord {                                                                     \
    size, seeds, zero, word, bits, 0, __rixBRng##NAME##InitStream, __rixsBRng##NAME,   \
        __rixdBRng##NAME, __rixiBRng##NAME                                              \
  }

constexpr GeneratorRecord kMcg31 = QOR_ROW(24, 1, 0, 4, 31, MCG31M1);
constexpr GeneratorRecord kR250 = QOR_ROW(1024, 252, 1, 4, 32, R250);
constexpr GeneratorRecord kMrg = QOR_ROW(40, 6, 1, 4, 32, MRG32K3A);
constexpr GeneratorRecord kMcg59 = QOR_ROW(32, 1, 0, 8, 59, MCG59);
constexpr GeneratorRecord kWh = QOR_ROW(48, 4, 1, 16, 24, WH);
constexpr GeneratorRecord kSobol = QOR_ROW(11712, 2604, 0, 4, 32, Sobol);
constexpr GeneratorRecord kNiederr = QOR_ROW(84288, 10498, 0, 4, 32, Niederr);
constexpr GeneratorRecord kMt19937 = QOR_ROW(2520, 625, 1, 4, 32, MT19937);
constexpr GeneratorRecord kMt2203 = QOR_ROW(312, 70, 1, 4, 32, MT2203);
constexpr GeneratorRecord kSfmt = QOR_ROW(2536, 625, 1, 4, 32, SFMT19937);
constexpr GeneratorRecord kTrng = QOR_ROW(24, 1, 1, 4, 32, TRNG);
constexpr GeneratorRecord kArs5 = QOR_ROW(72, 8, 1, 4, 32, ARS5);
constexpr GeneratorRecord kPhilox = QOR_ROW(64, 8, 1, 4, 32, PHILOX4X32X10);
#undef QOR_ROW

// Abstract rows: only the routine of their own type; the other two slots
// refuse with -1122.
constexpr GeneratorRecord kIAbstract{48, 0, 1, 4, 32, 0, __rixBRngiAbstractInitStream,
                                     __rixsBRngiAbstract, __rixdBRngiAbstract,
                                     __rixiBRngiAbstract};
constexpr GeneratorRecord kDAbstract{64, 0, 1, 4, 32, 0, __rixBRngdAbstractInitStream,
                                     __rixsBRngdAbstract, __rixdBRngdAbstract,
                                     __rixiBRngdAbstract};
constexpr GeneratorRecord kSAbstract{56, 0, 1, 4, 32, 0, __rixBRngsAbstractInitStream,
                                     __rixsBRngsAbstract, __rixdBRngsAbstract,
                                     __rixiBRngsAbstract};

}  // namespace

extern "C" {

QOR_API GeneratorRecord __RegBrngsNew[QOR_RNG_REGISTRY_CAPACITY] = {
    kMcg31, kR250, kMrg, kMcg59, kWh, kSobol, kNiederr, kMt19937,
    kMt2203, kIAbstract, kDAbstract, kSAbstract, kSfmt, kTrng, kArs5, kPhilox};

// Legacy rows 4..276 are 273 identical WH rows; 279 and 280 stay all zero.
#define QOR_R2(x) x, x
#define QOR_R4(x) QOR_R2(x), QOR_R2(x)
#define QOR_R16(x) QOR_R4(x), QOR_R4(x), QOR_R4(x), QOR_R4(x)
#define QOR_R256(x) QOR_R16(x), QOR_R16(x), QOR_R16(x), QOR_R16(x), QOR_R16(x), QOR_R16(x), \
                    QOR_R16(x), QOR_R16(x), QOR_R16(x), QOR_R16(x), QOR_R16(x), QOR_R16(x), \
                    QOR_R16(x), QOR_R16(x), QOR_R16(x), QOR_R16(x)
QOR_API GeneratorRecord __RegBrngs[QOR_RNG_REGISTRY_CAPACITY] = {
    kMcg31, kR250, kMrg, kMcg59, QOR_R256(kWh), QOR_R16(kWh), kWh, kSobol, kNiederr};
#undef QOR_R2
#undef QOR_R4
#undef QOR_R16
#undef QOR_R256

}  // extern "C"

namespace qor::rng {

int32_t registered_brng_count = QOR_RNG_BUILTIN_ROWS;
// Members per row: the WH set (row 4) has 273, the MT2203 set (row 8) 6024.
int32_t brng_member_counts[QOR_RNG_REGISTRY_CAPACITY] = {1,    1, 1, 1, 273, 1, 1, 1,
                                                          6024, 1, 1, 1, 1,   1, 1, 1};

const GeneratorRecord *row_of(int32_t brng) {
  int32_t row = 0, member = 0;
  const GeneratorRecord *table = __rixGetBrngBaseOffset(brng, &row, &member);
  // Legacy identifiers are signed: a negative one would address memory in
  // front of the table, so it is treated as naming no row at all.
  if (row < 0 || row >= QOR_RNG_REGISTRY_CAPACITY) return nullptr;
  return table + row;
}

int32_t member_of(int32_t brng) {
  int32_t row = 0, member = 0;
  __rixGetBrngBaseOffset(brng, &row, &member);
  return member;
}

}  // namespace qor::rng

using namespace qor::rng;

extern "C" {

QOR_API GeneratorRecord *__rixGetBrngBaseOffset(int32_t brng, int32_t *row, int32_t *member) {
  if (brng >= 0x100000) {
    *row = (brng >> 20) - 1;
    *member = brng & 0xFFFFF;
    return __RegBrngsNew;
  }
  if (brng >= kLegacyWhFirst && brng <= kLegacyWhLast) {
    *row = kWhRow;
    *member = brng - kLegacyWhFirst;
  } else {
    *row = brng;
    *member = 0;
  }
  return __RegBrngs;
}

QOR_API int32_t __rixIsBrngValid(const GeneratorRecord *table, int32_t row, int32_t member) {
  if (table == __RegBrngs) {
    // A negative legacy row would index in front of the table; refuse it.
    return (row >= 0 && row < QOR_RNG_LEGACY_ROWS) ? QOR_RNG_OK : QOR_RNG_ERROR_INVALID_BRNG;
  }
  if (table == __RegBrngsNew && row >= 0 && row < registered_brng_count && member >= 0 &&
      member < brng_member_counts[row])
    return QOR_RNG_OK;
  return QOR_RNG_ERROR_INVALID_BRNG;
}

QOR_API int32_t __rixGetBrngProperties(int32_t brng, GeneratorRecord *properties) {
  int32_t row = 0, member = 0;
  const GeneratorRecord *table = __rixGetBrngBaseOffset(brng, &row, &member);
  if (__rixIsBrngValid(table, row, member) != QOR_RNG_OK) return QOR_RNG_ERROR_INVALID_BRNG;
  std::memcpy(properties, &table[row], sizeof(GeneratorRecord));
  return QOR_RNG_OK;
}

QOR_API int32_t __rixGetNumRegBrngs(void) { return registered_brng_count; }

QOR_API int32_t __rixRegisterBrng(const GeneratorRecord *p) {
  if (p->stateSize < 0) return QOR_RNG_ERROR_BAD_STREAM_STATE_SIZE;
  if (p->wordSize != 4 && p->wordSize != 8 && p->wordSize != 16)
    return QOR_RNG_ERROR_BAD_WORD_SIZE;
  if (p->seedCount < 1) return QOR_RNG_ERROR_BAD_NSEEDS;
  if (p->bitCount < 1) return QOR_RNG_ERROR_BAD_NBITS;
  if (!p->generateD || !p->generateS || !p->generateI || !p->initStream)
    return QOR_RNG_ERROR_NULL_PTR;
  const int32_t k = registered_brng_count;
  // The table has room for 512 rows; a further registration would write past
  // its end, so it is refused instead.
  if (k >= QOR_RNG_REGISTRY_CAPACITY) return QOR_RNG_ERROR_REGISTRY_FULL;
  std::memcpy(&__RegBrngsNew[k], p, sizeof(GeneratorRecord));
  brng_member_counts[k] = 1;
  // The row is complete before the count makes it visible to readers.
  __atomic_store_n(&registered_brng_count, k + 1, __ATOMIC_RELEASE);
  return static_cast<int32_t>(static_cast<uint32_t>(k + 1) << 20);
}

}  // extern "C"
