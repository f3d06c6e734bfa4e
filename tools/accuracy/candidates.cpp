// Adapters from the per-element routines to the harness's uniform signature.
#include "candidates.h"

#include <complex>
#include <unordered_map>

#include "vm/kernels/elem/elem.h"

namespace qor::accuracy {
namespace {

namespace e = qor::vm::elem;

template <class F, class T, int S>
void r1(const T *in, int, T *out, int &code) {
  out[0] = F::template eval<T, S>(in[0], code);
}
template <class F, class T, int S>
void r2(const T *in, int, T *out, int &code) {
  out[0] = F::template eval<T, S>(in[0], in[1], code);
}
template <class F, class T, int S>
void rsc(const T *in, int, T *out, int &code) {
  F::template eval<T, S>(in[0], out[0], out[1], code);
}
template <class F, class T, int S>
void rn(const T *in, int order, T *out, int &code) {
  out[0] = F::template eval<T, S>(order, in[0], code);
}
template <class F, class T, int S>
void c1(const T *in, int, T *out, int &code) {
  const std::complex<T> r = F::template eval<T, S>(std::complex<T>(in[0], in[1]), code);
  out[0] = r.real();
  out[1] = r.imag();
}
template <class F, class T, int S>
void c2(const T *in, int, T *out, int &code) {
  const std::complex<T> r =
      F::template eval<T, S>(std::complex<T>(in[0], in[1]), std::complex<T>(in[2], in[3]), code);
  out[0] = r.real();
  out[1] = r.imag();
}
template <class F, class T, int S>
void cr(const T *in, int, T *out, int &code) {
  out[0] = F::template eval<T, S>(std::complex<T>(in[0], in[1]), code);
}
template <class F, class T, int S>
void rc(const T *in, int, T *out, int &code) {
  const std::complex<T> r = F::template eval<T, S>(in[0], code);
  out[0] = r.real();
  out[1] = r.imag();
}

#define SET(adapter, F)                                                                   \
  ElemSet {                                                                               \
    {adapter<F, float, 0>, adapter<F, float, 1>, adapter<F, float, 2>}, {                 \
      adapter<F, double, 0>, adapter<F, double, 1>, adapter<F, double, 2>                 \
    }                                                                                     \
  }

const std::unordered_map<std::string, ElemSet> &real_elems() {
  static const std::unordered_map<std::string, ElemSet> t = {
#define R1(F) {#F, SET(r1, e::F)}
      R1(Acos), R1(Acosh), R1(Acospi), R1(Asin), R1(Asinh), R1(Asinpi), R1(Atan), R1(Atanh),
      R1(Atanpi), R1(CdfNorm), R1(CdfNormInv), R1(Cos), R1(Cosd), R1(Cosh), R1(Cospi), R1(Erf),
      R1(ErfInv), R1(Erfc), R1(ErfcInv), R1(Erfcx), R1(Exp), R1(Exp10), R1(Exp2), R1(ExpInt1),
      R1(Expm1), R1(I0), R1(I1), R1(InvCbrt), R1(J0), R1(J1), R1(LGamma), R1(Ln), R1(Log10),
      R1(Log1p), R1(Log2), R1(Logb), R1(Pow2o3), R1(Pow3o2), R1(Sin), R1(Sind), R1(Sinh),
      R1(Sinpi), R1(Tan), R1(Tand), R1(Tanh), R1(Tanpi), R1(TGamma), R1(Y0), R1(Y1),
#undef R1
      {"Atan2", SET(r2, e::Atan2)},   {"Atan2pi", SET(r2, e::Atan2pi)},
      {"Hypot", SET(r2, e::Hypot)},   {"Pow", SET(r2, e::Pow)},
      {"Powr", SET(r2, e::Powr)},     {"Powx", SET(r2, e::Powx)},
      {"SinCos", SET(rsc, e::SinCos)}, {"SinCospi", SET(rsc, e::SinCospi)},
      {"Jn", SET(rn, e::Jn)},         {"Yn", SET(rn, e::Yn)},
  };
  return t;
}

const std::unordered_map<std::string, ElemSet> &complex_elems() {
  static const std::unordered_map<std::string, ElemSet> t = {
#define C1(F) {#F, SET(c1, e::cplx::F)}
#define C2(F) {#F, SET(c2, e::cplx::F)}
      C1(Acos), C1(Acosh), C1(Asin), C1(Asinh), C1(Atan), C1(Atanh), C1(Conj), C1(Cos),
      C1(Cosh), C1(Exp), C1(Ln), C1(Log10), C1(Sin), C1(Sinh), C1(Sqrt), C1(Tan), C1(Tanh),
      C2(Add), C2(Sub), C2(Mul), C2(MulByConj), C2(Div), C2(Pow), C2(Powx),
      {"Abs", SET(cr, e::cplx::Abs)}, {"Arg", SET(cr, e::cplx::Arg)},
      {"CIS", SET(rc, e::cplx::CIS)},
#undef C1
#undef C2
  };
  return t;
}

#undef SET

}  // namespace

bool find_elem(const std::string &name, bool complex, ElemSet &out) {
  const auto &t = complex ? complex_elems() : real_elems();
  auto it = t.find(name);
  if (it == t.end()) return false;
  out = it->second;
  return true;
}

}  // namespace qor::accuracy
