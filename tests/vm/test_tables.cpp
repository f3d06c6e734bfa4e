// Kernel tables, cost tables and entry points: every name the naming rule
// gives is exported by the shared library, every entry point reaches the slot
// its suffix names, the tables share kernels as the catalogue says and the
// catalogue says what the sharing rules say.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "qor/vm.h"

namespace {

// The function lists and the sharing rules, written out independently of the
// catalogue.
const char *kReal =
    "Abs Acos Acosh Acospi Add Asin Asinh Asinpi Atan Atan2 Atan2pi Atanh Atanpi Cbrt CdfNorm "
    "CdfNormInv Ceil CopySign Cos Cosd Cosh Cospi Div Erf ErfInv Erfc ErfcInv Erfcx Exp Exp10 "
    "Exp2 ExpInt1 Expm1 Fdim Floor Fmax Fmin Fmod Frac Hypot I0 I1 Inv InvCbrt InvSqrt J0 J1 Jn "
    "LGamma LinearFrac Ln Log10 Log1p Log2 Logb MaxMag MinMag Modf Mul NearbyInt NextAfter PackI "
    "PackM PackV Pow Pow2o3 Pow3o2 Powr Powx Remainder Rint Round Sin SinCos SinCospi Sind Sinh "
    "Sinpi Sqr Sqrt Sub TGamma Tan Tand Tanh Tanpi Trunc UnpackI UnpackM UnpackV Y0 Y1 Yn";
const char *kComplex =
    "Abs Acos Acosh Add Arg Asin Asinh Atan Atanh CIS Conj Cos Cosh Div Exp Ln Log10 Mul "
    "MulByConj PackI PackM PackV Pow Powx Sin Sinh Sqrt Sub Tan Tanh UnpackI UnpackM UnpackV";

std::vector<std::string> words(const char *s) {
  std::istringstream in(s);
  std::vector<std::string> w;
  for (std::string x; in >> x;) w.push_back(x);
  return w;
}
bool is_pack(const std::string &f) { return f.find("ack") != std::string::npos; }

enum Share { ONE, THREE, LA_HA, LA_EP };

Share rule(char t, const std::string &f) {
  static const std::map<char, std::map<std::string, Share>> m = [] {
    std::map<char, std::map<std::string, Share>> r;
    auto put = [&](char t, const char *list, Share s) {
      for (auto &f : words(list)) r[t][f] = s;
    };
    put('s', "Acos Atan2 CdfNorm Cos Cosd Cosh Div Erf ErfInv Exp Hypot Inv Ln Log10 Log1p Pow "
             "Pow3o2 Powx Sin SinCos Sind Sinh Sinpi Sqrt Tand Tanpi", THREE);
    put('s', "Asin Cospi Pow2o3 Tan", LA_EP);
    put('s', "Atan ExpInt1 InvSqrt", LA_HA);
    put('d', "Atan2 Atanh CdfNorm Cos Cosd Cosh Cospi Erf Exp Hypot Ln Pow Pow3o2 Powx Sin "
             "SinCos Sind Sinpi Sqrt Tan Tand Tanpi", THREE);
    put('d', "Acos Asin ErfInv ExpInt1", LA_HA);
    put('d', "Log10 Sinh", LA_EP);
    put('c', "Arg Ln", THREE);
    put('c', "Add Mul MulByConj Sub", LA_HA);
    put('c', "Exp Sqrt", LA_EP);
    put('z', "Abs Add Div Mul MulByConj Sub", LA_HA);
    put('z', "Exp", LA_EP);
    return r;
  }();
  auto it = m.at(t).find(f);
  return it == m.at(t).end() ? ONE : it->second;
}

struct Table {
  char t;
  std::string id;  // e.g. "sExpI"
  std::string func;
  Share share;
};

std::vector<Table> expected_tables() {
  std::vector<Table> v;
  for (char t : std::string("sdcz")) {
    for (auto &f : words(t == 's' || t == 'd' ? kReal : kComplex)) {
      v.push_back({t, std::string(1, t) + f, f, rule(t, f)});
      if (!is_pack(f)) v.push_back({t, std::string(1, t) + f + "I", f, rule(t, f)});
    }
  }
  return v;
}

std::string la_suffix(char t) { return t == 's' || t == 'c' ? "_21" : "_50"; }
std::string ep_suffix(char t) { return t == 's' || t == 'c' ? "_11" : "_26"; }

class VmExports : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { handle = dlopen(QOR_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL); }
  static void *sym(const std::string &n) { return dlsym(handle, n.c_str()); }
  static inline void *handle = nullptr;
};

TEST(VmCatalogue, CountsFollowTheFunctionLists) {
  auto tabs = expected_tables();
  EXPECT_EQ(tabs.size(), 480u);
  size_t per[4] = {};
  for (auto &t : tabs) per[std::string("sdcz").find(t.t)]++;
  EXPECT_EQ(per[0], 180u);
  EXPECT_EQ(per[1], 180u);
  EXPECT_EQ(per[2], 60u);
  EXPECT_EQ(per[3], 60u);
}

// The export file generated from the catalogue holds exactly the names the
// naming rule gives (plus the service names, which are not vector tables).
TEST(VmCatalogue, GeneratedExportListMatchesNamingRule) {
  std::set<std::string> want;
  for (auto &t : expected_tables()) {
    for (auto n : {"qor_pex_kernel_" + t.id + "_ttab", "qor_pex_kernel_" + t.id + "_ctab",
                   "_pex" + t.id, "_pex" + t.id + "_HA", "_pex" + t.id + la_suffix(t.t),
                   "_pex" + t.id + ep_suffix(t.t)})
      want.insert(n);
  }
  EXPECT_EQ(want.size(), 480u * 6);
  std::ifstream in(QOR_EXPORTS_FILE);
  ASSERT_TRUE(in) << QOR_EXPORTS_FILE;
  std::set<std::string> have;
  for (std::string l; std::getline(in, l);) {
    bool vector_name = l.rfind("_pex", 0) == 0 || (l.rfind("qor_pex_kernel_", 0) == 0 &&
                                                   (l.ends_with("_ttab") || l.ends_with("_ctab")));
    bool service = l.rfind("_pexGet", 0) == 0 || l.rfind("_pexSet", 0) == 0 ||
                   l.rfind("_pexClear", 0) == 0;
    if (vector_name && !service) have.insert(l);
  }
  std::vector<std::string> missing, extra;
  std::set_difference(want.begin(), want.end(), have.begin(), have.end(),
                      std::back_inserter(missing));
  std::set_difference(have.begin(), have.end(), want.begin(), want.end(),
                      std::back_inserter(extra));
  EXPECT_TRUE(missing.empty()) << missing.size() << " missing, first " << missing[0];
  EXPECT_TRUE(extra.empty()) << extra.size() << " extra, first " << extra[0];
}

// Where an entry point sends the call: the slot address its first load or
// call reads, decoded from the machine code.
const void *slot_of_entry(const void *entry) {
  auto p = static_cast<const uint8_t *>(entry);
  for (int i = 0; i < 48; ++i) {
    // movq disp32(%rip), %rax   or   call *disp32(%rip)
    bool load = p[i] == 0x48 && p[i + 1] == 0x8B && p[i + 2] == 0x05;
    bool call = p[i] == 0xFF && p[i + 1] == 0x15;
    if (load || call) {
      int off = load ? 3 : 2;
      int32_t disp;
      std::memcpy(&disp, p + i + off, 4);
      return p + i + off + 4 + disp;
    }
  }
  return nullptr;
}

TEST_F(VmExports, EveryEntryPointGoesThroughItsSlot) {
  ASSERT_NE(handle, nullptr) << dlerror();
  int checked = 0;
  for (auto &t : expected_tables()) {
    auto *tab = static_cast<const QorPexKernelTable *>(sym("qor_pex_kernel_" + t.id + "_ttab"));
    ASSERT_NE(tab, nullptr) << t.id;
    void *base = sym("_pex" + t.id), *ha = sym("_pex" + t.id + "_HA");
    void *la = sym("_pex" + t.id + la_suffix(t.t)), *ep = sym("_pex" + t.id + ep_suffix(t.t));
    ASSERT_TRUE(base && ha && la && ep) << t.id;
    EXPECT_EQ(base, ha) << t.id;
    EXPECT_NE(la, ha) << t.id;
    EXPECT_NE(ep, ha) << t.id;
    EXPECT_EQ(slot_of_entry(ha), &tab->kernel[1]) << t.id;
    EXPECT_EQ(slot_of_entry(la), &tab->kernel[0]) << t.id;
    EXPECT_EQ(slot_of_entry(ep), &tab->kernel[2]) << t.id;
    // plain entries are exactly "load slot; jump"
    auto code = static_cast<const uint8_t *>(ha);
    bool plain = !is_pack(t.func) && !(t.t == 'z' && t.func == "Powx");
    if (plain) {
      EXPECT_EQ(code[7], 0xFF) << t.id;
      EXPECT_EQ(code[8], 0xE0) << t.id;
    } else if (is_pack(t.func)) {
      // the width argument 1 is loaded into r8d before the call
      const uint8_t mov_r8d_1[] = {0x41, 0xB8, 0x01, 0x00, 0x00, 0x00};
      EXPECT_TRUE(std::search(code, code + 24, mov_r8d_1, mov_r8d_1 + 6) != code + 24) << t.id;
    }
    ++checked;
  }
  EXPECT_EQ(checked, 480);
}

TEST_F(VmExports, CostTableLiesDirectlyBehindKernelTable) {
  ASSERT_NE(handle, nullptr);
  for (auto &t : expected_tables()) {
    auto *tt = static_cast<const uint8_t *>(sym("qor_pex_kernel_" + t.id + "_ttab"));
    auto *ct = static_cast<const uint8_t *>(sym("qor_pex_kernel_" + t.id + "_ctab"));
    ASSERT_TRUE(tt && ct) << t.id;
    EXPECT_EQ(ct, tt + 24) << t.id;
    for (int i = 12; i < 24; ++i) EXPECT_EQ(ct[i], 0) << t.id;
    auto *k = reinterpret_cast<const QorPexKernelTable *>(tt);
    for (int s = 0; s < 3; ++s) {
      EXPECT_NE(k->kernel[s], nullptr) << t.id;
      EXPECT_GT(k->cost[s], 0.0f) << t.id;
    }
  }
}

TEST_F(VmExports, KernelSharingFollowsTheRules) {
  ASSERT_NE(handle, nullptr);
  for (auto &t : expected_tables()) {
    auto *k = static_cast<const QorPexKernelTable *>(sym("qor_pex_kernel_" + t.id + "_ttab"));
    ASSERT_NE(k, nullptr);
    const void *la = k->kernel[0], *ha = k->kernel[1], *ep = k->kernel[2];
    switch (t.share) {
      case ONE:
        EXPECT_TRUE(la == ha && ha == ep) << t.id;
        break;
      case THREE:
        EXPECT_TRUE(la != ha && ha != ep && la != ep) << t.id;
        break;
      case LA_HA:
        EXPECT_TRUE(la == ha && ha != ep) << t.id;
        break;
      case LA_EP:
        EXPECT_TRUE(la == ep && ha != la) << t.id;
        break;
    }
  }
}

TEST_F(VmExports, StridedFormNeverSharesWithContiguous) {
  ASSERT_NE(handle, nullptr);
  for (auto &t : expected_tables()) {
    if (t.id.back() != 'I' || is_pack(t.func)) continue;
    auto *s = static_cast<const QorPexKernelTable *>(sym("qor_pex_kernel_" + t.id + "_ttab"));
    auto *c = static_cast<const QorPexKernelTable *>(
        sym("qor_pex_kernel_" + t.id.substr(0, t.id.size() - 1) + "_ttab"));
    ASSERT_TRUE(s && c);
    for (int i = 0; i < 3; ++i) EXPECT_NE(s->kernel[i], c->kernel[i]) << t.id;
  }
}

TEST_F(VmExports, CostsOfTheFixedRows) {
  ASSERT_NE(handle, nullptr);
  struct Row {
    const char *id;
    float la, ha, ep;
  } rows[] = {
      {"sExp", 4.222f, 5.826f, 2.715f},      {"dLn", 14.248f, 16.719f, 11.504f},
      {"dPow", 38.414f, 41.906f, 21.034f},   {"dSinCos", 26.767f, 32.735f, 19.446f},
      {"sErf", 5.122f, 7.261f, 4.090f},      {"sAdd", 0.59f, 0.59f, 0.59f},
      {"cDiv", 1111.0f, 1111.0f, 1111.0f},   {"cDivI", 1111.0f, 1111.0f, 1111.0f},
      {"cMul", 1111.0f, 1111.0f, 3.979f},    {"cMulI", 1111.0f, 1111.0f, 3.979f},
      {"cMulByConj", 1111.0f, 1111.0f, 3.979f}, {"cMulByConjI", 1111.0f, 1111.0f, 3.979f},
      {"zMul", 1111.0f, 1111.0f, 8.608f},    {"zMulI", 1111.0f, 1111.0f, 8.608f},
      {"zMulByConj", 1111.0f, 1111.0f, 8.611f}, {"zMulByConjI", 1111.0f, 1111.0f, 8.611f},
      {"zDiv", 1111.0f, 1111.0f, 12.22f},    {"zDivI", 1111.0f, 1111.0f, 12.22f},
  };
  for (auto &r : rows) {
    auto *c = static_cast<const float *>(sym(std::string("qor_pex_kernel_") + r.id + "_ctab"));
    ASSERT_NE(c, nullptr) << r.id;
    EXPECT_EQ(c[0], r.la) << r.id;
    EXPECT_EQ(c[1], r.ha) << r.id;
    EXPECT_EQ(c[2], r.ep) << r.id;
  }
  for (auto &t : expected_tables()) {
    if (!is_pack(t.func)) continue;
    auto *c = static_cast<const float *>(sym("qor_pex_kernel_" + t.id + "_ctab"));
    for (int s = 0; s < 3; ++s) EXPECT_EQ(c[s], 1111.0f) << t.id;
  }
}

// The entry points run the slot: through the shared library, the sDiv
// entries must agree with calling the table slots directly, and the three
// slots are three different kernels.
TEST_F(VmExports, EntriesRunTheSlotKernels) {
  ASSERT_NE(handle, nullptr);
  using Div = void (*)(int32_t, const float *, const float *, float *);
  auto *tab = static_cast<const QorPexKernelTable *>(sym("qor_pex_kernel_sDiv_ttab"));
  const char *names[3] = {"_pexsDiv_21", "_pexsDiv", "_pexsDiv_11"};
  float a[7] = {1, 2, 3, 4, 5, 6, 7}, b[7] = {3, 7, 11, 13, 17, 19, 23};
  for (int s = 0; s < 3; ++s) {
    float r1[7], r2[7];
    reinterpret_cast<Div>(sym(names[s]))(7, a, b, r1);
    reinterpret_cast<Div>(tab->kernel[s])(7, a, b, r2);
    EXPECT_EQ(0, std::memcmp(r1, r2, sizeof r1)) << names[s];
    for (int i = 0; i < 7; ++i) EXPECT_NEAR(r1[i], a[i] / b[i], 4e-7 * a[i] / b[i]);
  }
}

}  // namespace
