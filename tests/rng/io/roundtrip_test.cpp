// Saved streams, in memory and in files, continue the sequence of the
// stream they were saved from, chunks included.
#include <array>

#include "rng/fault_injection.h"
#include "io_helpers.h"

using namespace qor_io_test;
using qor_test::Stream;

namespace {

enum class Medium { Memory, File };

// Saves `s` to the medium and loads it back; returns the load status.
int32_t round_trip(const void *s, Medium m, void **out, const std::string &tag) {
  if (m == Medium::Memory) {
    const Bytes b = save_memory(s);
    return __rixLoadStreamM(out, b.data());
  }
  TempFile f(tag);
  const int32_t st = __rixSaveStreamF(s, f.c_str(), -1);
  if (st != 0) return st;
  return __rixLoadStreamF(out, f.c_str(), -1);
}

// Both streams must deliver the same integers, doubles and floats from here.
void expect_same_continuation(void *a, void *b) {
  EXPECT_EQ(qor_test::words(a, 97), qor_test::words(b, 97));
  EXPECT_EQ(qor_test::doubles(a, 33, -2.0, 5.0), qor_test::doubles(b, 33, -2.0, 5.0));
  EXPECT_EQ(qor_test::floats(a, 41, 0.0f, 1.0f), qor_test::floats(b, 41, 0.0f, 1.0f));
  EXPECT_EQ(qor_test::words(a, 1000), qor_test::words(b, 1000));
}

class EveryGenerator : public ::testing::TestWithParam<std::tuple<int32_t, Medium>> {};

TEST_P(EveryGenerator, LoadedStreamContinuesTheSequence) {
  const auto [id, medium] = GetParam();
  Stream s(id, {2024, 7, 11});
  ASSERT_EQ(s.status(), 0);
  qor_test::words(s.get(), 13);  // move away from the seeded state
  qor_test::doubles(s.get(), 5, 0.0, 1.0);
  Stream loaded;
  ASSERT_EQ(round_trip(s.get(), medium, loaded.out(), std::to_string(id)), 0);
  ASSERT_NE(loaded.get(), nullptr);
  EXPECT_EQ(__rixGetStreamStateBrng(loaded.get()), id);
  EXPECT_EQ(__rixGetNumChunks(loaded.get()), 0);
  if (id != QOR_BRNG_NONDETERM) expect_same_continuation(s.get(), loaded.get());
}

std::vector<std::tuple<int32_t, Medium>> generator_cases() {
  std::vector<std::tuple<int32_t, Medium>> v;
  std::vector<int32_t> ids = seedable_builtins();
  // Members of a set and legacy identifiers are kept as they are.
  ids.push_back(QOR_BRNG_WH + 272);
  ids.push_back(100);  // legacy WH member 96
  ids.push_back(2);    // legacy MRG32K3A
  for (int32_t id : ids)
    for (Medium m : {Medium::Memory, Medium::File}) v.emplace_back(id, m);
  return v;
}

INSTANTIATE_TEST_SUITE_P(Rows, EveryGenerator, ::testing::ValuesIn(generator_cases()),
                         [](const auto &info) {
                           char name[40];
                           std::snprintf(name, sizeof name, "id_%X_%s",
                                         static_cast<unsigned>(std::get<0>(info.param)),
                                         std::get<1>(info.param) == Medium::Memory ? "memory"
                                                                                   : "file");
                           return std::string(name);
                         });

TEST(StreamSave, MainlineGeneratorsAreAllCovered) {
  // The congruential and lagged rows are always built; the list above must
  // not silently lose them.
  const std::vector<int32_t> ids = seedable_builtins();
  for (int32_t id : {QOR_BRNG_MCG31, QOR_BRNG_R250, QOR_BRNG_MRG32K3A, QOR_BRNG_MCG59, QOR_BRNG_WH})
    EXPECT_NE(std::find(ids.begin(), ids.end(), id), ids.end()) << std::hex << id;
}

TEST(StreamSave, SizeIsStateSizePlusEightWithoutChunks) {
  for (int32_t id : seedable_builtins()) {
    Stream s(id, {1});
    GeneratorRecord r;
    ASSERT_EQ(__rixGetBrngProperties(id, &r), 0);
    EXPECT_EQ(__rixGetStreamSize(s.get()), r.stateSize + 8) << std::hex << id;
    TempFile f("size");
    ASSERT_EQ(__rixSaveStreamF(s.get(), f.c_str(), -1), 0);
    EXPECT_EQ(f.read().size(), static_cast<size_t>(r.stateSize + 8));
  }
}

TEST(StreamSave, SizeCountsEveryChunkRecord) {
  Stream s(QOR_BRNG_MCG31, {1});
  ASSERT_EQ(__rixAddChunk(s.get(), 1, nullptr, chunk_block(100, 1), 100), 0);
  ASSERT_EQ(__rixAddChunk(s.get(), 2, nullptr, chunk_block(3, 2), 3), 0);
  EXPECT_EQ(__rixGetStreamSize(s.get()), 24 + 8 + (24 + 100) + (24 + 3));
}

// Memory writes exactly the bytes of the layout: the header's padding and
// everything past the saved size keep the caller's contents.  The file form
// holds the same bytes with the padding zeroed.
TEST(StreamSave, MemoryFormLeavesUnlistedBytesAlone) {
  Stream s(QOR_BRNG_MRG32K3A, {5, 6, 7});
  ASSERT_EQ(__rixAddChunk(s.get(), 0xC0DE, nullptr, chunk_block(5, 0x33), 5), 0);
  const size_t n = static_cast<size_t>(__rixGetStreamSize(s.get()));
  Bytes mem(n + 16, 0xA5);
  ASSERT_EQ(__rixSaveStreamM(s.get(), mem.data()), 0);
  const std::array<size_t, 7> untouched = {1, 2, 3, 10, 11, 18, 19};
  for (size_t i : untouched) EXPECT_EQ(mem[i], 0xA5) << "byte " << i;
  for (size_t i = n; i < mem.size(); ++i) EXPECT_EQ(mem[i], 0xA5) << "byte " << i;
  EXPECT_EQ(mem[0], 2);
  EXPECT_EQ(get32(mem, 4), 0x474E52u);
  EXPECT_EQ(mem[8], 24);
  EXPECT_EQ(mem[9], 0);
  EXPECT_EQ(get32(mem, 12), 24u);
  EXPECT_EQ(mem[16], 1);
  EXPECT_EQ(get32(mem, 20), static_cast<uint32_t>(QOR_BRNG_MRG32K3A));
  EXPECT_EQ(0, std::memcmp(mem.data() + 24, static_cast<const unsigned char *>(s.get()) + 16, 24));
  // chunk record: id, zero key, size, data
  EXPECT_EQ(get32(mem, 48), 0xC0DEu);
  for (size_t i = 52; i < 68; ++i) EXPECT_EQ(mem[i], 0);
  EXPECT_EQ(get32(mem, 68), 5u);
  for (size_t i = 72; i < 77; ++i) EXPECT_EQ(mem[i], 0x33);

  TempFile f("layout");
  ASSERT_EQ(__rixSaveStreamF(s.get(), f.c_str(), -1), 0);
  const Bytes file = f.read();
  ASSERT_EQ(file.size(), n);
  for (size_t i = 0; i < n; ++i) {
    const bool pad = std::find(untouched.begin(), untouched.end(), i) != untouched.end();
    EXPECT_EQ(file[i], pad ? 0 : mem[i]) << "byte " << i;
  }
}

// Chunks are saved head first and each loaded one goes to the head, so the
// loaded list is reversed; ids, sizes and data survive.
TEST(StreamSave, ChunksLoadInReverseOrder) {
  for (Medium m : {Medium::Memory, Medium::File}) {
    Stream s(QOR_BRNG_R250, {9});
    ASSERT_EQ(__rixAddChunk(s.get(), 0xB, nullptr, chunk_block(8, 0xBB), 8), 0);
    ASSERT_EQ(__rixAddChunk(s.get(), 0xA, nullptr, chunk_block(17, 0xAA), 17), 0);
    // list is now A, B
    Stream loaded;
    ASSERT_EQ(round_trip(s.get(), m, loaded.out(), "chunks"), 0);
    const auto list = chunk_list(loaded.get());
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]->id, 0xBu);
    EXPECT_EQ(list[1]->id, 0xAu);
    EXPECT_EQ(list[0]->size, 8);
    EXPECT_EQ(list[1]->size, 17);
    EXPECT_EQ(Bytes(static_cast<unsigned char *>(list[1]->data),
                    static_cast<unsigned char *>(list[1]->data) + 17),
              Bytes(17, 0xAA));
    EXPECT_NE(list[0]->data, chunk_list(s.get())[1]->data);  // a private copy
    expect_same_continuation(s.get(), loaded.get());
  }
}

// A keyed chunk whose key is in the shared table is not copied: the loaded
// chunk points at the table's block and holds a reference to it.  Once the
// key is gone from the table the loaded data becomes the new entry.
TEST(StreamSave, SharedChunksResolveThroughTheTable) {
  uint64_t key[2] = {0x5EED5A7E10ULL, 0};
  ASSERT_EQ(__rixGenerateNewGlobalRODataTableEntryId(key, 0x10), 0);
  const long live_before = qor_test::live_blocks();
  Bytes saved;
  void *shared = nullptr;
  {
    Stream s(QOR_BRNG_MCG59, {3});
    ASSERT_EQ(__rixAddChunk(s.get(), 7, key, chunk_block(64, 0x5C), 64), 0);
    shared = chunk_list(s.get())[0]->data;
    saved = save_memory(s.get());
    TempFile f("shared");
    ASSERT_EQ(__rixSaveStreamF(s.get(), f.c_str(), -1), 0);
    Stream a, b;
    ASSERT_EQ(__rixLoadStreamM(a.out(), saved.data()), 0);
    ASSERT_EQ(__rixLoadStreamF(b.out(), f.c_str(), -1), 0);
    for (void *p : {a.get(), b.get()}) {
      const auto list = chunk_list(p);
      ASSERT_EQ(list.size(), 1u);
      EXPECT_EQ(list[0]->data, shared);
      EXPECT_EQ(list[0]->key[0], key[0]);
      EXPECT_EQ(list[0]->key[1], key[1]);
    }
    GlobalDataEntry *e = nullptr;
    ASSERT_EQ(__rixFindGlobRODataTableEntry(&e, key), 0);
    EXPECT_EQ(e->refCount, 3u);
  }
  // All three streams are gone, and so is the entry.
  GlobalDataEntry *e = nullptr;
  EXPECT_EQ(__rixFindGlobRODataTableEntry(&e, key), QOR_RNG_ERROR_NO_SHARED_ENTRY);
  EXPECT_EQ(qor_test::live_blocks(), live_before);
  {
    Stream fresh;
    ASSERT_EQ(__rixLoadStreamM(fresh.out(), saved.data()), 0);
    const auto list = chunk_list(fresh.get());
    ASSERT_EQ(list.size(), 1u);
    ASSERT_EQ(__rixFindGlobRODataTableEntry(&e, key), 0);
    EXPECT_EQ(e->data, list[0]->data);
    EXPECT_EQ(e->refCount, 1u);
    EXPECT_EQ(static_cast<unsigned char *>(list[0]->data)[63], 0x5C);
  }
  EXPECT_EQ(__rixFindGlobRODataTableEntry(&e, key), QOR_RNG_ERROR_NO_SHARED_ENTRY);
  EXPECT_EQ(qor_test::live_blocks(), live_before);
}

// A generator registered at run time saves and loads like a built-in one:
// nothing in the serialiser knows about particular rows.
int32_t counter_init(int32_t method, void *s, int32_t n, const uint32_t *p) {
  if (method != 0) return -2;
  auto *st = reinterpret_cast<uint64_t *>(static_cast<char *>(s) + 16);
  st[0] = n > 0 ? p[0] : 1;
  st[1] = 0x9E3779B97F4A7C15ULL;
  return 0;
}
int32_t counter_i(void *s, int32_t n, void *r) {
  auto *st = reinterpret_cast<uint64_t *>(static_cast<char *>(s) + 16);
  for (int32_t i = 0; i < n; ++i) {
    st[0] += st[1];
    static_cast<uint32_t *>(r)[i] = static_cast<uint32_t>(st[0] >> 29);
  }
  return 0;
}
int32_t counter_d(void *s, int32_t n, double *r, double a, double b) {
  std::vector<uint32_t> w(static_cast<size_t>(n));
  counter_i(s, n, w.data());
  for (int32_t i = 0; i < n; ++i) r[i] = a + (b - a) * (w[static_cast<size_t>(i)] * 0x1p-32);
  return 0;
}
int32_t counter_s(void *s, int32_t n, float *r, float a, float b) {
  std::vector<double> d(static_cast<size_t>(n));
  counter_d(s, n, d.data(), a, b);
  for (int32_t i = 0; i < n; ++i) r[i] = static_cast<float>(d[static_cast<size_t>(i)]);
  return 0;
}

// Registration is for the life of the process and other tests count the
// rows, so this one runs in a child process.
int registered_round_trip() {
  const GeneratorRecord rec{40, 4, 1, 4, 32, 0, counter_init, counter_s, counter_d, counter_i};
  const int32_t id = __rixRegisterBrng(&rec);
  if (id <= 0) return 1;
  for (Medium m : {Medium::Memory, Medium::File}) {
    Stream s(id, {77});
    if (s.status() != 0) return 2;
    qor_test::words(s.get(), 9);
    Stream loaded;
    if (round_trip(s.get(), m, loaded.out(), "user") != 0) return 3;
    if (__rixGetStreamStateBrng(loaded.get()) != id) return 4;
    if (qor_test::words(s.get(), 500) != qor_test::words(loaded.get(), 500)) return 5;
  }
  // A row may declare a stateSize below the header: its saved form has no
  // state bytes and still a whole 24-byte header inside the reported size.
  const GeneratorRecord tiny{
      8, 1, 1, 4, 32, 0, [](int32_t, void *, int32_t, const uint32_t *) { return int32_t{0}; },
      counter_s, counter_d, counter_i};
  const int32_t tiny_id = __rixRegisterBrng(&tiny);
  if (tiny_id <= 0) return 6;
  Stream t(tiny_id, {});
  if (t.status() != 0 || __rixGetStreamSize(t.get()) != 24) return 7;
  Bytes buf(40, 0xEE);
  if (__rixSaveStreamM(t.get(), buf.data()) != 0 || get32(buf, 12) != 0) return 8;
  for (size_t i = 24; i < buf.size(); ++i)
    if (buf[i] != 0xEE) return 9;
  Stream back;
  if (__rixLoadStreamM(back.out(), buf.data()) != 0) return 10;
  if (__rixGetStreamStateBrng(back.get()) != tiny_id) return 11;
  return 0;
}

TEST(StreamSaveDeathTest, RegisteredGeneratorsRoundTrip) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(registered_round_trip()), ::testing::ExitedWithCode(0), "");
}

}  // namespace
