// Accuracy harness: input generation, candidate evaluation, MPFR comparison.
#include <strings.h>
#include "harness.h"

#include <dlfcn.h>
#include <mpfr.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <random>

#include "candidates.h"
#include "reference.h"

namespace qor::accuracy {

// ---- catalogue ------------------------------------------------------------------

const std::vector<FunctionInfo> &functions() {
  static const std::vector<FunctionInfo> list = [] {
    std::vector<FunctionInfo> v;
    std::map<std::string, FunctionInfo> m;
    auto real = [&](const char *n, Shape s) {
      auto &f = m[n];
      f.name = n;
      f.real_shape = s;
      f.has_real = true;
    };
    auto cplx = [&](const char *n, Shape s) {
      auto &f = m[n];
      f.name = n;
      f.complex_shape = s;
      f.has_complex = true;
    };
    for (const char *n :
         {"Acos", "Acosh", "Acospi", "Asin", "Asinh", "Asinpi", "Atan", "Atanh", "Atanpi",
          "CdfNorm", "CdfNormInv", "Cos", "Cosd", "Cosh", "Cospi", "Erf", "ErfInv", "Erfc",
          "ErfcInv", "Erfcx", "Exp", "Exp10", "Exp2", "ExpInt1", "Expm1", "I0", "I1", "InvCbrt",
          "J0", "J1", "LGamma", "Ln", "Log10", "Log1p", "Log2", "Logb", "Pow2o3", "Pow3o2", "Sin",
          "Sind", "Sinh", "Sinpi", "Tan", "Tand", "Tanh", "Tanpi", "TGamma", "Y0", "Y1"})
      real(n, Shape::R1);
    for (const char *n : {"Atan2", "Atan2pi", "Hypot", "Pow", "Powr"}) real(n, Shape::R2);
    real("Powx", Shape::RX);
    real("SinCos", Shape::RSC);
    real("SinCospi", Shape::RSC);
    real("Jn", Shape::RN);
    real("Yn", Shape::RN);
    for (const char *n : {"Acos", "Acosh", "Asin", "Asinh", "Atan", "Atanh", "Conj", "Cos", "Cosh",
                          "Exp", "Ln", "Log10", "Sin", "Sinh", "Sqrt", "Tan", "Tanh"})
      cplx(n, Shape::C1);
    for (const char *n : {"Add", "Sub", "Mul", "MulByConj", "Div", "Pow"}) cplx(n, Shape::C2);
    cplx("Powx", Shape::CX);
    cplx("Abs", Shape::CR);
    cplx("Arg", Shape::CR);
    cplx("CIS", Shape::RC);
    for (auto &kv : m) v.push_back(kv.second);
    return v;
  }();
  return list;
}

const FunctionInfo *find_function(const std::string &name) {
  for (const auto &f : functions())
    if (strcasecmp(name.c_str(), f.name) == 0) return &f;  // names match in any case
  return nullptr;
}

double slot_bound(char type, int slot) {
  const bool single = type == 's' || type == 'c';
  if (slot == 1) return 1.0;
  if (slot == 0) return 4.0;
  return single ? std::ldexp(1.0, 24 - 11) : std::ldexp(1.0, 53 - 26);
}

double Report::bound() const { return slot_bound(type, slot); }
bool Report::within_bound() const {
  return error.empty() && special_mismatch == 0 && code_mismatch == 0 && layout_damage == 0 &&
         max_ulp <= bound();
}

std::string entry_name(const FunctionInfo &f, char type, int slot, bool strided) {
  const bool single = type == 's' || type == 'c';
  static const char *suffix_s[3] = {"_21", "_HA", "_11"};
  static const char *suffix_d[3] = {"_50", "_HA", "_26"};
  return std::string("_pex") + type + f.name + (strided ? "I" : "") +
         (single ? suffix_s[slot] : suffix_d[slot]);
}

namespace {

// ---- sampling hints -----------------------------------------------------------

struct Hint {
  double lo, hi;             // interesting interval of the (first) argument
  std::vector<double> hard;  // points near which errors concentrate
  double blo = -10, bhi = 10;  // second argument
};

const Hint &hint_for(const std::string &n) {
  static const std::map<std::string, Hint> h = {
      {"Acos", {-1, 1, {1, -1, 0.5, -0.5}}},
      {"Asin", {-1, 1, {1, -1, 0.5}}},
      {"Acospi", {-1, 1, {1, -1, 0.5}}},
      {"Asinpi", {-1, 1, {1, -1, 0.5}}},
      {"Atan", {-10, 10, {0, 1}}},
      {"Atanpi", {-10, 10, {0, 1}}},
      {"Acosh", {1, 10, {1}}},
      {"Asinh", {-10, 10, {0}}},
      {"Atanh", {-1, 1, {1, -1, 0}}},
      {"Cos", {-10, 10, {1.5707963267948966, 4.71238898038469, 355, 1e22, 5.2e8}}},
      {"Sin", {-10, 10, {3.141592653589793, 6.283185307179586, 355, 1e22, 1.6e9}}},
      {"Tan", {-10, 10, {1.5707963267948966, 3.141592653589793, 1e22, 11}}},
      {"SinCos", {-10, 10, {3.141592653589793, 1.5707963267948966, 1e22}}},
      {"Sinpi", {-4, 4, {1, 2, 0.5, 100, 3.5}}},
      {"Cospi", {-4, 4, {0.5, 1.5, 1, 99.5}}},
      {"Tanpi", {-4, 4, {0.5, 1, 0.25, 7.5}}},
      {"SinCospi", {-4, 4, {0.5, 1, 2}}},
      {"Sind", {-720, 720, {180, 360, 30, 90, 1e10}}},
      {"Cosd", {-720, 720, {90, 270, 60, 180}}},
      {"Tand", {-720, 720, {90, 180, 45, 270}}},
      {"Sinh", {-20, 20, {710.4758600739439, 89.41598629223294, 0}}},
      {"Cosh", {-20, 20, {710.4758600739439, 89.41598629223294}}},
      {"Tanh", {-20, 20, {0, 19}}},
      {"Exp", {-20, 20, {709.782712893384, -708.3964185322641, -745.1332191019411, 88.72283172607422,
                         -87.33654475055310, -103.97208}}},
      {"Exp2", {-20, 20, {1024, -1022, -1074, 128, -126, -149}}},
      {"Exp10", {-20, 20, {308.2547155599167, -307.6526555685888, -323.3, 38.53, -37.93, -44.85}}},
      {"Expm1", {-5, 5, {0, 709.782712893384, 88.72283172607422, -1e-5}}},
      {"Ln", {0, 4, {1, 0}}},
      {"Log2", {0, 4, {1}}},
      {"Log10", {0, 20, {1, 10}}},
      {"Log1p", {-1, 4, {-1, 0}}},
      {"Logb", {-100, 100, {1, 2}}},
      {"Erf", {-6, 6, {0, 0.5, 2}}},
      {"Erfc", {-6, 30, {26.55, 10.05, 27.2, 0}}},
      {"Erfcx", {-30, 50, {-26.6, -9.3, 0, 100, 1e8}}},
      {"CdfNorm", {-40, 10, {-37.5, -38.4, -14.1, 0}}},
      // 0.85 and 0.9990343066500626 (w = -ln(1 - x^2) = 6.25): where the
      // SIMD kernels change polynomial
      {"ErfInv", {-1, 1, {1, -1, 0, 0.5, 0.85, -0.85, 0.9990343066500626, -0.9990343066500626}}},
      {"ErfcInv", {0, 2, {0, 2, 1, 0.5, 1.5}}},
      {"CdfNormInv", {0, 1, {0, 1, 0.5, 0.25}}},
      {"LGamma", {-10, 20, {1, 2, -2.457024738220800, -2.747682383831727, -3.143632178608006,
                            -3.955294284858598, -4.039361839740536, -4.998702538822062,
                            -5.001314057799199, -5.999888574483451, 2.55e305}}},
      {"TGamma", {-10, 20, {171.6243769563027, 35.04, -0.5, -1, -2, -170.5, -184.5, 1.4616321449683622}}},
      {"ExpInt1", {0, 10, {0, 0.3725, 700, 740, 100}}},
      {"I0", {-20, 20, {713.98, 91.9, 0, 30}}},
      {"I1", {-20, 20, {713.98, 91.9, 0, 30}}},
      {"J0", {0, 40, {2.404825557695773, 5.520078110286311, 8.653727912911012, 11.79153443901428,
                      14.93091770848779, 30.634606468431976}}},
      {"J1", {0, 40, {3.831705970207512, 7.015586669815619, 10.17346813506272, 0}}},
      {"Y0", {0, 40, {0.8935769662791675, 3.957678419314858, 7.086051060301773, 0}}},
      {"Y1", {0, 40, {2.197141326031017, 5.429681040794135, 8.596005868331169, 0}}},
      {"Jn", {0, 40, {6.380161895923984, 9.761023129981670, 0}}},
      {"Yn", {0, 40, {0, 4.5}}},
      {"InvCbrt", {-10, 10, {0}}},
      {"Pow2o3", {-10, 10, {0}}},
      {"Pow3o2", {0, 10, {0}}},
      {"Pow", {0, 4, {1, 0}, -60, 60}},
      {"Powx", {0, 4, {1, 0}, -60, 60}},
      {"Powr", {0, 4, {1, 0}, -60, 60}},
      {"Hypot", {-10, 10, {0}, -10, 10}},
      {"Atan2", {-10, 10, {0}, -10, 10}},
      {"Atan2pi", {-10, 10, {0}, -10, 10}},
  };
  static const Hint generic{-10, 10, {}};
  auto it = h.find(n);
  return it == h.end() ? generic : it->second;
}

template <class T>
struct Gen {
  std::mt19937_64 rng;
  explicit Gen(uint64_t seed) : rng(seed) {}
  double u01() { return std::uniform_real_distribution<double>(0.0, 1.0)(rng); }
  bool coin() { return rng() & 1; }
  // log-uniform over every finite magnitude of T, random sign.
  T full() {
    const int emin = std::numeric_limits<T>::min_exponent - std::numeric_limits<T>::digits;
    const int emax = std::numeric_limits<T>::max_exponent;
    const double e = emin + u01() * (emax - emin);
    T v = static_cast<T>(std::ldexp(1.0 + u01(), static_cast<int>(std::floor(e)) - 1));
    if (std::isinf(v)) v = std::numeric_limits<T>::max();
    return coin() ? -v : v;
  }
  T uniform(double lo, double hi) { return static_cast<T>(lo + (hi - lo) * u01()); }
  // Close to h: relative offsets from 2^-1 down to a few ulps, both sides, or
  // a few ulps away by stepping.
  T near(double h) {
    if (coin()) {
      T v = static_cast<T>(h);
      const int steps = static_cast<int>(rng() % 64);
      const T dir = coin() ? std::numeric_limits<T>::infinity() : -std::numeric_limits<T>::infinity();
      for (int i = 0; i < steps; ++i) v = std::nextafter(v, dir);
      return v;
    }
    const int k = 1 + static_cast<int>(rng() % (std::numeric_limits<T>::digits + 4));
    const double off = std::ldexp(u01(), -k);
    if (h == 0) return static_cast<T>(coin() ? off : -off);
    return static_cast<T>(h * (1 + (coin() ? off : -off)));
  }
  T sample(const Hint &hint, bool second) {
    const double r = u01();
    if (r < 0.3) return full();
    if (second || hint.hard.empty() || r < 0.7)
      return second ? uniform(hint.blo, hint.bhi) : uniform(hint.lo, hint.hi);
    return near(hint.hard[rng() % hint.hard.size()]);
  }
  // complex component: moderate magnitudes mostly, some from the full range.
  T component() {
    const double r = u01();
    if (r < 0.15) return full();
    if (r < 0.5) return uniform(-4, 4);
    const T v = static_cast<T>(std::ldexp(1.0 + u01(), static_cast<int>(rng() % 40) - 20));
    return coin() ? -v : v;
  }
};

template <class T>
std::vector<T> real_specials(const Hint &hint) {
  using L = std::numeric_limits<T>;
  std::vector<T> v = {T(0), -T(0), L::infinity(), -L::infinity(), L::quiet_NaN(), L::denorm_min(),
                      -L::denorm_min(), L::min(), -L::min(), L::max(), -L::max(), T(1), T(-1),
                      T(0.5), T(-0.5), T(2), T(-2), T(3), T(10), T(-10), T(100)};
  for (double h : hint.hard) {
    T x = static_cast<T>(h);
    if (!std::isfinite(x)) continue;
    v.push_back(x);
    T up = x, dn = x;
    for (int i = 0; i < 3; ++i) {
      up = std::nextafter(up, L::infinity());
      dn = std::nextafter(dn, -L::infinity());
      v.push_back(up);
      v.push_back(dn);
    }
  }
  return v;
}

// ---- MPFR comparison ----------------------------------------------------------------

template <class T>
constexpr int kDigits = std::numeric_limits<T>::digits;
template <class T>
constexpr int kEminExp = std::numeric_limits<T>::min_exponent;  // MPFR exponent of min normal

template <class T>
T round_to(mpfr_srcptr x) {
  if constexpr (std::is_same_v<T, float>) return mpfr_get_flt(x, MPFR_RNDN);
  else return mpfr_get_d(x, MPFR_RNDN);
}

// ulps between computed c and exact e, measured in ulps of the magnitude
// `scale` (normally e itself).
template <class T>
double ulp_error(T c, mpfr_srcptr e, mpfr_srcptr scale) {
  mpfr_t d;
  mpfr_init2(d, mpfr_get_prec(e) + 8);
  if (std::isinf(c)) {
    mpfr_set_ui_2exp(d, 1, std::numeric_limits<T>::max_exponent, MPFR_RNDN);
    if (c < 0) mpfr_neg(d, d, MPFR_RNDN);
  } else {
    mpfr_set_d(d, static_cast<double>(c), MPFR_RNDN);
  }
  mpfr_sub(d, d, e, MPFR_RNDN);
  long ex = mpfr_zero_p(scale) ? kEminExp<T> : mpfr_get_exp(scale);
  if (ex < kEminExp<T>) ex = kEminExp<T>;
  mpfr_mul_2si(d, d, -(ex - kDigits<T>), MPFR_RNDN);
  const double r = std::fabs(mpfr_get_d(d, MPFR_RNDN));
  mpfr_clear(d);
  return r;
}

struct Mp {
  mpfr_t v;
  explicit Mp(mpfr_prec_t p = 64) { mpfr_init2(v, p); }
  ~Mp() { mpfr_clear(v); }
  Mp(const Mp &) = delete;
  Mp &operator=(const Mp &) = delete;
};

// Evaluates the reference with precision escalation; leaves the result in
// o0, o1 (precision may grow).
// Set when the last reference evaluation left MPFR's own exponent range (its
// zero or infinity then stands for a nonzero finite value).
bool g_ref_underflow = false, g_ref_overflow = false;

template <class T>
void reference(RefFn ref, bool exact, const T *in, int nin, int order, Mp &o0, Mp &o1) {
  mpfr_clear_flags();
  struct Flags {
    ~Flags() {
      g_ref_underflow = mpfr_underflow_p();
      g_ref_overflow = mpfr_overflow_p();
    }
  } flags;
  Mp a[4];
  for (int i = 0; i < nin; ++i) mpfr_set_d(a[i].v, static_cast<double>(in[i]), MPFR_RNDN);
  mpfr_srcptr args[4] = {a[0].v, a[1].v, a[2].v, a[3].v};
  mpfr_prec_t p = 2 * kDigits<T> + 40;
  mpfr_set_prec(o0.v, p);
  mpfr_set_prec(o1.v, p);
  ref(o0.v, o1.v, args, order);
  if (exact) return;
  for (; p <= 8192; p *= 2) {
    Mp h0(2 * p), h1(2 * p);
    ref(h0.v, h1.v, args, order);
    const T x0 = round_to<T>(o0.v), y0 = round_to<T>(h0.v);
    const T x1 = round_to<T>(o1.v), y1 = round_to<T>(h1.v);
    const bool same0 = (std::isnan(x0) && std::isnan(y0)) || x0 == y0;
    const bool same1 = (std::isnan(x1) && std::isnan(y1)) || x1 == y1;
    mpfr_set_prec(o0.v, 2 * p);
    mpfr_set_prec(o1.v, 2 * p);
    mpfr_set(o0.v, h0.v, MPFR_RNDN);
    mpfr_set(o1.v, h1.v, MPFR_RNDN);
    if (same0 && same1) return;
  }
}

// Compares one real component; returns false on a special mismatch.
// Signs of zero are compared only for finite inputs (the limits of odd
// functions at infinity are signed differently by different conventions).
bool g_finite_in = true;

template <class T>
bool compare_real(T c, mpfr_srcptr e, mpfr_srcptr scale, double &err, bool &cr) {
  const T re = round_to<T>(e);
  err = 0;
  cr = false;
  if (mpfr_nan_p(e) || std::isnan(c)) {
    cr = mpfr_nan_p(e) && std::isnan(c);
    return cr;
  }
  if (mpfr_inf_p(e)) {
    cr = std::isinf(c) && (c > 0) == (mpfr_sgn(e) > 0);
    return cr;
  }
  if (c == re) {
    cr = true;
    if (c == 0 && std::signbit(c) != std::signbit(re) && mpfr_zero_p(e) && g_finite_in) return false;
    if (std::isinf(c)) return true;
  }
  err = ulp_error<T>(c, e, scale);
  return true;
}

// Code the per-element routine should report for the exact value e.
template <class T>
bool code_ok(int code, mpfr_srcptr e, bool nan_in, bool finite_in) {
  if (mpfr_nan_p(e)) return nan_in ? code == 0 : code == 1;
  if (mpfr_zero_p(e) && g_ref_underflow && finite_in) return code == 4;
  if (mpfr_inf_p(e) && g_ref_overflow && finite_in) return code == 3;
  if (mpfr_inf_p(e)) return finite_in ? (code == 2 || code == 3) : code == 0;
  const T r = round_to<T>(e);
  if (std::isinf(r)) return code == 3;
  if (!mpfr_zero_p(e) && std::fabs(r) < std::numeric_limits<T>::min()) return code == 4 || code == 0;
  return code == 0;
}

// ---- library candidates ----------------------------------------------------------------

struct Library {
  void *handle = nullptr;
  ~Library() {
    if (handle) dlclose(handle);
  }
};

struct CF {
  float re, im;
};
struct CD {
  double re, im;
};

// Runs an entry point over n elements.  in: n tuples of nin values; out: n
// tuples of nout values.  Strided form: arguments at stride 2, results at
// stride 3 (in elements), gaps filled with a sentinel and checked.
template <class T>
long call_library(void *fn, Shape shape, bool strided, int n, const std::vector<T> &in, int nin,
                  std::vector<T> &out, int nout, int order) {
  const bool cplx = shape == Shape::C1 || shape == Shape::C2 || shape == Shape::CX ||
                    shape == Shape::CR || shape == Shape::RC;
  // element width in T units of each argument/result vector
  const int win = cplx && shape != Shape::RC ? 2 : 1;
  const int wout = cplx && shape != Shape::CR ? 2 : 1;
  const int nargs = cplx ? nin / win : nin;
  const int nres = cplx ? nout / wout : nout;
  const int sa = strided ? 2 : 1, sr = strided ? 3 : 1;
  T sentinel;
  {
    const uint64_t bits = 0x7ff4dead7ff4deadULL;
    std::memcpy(&sentinel, &bits, sizeof(T));
  }
  std::vector<std::vector<T>> A(nargs, std::vector<T>(static_cast<size_t>(n) * sa * win, sentinel));
  std::vector<std::vector<T>> R(nres, std::vector<T>(static_cast<size_t>(n) * sr * wout, sentinel));
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < nargs; ++k)
      for (int w = 0; w < win; ++w) A[k][(size_t)i * sa * win + w] = in[(size_t)i * nin + k * win + w];
  using I = int;
  const bool is_x = shape == Shape::RX || shape == Shape::CX;
  // scalar second argument (Powx): the first element's value
  if (!strided) {
    switch (shape) {
      case Shape::R1: case Shape::C1: case Shape::CR: case Shape::RC:
        reinterpret_cast<void (*)(I, const T *, T *)>(fn)(n, A[0].data(), R[0].data());
        break;
      case Shape::R2: case Shape::C2:
        reinterpret_cast<void (*)(I, const T *, const T *, T *)>(fn)(n, A[0].data(), A[1].data(), R[0].data());
        break;
      case Shape::RSC:
        reinterpret_cast<void (*)(I, const T *, T *, T *)>(fn)(n, A[0].data(), R[0].data(), R[1].data());
        break;
      case Shape::RN:
        reinterpret_cast<void (*)(I, const T *, I, T *)>(fn)(n, A[0].data(), order, R[0].data());
        break;
      default: break;
    }
  } else {
    switch (shape) {
      case Shape::R1: case Shape::C1: case Shape::CR: case Shape::RC:
        reinterpret_cast<void (*)(I, const T *, I, T *, I)>(fn)(n, A[0].data(), sa, R[0].data(), sr);
        break;
      case Shape::R2: case Shape::C2:
        reinterpret_cast<void (*)(I, const T *, I, const T *, I, T *, I)>(fn)(
            n, A[0].data(), sa, A[1].data(), sa, R[0].data(), sr);
        break;
      case Shape::RSC:
        reinterpret_cast<void (*)(I, const T *, I, T *, I, T *, I)>(fn)(n, A[0].data(), sa, R[0].data(), sr,
                                                                         R[1].data(), sr);
        break;
      case Shape::RN:
        reinterpret_cast<void (*)(I, const T *, I, I, T *, I)>(fn)(n, A[0].data(), sa, order, R[0].data(), sr);
        break;
      default: break;
    }
  }
  if (is_x) {
    const T *b = &in[nin - win];  // scalar: taken from the first tuple
    if (shape == Shape::RX) {
      if (!strided)
        reinterpret_cast<void (*)(I, const T *, T, T *)>(fn)(n, A[0].data(), b[0], R[0].data());
      else
        reinterpret_cast<void (*)(I, const T *, I, T, T *, I)>(fn)(n, A[0].data(), sa, b[0], R[0].data(), sr);
    } else if constexpr (std::is_same_v<T, float>) {
      const CF s{b[0], b[1]};
      if (!strided)
        reinterpret_cast<void (*)(I, const T *, CF, T *)>(fn)(n, A[0].data(), s, R[0].data());
      else
        reinterpret_cast<void (*)(I, const T *, I, CF, T *, I)>(fn)(n, A[0].data(), sa, s, R[0].data(), sr);
    } else {
      const CD s{b[0], b[1]};
      if (!strided)
        reinterpret_cast<void (*)(I, const T *, const CD *, T *)>(fn)(n, A[0].data(), &s, R[0].data());
      else
        reinterpret_cast<void (*)(I, const T *, I, const CD *, T *, I)>(fn)(n, A[0].data(), sa, &s,
                                                                             R[0].data(), sr);
    }
  }
  long damage = 0;
  for (int k = 0; k < nres; ++k)
    for (size_t j = 0; j < R[k].size(); ++j) {
      const size_t elem = j / wout;
      if (elem % sr == 0) {
        const size_t i = elem / sr;
        out[i * nout + k * wout + j % wout] = R[k][j];
      } else if (std::memcmp(&R[k][j], &sentinel, sizeof(T)) != 0) {
        ++damage;
      }
    }
  for (int k = 0; k < nargs; ++k)
    for (size_t j = 0; j < A[k].size(); ++j) {
      const size_t elem = j / win;
      if (elem % sa != 0 && std::memcmp(&A[k][j], &sentinel, sizeof(T)) != 0) ++damage;
    }
  return damage;
}

int n_inputs(Shape s) {
  switch (s) {
    case Shape::R1: case Shape::RSC: case Shape::RN: case Shape::RC: return 1;
    case Shape::R2: case Shape::RX: case Shape::C1: case Shape::CR: return 2;
    default: return 4;
  }
}
int n_outputs(Shape s) {
  switch (s) {
    case Shape::R1: case Shape::R2: case Shape::RX: case Shape::RN: case Shape::CR: return 1;
    default: return 2;
  }
}

template <class T>
void generate(const FunctionInfo &f, Shape shape, const Options &opt, std::vector<T> &in) {
  const int nin = n_inputs(shape);
  const Hint &hint = hint_for(f.name);
  Gen<T> g(opt.seed);
  const bool cplx = !(shape == Shape::R1 || shape == Shape::R2 || shape == Shape::RX ||
                      shape == Shape::RSC || shape == Shape::RN);
  if (!cplx || shape == Shape::RC) {
    const auto sp = real_specials<T>(hint);
    if (nin == 1) {
      for (T x : sp) in.push_back(x);
    } else {
      const T s2[] = {T(0), -T(0), std::numeric_limits<T>::infinity(), -std::numeric_limits<T>::infinity(),
                      std::numeric_limits<T>::quiet_NaN(), T(1), T(-1), T(2), T(0.5), T(-3), T(3)};
      for (T x : s2)
        for (T y : s2) {
          in.push_back(x);
          in.push_back(y);
        }
    }
    for (long i = 0; i < opt.samples; ++i) {
      if (shape == Shape::RC) {
        in.push_back(g.sample(hint, false));
        continue;
      }
      for (int k = 0; k < nin; ++k) in.push_back(g.sample(hint, k == 1));
    }
    return;
  }
  // complex: finite values only (special values are table-tested).
  const T cs[] = {T(0), T(1), T(-1), T(0.5), T(2), T(-2), T(1e-3)};
  for (T a : cs)
    for (T b : cs) {
      in.push_back(a);
      in.push_back(b);
      if (nin == 4) {
        in.push_back(T(0.75));
        in.push_back(b);
      }
    }
  for (long i = 0; i < opt.samples; ++i)
    for (int k = 0; k < nin; ++k) in.push_back(g.component());
  if ((shape == Shape::C2 && std::string(f.name) == "Pow") || shape == Shape::CX) {
    // keep exponents moderate so that most results are representable
    for (size_t i = 0; i < in.size(); i += 4) {
      in[i + 2] = static_cast<T>(std::fmod(static_cast<double>(in[i + 2]), 8.0));
      in[i + 3] = static_cast<T>(std::fmod(static_cast<double>(in[i + 3]), 8.0));
    }
  }
}

template <class T>
Report run(const FunctionInfo &f, const Options &opt) {
  Report rep;
  rep.slot = opt.slot;
  rep.type = opt.type;
  const bool cplx = opt.type == 'c' || opt.type == 'z';
  if ((cplx && !f.has_complex) || (!cplx && !f.has_real)) {
    rep.error = std::string("no ") + opt.type + " form of " + f.name;
    return rep;
  }
  const Shape shape = cplx ? f.complex_shape : f.real_shape;
  const RefFn ref = find_reference(f.name, cplx);
  const bool exact = reference_is_exact(f.name, cplx);
  if (!ref) {
    rep.error = std::string("no reference for ") + f.name;
    return rep;
  }
  const int nin = n_inputs(shape), nout = n_outputs(shape);
  std::vector<T> in;
  if (opt.exhaustive) {
    if (opt.type != 's' || nin != 1) {
      rep.error = "exhaustive mode covers one-argument single-precision functions";
      return rep;
    }
  } else {
    generate<T>(f, shape, opt, in);
  }

  // candidate
  ElemSet es;
  void *fn = nullptr;
  Library lib;
  static const char *slot_names[3] = {"LA", "HA", "EP"};
  if (opt.library) {
    rep.entry = entry_name(f, opt.type, opt.slot, opt.strided);
    lib.handle = dlopen(opt.library_path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!lib.handle) {
      rep.error = std::string("cannot load ") + opt.library_path + ": " + dlerror();
      return rep;
    }
    fn = dlsym(lib.handle, rep.entry.c_str());
    if (!fn) {
      rep.error = "entry point " + rep.entry + " not found";
      return rep;
    }
  } else {
    rep.entry = std::string("elem v") + opt.type + f.name + " " + slot_names[opt.slot];
    if (!find_elem(f.name, cplx, es)) {
      rep.error = std::string("no per-element routine for ") + f.name;
      return rep;
    }
  }
  ElemFn<T> efn;
  if constexpr (std::is_same_v<T, float>) efn = es.f[opt.slot];
  else efn = es.d[opt.slot];

  Mp o0, o1, mag(64);
  auto process = [&](const std::vector<T> &ins, size_t count) {
    std::vector<T> outs(count * nout);
    std::vector<int> codes(count, 0);
    if (opt.library) {
      rep.layout_damage += call_library<T>(fn, shape, opt.strided, static_cast<int>(count), ins, nin, outs,
                                           nout, opt.order);
    } else {
      for (size_t i = 0; i < count; ++i) efn(&ins[i * nin], opt.order, &outs[i * nout], codes[i]);
    }
    for (size_t i = 0; i < count; ++i) {
      const T *x = &ins[i * nin];
      const T *c = &outs[i * nout];
      reference<T>(ref, exact, x, nin, opt.order, o0, o1);
      bool nan_in = false, finite_in = true;
      for (int k = 0; k < nin; ++k) {
        nan_in |= std::isnan(x[k]);
        finite_in &= std::isfinite(x[k]);
      }
      g_finite_in = finite_in && !cplx;  // complex zero signs are convention-bound
      double err = 0, e2 = 0;
      bool cr = false, cr2 = true, ok = true;
      if (!cplx) {
        ok = compare_real<T>(c[0], o0.v, o0.v, err, cr);
        if (nout == 2) ok &= compare_real<T>(c[1], o1.v, o1.v, e2, cr2);
        if (!opt.library) {
          bool good = code_ok<T>(codes[i], o0.v, nan_in, finite_in);
          if (nout == 2) good = good || code_ok<T>(codes[i], o1.v, nan_in, finite_in);
          if (!good) {
            ++rep.code_mismatch;
            if (!opt.quiet && rep.code_mismatch <= 5)
              std::fprintf(stderr, "code %d for input %a -> %a\n", codes[i], (double)x[0], (double)c[0]);
          }
        }
      } else if (nout == 1) {
        ok = compare_real<T>(c[0], o0.v, o0.v, err, cr);
      } else {
        // modulus-floored componentwise error
        mpfr_set_prec(mag.v, mpfr_get_prec(o0.v));
        mpfr_hypot(mag.v, o0.v, o1.v, MPFR_RNDN);
        mpfr_mul_2si(mag.v, mag.v, -kDigits<T>, MPFR_RNDN);
        Mp s0(mpfr_get_prec(o0.v)), s1(mpfr_get_prec(o0.v));
        if (mpfr_cmpabs(o0.v, mag.v) >= 0 || mpfr_nan_p(mag.v)) mpfr_set(s0.v, o0.v, MPFR_RNDN);
        else mpfr_set(s0.v, mag.v, MPFR_RNDN);
        if (mpfr_cmpabs(o1.v, mag.v) >= 0 || mpfr_nan_p(mag.v)) mpfr_set(s1.v, o1.v, MPFR_RNDN);
        else mpfr_set(s1.v, mag.v, MPFR_RNDN);
        ok = compare_real<T>(c[0], o0.v, s0.v, err, cr);
        ok &= compare_real<T>(c[1], o1.v, s1.v, e2, cr2);
      }
      ++rep.count;
      if (!ok) {
        ++rep.special_mismatch;
        if (!opt.quiet && rep.special_mismatch <= 5)
          std::fprintf(stderr, "special mismatch: input %a %a -> %a %a, exact %a %a\n", (double)x[0],
                       nin > 1 ? (double)x[1] : 0.0, (double)c[0], nout > 1 ? (double)c[1] : 0.0,
                       mpfr_get_d(o0.v, MPFR_RNDN), nout > 1 ? mpfr_get_d(o1.v, MPFR_RNDN) : 0.0);
        continue;
      }
      if (cr && cr2) ++rep.correctly_rounded;
      const double e = std::max(err, e2);
      if (e > rep.max_ulp) {
        rep.max_ulp = e;
        for (int k = 0; k < nin; ++k) rep.worst.in[k] = static_cast<double>(x[k]);
        for (int k = 0; k < nout; ++k) rep.worst.out[k] = static_cast<double>(c[k]);
        rep.worst.exact[0] = mpfr_get_d(o0.v, MPFR_RNDN);
        rep.worst.exact[1] = nout > 1 ? mpfr_get_d(o1.v, MPFR_RNDN) : 0;
      }
    }
  };

  if (opt.exhaustive) {
    const size_t chunk = 1 << 16;
    std::vector<T> buf(chunk);
    for (uint64_t base = 0; base < (1ULL << 32); base += chunk) {
      for (size_t j = 0; j < chunk; ++j) {
        const uint32_t bits = static_cast<uint32_t>(base + j);
        std::memcpy(&buf[j], &bits, 4);
      }
      process(buf, chunk);
      if (!opt.quiet && (base & 0x0FFFFFFF) == 0)
        std::fprintf(stderr, "  %3.0f%%  max %.3f ulp\n", 100.0 * base / 4294967296.0, rep.max_ulp);
    }
  } else if (shape == Shape::RX || shape == Shape::CX) {
    // one call per group of 64 elements sharing a scalar
    const size_t groups = (in.size() / nin + 63) / 64;
    for (size_t gi = 0; gi < groups; ++gi) {
      const size_t first = gi * 64, cnt = std::min<size_t>(64, in.size() / nin - first);
      std::vector<T> part(in.begin() + first * nin, in.begin() + (first + cnt) * nin);
      for (size_t i = 0; i < cnt; ++i)
        for (int w = nin / 2; w < nin; ++w) part[i * nin + w] = part[w];
      process(part, cnt);
    }
  } else {
    process(in, in.size() / nin);
  }
  return rep;
}

}  // namespace

Report measure(const FunctionInfo &f, const Options &opt) {
  init_reference();
  if (opt.slot < 0 || opt.slot > 2) {
    Report r;
    r.error = "slot must be 0 (LA), 1 (HA) or 2 (EP)";
    return r;
  }
  switch (opt.type) {
    case 's': case 'c': return run<float>(f, opt);
    case 'd': case 'z': return run<double>(f, opt);
    default: {
      Report r;
      r.error = "type must be s, d, c or z";
      return r;
    }
  }
}

std::string format_report(const FunctionInfo &f, const Report &r, bool verbose) {
  char buf[512];
  if (!r.error.empty()) {
    std::snprintf(buf, sizeof buf, "%-10s %c %s  error: %s", f.name, r.type,
                  r.slot == 0 ? "LA" : r.slot == 1 ? "HA" : "EP", r.error.c_str());
    return buf;
  }
  const double share = r.count ? 100.0 * r.correctly_rounded / r.count : 0.0;
  std::snprintf(buf, sizeof buf, "%-10s %c %s  n=%-7ld max %.3f ulp (bound %g)  correctly rounded %.2f%%%s%s%s  %s",
                f.name, r.type, r.slot == 0 ? "LA" : r.slot == 1 ? "HA" : "EP", r.count, r.max_ulp,
                r.bound(), share, r.special_mismatch ? "  SPECIAL MISMATCHES" : "",
                r.code_mismatch ? "  CODE MISMATCHES" : "", r.layout_damage ? "  LAYOUT DAMAGE" : "",
                r.within_bound() ? "ok" : "FAIL");
  std::string s = buf;
  if (verbose) {
    std::snprintf(buf, sizeof buf,
                  "\n  measured      %s\n  special mismatches %ld, code mismatches %ld, layout damage %ld"
                  "\n  worst input   %.17g %.17g %.17g %.17g\n  computed      %.17g %.17g\n  exact         %.17g %.17g",
                  r.entry.c_str(), r.special_mismatch, r.code_mismatch, r.layout_damage, r.worst.in[0],
                  r.worst.in[1], r.worst.in[2], r.worst.in[3], r.worst.out[0], r.worst.out[1], r.worst.exact[0],
                  r.worst.exact[1]);
    s += buf;
  }
  return s;
}

}  // namespace qor::accuracy
