// The generated tables of 2^(j/N): the rows quoted for the double pairs, and
// every entry against MPFR (value = 2^(j/N) correctly rounded, remainder =
// 2^(j/N) - value correctly rounded).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#ifdef QOR_HAVE_MPFR
#include <mpfr.h>
#endif

namespace tab {
#include "vm/kernels/exp/exp_tables.inc"
}

namespace {

uint64_t dbits(double x) {
  uint64_t b;
  std::memcpy(&b, &x, 8);
  return b;
}
uint32_t fbits(float x) {
  uint32_t b;
  std::memcpy(&b, &x, 4);
  return b;
}

TEST(ExpTables, QuotedPairRows) {
  EXPECT_EQ(tab::exp_d_64[0], 1.0);
  EXPECT_EQ(dbits(tab::exp_d_64[1]), dbits(0.0));
  EXPECT_EQ(tab::exp_d_64[2], 1.0108892860517005);
  EXPECT_EQ(tab::exp_d_64[3], -1.5234778603368577e-17);
  // the other tables start at exactly one as well
  EXPECT_EQ(tab::exp_d_1024[0], 1.0);
  EXPECT_EQ(tab::exp_d_128[0], 1.0);
  EXPECT_EQ(tab::exp_f_128[0], 1.0f);
  EXPECT_EQ(fbits(tab::exp_f_128[1]), 0u);
}

#ifdef QOR_HAVE_MPFR
// 2^(j/n) to 256 bits, and the value and remainder rounded to the target.
class Exact {
 public:
  Exact() {
    mpfr_inits2(256, v_, t_, (mpfr_ptr)0);
  }
  ~Exact() { mpfr_clears(v_, t_, (mpfr_ptr)0); }
  void set(int j, int n) {
    mpfr_set_si(t_, j, MPFR_RNDN);
    mpfr_div_si(t_, t_, n, MPFR_RNDN);  // exact: n is a power of two
    mpfr_ui_pow(v_, 2, t_, MPFR_RNDN);
  }
  double value_d() const { return mpfr_get_d(v_, MPFR_RNDN); }
  float value_f() const { return mpfr_get_flt(v_, MPFR_RNDN); }
  double rem_d(double value) {
    mpfr_sub_d(t_, v_, value, MPFR_RNDN);  // exact at 256 bits
    return mpfr_get_d(t_, MPFR_RNDN);
  }
  float rem_f(float value) {
    mpfr_sub_d(t_, v_, value, MPFR_RNDN);
    return mpfr_get_flt(t_, MPFR_RNDN);
  }

 private:
  mpfr_t v_, t_;
};

TEST(ExpTables, DoublePairsOf64MatchMpfr) {
  Exact e;
  for (int j = 0; j < 64; ++j) {
    e.set(j, 64);
    const double v = e.value_d();
    EXPECT_EQ(dbits(tab::exp_d_64[2 * j]), dbits(v)) << "j=" << j;
    EXPECT_EQ(dbits(tab::exp_d_64[2 * j + 1]), dbits(e.rem_d(v))) << "j=" << j;
  }
}

TEST(ExpTables, Doubles1024And128MatchMpfr) {
  Exact e;
  for (int j = 0; j < 1024; ++j) {
    e.set(j, 1024);
    EXPECT_EQ(dbits(tab::exp_d_1024[j]), dbits(e.value_d())) << "j=" << j;
  }
  for (int j = 0; j < 128; ++j) {
    e.set(j, 128);
    EXPECT_EQ(dbits(tab::exp_d_128[j]), dbits(e.value_d())) << "j=" << j;
  }
}

TEST(ExpTables, FloatPairsOf128MatchMpfr) {
  Exact e;
  for (int j = 0; j < 128; ++j) {
    e.set(j, 128);
    const float v = e.value_f();
    EXPECT_EQ(fbits(tab::exp_f_128[2 * j]), fbits(v)) << "j=" << j;
    EXPECT_EQ(fbits(tab::exp_f_128[2 * j + 1]), fbits(e.rem_f(v))) << "j=" << j;
  }
}
#endif

}  // namespace
