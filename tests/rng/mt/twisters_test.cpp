// Tests of the twisted generators through their registry routines.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "rng/mt/reference.h"
#include "../../../src/rng/brng/twisters.h"

namespace {

using namespace qor::rng::twister;
using mt_test::read_kat;

// A stream block as the stream core would allocate it: 128-byte aligned,
// header word 0 = generator identifier.
struct Stream {
  alignas(128) unsigned char block[2560];
  explicit Stream(int32_t brng) {
    std::memset(block, 0xA5, sizeof block);  // garbage, as fresh heap memory
    std::memcpy(block, &brng, sizeof brng);
  }
  void *p() { return block; }
};

struct Gen {
  const char *name;
  int32_t brng;
  int state_size;
  int32_t (*init)(int32_t, void *, int32_t, const uint32_t *);
  int32_t (*gen_s)(void *, int32_t, float *, float, float);
  int32_t (*gen_d)(void *, int32_t, double *, double, double);
  int32_t (*gen_i)(void *, int32_t, void *);
};

const Gen kMt19937{"MT19937", 0x800000, kMt19937StateSize, __rixBRngMT19937InitStream,
                   __rixsBRngMT19937, __rixdBRngMT19937, __rixiBRngMT19937};
const Gen kSfmt{"SFMT19937", 0xD00000, kSfmtStateSize, __rixBRngSFMT19937InitStream,
                __rixsBRngSFMT19937, __rixdBRngSFMT19937, __rixiBRngSFMT19937};
const Gen kMt2203First{"MT2203[0]", 0x900000, kMt2203StateSize, __rixBRngMT2203InitStream,
                       __rixsBRngMT2203, __rixdBRngMT2203, __rixiBRngMT2203};

std::vector<uint32_t> draw(const Gen &g, Stream &s, int n) {
  std::vector<uint32_t> out(std::size_t(n) + 1, 0xDEADBEEFu);
  EXPECT_EQ(g.gen_i(s.p(), n, out.data()), 0);
  EXPECT_EQ(out[std::size_t(n)], 0xDEADBEEFu) << "wrote past the end";
  out.pop_back();
  return out;
}

void seed(const Gen &g, Stream &s, std::vector<uint32_t> key) {
  ASSERT_EQ(g.init(0, s.p(), int32_t(key.size()), key.data()), 0);
}

int32_t skip(const Gen &g, Stream &s, uint64_t k) {
  uint32_t w[2];
  std::memcpy(w, &k, sizeof k);
  return g.init(2, s.p(), 2, w);
}

// ---- known answers -----------------------------------------------------------

TEST(TwisterKat, Mt19937PublishedKey) {
  const auto kat = read_kat("mt19937_key_123_234_345_456.txt");
  ASSERT_EQ(kat.size(), 1000u);
  Stream s(kMt19937.brng);
  seed(kMt19937, s, {0x123, 0x234, 0x345, 0x456});
  EXPECT_EQ(draw(kMt19937, s, 1000), kat);
}

TEST(TwisterKat, Sfmt19937PublishedKey) {
  const auto kat = read_kat("sfmt19937_key_1234_5678_9abc_def0.txt");
  ASSERT_EQ(kat.size(), 1000u);
  Stream s(kSfmt.brng);
  seed(kSfmt, s, {0x1234, 0x5678, 0x9abc, 0xdef0});
  EXPECT_EQ(draw(kSfmt, s, 1000), kat);
}

// ---- agreement with the scalar reference over many keys and blocks ----------

std::vector<std::vector<uint32_t>> sample_keys() {
  std::vector<std::vector<uint32_t>> keys = {{}, {1}, {0}, {0xFFFFFFFFu}, {5489, 17}};
  std::mt19937_64 rnd(7);
  for (int len : {3, 68, 69, 70, 623, 624, 625, 1000}) {
    std::vector<uint32_t> k(static_cast<std::size_t>(len));
    for (auto &w : k) w = uint32_t(rnd());
    keys.push_back(k);
  }
  return keys;
}

TEST(TwisterReference, Mt19937MatchesScalarRecurrence) {
  for (const auto &key : sample_keys()) {
    auto ref = mt_test::ref_mt19937();
    ref.seed_by_array(key);
    Stream s(kMt19937.brng);
    seed(kMt19937, s, key);
    const auto got = draw(kMt19937, s, 5000);
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(got[std::size_t(i)], ref.next()) << "key size " << key.size() << " word " << i;
  }
}

TEST(TwisterReference, SfmtMatchesScalarRecurrence) {
  for (const auto &key : sample_keys()) {
    mt_test::RefSfmt ref;
    ref.seed_by_array(key);
    Stream s(kSfmt.brng);
    seed(kSfmt, s, key);
    const auto got = draw(kSfmt, s, 5000);
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(got[std::size_t(i)], ref.next()) << "key size " << key.size() << " word " << i;
  }
}

TEST(TwisterReference, Mt2203MembersMatchScalarRecurrence) {
  for (int member : {0, 1, 2, 17}) {
    if (kMt2203Params[member][0] == 0) continue;
    for (const auto &key : sample_keys()) {
      auto ref = mt_test::ref_mt2203(kMt2203Params[member][0], kMt2203Params[member][1],
                                     kMt2203Params[member][2]);
      ref.seed_by_array(key);
      Stream s(0x900000 + member);
      seed(kMt2203First, s, key);
      const auto got = draw(kMt2203First, s, 1000);
      for (int i = 0; i < 1000; ++i) ASSERT_EQ(got[std::size_t(i)], ref.next()) << "member " << member << " word " << i;
    }
  }
}

// ---- properties common to the three generators ------------------------------

class TwisterProps : public ::testing::TestWithParam<Gen> {};

TEST_P(TwisterProps, NoSeedWordsMeansKeyOne) {
  const Gen &g = GetParam();
  Stream a(g.brng), b(g.brng);
  ASSERT_EQ(g.init(0, a.p(), 0, nullptr), 0);
  seed(g, b, {1});
  EXPECT_EQ(draw(g, a, 3000), draw(g, b, 3000));
}

TEST_P(TwisterProps, SplitCallsEqualOneCall) {
  const Gen &g = GetParam();
  Stream whole(g.brng), parts(g.brng);
  seed(g, whole, {42, 43});
  seed(g, parts, {42, 43});
  const int total = 20000;
  const auto expect = draw(g, whole, total);
  std::mt19937 rnd(11);
  std::vector<uint32_t> got;
  while (int(got.size()) < total) {
    int k = int(rnd() % 1500);
    if (rnd() % 8 == 0) k = 0;
    k = std::min(k, total - int(got.size()));
    const auto piece = draw(g, parts, k);
    got.insert(got.end(), piece.begin(), piece.end());
  }
  EXPECT_EQ(got, expect);
}

TEST_P(TwisterProps, FloatAndDoubleFollowTheIntegerStream) {
  const Gen &g = GetParam();
  struct Interval { double a, b; };
  for (const Interval iv : {Interval{0, 1}, Interval{-3.5, 2.25}, Interval{1e6, 1e6 + 1},
                            Interval{-1e-3, 0}}) {
    Stream si(g.brng), sd(g.brng), sf(g.brng);
    for (Stream *s : {&si, &sd, &sf}) seed(g, *s, {9, 8, 7});
    const int n = 1537;  // odd, crosses blocks, leaves vector tails
    const auto u = draw(g, si, n);
    std::vector<double> d(n);
    std::vector<float> f(n);
    ASSERT_EQ(g.gen_d(sd.p(), n, d.data(), iv.a, iv.b), 0);
    const float fa = float(iv.a), fb = float(iv.b);
    ASSERT_EQ(g.gen_s(sf.p(), n, f.data(), fa, fb), 0);
    const double fd = (iv.b - iv.a) * 2.3283064365386963e-10;
    const float ff = (fb - fa) * 2.3283064365386963e-10f;
    for (int i = 0; i < n; ++i) {
      double ed = iv.a + double(u[i]) * fd;
      if (ed >= iv.b) ed = std::nextafter(iv.b, iv.a);
      ASSERT_EQ(d[i], ed) << i;
      float ef = fa + float(u[i]) * ff;
      if (ef >= fb) ef = std::nextafter(fb, fa);
      ASSERT_EQ(f[i], ef) << i;
      ASSERT_GE(d[i], iv.a);
      ASSERT_LT(d[i], iv.b);
      ASSERT_GE(f[i], fa);
      ASSERT_LT(f[i], fb);
    }
    // All three streams stand at the same place afterwards.
    const auto ni = draw(g, si, 5), nd = draw(g, sd, 5), nf = draw(g, sf, 5);
    EXPECT_EQ(nd, ni);
    EXPECT_EQ(nf, ni);
  }
}

TEST_P(TwisterProps, FloatNeverReachesUpperBound) {
  // Words close to 2^32 round up to 2^32 in single precision: such outputs
  // must still stay below b.
  const Gen &g = GetParam();
  Stream s(g.brng);
  seed(g, s, {3});
  std::vector<float> f(200000);
  ASSERT_EQ(g.gen_s(s.p(), int(f.size()), f.data(), 0.0f, 1.0f), 0);
  for (float v : f) {
    ASSERT_GE(v, 0.0f);
    ASSERT_LT(v, 1.0f);
  }
}

TEST_P(TwisterProps, CopiedBlockContinuesIdentically) {
  const Gen &g = GetParam();
  Stream a(g.brng);
  seed(g, a, {1234});
  draw(g, a, 777);
  Stream b(g.brng);
  std::memcpy(b.block, a.block, std::size_t(g.state_size));
  EXPECT_EQ(draw(g, a, 4000), draw(g, b, 4000));
}

TEST_P(TwisterProps, UnsupportedMethodsAreRefused) {
  const Gen &g = GetParam();
  Stream s(g.brng);
  seed(g, s, {5});
  Stream before(g.brng);
  std::memcpy(before.block, s.block, sizeof s.block);
  uint32_t k = 0;
  EXPECT_EQ(g.init(1, s.p(), 4, &k), -1002);
  const uint64_t words[2] = {5, 1};
  EXPECT_EQ(g.init(3, s.p(), 2, reinterpret_cast<const uint32_t *>(words)), -1004);
  EXPECT_EQ(g.init(4, s.p(), 0, nullptr), -2);
  EXPECT_EQ(g.init(-1, s.p(), 0, nullptr), -2);
  EXPECT_EQ(std::memcmp(before.block, s.block, std::size_t(g.state_size)), 0);
}

INSTANTIATE_TEST_SUITE_P(All, TwisterProps, ::testing::Values(kMt19937, kSfmt, kMt2203First),
                         [](const auto &info) {
                           std::string n = info.param.name;
                           for (auto &c : n)
                             if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                           return n;
                         });

// ---- skip-ahead ---------------------------------------------------------------

struct SkipCase {
  uint64_t pre;  // words drawn before the skip
  uint64_t k;
};

void check_skip_equals_drop(const Gen &g, const SkipCase &c) {
  Stream a(g.brng), b(g.brng);
  seed(g, a, {0x51, 0x52});
  seed(g, b, {0x51, 0x52});
  draw(g, a, int(c.pre));
  draw(g, b, int(c.pre));
  ASSERT_EQ(skip(g, a, c.k), 0);
  std::vector<uint32_t> sink(1 << 16);
  for (uint64_t left = c.k; left > 0;) {
    const int t = int(std::min<uint64_t>(left, sink.size()));
    ASSERT_EQ(g.gen_i(b.p(), t, sink.data()), 0);
    left -= uint64_t(t);
  }
  EXPECT_EQ(draw(g, a, 1300), draw(g, b, 1300)) << g.name << " pre " << c.pre << " k " << c.k;
}

TEST(TwisterSkip, Mt19937SkipEqualsGenerateAndDrop) {
  // Both sides of the 2097151 threshold, from block-aligned and unaligned
  // positions, plus counts landing exactly on block ends.
  for (const SkipCase c : {SkipCase{0, 0}, {0, 1}, {0, 623}, {0, 624}, {0, 625}, {5, 619},
                           {5, 620}, {100, 2097150}, {0, 2097151}, {0, 2097152}, {1, 2097152},
                           {623, 2097153}, {624, 2097152}, {300, 3000001}, {7, 624 * 4000}})
    check_skip_equals_drop(kMt19937, c);
}

TEST(TwisterSkip, SfmtSkipEqualsGenerateAndDrop) {
  for (const SkipCase c : {SkipCase{0, 0}, {0, 1}, {0, 624}, {0, 625}, {3, 621}, {100, 19966},
                           {0, 19967}, {0, 19968}, {1, 19968}, {623, 19969}, {624, 19968},
                           {10, 624 * 40}, {333, 1000003}})
    check_skip_equals_drop(kSfmt, c);
}

TEST(TwisterSkip, LargeSkipsCompose) {
  // skip(a) then skip(b) must equal skip(a + b): checks the polynomial
  // jump against itself for counts far beyond generation.
  struct C { uint64_t pre, a, b; };
  for (const Gen *g : {&kMt19937, &kSfmt}) {
    for (const C c : {C{0, 1000000000000ull, 2345678901ull}, C{11, 3000000, 77777777777ull},
                      C{600, (1ull << 40) + 3, (1ull << 41) + 5},
                      C{1, 0xFFFFFFFFFFFull, 0x123456789ABCull}}) {
      Stream x(g->brng), y(g->brng);
      seed(*g, x, {77});
      seed(*g, y, {77});
      draw(*g, x, int(c.pre));
      draw(*g, y, int(c.pre));
      ASSERT_EQ(skip(*g, x, c.a), 0);
      ASSERT_EQ(skip(*g, x, c.b), 0);
      ASSERT_EQ(skip(*g, y, c.a + c.b), 0);
      EXPECT_EQ(draw(*g, x, 2000), draw(*g, y, 2000)) << g->name << " a " << c.a;
    }
  }
}

TEST(TwisterSkip, SkipByZeroChangesNothing) {
  for (const Gen *g : {&kMt19937, &kSfmt}) {
    Stream s(g->brng);
    seed(*g, s, {2});
    draw(*g, s, 100);
    Stream before(g->brng);
    std::memcpy(before.block, s.block, sizeof s.block);
    ASSERT_EQ(skip(*g, s, 0), 0);
    EXPECT_EQ(std::memcmp(before.block, s.block, std::size_t(g->state_size)), 0);
  }
}

TEST(TwisterSkip, Mt2203RefusesSkipAhead) {
  Stream s(0x900000);
  seed(kMt2203First, s, {2});
  EXPECT_EQ(skip(kMt2203First, s, 10), -1003);
}

// ---- MT2203 members -----------------------------------------------------------

TEST(Mt2203, MembersGiveDifferentStreams) {
  int last = kMt2203Members - 1;
  while (last > 0 && kMt2203Params[last][0] == 0) --last;
  ASSERT_GT(last, 0);
  Stream a(0x900000), b(0x900000 + last);
  seed(kMt2203First, a, {99});
  seed(kMt2203First, b, {99});
  EXPECT_NE(draw(kMt2203First, a, 100), draw(kMt2203First, b, 100));
}

TEST(Mt2203, MemberParametersAreCopiedIntoTheState) {
  for (int m : {0, 5, 23}) {
    if (kMt2203Params[m][0] == 0) continue;
    Stream s(0x900000 + m);
    seed(kMt2203First, s, {});
    const auto *st = reinterpret_cast<const Mt2203State *>(s.block + 16);
    EXPECT_EQ(st->pos, 69u);
    EXPECT_EQ(st->a, kMt2203Params[m][0]);
    EXPECT_EQ(st->b, kMt2203Params[m][1]);
    EXPECT_EQ(st->c, kMt2203Params[m][2]);
  }
}

TEST(Mt2203, MemberBeyondTheSetIsRefused) {
  Stream s(0x900000 + kMt2203Members);
  EXPECT_EQ(__rixBRngMT2203InitStream(0, s.p(), 0, nullptr), -1000);
}

}  // namespace
