// Mode word: environment parsing, lazy initialisation per thread, SetMode
// merge rules, status and callback services.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "qor/pex.h"
#include "vm/service/state.h"

namespace {

using qor::vm::initial_mode;
using qor::vm::merge_mode;

struct ParseCase {
  const char *text;
  uint32_t mode;
};

class ModeParse : public testing::TestWithParam<ParseCase> {};

TEST_P(ModeParse, GivesTheExpectedMode) {
  const ParseCase &c = GetParam();
  const int len = c.text ? static_cast<int>(std::strlen(c.text)) : 0;
  EXPECT_EQ(initial_mode(c.text, len), c.mode) << (c.text ? c.text : "(null)");
}

INSTANTIATE_TEST_SUITE_P(
    Valid, ModeParse,
    testing::Values(ParseCase{nullptr, 0x1A02}, ParseCase{"", 0x1A02},
                    ParseCase{"PEX_EP", 0x1A03}, ParseCase{"PEX_LA", 0x1A01},
                    ParseCase{"PEX_HA", 0x1A02}, ParseCase{"PEX_ERRMODE_STDERR", 0x402},
                    ParseCase{"PEX_EP,PEX_ERRMODE_STDERR", 0x403},
                    ParseCase{"PEX_LA,PEX_TRAP_INVALID", 0x1001A01},
                    ParseCase{"PEX_LA,PEX_HA", 0x1A03},  // values are OR-ed
                    ParseCase{"PEX_DEFAULT_PRECISION", 0x1A02},
                    ParseCase{"PEX_DOUBLE_CONSISTEN", 0x1A22},
                    ParseCase{"PEX_FLOAT_CONSISTENT,PEX_RESTORE", 0x1A32},
                    ParseCase{"PEX_ERRMODE_NOERR", 0x2002},
                    ParseCase{"PEX_ERRMODE_IGNORE,PEX_EP", 0x103},
                    ParseCase{"PEX_ERRMODE_DEFAULT,PEX_LA", 0x1A01},
                    ParseCase{"PEX_TRAP_DIVBYZERO,PEX_TRAP_OVERFLOW,PEX_TRAP_UNDERFLOW",
                              0xE001A02},
                    ParseCase{"PEX_ERRMODE_ERRNO,PEX_ERRMODE_CALLBACK", 0x1202}));

INSTANTIATE_TEST_SUITE_P(
    Malformed, ModeParse,
    testing::Values(ParseCase{"PEX_HA, PEX_LA", 0x1A02}, ParseCase{"PEX_HA,", 0x1A02},
                    ParseCase{"pex_HA", 0x1A02}, ParseCase{"PEX_DOUBLE_CONSISTENT", 0x1A02},
                    ParseCase{"PEX_HAX", 0x1A02}, ParseCase{"PEX_", 0x1A02},
                    ParseCase{",PEX_HA", 0x1A02}, ParseCase{"PEX_HA,,PEX_LA", 0x1A02},
                    ParseCase{" PEX_HA", 0x1A02}, ParseCase{"PEX_HA ", 0x1A02},
                    ParseCase{"PEX_EP,HA", 0x1A02}, ParseCase{"PEX_ha", 0x1A02},
                    ParseCase{"PEX_ERRMODE_STDER", 0x1A02}, ParseCase{"PEX_TRAP", 0x1A02}));

TEST(ModeParse, TextIsReadFromA256ByteBuffer) {
  // A token list that fits the buffer parses; one more token runs past the
  // 255 readable characters, leaves a cut-off token and is rejected whole.
  std::string s = "PEX_EP";
  while (s.size() + 7 <= 255) s += ",PEX_EP";
  EXPECT_EQ(initial_mode(s.c_str(), static_cast<int>(s.size())), 0x1A03u);
  const std::string longer = s + ",PEX_EP";
  ASSERT_GT(longer.size(), 255u);
  EXPECT_EQ(initial_mode(longer.c_str(), static_cast<int>(longer.size())), 0x1A02u);
}

struct MergeCase {
  uint32_t old_mode, arg, merged;
};

class ModeMerge : public testing::TestWithParam<MergeCase> {};

TEST_P(ModeMerge, ReplacesOnlyNonZeroFields) {
  const MergeCase &c = GetParam();
  EXPECT_EQ(merge_mode(c.old_mode, c.arg), c.merged)
      << std::hex << c.old_mode << " <- " << c.arg;
}

INSTANTIATE_TEST_SUITE_P(
    Fields, ModeMerge,
    testing::Values(MergeCase{0x1A02, 0, 0x1A02}, MergeCase{0x1A02, 0x100, 0x102},
                    MergeCase{0x1A02, 0x3, 0x1A03}, MergeCase{0x1A02, 0x10000, 0x11A02},
                    MergeCase{0x31A02, 0x10000, 0x11A02}, MergeCase{0x1A02, 0x280000, 0x281A02},
                    MergeCase{0x281A02, 0x140000, 0x141A02},
                    MergeCase{0x1001A02, 0x2000000, 0x2001A02},
                    // consistency, 0xC00000 and the top nibble are ignored
                    MergeCase{0x1A02, 0xF0C000F0, 0x1A02},
                    MergeCase{0x1A22, 0x30, 0x1A22},
                    MergeCase{0x1A02, 0xFFFFFFFF, 0xF3FFF0F}));

TEST(ModeService, LazyInitialisationReadsTheEnvironmentPerThread) {
  // Each new thread parses QOR_PEX_MODE when it first needs its mode.
  auto mode_in_new_thread = [](const char *env) {
    if (env) ::setenv("QOR_PEX_MODE", env, 1);
    else ::unsetenv("QOR_PEX_MODE");
    uint32_t m = 0;
    std::thread([&] { m = qor_pex_kernel_GetMode(); }).join();
    return m;
  };
  EXPECT_EQ(mode_in_new_thread(nullptr), 0x1A02u);
  EXPECT_EQ(mode_in_new_thread("PEX_EP"), 0x1A03u);
  EXPECT_EQ(mode_in_new_thread("PEX_HA, PEX_LA"), 0x1A02u);
  EXPECT_EQ(mode_in_new_thread("PEX_EP,PEX_ERRMODE_STDERR"), 0x403u);
  uint32_t idx = 0;
  ::setenv("QOR_PEX_MODE", "PEX_EP", 1);
  std::thread([&] { idx = qor_pex_kernel_GetTTableIndex(); }).join();
  EXPECT_EQ(idx, 2u);
  uint32_t before = 0;
  ::setenv("QOR_PEX_MODE", "PEX_LA", 1);
  std::thread([&] { before = qor_pex_kernel_SetMode(0); }).join();
  EXPECT_EQ(before, 0x1A01u) << "SetMode initialises first and returns the initial word";
  ::unsetenv("QOR_PEX_MODE");
}

TEST(ModeService, SetModeReturnsPreviousAndAliasesAgree) {
  std::thread([] {
    ::unsetenv("QOR_PEX_MODE");
    EXPECT_EQ(qor_pex_kernel_SetMode(0), 0x1A02u);
    EXPECT_EQ(qor_pex_kernel_GetMode(), 0x1A02u);
    EXPECT_EQ(_pexSetMode(0x100), 0x1A02u);
    EXPECT_EQ(_pexGetMode(), 0x102u);
    EXPECT_EQ(qor_pex_kernel_SetMode(0x3), 0x102u);
    EXPECT_EQ(qor_pex_kernel_GetTTableIndex(), 2u);
  }).join();
  EXPECT_EQ(qor_pex_kernel_GetTTableIndexM(nullptr, 0x1A03), 2u);
  EXPECT_EQ(qor_pex_kernel_GetTTableIndexM(reinterpret_cast<void *>(1), 0x1A01), 0u);
  EXPECT_EQ(qor_pex_kernel_GetTTableIndexM(nullptr, 0x1A00), 0xFFFFFFFFu);
  // The underscore names are the same functions, except the SetMode forwarder.
  EXPECT_EQ(reinterpret_cast<void *>(&_pexGetMode),
            reinterpret_cast<void *>(&qor_pex_kernel_GetMode));
  EXPECT_EQ(reinterpret_cast<void *>(&_pexGetErrStatus),
            reinterpret_cast<void *>(&qor_pex_kernel_GetErrStatus));
  EXPECT_EQ(reinterpret_cast<void *>(&_pexSetInterfInputVectorPointer),
            reinterpret_cast<void *>(&qor_pex_kernel_SetInterfInputVectorPointer));
  EXPECT_NE(reinterpret_cast<void *>(&_pexSetMode),
            reinterpret_cast<void *>(&qor_pex_kernel_SetMode));
}

TEST(StatusService, SetGetClear) {
  std::thread([] {
    EXPECT_EQ(qor_pex_kernel_GetErrStatus(), 0);
    EXPECT_EQ(qor_pex_kernel_SetErrStatus(5), 0);
    EXPECT_EQ(_pexSetErrStatus(-2), 5);
    EXPECT_EQ(qor_pex_kernel_ClearErrStatus(), -2);
    EXPECT_EQ(qor_pex_kernel_SetErrStatus(5), 0);
    EXPECT_EQ(_pexClearErrStatus(), 5);
    EXPECT_EQ(qor_pex_kernel_GetErrStatus(), 0);
  }).join();
}

int32_t cb_a(PexErrorContext *) { return 0; }
int32_t cb_b(PexErrorContext *) { return 1; }

TEST(CallbackService, SetAndClearAdjustTheCallbackBitWithTheKeptAsymmetry) {
  std::thread([] {
    ::unsetenv("QOR_PEX_MODE");
    EXPECT_EQ(qor_pex_kernel_SetErrorCallBack(cb_a), nullptr);
    EXPECT_EQ(qor_pex_kernel_GetMode() & 0xFF00, 0x1A00u);
    EXPECT_EQ(qor_pex_kernel_GetErrorCallBack(), cb_a);
    EXPECT_EQ(_pexSetErrorCallBack(cb_b), cb_a);
    // Clearing with other error bits present drops the callback bit.
    EXPECT_EQ(qor_pex_kernel_ClearErrorCallBack(), cb_b);
    EXPECT_EQ(qor_pex_kernel_GetMode() & 0xFF00, 0xA00u);
    EXPECT_EQ(qor_pex_kernel_GetErrorCallBack(), nullptr);
    // Setting one with error mode STDERR adds the bit.
    qor_pex_kernel_SetMode(0x400);
    qor_pex_kernel_SetErrorCallBack(cb_a);
    EXPECT_EQ(qor_pex_kernel_GetMode() & 0xFF00, 0x1400u);
    // With the error mode exactly CALLBACK, neither a null set nor a clear
    // can remove the bit: SetMode skips an all-zero error field.
    qor_pex_kernel_SetMode(0x1000);
    EXPECT_EQ(qor_pex_kernel_SetErrorCallBack(nullptr), cb_a);
    EXPECT_EQ(qor_pex_kernel_GetMode() & 0xFF00, 0x1000u);
    qor_pex_kernel_SetErrorCallBack(cb_b);
    EXPECT_EQ(_pexClearErrorCallBack(), cb_b);
    EXPECT_EQ(qor_pex_kernel_GetMode() & 0xFF00, 0x1000u);
    EXPECT_EQ(_pexGetErrorCallBack(), nullptr);
  }).join();
}

TEST(ThreadState, ThreadsNeverSeeEachOthersState) {
  constexpr int kThreads = 8;
  std::thread ts[kThreads];
  bool ok[kThreads] = {};
  for (int t = 0; t < kThreads; ++t)
    ts[t] = std::thread([t, &ok] {
      bool good = true;
      for (int round = 0; round < 2000; ++round) {
        qor_pex_kernel_SetMode(static_cast<uint32_t>(1 + t % 3));
        qor_pex_kernel_SetErrStatus(t * 1000 + round);
        qor_pex_kernel_SetInterfInputVectorPointer(&ok[t]);
        std::this_thread::yield();
        good &= (qor_pex_kernel_GetMode() & 0xF) == static_cast<uint32_t>(1 + t % 3);
        good &= qor_pex_kernel_GetErrStatus() == t * 1000 + round;
        good &= qor::vm::thread_state().input_base == &ok[t];
      }
      ok[t] = good;
    });
  for (auto &t : ts) t.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_TRUE(ok[t]) << "thread " << t;
}

TEST(ThreadState, ExitingThreadsReturnTheirBlocks) {
  qor_pex_kernel_GetMode();  // this thread's block exists
  const size_t before = qor::vm::live_state_blocks();
  for (int i = 0; i < 50; ++i) std::thread([] { qor_pex_kernel_SetErrStatus(1); }).join();
  EXPECT_EQ(qor::vm::live_state_blocks(), before);
  std::thread([&] {
    qor_pex_kernel_GetMode();
    EXPECT_EQ(qor::vm::live_state_blocks(), before + 1);
  }).join();
}

}  // namespace
