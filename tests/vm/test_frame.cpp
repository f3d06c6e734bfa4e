// The floating-point frame around every kernel: what the caller's MXCSR and
// x87 control word look like afterwards, and which controls the kernel
// computed under.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <cmath>

#include "vm_test_util.h"

using namespace qor::vm::test;

namespace {

uint16_t x87_cw() {
  uint16_t cw;
  asm volatile("fnstcw %0" : "=m"(cw));
  return cw;
}
void set_x87_cw(uint16_t cw) { asm volatile("fnclex\n\tfldcw %0" : : "m"(cw)); }

// Runs f with the caller's MXCSR and x87 control word set as given and
// returns what they are afterwards; restores the test's own state.
template <class F>
std::pair<uint32_t, uint16_t> under(uint32_t mxcsr, uint16_t cw, F f) {
  uint32_t m0 = _mm_getcsr();
  uint16_t c0 = x87_cw();
  _mm_setcsr(mxcsr);
  set_x87_cw(cw);
  f();
  uint32_t m1 = _mm_getcsr();
  uint16_t c1 = x87_cw();
  _mm_setcsr(m0);
  set_x87_cw(c0);
  return {m1, c1};
}

const float kDenorm = 0x1p-140f;

TEST(VmFrame, NonPositiveCountLeavesControlsUnchanged) {
  float a[4] = {1, 2, 3, 4}, r[4] = {9, 9, 9, 9};
  // round toward zero, FTZ on, all masked; x87 with invalid unmasked and
  // 64-bit precision
  const uint32_t mx = 0x7F80 | 0x8000;
  const uint16_t cw = 0x037E;
  for (int n : {0, -1, -100}) {
    auto [m, c] = under(mx, cw, [&] {
      _pexsAdd(n, a, a, r);
      _pexsDiv_HA(n, a, a, r);
      _pexsSqrt(n, a, r);
    });
    EXPECT_EQ(m, mx) << n;
    EXPECT_EQ(c, cw) << n;
    for (float x : r) EXPECT_EQ(x, 9.0f);
  }
}

TEST(VmFrame, FtzDazFollowsTheModeWord) {
  float a[5] = {kDenorm, kDenorm, kDenorm, kDenorm, kDenorm}, r[5];
  {
    ModeScope m(PEX_FTZDAZ_ON);
    _pexsAdd(5, a, a, r);
    for (float x : r) EXPECT_EQ(x, 0.0f);
  }
  {
    ModeScope m(PEX_FTZDAZ_OFF);
    _pexsAdd(5, a, a, r);
    for (float x : r) EXPECT_EQ(x, 2 * kDenorm);
  }
}

// The kernel runs round-to-nearest whatever the caller has, and gives the
// caller its rounding back; flags the kernel raised stay set.
TEST(VmFrame, CallerRoundingRestoredAndFlagsAdded) {
  float a[5] = {1, 1, 1, 1, 1}, b[5] = {0x1p-24f * 3, 0x1p-24f * 3, 0x1p-24f * 3, 0x1p-24f * 3,
                                         0x1p-24f * 3};
  float r[5];
  const uint32_t toward_zero = 0x1F80 | 0x6000;
  auto [m, c] = under(toward_zero, 0x037F, [&] { _pexsAdd(5, a, b, r); });
  // 1 + 3*2^-24 is a tie between 1+2^-23 and 1+2^-22 at nearest-even: 1+2^-22
  for (float x : r) EXPECT_EQ(x, 1.0f + 0x1p-22f);
  EXPECT_EQ(m & 0xFFC0, toward_zero);
  EXPECT_EQ(m & 0x20, 0x20u) << "inexact flag of the kernel reaches the caller";
  EXPECT_EQ(c, 0x037F);
}

TEST(VmFrame, DivideByZeroFlagReachesCaller) {
  Recorder rec(PEX_ERRMODE_IGNORE);
  float a[3] = {1, 2, 3}, b[3] = {1, 0, 1}, r[3];
  auto [m, c] = under(0x1F80, 0x037F, [&] { _pexsDiv_21(3, a, b, r); });
  EXPECT_EQ(m & 0x04, 0x04u);
  EXPECT_EQ(m & 0xFFC0, 0x1F80u);
  (void)c;
}

// The fixed frame of the HA sDiv keeps the caller's rounding (it never reads
// the mode), sets 53-bit x87 precision for its duration and restores it.
TEST(VmFrame, FixedFrameKeepsCallerRounding) {
  float a[1] = {1}, b[1] = {3}, r_zero[1], r_near[1];
  auto [m, c] = under(0x1F80 | 0x6000, 0x037F, [&] { _pexsDiv_HA(1, a, b, r_zero); });
  under(0x1F80, 0x037F, [&] { _pexsDiv_HA(1, a, b, r_near); });
  EXPECT_EQ(r_near[0], 1.0f / 3.0f);
  EXPECT_EQ(fbits(r_zero[0]) + 1, fbits(r_near[0])) << "1/3 rounds up at nearest, down toward 0";
  EXPECT_EQ(m & 0xFFC0, 0x7F80u);
  EXPECT_EQ(c, 0x037F);
  // masks forced on while it runs: an unmasked caller does not trap
  auto [m2, c2] = under(0x1F80 & ~0x200, 0x037F, [&] {
    float z[1] = {0};
    Recorder rec(PEX_ERRMODE_IGNORE);
    _pexsDiv_HA(1, a, z, r_near);
  });
  EXPECT_TRUE(std::isinf(r_near[0]));
  EXPECT_EQ(m2 & 0x1F80, 0x1F80u & ~0x200u);
  EXPECT_EQ(m2 & 0x04, 0x04u);
  (void)c2;
}

}  // namespace

namespace {

// In the exception error mode the handler leaves the x87 flag of the code
// set; restoring the caller's control word must not clear it.
TEST(VmFrame, ExceptModeFlagSurvivesControlWordRestore) {
  uint32_t m = qor_pex_kernel_SetMode(PEX_ERRMODE_EXCEPT);
  float a[2] = {1, -1}, r[2];
  uint16_t c0 = x87_cw();
  set_x87_cw(0x037F & ~0x20);  // precision exception unmasked: the frame must change the word
  _pexsSqrt(2, a, r);
  uint16_t sw;
  asm volatile("fnstsw %0" : "=m"(sw));
  asm volatile("fnclex");
  set_x87_cw(c0);
  qor_pex_kernel_SetMode(m);
  qor_pex_kernel_ClearErrStatus();
  EXPECT_EQ(sw & 0x01, 0x01) << "invalid flag of the domain error";
}

}  // namespace
