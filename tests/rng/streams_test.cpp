// Stream life cycle, chunks, the shared read-only data table and abstract
// streams, through the exported entry points; every failure status of the
// stream core is reached here or in registry_test.cpp / generators_test.cpp.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

#include "fault_injection.h"
#include "helpers.h"
#include "qor/core.h"

namespace {

using qor_test::Stream;
using qor_test::words;

void *block(size_t n, unsigned char fill) {
  void *p = qor_serv_allocate(n, 128);
  std::memset(p, fill, n);
  return p;
}

std::vector<uint32_t> chunk_ids(const void *stream) {
  std::vector<uint32_t> ids;
  for (const StreamChunk *c = static_cast<const StreamHeader *>(stream)->chunks; c; c = c->next)
    ids.push_back(c->id);
  return ids;
}

uint32_t refcount(const uint64_t key[2]) {
  GlobalDataEntry *e = nullptr;
  return __rixFindGlobRODataTableEntry(&e, key) == 0 ? e->refCount : 0;
}

TEST(Streams, NewStreamFillsTheHeader) {
  Stream s(QOR_BRNG_MRG32K3A, {1});
  ASSERT_EQ(s.status(), 0);
  const auto *h = static_cast<const StreamHeader *>(s.get());
  EXPECT_EQ(h->brng, QOR_BRNG_MRG32K3A);
  EXPECT_EQ(h->flags, 1u);
  EXPECT_EQ(h->chunks, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(s.get()) % 128, 0u);
  EXPECT_EQ(__rixGetStreamStateBrng(s.get()), QOR_BRNG_MRG32K3A);
  Stream legacy(100, {1});  // WH member 96 through its legacy identifier
  EXPECT_EQ(__rixGetStreamStateBrng(legacy.get()), 100);
  void *gone = s.release();
  EXPECT_EQ(__rixDeleteStream(&gone), 0);
  EXPECT_EQ(gone, nullptr);
  EXPECT_EQ(__rixDeleteStream(&gone), 0);  // deleting a null stream is harmless
}

TEST(Streams, RefusedIdentifiersAllocateNothing) {
  const long live = qor_test::live_blocks();
  for (int32_t brng : {QOR_BRNG_IABSTRACT, QOR_BRNG_DABSTRACT, QOR_BRNG_SABSTRACT, 281, -3,
                       0x500000 + 273, 0x7FF00000, 279, 280}) {
    void *s = nullptr;
    EXPECT_EQ(__rixNewStreamEx(&s, brng, 0, nullptr), QOR_RNG_ERROR_INVALID_BRNG) << brng;
    EXPECT_EQ(s, nullptr);
  }
  EXPECT_EQ(qor_test::live_blocks(), live);
}

TEST(Streams, AllocationFailuresReportMinusFour) {
  const long live = qor_test::live_blocks();
  void *s = nullptr;
  qor_test::fail_allocation_after(0);
  EXPECT_EQ(__rixNewStreamEx(&s, QOR_BRNG_MCG31, 0, nullptr), QOR_RNG_ERROR_MEM_FAILURE);
  qor_test::fail_allocation_after(0);
  EXPECT_EQ(__rixAllocateStream(&s, __RegBrngsNew, QOR_BRNG_MCG31, 0, 0), QOR_RNG_ERROR_MEM_FAILURE);
  uint32_t buf[4];
  qor_test::fail_allocation_after(0);
  EXPECT_EQ(__rixiNewAbstractStream(&s, 4, buf, [](void *, int32_t *, uint32_t *, int32_t *,
                                                   int32_t *, int32_t *) { return 0; }),
            QOR_RNG_ERROR_MEM_FAILURE);
  qor_test::fail_allocation_after(-1);

  Stream src(QOR_BRNG_MCG31, {3});
  ASSERT_EQ(__rixAddChunk(src.get(), 1, nullptr, block(64, 1), 64), 0);
  ASSERT_EQ(__rixAddChunk(src.get(), 2, nullptr, block(64, 2), 64), 0);
  // The copy's block itself; then its first chunk's data; then a later one.
  for (int skip : {0, 1, 3}) {
    void *copy = nullptr;
    qor_test::fail_allocation_after(skip);
    const int32_t st = __rixCopyStream(&copy, src.get());
    qor_test::fail_allocation_after(-1);
    EXPECT_EQ(st, QOR_RNG_ERROR_MEM_FAILURE) << skip;
    if (copy) {
      EXPECT_EQ(__rixGetNumChunks(copy), 0) << "failed copy keeps no chunks";
      __rixDeleteStream(&copy);
    }
  }
  void *data = block(8, 0);
  qor_test::fail_allocation_after(0);
  EXPECT_EQ(__rixAddChunk(src.get(), 3, nullptr, data, 8), QOR_RNG_ERROR_MEM_FAILURE);
  qor_test::fail_allocation_after(-1);
  qor_serv_deallocate(data);
  EXPECT_EQ(__rixGetNumChunks(src.get()), 2);
  src.reset();
  EXPECT_EQ(qor_test::live_blocks(), live);
}

TEST(Streams, ChunksAddSearchCountDelete) {
  const long live = qor_test::live_blocks();
  {
    Stream s(QOR_BRNG_MCG31, {1});
    EXPECT_EQ(__rixGetNumChunks(s.get()), 0);
    EXPECT_EQ(__rixSearchChunk(s.get(), 7), nullptr);
    void *a = block(16, 0xA), *b = block(16, 0xB), *c = block(16, 0xC);
    ASSERT_EQ(__rixAddChunk(s.get(), 7, nullptr, a, 16), 0);
    ASSERT_EQ(__rixAddChunk(s.get(), 8, nullptr, b, 16), 0);
    ASSERT_EQ(__rixAddChunk(s.get(), 7, nullptr, c, 16), 0);
    EXPECT_EQ(chunk_ids(s.get()), (std::vector<uint32_t>{7, 8, 7}));  // newest first
    EXPECT_EQ(__rixGetNumChunks(s.get()), 3);
    EXPECT_EQ(__rixSearchChunk(s.get(), 7), c);  // first match in list order
    EXPECT_EQ(__rixSearchChunk(s.get(), 8), b);
    EXPECT_EQ(__rixDeleteChunks(s.get()), 0);
    EXPECT_EQ(__rixGetNumChunks(s.get()), 0);
    ASSERT_EQ(__rixAddChunk(s.get(), 1, nullptr, block(4, 1), 4), 0);
  }  // deleting the stream releases its chunks
  EXPECT_EQ(qor_test::live_blocks(), live);
}

TEST(Streams, DeleteChunksByIdKeepsOnlyTheLastKeptChunk) {
  const long live = qor_test::live_blocks();
  struct Case {
    std::vector<uint32_t> ids;  // head first
    uint32_t remove;
    std::vector<uint32_t> expect;
  } const cases[] = {
      {{1, 2, 3}, 2, {3}},        // first and third kept: only the third stays reachable
      {{2, 1, 2}, 2, {1}},        // middle kept
      {{1, 2, 2}, 2, {1}},        // head kept, tail removed
      {{2, 2}, 2, {}},            // nothing kept
      {{5, 6}, 9, {6}},           // nothing removed: the head becomes the last chunk
      {{1, 2, 3, 2}, 2, {3}},
  };
  for (const Case &c : cases) {
    Stream s(QOR_BRNG_MCG31, {1});
    for (auto it = c.ids.rbegin(); it != c.ids.rend(); ++it)
      ASSERT_EQ(__rixAddChunk(s.get(), *it, nullptr, block(8, 0), 8), 0);
    ASSERT_EQ(chunk_ids(s.get()), c.ids);
    EXPECT_EQ(__rixDeleteChunksById(s.get(), c.remove), 0);
    EXPECT_EQ(chunk_ids(s.get()), c.expect);
  }
  EXPECT_EQ(qor_test::live_blocks(), live);  // unreachable chunks were released, not leaked
}

TEST(Streams, CopyReversesChunksAndSharesKeyedData) {
  const long live = qor_test::live_blocks();
  const uint64_t key[2] = {0xC0FFEE, 0x5157};
  {
    Stream src(QOR_BRNG_MCG59, {1, 2});
    words(src.get(), 10);
    void *shared = block(32, 0x55);
    ASSERT_EQ(__rixAddChunk(src.get(), 1, key, shared, 32), 0);
    ASSERT_EQ(__rixAddChunk(src.get(), 2, nullptr, block(24, 0x66), 24), 0);
    EXPECT_EQ(refcount(key), 1u);
    Stream copy;
    ASSERT_EQ(__rixCopyStream(copy.out(), src.get()), 0);
    EXPECT_EQ(chunk_ids(copy.get()), (std::vector<uint32_t>{1, 2}));  // reversed
    EXPECT_EQ(refcount(key), 2u);
    EXPECT_EQ(__rixSearchChunk(copy.get(), 1), shared);  // shared, not copied
    void *priv = __rixSearchChunk(copy.get(), 2);
    EXPECT_NE(priv, __rixSearchChunk(src.get(), 2));  // private data is copied
    EXPECT_EQ(std::memcmp(priv, __rixSearchChunk(src.get(), 2), 24), 0);
    EXPECT_EQ(words(copy.get(), 100), words(src.get(), 100));

    // Copying state: dst's chunks are replaced by copies of src's.
    Stream dst(QOR_BRNG_MCG59, {9});
    ASSERT_EQ(__rixAddChunk(dst.get(), 77, nullptr, block(8, 0), 8), 0);
    ASSERT_EQ(__rixCopyStreamState(dst.get(), src.get()), 0);
    EXPECT_EQ(chunk_ids(dst.get()), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(refcount(key), 3u);
    EXPECT_EQ(words(dst.get(), 50), words(src.get(), 50));

    // Copying a stream onto itself changes nothing.
    const auto before = chunk_ids(src.get());
    ASSERT_EQ(__rixCopyStreamState(src.get(), src.get()), 0);
    EXPECT_EQ(chunk_ids(src.get()), before);
    EXPECT_EQ(refcount(key), 3u);
  }
  EXPECT_EQ(refcount(key), 0u);  // the last reference freed the shared block
  EXPECT_EQ(qor_test::live_blocks(), live);
}

TEST(Streams, CopyStreamStateCopiesOnlyTheGeneratorWords) {
  Stream src(QOR_BRNG_MCG31, {5});
  Stream dst(QOR_BRNG_MCG31, {6});
  ASSERT_EQ(__rixLeapfrogStream(dst.get(), 0, 3), 0);  // dst's multiplier differs
  const uint32_t *d = reinterpret_cast<const uint32_t *>(static_cast<char *>(dst.get()) + 16);
  const uint32_t a_before = d[1];
  ASSERT_EQ(__rixCopyStreamState(dst.get(), src.get()), 0);
  EXPECT_EQ(d[0], 5u);        // seedCount x wordSize = 4 bytes: x only
  EXPECT_EQ(d[1], a_before);  // the multiplier is not part of the copied words
}

TEST(Streams, LeapfrogAndSkipDispatchStatuses) {
  Stream s(QOR_BRNG_MCG31, {1});
  EXPECT_EQ(__rixLeapfrogStream(s.get(), 0, -1), QOR_RNG_ERROR_LEAPFROG_NSTREAMS);
  Stream r(QOR_BRNG_R250, {1});
  EXPECT_EQ(__rixLeapfrogStream(r.get(), 0, 2), QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED);
  EXPECT_EQ(__rixSkipAheadStream(r.get(), 5), QOR_RNG_ERROR_SKIPAHEAD_UNSUPPORTED);
  const uint64_t w[2] = {1, 0};
  EXPECT_EQ(__rixSkipAheadStreamEx(r.get(), 2, w), QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED);
  Stream m(QOR_BRNG_MRG32K3A, {1});
  EXPECT_EQ(__rixLeapfrogStream(m.get(), 1, 2), QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED);
  EXPECT_EQ(__rixBRngMCG31M1InitStream(5, s.get(), 0, nullptr), QOR_RNG_ERROR_BAD_METHOD);
}

TEST(SharedTable, FindCreateRegisterUnregister) {
  GlobalDataEntry *e = nullptr;
  const uint64_t zero[2] = {0, 0};
  EXPECT_EQ(__rixFindGlobRODataTableEntry(&e, nullptr), QOR_RNG_ERROR_NO_SHARED_ENTRY);
  EXPECT_EQ(__rixFindGlobRODataTableEntry(&e, zero), QOR_RNG_ERROR_NO_SHARED_ENTRY);
  const uint64_t key[2] = {0xABC, 1};
  EXPECT_EQ(__rixFindGlobRODataTableEntry(&e, key), QOR_RNG_ERROR_NO_SHARED_ENTRY);
  void *data = block(16, 3);
  ASSERT_EQ(__rixCreateGlobRODataTableEntry(&e, key, data), 0);
  EXPECT_EQ(e->refCount, 1u);
  EXPECT_EQ(e->data, data);
  GlobalDataEntry *f = nullptr;
  ASSERT_EQ(__rixFindGlobRODataTableEntry(&f, key), 0);
  EXPECT_EQ(f, e);
  void *out[2] = {nullptr, nullptr};
  __rixRegisterGlobRODataReference(out, key);
  EXPECT_EQ(out[1], data);
  EXPECT_EQ(refcount(key), 2u);
  const uint64_t other[2] = {0xABC, 2};
  void *untouched[2] = {nullptr, nullptr};
  __rixRegisterGlobRODataReference(untouched, other);
  EXPECT_EQ(untouched[1], nullptr);
  __rixUnregisterGlobRODataReference(key);
  EXPECT_EQ(refcount(key), 1u);
  __rixUnregisterGlobRODataReference(key);
  EXPECT_EQ(__rixFindGlobRODataTableEntry(&f, key), QOR_RNG_ERROR_NO_SHARED_ENTRY);

  // A new identifier takes the tag as its second word.
  uint64_t id[2] = {0xFEED, 0};
  EXPECT_EQ(__rixGenerateNewGlobalRODataTableEntryId(id, 42), 0);
  EXPECT_EQ(id[0], 0xFEEDu);
  EXPECT_EQ(id[1], 42u);
}

TEST(SharedTable, FullTableKeepsNewChunksPrivate) {
  const long live = qor_test::live_blocks();
  GlobalDataEntry *e = nullptr;
  // Fill the table to its 128 entries whatever was there before, then free
  // one slot: 127 entries remain.
  std::vector<std::array<uint64_t, 2>> keys;
  for (uint64_t i = 1; i <= 200; ++i) {
    const uint64_t k[2] = {0x7AB1E, i};
    void *d = block(8, 0);
    const int32_t st = __rixCreateGlobRODataTableEntry(&e, k, d);
    if (st != 0) {
      EXPECT_EQ(st, QOR_RNG_ERROR_SHARED_TABLE_FULL);
      qor_serv_deallocate(d);
      break;
    }
    keys.push_back({k[0], k[1]});
  }
  ASSERT_LE(keys.size(), 128u);
  __rixUnregisterGlobRODataReference(keys.back().data());
  keys.pop_back();

  Stream s(QOR_BRNG_MCG31, {1});
  const uint64_t key[2] = {0xBEEF, 7};
  void *data = block(8, 9);
  ASSERT_EQ(__rixAddChunk(s.get(), 5, key, data, 8), 0);
  const StreamChunk *c = static_cast<const StreamHeader *>(s.get())->chunks;
  EXPECT_EQ(c->key[0], 0u);  // 127 entries present: the data stays private
  EXPECT_EQ(c->key[1], 0u);
  EXPECT_EQ(c->data, data);
  EXPECT_EQ(__rixFindGlobRODataTableEntry(&e, key), QOR_RNG_ERROR_NO_SHARED_ENTRY);
  // The 128th entry can still be created explicitly; the 129th cannot.
  const uint64_t last[2] = {0x7AB1E, 1000};
  ASSERT_EQ(__rixCreateGlobRODataTableEntry(&e, last, block(8, 0)), 0);
  const uint64_t over[2] = {0x7AB1E, 1001};
  EXPECT_EQ(__rixCreateGlobRODataTableEntry(&e, over, nullptr), QOR_RNG_ERROR_SHARED_TABLE_FULL);
  __rixUnregisterGlobRODataReference(last);
  for (const auto &k : keys) __rixUnregisterGlobRODataReference(k.data());
  s.reset();
  EXPECT_EQ(qor_test::live_blocks(), live);
}

// ---- abstract streams ------------------------------------------------------

struct RefillLog {
  int calls = 0;
  int32_t nmin = -1, nmax = -1, idx = -1;
  int32_t give = -1;  // -1: fill everything offered
  uint32_t next_value = 100;
};
RefillLog g_log;

int32_t refill_u32(void *, int32_t *n, uint32_t *buf, int32_t *nmin, int32_t *nmax, int32_t *idx) {
  ++g_log.calls;
  g_log.nmin = *nmin, g_log.nmax = *nmax, g_log.idx = *idx;
  const int32_t k = g_log.give < 0 ? *nmax : g_log.give;
  for (int32_t i = 0; i < k && i < *nmax; ++i) buf[(*idx + i) % *n] = g_log.next_value++;
  return k;
}

int32_t refill_f64(void *, int32_t *n, double *buf, int32_t *, int32_t *nmax, int32_t *idx) {
  for (int32_t i = 0; i < *nmax; ++i) buf[(*idx + i) % *n] = 10.0 + (g_log.next_value++ % 10);
  return *nmax;
}

int32_t refill_f32(void *, int32_t *n, float *buf, int32_t *, int32_t *nmax, int32_t *idx) {
  for (int32_t i = 0; i < *nmax; ++i) buf[(*idx + i) % *n] = 2.0f + 0.25f * (g_log.next_value++ % 4);
  return *nmax;
}

TEST(AbstractStreams, IntegerRefillProtocol) {
  g_log = RefillLog{};
  uint32_t buf[4] = {};
  Stream s;
  ASSERT_EQ(__rixiNewAbstractStream(s.out(), 4, buf, refill_u32), 0);
  EXPECT_EQ(__rixGetStreamStateBrng(s.get()), QOR_BRNG_IABSTRACT);
  const GeneratorRecord &row = qor_test::row_of(s.get());
  uint32_t out[10];
  ASSERT_EQ(row.generateI(s.get(), 1, out), 0);
  EXPECT_EQ(g_log.calls, 1);  // the first request refills before anything is delivered
  EXPECT_EQ(g_log.idx, 0);
  EXPECT_EQ(g_log.nmax, 4);
  EXPECT_EQ(g_log.nmin, 1);
  EXPECT_EQ(out[0], 100u);
  ASSERT_EQ(row.generateI(s.get(), 3, out), 0);  // the rest of the buffer, no refill
  EXPECT_EQ(g_log.calls, 1);
  EXPECT_EQ(std::vector<uint32_t>(out, out + 3), (std::vector<uint32_t>{101, 102, 103}));
  ASSERT_EQ(row.generateI(s.get(), 10, out), 0);  // several refills, values in order
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(out[i], 104 + i);

  // Partial refills: offered slots start after the unconsumed values.
  g_log.give = 1;
  ASSERT_EQ(row.generateI(s.get(), 2, out), 0);
  EXPECT_EQ(out[0], 114u);
  EXPECT_EQ(out[1], 115u);
  EXPECT_EQ(g_log.nmax, 4);
  g_log.give = 0;
  EXPECT_EQ(row.generateI(s.get(), 1, out), QOR_RNG_ERROR_NO_NUMBERS);
  g_log.give = 5;
  EXPECT_EQ(row.generateI(s.get(), 1, out), QOR_RNG_ERROR_BAD_UPDATE);
  g_log.give = -1;
}

TEST(AbstractStreams, NegativeRefillCountIsRefused) {
  uint32_t buf[2] = {};
  Stream s;
  ASSERT_EQ(__rixiNewAbstractStream(s.out(), 2, buf,
                                    [](void *, int32_t *, uint32_t *, int32_t *, int32_t *,
                                       int32_t *) { return -1; }),
            0);
  uint32_t out[1];
  EXPECT_EQ(__rixiBRngiAbstract(s.get(), 1, out), QOR_RNG_ERROR_BAD_UPDATE);
}

TEST(AbstractStreams, RealFormsMapTheInterval) {
  g_log = RefillLog{};
  double dbuf[3];
  Stream d;
  ASSERT_EQ(__rixdNewAbstractStream(d.out(), 3, dbuf, 10.0, 20.0, refill_f64), 0);
  double r[5];
  ASSERT_EQ(__rixdBRngdAbstract(d.get(), 5, r, 0.0, 1.0), 0);
  for (int i = 0; i < 5; ++i) EXPECT_DOUBLE_EQ(r[i], (100 + i) % 10 / 10.0) << i;

  float fbuf[2];
  g_log.next_value = 0;
  Stream f;
  ASSERT_EQ(__rixsNewAbstractStream(f.out(), 2, fbuf, 2.0f, 3.0f, refill_f32), 0);
  float q[4];
  ASSERT_EQ(__rixsBRngsAbstract(f.get(), 4, q, -1.0f, 1.0f), 0);
  for (int i = 0; i < 4; ++i) EXPECT_FLOAT_EQ(q[i], -1.0f + 0.5f * static_cast<float>(i % 4)) << i;

  // The other two types are refused.
  uint32_t u[1];
  EXPECT_EQ(qor_test::row_of(d.get()).generateI(d.get(), 1, u), QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM);
  EXPECT_EQ(qor_test::row_of(d.get()).generateS(d.get(), 1, q, 0, 1), QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM);
  EXPECT_EQ(qor_test::row_of(f.get()).generateD(f.get(), 1, r, 0, 1), QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM);
  EXPECT_EQ(qor_test::row_of(f.get()).generateI(f.get(), 1, u), QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM);
  EXPECT_EQ(__rixiBRngdAbstract(nullptr, 1, u), QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM);
  EXPECT_EQ(__rixdBRngiAbstract(nullptr, 1, r, 0, 1), QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM);
  EXPECT_EQ(__rixsBRngiAbstract(nullptr, 1, q, 0, 1), QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM);
}

TEST(AbstractStreams, BadArgumentsAndMethods) {
  uint32_t ibuf[2];
  double dbuf[2];
  float fbuf[2];
  void *s = nullptr;
  EXPECT_EQ(__rixiNewAbstractStream(&s, 0, ibuf, refill_u32), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(__rixiNewAbstractStream(&s, -2, ibuf, refill_u32), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(__rixiNewAbstractStream(&s, 2, nullptr, refill_u32), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(__rixiNewAbstractStream(&s, 2, ibuf, nullptr), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(__rixdNewAbstractStream(&s, 2, dbuf, 1.0, 1.0, refill_f64), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(__rixdNewAbstractStream(&s, 2, dbuf, 2.0, 1.0, refill_f64), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(__rixdNewAbstractStream(&s, 2, nullptr, 0.0, 1.0, refill_f64), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(__rixsNewAbstractStream(&s, 2, fbuf, 3.0f, 1.0f, refill_f32), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(__rixsNewAbstractStream(&s, 2, fbuf, 0.0f, 1.0f, nullptr), QOR_RNG_ERROR_BAD_ARG);
  EXPECT_EQ(s, nullptr);

  Stream a;
  ASSERT_EQ(__rixiNewAbstractStream(a.out(), 2, ibuf, refill_u32), 0);
  EXPECT_EQ(__rixLeapfrogStream(a.get(), 0, 2), QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED);
  EXPECT_EQ(__rixSkipAheadStream(a.get(), 1), QOR_RNG_ERROR_SKIPAHEAD_UNSUPPORTED);
  EXPECT_EQ(__rixSkipAheadStreamEx(a.get(), 1, nullptr), QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED);
  EXPECT_EQ(__rixBRngiAbstractInitStream(7, a.get(), 0, nullptr), QOR_RNG_ERROR_BAD_METHOD);

  // A stream allocated for the abstract row but never given a buffer.
  Stream bare;
  ASSERT_EQ(__rixAllocateStream(bare.out(), __RegBrngsNew, QOR_BRNG_IABSTRACT, 9, 0), 0);
  uint32_t out[1];
  EXPECT_EQ(__rixiBRngiAbstract(bare.get(), 1, out), QOR_RNG_ERROR_NULL_PTR);
  EXPECT_EQ(__rixAllocateStream(bare.out(), __RegBrngsNew, QOR_BRNG_IABSTRACT, 9, 1),
            QOR_RNG_ERROR_INVALID_BRNG);
}

TEST(Cpu, FeatureQueriesAnswerZeroOrOne) {
  for (int32_t v : {__rixCPUisAES(), __rixCPUisRDRAND()}) EXPECT_TRUE(v == 0 || v == 1);
  EXPECT_EQ(__rixCPUisVAES(), qor_serv_cpuisicx());
}

}  // namespace
