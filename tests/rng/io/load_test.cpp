// Loading hand-built and damaged buffers and files: older layouts, the
// order of the validation steps and their statuses, the file name rule, the
// file writer's checks, and clean-up on every failure.
#include "rng/fault_injection.h"
#include "io_helpers.h"
#include "rng/core/serialize.h"

using namespace qor_io_test;
using qor_test::Stream;

namespace {

// An MRG32K3A stream moved a little from its seed, and its saved form.
struct Saved {
  Stream s{QOR_BRNG_MRG32K3A, {11, 22, 33}};
  Bytes mem;
  Saved() {
    qor_test::words(s.get(), 5);
    mem = save_memory(s.get());
  }
};

// The older header: version, signature, 16-bit state size at 10, 32-bit
// chunk count at 12, identifier at 16, state from 20.
Bytes old_layout(uint8_t version, const void *stream, uint32_t chunks) {
  const int32_t brng = __rixGetStreamStateBrng(stream);
  GeneratorRecord r;
  EXPECT_EQ(__rixGetBrngProperties(brng, &r), 0);
  const size_t s = static_cast<size_t>(r.stateSize - 16);
  Bytes b(20 + s, 0);
  b[0] = version;
  put32(b, 4, 0x474E52);
  put16(b, 10, static_cast<uint16_t>(s));
  put32(b, 12, chunks);
  put32(b, 16, static_cast<uint32_t>(brng));
  std::memcpy(b.data() + 20, static_cast<const unsigned char *>(stream) + 16, s);
  return b;
}

void append(Bytes &b, const void *p, size_t n) {
  const auto *c = static_cast<const unsigned char *>(p);
  b.insert(b.end(), c, c + n);
}

TEST(StreamLoadOldLayout, VersionZeroWithKeylessChunks) {
  Stream s(QOR_BRNG_MCG59, {4242});
  qor_test::words(s.get(), 3);
  Bytes b = old_layout(0, s.get(), 2);
  const uint32_t first[2] = {0x111, 3}, second[2] = {0x222, 0};
  append(b, first, 8);
  append(b, "xyz", 3);
  append(b, second, 8);
  Stream loaded;
  ASSERT_EQ(__rixLoadStreamM(loaded.out(), b.data()), 0);
  const auto list = chunk_list(loaded.get());
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0]->id, 0x222u);
  EXPECT_EQ(list[0]->size, 0);
  EXPECT_EQ(list[1]->id, 0x111u);
  ASSERT_EQ(list[1]->size, 3);
  EXPECT_EQ(0, std::memcmp(list[1]->data, "xyz", 3));
  EXPECT_EQ(list[1]->key[0] | list[1]->key[1], 0u);
  const std::vector<uint32_t> expect = qor_test::words(s.get(), 200);
  EXPECT_EQ(qor_test::words(loaded.get(), 200), expect);

  TempFile f("v0");
  f.write(b);
  Stream from_file;
  ASSERT_EQ(__rixLoadStreamF(from_file.out(), f.c_str(), -1), 0);
  EXPECT_EQ(__rixGetNumChunks(from_file.get()), 2);
  EXPECT_EQ(qor_test::words(from_file.get(), 200), expect);
}

TEST(StreamLoadOldLayout, VersionOneChunksCarryKeys) {
  Stream s(QOR_BRNG_WH + 5, {1, 2, 3, 4});
  qor_test::words(s.get(), 8);
  Bytes b = old_layout(1, s.get(), 1);
  const uint32_t id = 0x77;
  const uint64_t key[2] = {0, 0};
  const int32_t size = 4;
  append(b, &id, 4);
  append(b, key, 16);
  append(b, &size, 4);
  append(b, "abcd", 4);
  Stream loaded;
  ASSERT_EQ(__rixLoadStreamM(loaded.out(), b.data()), 0);
  EXPECT_EQ(__rixGetStreamStateBrng(loaded.get()), QOR_BRNG_WH + 5);
  ASSERT_NE(__rixSearchChunk(loaded.get(), 0x77), nullptr);
  EXPECT_EQ(0, std::memcmp(__rixSearchChunk(loaded.get(), 0x77), "abcd", 4));
  EXPECT_EQ(qor_test::words(s.get(), 64), qor_test::words(loaded.get(), 64));
}

// One row per validation step, in the order the loader takes them; each
// damaged buffer also carries the faults of later steps where possible, so
// a step checked out of order shows up as the wrong status.
struct Fault {
  const char *what;
  void (*damage)(Bytes &);
  int32_t memory;
  int32_t file;
};

const Fault kFaults[] = {
    {"shorter than the first read", [](Bytes &b) { b.resize(7); }, -1103, -1103},
    {"shorter than the header", [](Bytes &b) { b.resize(23); }, -1103, -1103},
    {"no signature, version 3, bad state size",
     [](Bytes &b) {
       put32(b, 4, 0x474E53);
       b[0] = 3;
       put32(b, 12, 5);
     },
     -1200, -1110},
    {"version 3, bad identifier",
     [](Bytes &b) {
       b[0] = 3;
       put32(b, 20, 0x1F00000);
     },
     -1200, -1111},
    {"unregistered identifier, bad state size",
     [](Bytes &b) {
       put32(b, 20, 0x1F00000);
       put32(b, 12, 5);
     },
     -1200, -1110},
    {"member outside the set", [](Bytes &b) { put32(b, 20, QOR_BRNG_MRG32K3A + 1); }, -1200,
     -1110},
    {"negative legacy identifier", [](Bytes &b) { put32(b, 20, 0xFFFFFFF0u); }, -1200, -1110},
    {"state size of another generator", [](Bytes &b) { put32(b, 20, QOR_BRNG_MCG31); }, -1200,
     -1110},
    {"state size off by one", [](Bytes &b) { put32(b, 12, 25); }, -1200, -1110},
    {"header size 23", [](Bytes &b) { put16(b, 8, 23); }, -1200, -1110},
    {"state cut short", [](Bytes &b) { b.resize(40); }, -1103, -1103},
    {"chunk record cut short",
     [](Bytes &b) {
       put32(b, 16, 1);
       b.resize(b.size() + 10, 0);
     },
     -1103, -1103},
    {"chunk data cut short",
     [](Bytes &b) {
       put32(b, 16, 1);
       Bytes rec(24, 0);
       put32(rec, 20, 9);
       b.insert(b.end(), rec.begin(), rec.end());
       b.resize(b.size() + 8, 0);
     },
     -1103, -1103},
    {"negative chunk size",
     [](Bytes &b) {
       put32(b, 16, 1);
       Bytes rec(24 + 16, 0);
       put32(rec, 20, 0xFFFFFFF0u);
       b.insert(b.end(), rec.begin(), rec.end());
     },
     -1103, -1103},
    {"chunk count far beyond the data",
     [](Bytes &b) {
       put32(b, 16, 0xFFFF);
       Bytes rec(24 + 2, 0);
       put32(rec, 20, 2);
       b.insert(b.end(), rec.begin(), rec.end());
     },
     -1103, -1103},
};

class Validation : public ::testing::TestWithParam<Fault> {};

TEST_P(Validation, ReportsTheFirstFailingStep) {
  const Fault &f = GetParam();
  Saved saved;
  Bytes b = saved.mem;
  f.damage(b);
  const long live = qor_test::live_blocks();
  void *out = reinterpret_cast<void *>(0x1);
  EXPECT_EQ(qor::rng::load_stream_memory(&out, b.data(), b.size()), f.memory) << f.what;
  EXPECT_EQ(out, nullptr);
  // The exported form has no length; give it room to read past the end so
  // that only damage it can see by itself is compared.
  if (f.memory != -1103) {
    Bytes padded = b;
    padded.resize(b.size() + 256, 0);
    out = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(__rixLoadStreamM(&out, padded.data()), f.memory) << f.what;
    EXPECT_EQ(out, nullptr);
  }
  // File headers hold full 32-bit words: clear the padding memory leaves.
  Bytes fb = b;
  for (size_t i : {1, 2, 3, 10, 11, 18, 19})
    if (i < fb.size()) fb[i] = 0;
  TempFile file("fault");
  file.write(fb);
  out = reinterpret_cast<void *>(0x1);
  EXPECT_EQ(__rixLoadStreamF(&out, file.c_str(), -1), f.file) << f.what;
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(qor_test::live_blocks(), live);
}

INSTANTIATE_TEST_SUITE_P(Steps, Validation, ::testing::ValuesIn(kFaults));

// The processor checks come after the state is read and before any chunk.
TEST(StreamLoad, ProcessorFeatureChecks) {
  struct Case {
    int32_t brng;
    int32_t (**query)();
    int32_t status;
  };
  const Case cases[] = {{QOR_BRNG_NONDETERM, &qor::rng::load_has_rdrand, -1130},
                        {QOR_BRNG_ARS5, &qor::rng::load_has_aes, -1140}};
  for (const Case &c : cases) {
    GeneratorRecord r;
    ASSERT_EQ(__rixGetBrngProperties(c.brng, &r), 0);
    Bytes b(static_cast<size_t>(r.stateSize + 8), 0);
    b[0] = 2;
    put32(b, 4, 0x474E52);
    put16(b, 8, 24);
    put32(b, 12, static_cast<uint32_t>(r.stateSize - 16));
    put32(b, 20, static_cast<uint32_t>(c.brng));
    // One chunk whose record is missing: it would fail with -1103 if the
    // processor check came later.
    put16(b, 16, 1);
    int32_t (*saved)() = *c.query;
    *c.query = [] { return int32_t{0}; };
    const long live = qor_test::live_blocks();
    void *out = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(qor::rng::load_stream_memory(&out, b.data(), b.size()), c.status);
    EXPECT_EQ(out, nullptr);
    TempFile f("cpu");
    f.write(b);
    EXPECT_EQ(__rixLoadStreamF(&out, f.c_str(), -1), c.status);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(qor_test::live_blocks(), live);
    *c.query = [] { return int32_t{1}; };
    EXPECT_EQ(qor::rng::load_stream_memory(&out, b.data(), b.size()), -1103);
    put16(b, 16, 0);
    Stream ok;
    EXPECT_EQ(qor::rng::load_stream_memory(ok.out(), b.data(), b.size()), 0);
    *c.query = saved;
  }
}

// A first word that carries the signature in its low 24 bits makes byte 0
// 'R', a version above 2: the older header is read, and only chunks
// present make it a read failure.
TEST(StreamLoad, UnknownVersionByteWithChunks) {
  Saved saved;
  Bytes b = old_layout(0, saved.s.get(), 0);
  put32(b, 0, 0x474E52);
  put32(b, 4, 1);
  Stream loaded;
  ASSERT_EQ(__rixLoadStreamM(loaded.out(), b.data()), 0);
  EXPECT_EQ(qor_test::words(saved.s.get(), 20), qor_test::words(loaded.get(), 20));
  put32(b, 12, 1);
  b.resize(b.size() + 64, 0);
  void *out = reinterpret_cast<void *>(0x1);
  EXPECT_EQ(__rixLoadStreamM(&out, b.data()), -1103);
  EXPECT_EQ(out, nullptr);
}

// Every allocation of a load (stream, each chunk's data and record, the
// file name copy) may fail: the status is -4, no stream is handed out and
// every block taken so far is returned.
TEST(StreamLoad, AllocationFailuresLeaveNothingBehind) {
  Stream s(QOR_BRNG_R250, {5});
  ASSERT_EQ(__rixAddChunk(s.get(), 1, nullptr, chunk_block(10, 1), 10), 0);
  ASSERT_EQ(__rixAddChunk(s.get(), 2, nullptr, chunk_block(20, 2), 20), 0);
  const Bytes b = save_memory(s.get());
  TempFile f("alloc");
  ASSERT_EQ(__rixSaveStreamF(s.get(), f.c_str(), -1), 0);
  const std::string name = f.path();
  for (bool file : {false, true}) {
    // memory: stream, data, chunk, data, chunk; file adds the name copy
    const int allocations = file ? 6 : 5;
    for (int k = 0; k < allocations; ++k) {
      const long live = qor_test::live_blocks();
      void *out = reinterpret_cast<void *>(0x1);
      qor_test::fail_allocation_after(k);
      const int32_t st = file ? __rixLoadStreamF(&out, name.c_str(),
                                                 static_cast<int32_t>(name.size()))
                              : __rixLoadStreamM(&out, b.data());
      qor_test::fail_allocation_after(-1);
      EXPECT_EQ(st, -4) << (file ? "file" : "memory") << " allocation " << k;
      EXPECT_EQ(out, nullptr);
      EXPECT_EQ(qor_test::live_blocks(), live);
    }
  }
}

// A counted name is taken as exactly that many characters; a negative
// length means a zero-terminated name.
TEST(StreamFile, NameLengthRule) {
  Stream s(QOR_BRNG_MCG31, {99});
  TempFile exact("name");
  TempFile longer("name_and_more");
  const std::string full = longer.path();
  const int32_t cut = static_cast<int32_t>(exact.path().size());
  ASSERT_EQ(full.compare(0, static_cast<size_t>(cut), exact.path()), 0);
  ASSERT_EQ(__rixSaveStreamF(s.get(), full.c_str(), cut), 0);
  EXPECT_EQ(exact.read().size(), 32u);
  EXPECT_TRUE(longer.read().empty());
  Stream loaded;
  ASSERT_EQ(__rixLoadStreamF(loaded.out(), exact.c_str(), -1), 0);
  EXPECT_EQ(qor_test::words(s.get(), 10), qor_test::words(loaded.get(), 10));
  // A counted name needs no terminator of its own.
  std::vector<char> unterminated(full.begin(), full.begin() + cut);
  unterminated.push_back('#');
  ASSERT_EQ(__rixLoadStreamF(loaded.out(), unterminated.data(), cut), 0);
  void *out = reinterpret_cast<void *>(0x1);
  EXPECT_EQ(__rixLoadStreamF(&out, full.c_str(), 0), -1101);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(__rixLoadStreamF(&out, full.c_str(), -1), -1101);  // never written
  EXPECT_EQ(__rixSaveStreamF(s.get(), "/nonexistent-dir/x", -1), -1101);
  qor_test::fail_allocation_after(0);
  EXPECT_EQ(__rixSaveStreamF(s.get(), full.c_str(), cut), -4);
  qor_test::fail_allocation_after(-1);
}

// Of the chunk writes only the last data write is checked, and it counts
// one item of D bytes: a last chunk without data reports -1102 even though
// the file is complete and loads.
TEST(StreamFile, WriterChecks) {
  TempFile f("writer");
  Stream s(QOR_BRNG_MCG31, {3});
  ASSERT_EQ(__rixAddChunk(s.get(), 1, nullptr, chunk_block(4, 1), 4), 0);
  EXPECT_EQ(__rixSaveStreamF(s.get(), f.c_str(), -1), 0);
  ASSERT_EQ(__rixAddChunk(s.get(), 2, nullptr, nullptr, 0), 0);  // head: saved first
  EXPECT_EQ(__rixSaveStreamF(s.get(), f.c_str(), -1), 0);

  Stream t(QOR_BRNG_MCG31, {3});
  ASSERT_EQ(__rixAddChunk(t.get(), 2, nullptr, nullptr, 0), 0);
  ASSERT_EQ(__rixAddChunk(t.get(), 1, nullptr, chunk_block(4, 1), 4), 0);  // empty one last
  EXPECT_EQ(__rixSaveStreamF(t.get(), f.c_str(), -1), -1102);
  Stream loaded;
  EXPECT_EQ(__rixLoadStreamF(loaded.out(), f.c_str(), -1), 0);
  EXPECT_EQ(__rixGetNumChunks(loaded.get()), 2);
  // Memory has no such check.
  const Bytes b = save_memory(t.get());
  EXPECT_EQ(b.size(), 32u + 24 + 4 + 24);

  // A device that takes no data: the buffered header only fails when the
  // file is closed.
  EXPECT_EQ(__rixSaveStreamF(s.get(), "/dev/full", -1), -1100);
}

}  // namespace
