// The error handler: status, record, callback veto and edits, errno,
// standard-error messages, x87 flags and traps, index shifting.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/private_heap.h"
#include "qor/pex.h"

namespace {

// Runs body on a fresh thread, whose mode word starts from the environment.
template <class F>
void in_fresh_thread(F body) {
  ::unsetenv("QOR_PEX_MODE");
  std::thread(body).join();
}

uint16_t x87_status() {
  uint16_t sw;
  __asm__ volatile("fnstsw %0" : "=m"(sw));
  return sw;
}
uint16_t x87_control() {
  uint16_t cw;
  __asm__ volatile("fnstcw %0" : "=m"(cw));
  return cw;
}

PexErrorContext g_seen;
int g_calls;
int32_t g_verdict;
bool g_edit;

int32_t recording_callback(PexErrorContext *c) {
  g_seen = *c;
  ++g_calls;
  if (g_edit) {
    c->res1 = 42.5;
    c->res2 = -7.25;
    c->res1_im = 3.0;
  }
  return g_verdict;
}

void arm_callback(int32_t verdict, bool edit) {
  std::memset(&g_seen, 0, sizeof g_seen);
  g_calls = 0;
  g_verdict = verdict;
  g_edit = edit;
  qor_pex_kernel_SetErrorCallBack(recording_callback);
}

TEST(ErrorHandler, NoerrLeavesEvenTheStatusAndIgnoreOnlySetsIt) {
  in_fresh_thread([] {
    float a[2] = {1, -1}, r[2] = {5, 6};
    arm_callback(0, true);
    qor_pex_kernel_SetMode(PEX_ERRMODE_NOERR);
    qor_pex_kernel_SetErrStatus(9);
    pex_error_s(1, 1, a, a, r, r, "vsLn");
    EXPECT_EQ(qor_pex_kernel_GetErrStatus(), 9);
    qor_pex_kernel_SetMode(PEX_ERRMODE_IGNORE);
    errno = 0;
    pex_error_s(2, 1, a, a, r, r, "vsLn");
    EXPECT_EQ(qor_pex_kernel_GetErrStatus(), 2);
    EXPECT_EQ(g_calls, 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(r[1], 6.0f);
    // NOERR combined with another bit is not "exactly NOERR".
    qor_pex_kernel_SetMode(PEX_ERRMODE_NOERR | PEX_ERRMODE_ERRNO);
    pex_error_s(3, 0, a, a, r, r, "vsExp");
    EXPECT_EQ(qor_pex_kernel_GetErrStatus(), 3);
    EXPECT_EQ(errno, ERANGE);
  });
}

TEST(ErrorHandler, RecordCarriesCodeIndexValuesAndName) {
  in_fresh_thread([] {
    qor_pex_kernel_SetMode(PEX_ERRMODE_CALLBACK);
    arm_callback(1, false);
    double a[3] = {1, 2, 3}, b[3] = {4, 5, 6}, r1[3] = {7, 8, 9}, r2[3] = {10, 11, 12};
    pex_error_d(3, 2, a, b, r1, r2, "vdSinCos");
    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(g_seen.code, 3);
    EXPECT_EQ(g_seen.index, 2);
    EXPECT_EQ(g_seen.arg1, 3.0);
    EXPECT_EQ(g_seen.arg2, 6.0);
    EXPECT_EQ(g_seen.res1, 9.0);
    EXPECT_EQ(g_seen.res2, 12.0);
    EXPECT_STREQ(g_seen.func_name, "vdSinCos");
    EXPECT_EQ(g_seen.func_name_len, 8);
    EXPECT_EQ(qor_pex_kernel_GetErrStatus(), 3);

    // Codes -1 and -2 carry no element values.
    pex_error_d(-1, 5, a, b, r1, r2, "vdPow");
    EXPECT_EQ(g_seen.code, -1);
    EXPECT_EQ(g_seen.index, 5);
    EXPECT_EQ(g_seen.arg1, 0.0);
    EXPECT_EQ(g_seen.res1, 0.0);

    const std::string long_name(60, 'q');
    pex_error_d(1, 0, a, a, r1, r1, long_name.c_str());
    EXPECT_EQ(g_seen.func_name_len, 47);
    EXPECT_EQ(std::string(g_seen.func_name), long_name.substr(0, 47));
  });
}

TEST(ErrorHandler, CallbackVetoSuppressesEverythingElse) {
  in_fresh_thread([] {
    qor_pex_kernel_SetMode(PEX_ERRMODE_DEFAULT | PEX_ERRMODE_STDERR);
    arm_callback(1, true);
    float a[1] = {-1}, r[1] = {0};
    errno = 0;
    __asm__ volatile("fnclex");
    testing::internal::CaptureStderr();
    pex_error_s(1, 0, a, a, r, r, "vsSqrt");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(x87_status() & 0x3F, 0);
    EXPECT_EQ(r[0], 0.0f) << "a vetoing callback's edits are not written back";
    EXPECT_EQ(qor_pex_kernel_GetErrStatus(), 1);
  });
}

TEST(ErrorHandler, CallbackEditsReachTheOutputAndModeActionsRun) {
  in_fresh_thread([] {
    qor_pex_kernel_SetMode(PEX_ERRMODE_DEFAULT);
    arm_callback(0, true);
    float a[2] = {0, 0}, r[2] = {1, 2};
    errno = 0;
    __asm__ volatile("fnclex");
    pex_error_s(2, 1, a, a, r, r, "vsLn");
    EXPECT_EQ(r[1], 42.5f) << "one-result functions get res1";
    EXPECT_EQ(r[0], 1.0f);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(x87_status() & 0x3F, 0x04);
    // Two results: both edits land.
    double x[1] = {1}, s[1] = {0}, c[1] = {0};
    pex_error_d(4, 0, x, x, s, c, "vdSinCos");
    EXPECT_EQ(s[0], 42.5);
    EXPECT_EQ(c[0], -7.25);
    // Complex: the imaginary part edit lands too.
    float za[2] = {1, 2}, zr[2] = {0, 0};
    pex_error_c(3, 0, za, za, zr, zr, "vcExp");
    EXPECT_EQ(zr[0], 42.5f);
    EXPECT_EQ(zr[1], 3.0f);
    __asm__ volatile("fnclex");
  });
}

TEST(ErrorHandler, ErrnoFollowsTheStatusTable) {
  const struct {
    int code, err;
  } kRows[] = {{0, 0}, {1, EDOM}, {2, ERANGE}, {3, ERANGE}, {4, ERANGE},
               {-1, EINVAL}, {-2, EACCES}, {7, EFAULT}, {-9, EFAULT}};
  in_fresh_thread([&] {
    qor_pex_kernel_SetMode(PEX_ERRMODE_ERRNO);
    double a[1] = {0}, r[1] = {0};
    for (const auto &row : kRows) {
      errno = 12345;
      pex_error_d(row.code, 0, a, a, r, r, "vdTest");
      EXPECT_EQ(errno, row.err) << "code " << row.code;
      EXPECT_EQ(qor_pex_kernel_GetErrStatus(), row.code);
    }
  });
}

std::vector<int> message_numbers(const std::string &out) {
  std::vector<int> nums;
  size_t pos = 0;
  while ((pos = out.find("qor error ", pos)) != std::string::npos) {
    pos += 10;
    nums.push_back(std::stoi(out.substr(pos, 3)));
  }
  return nums;
}

TEST(ErrorHandler, StderrMessagesFollowTheArgumentAndResultShape) {
  in_fresh_thread([] {
    qor_pex_kernel_SetMode(PEX_ERRMODE_STDERR);
    struct Case {
      int code;
      double a, b, r1, r2;
      bool same_args, same_results;
      std::vector<int> expected;
    };
    const Case kCases[] = {
        {1, -1, 0, 0, 0, true, true, {750, 755, 756}},
        {2, 0, 0, -1, 0, true, true, {751, 755, 756}},
        {3, 1, 0, 2, 3, true, false, {752, 757, 758, 759}},
        {4, 1, 2, 3, 0, false, true, {753, 760, 761, 762}},
        {9, 1, 2, 3, 4, false, false, {754, 763, 764, 765, 766}},
        {1, 1, 0, 3, 0, false, true, {750, 755, 756}},  // arg2 == 0 counts as one argument
        {-1, 1, 2, 3, 4, false, false, {748}},
        {-2, 1, 2, 3, 4, false, false, {749}},
        {0, 1, 2, 3, 4, false, false, {}},
    };
    for (const Case &c : kCases) {
      double a[1] = {c.a}, b[1] = {c.b}, r1[1] = {c.r1}, r2[1] = {c.r2};
      testing::internal::CaptureStderr();
      pex_error_d(c.code, 0, a, c.same_args ? a : b, r1, c.same_results ? r1 : r2, "vdF");
      const std::string out = testing::internal::GetCapturedStderr();
      EXPECT_EQ(message_numbers(out), c.expected) << "code " << c.code << ":\n" << out;
      if (!c.expected.empty()) {
        EXPECT_NE(out.find("vdF"), std::string::npos);
      }
    }
  });
}

TEST(ErrorHandler, ExceptModeLeavesTheX87FlagOfTheCode) {
  const struct {
    int code;
    uint16_t flag;
  } kRows[] = {{1, 0x01}, {2, 0x04}, {3, 0x08}, {4, 0x10}, {-1, 0}, {0, 0}, {6, 0}};
  in_fresh_thread([&] {
    qor_pex_kernel_SetMode(PEX_ERRMODE_EXCEPT);
    const uint32_t mxcsr_before = __builtin_ia32_stmxcsr();
    double a[1] = {0}, r[1] = {0};
    for (const auto &row : kRows) {
      __asm__ volatile("fnclex");
      pex_error_d(row.code, 0, a, a, r, r, "vdF");
      EXPECT_EQ(x87_status() & 0x3F, row.flag) << "code " << row.code;
      EXPECT_EQ(x87_control() & 0x3F, 0x3F);
    }
    __asm__ volatile("fnclex");
    EXPECT_EQ(__builtin_ia32_stmxcsr(), mxcsr_before);
  });
}

void trapped_report(uint32_t mode, int code) {
  qor_pex_kernel_SetMode(mode);
  double a[1] = {0}, r[1] = {0};
  pex_error_d(code, 0, a, a, r, r, "vdF");
  __asm__ volatile("fnclex");
  std::_Exit(0);
}

TEST(ErrorHandlerDeathTest, TrapsRaiseAHardwareException) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(trapped_report(PEX_ERRMODE_EXCEPT | PEX_TRAP_INVALID | 2, 1),
              testing::KilledBySignal(SIGFPE), "");
  EXPECT_EXIT(trapped_report(PEX_ERRMODE_EXCEPT | PEX_TRAP_DIVBYZERO | 2, 2),
              testing::KilledBySignal(SIGFPE), "");
  EXPECT_EXIT(trapped_report(PEX_ERRMODE_EXCEPT | PEX_TRAP_OVERFLOW | 2, 3),
              testing::KilledBySignal(SIGFPE), "");
  EXPECT_EXIT(trapped_report(PEX_ERRMODE_EXCEPT | PEX_TRAP_UNDERFLOW | 2, 4),
              testing::KilledBySignal(SIGFPE), "");
  // A trap of another kind leaves only the sticky flag.
  EXPECT_EXIT(trapped_report(PEX_ERRMODE_EXCEPT | PEX_TRAP_OVERFLOW | 2, 1),
              testing::ExitedWithCode(0), "");
  // Without EXCEPT in the error mode the trap bits do nothing.
  EXPECT_EXIT(trapped_report(PEX_ERRMODE_ERRNO | PEX_TRAP_INVALID | 2, 1),
              testing::ExitedWithCode(0), "");
}

TEST(ErrorHandler, InputBaseShiftsTheReportedIndexByElementWidth) {
  in_fresh_thread([] {
    qor_pex_kernel_SetMode(PEX_ERRMODE_CALLBACK);
    arm_callback(1, false);
    float fs[64] = {};
    double ds[64] = {};
    qor_pex_kernel_SetInterfInputVectorPointer(fs);
    pex_error_s(1, 3, fs + 10, fs + 10, fs, fs, "vsF");
    EXPECT_EQ(g_seen.index, 13);
    pex_error_c(1, 3, fs + 20, fs + 20, fs, fs, "vcF");  // 8-byte elements
    EXPECT_EQ(g_seen.index, 13);
    qor_pex_kernel_SetInterfInputVectorPointer(ds);
    pex_error_d(1, 1, ds + 6, ds + 6, ds, ds, "vdF");
    EXPECT_EQ(g_seen.index, 7);
    pex_error_z(1, 1, ds + 8, ds + 8, ds, ds, "vzF");  // 16-byte elements
    EXPECT_EQ(g_seen.index, 5);
    pex_error_dI(-1, 2, ds + 4, 3, ds + 4, 3, ds, 1, ds, 1, "vdF");
    EXPECT_EQ(g_seen.index, 6) << "code -1 is shifted too";
    EXPECT_EQ(qor_pex_kernel_SetInterfInputVectorPointer(nullptr), nullptr);
    pex_error_d(1, 1, ds + 6, ds + 6, ds, ds, "vdF");
    EXPECT_EQ(g_seen.index, 1);
  });
}

TEST(ErrorHandler, StridedFormsAddressElementsThroughTheirIncrements) {
  in_fresh_thread([] {
    qor_pex_kernel_SetMode(PEX_ERRMODE_CALLBACK);
    arm_callback(0, true);
    float a[12], b[12], r1[12] = {}, r2[12] = {};
    for (int i = 0; i < 12; ++i) a[i] = static_cast<float>(i), b[i] = static_cast<float>(100 + i);
    pex_error_sI(3, 2, a, 3, b, 2, r1, 4, r2, 5, "vsF");
    EXPECT_EQ(g_seen.arg1, 6.0);
    EXPECT_EQ(g_seen.arg2, 104.0);
    EXPECT_EQ(r1[8], 42.5f);
    EXPECT_EQ(r2[10], -7.25f);
    double z[16] = {}, zr[16] = {};
    for (int i = 0; i < 16; ++i) z[i] = i;
    pex_error_zI(1, 1, z, 2, z, 2, zr, 3, zr, 3, "vzF");
    EXPECT_EQ(g_seen.arg1, 4.0);
    EXPECT_EQ(g_seen.arg1_im, 5.0);
    EXPECT_EQ(zr[6], 42.5);
    EXPECT_EQ(zr[7], 3.0);
    float c[8] = {0, 1, 2, 3, 4, 5, 6, 7}, cr[8] = {};
    pex_error_cI(1, 1, c, 2, c, 2, cr, 1, cr, 1, "vcF");
    EXPECT_EQ(g_seen.arg1, 4.0);
    EXPECT_EQ(g_seen.arg1_im, 5.0);
    EXPECT_EQ(cr[2], 42.5f);
    EXPECT_EQ(cr[3], 3.0f);
  });
}

void exhaust_state_heap() {
  qor::platform::private_heap_fail_next(1);
  std::thread([] { qor_pex_kernel_GetMode(); }).join();
  std::_Exit(0);
}

TEST(ThreadStateDeathTest, NoBlockMeansMessage773AndExitCode3) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exhaust_state_heap(), testing::ExitedWithCode(3), "773");
}

}  // namespace
