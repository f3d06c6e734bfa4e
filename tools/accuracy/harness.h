// Accuracy harness of the vector math functions.
//
// It measures, for one function, element type and accuracy slot, the maximum
// error in ulps against the MPFR reference and the share of correctly rounded
// results, over random inputs (log-uniform over the whole floating-point
// range and uniform over the function's interesting interval), inputs close
// to the function's hard points (zeros, poles, thresholds), and special and
// boundary values; or exhaustively over every float on request.
//
// The candidate is either the per-element routine (qor::vm::elem) or any
// exported entry point of the kernel library, found by name with dlsym, in
// its contiguous or strided form.
//
// Error measure.  Real results: |computed - exact| / ulp(exact), where
// ulp(x) = 2^(max(e, emin) - p + 1) for 2^e <= |x| < 2^(e+1), p = 24 or 53,
// emin the exponent of the smallest normal number (so subnormal results are
// measured in the subnormal spacing).  An infinite computed value is treated
// as 2^(emax+1).  NaN against NaN and equal infinities count as exact; any
// other disagreement about NaN or infinity is a "special mismatch".
// Complex results: the larger of the two componentwise errors, where a
// component is measured in ulps of max(|component|, 2^-p |f|) with |f| the
// modulus of the exact result: a component far below the rounding noise of
// the modulus is judged relative to that noise rather than to itself.
// A result is correctly rounded when every component equals the exact value
// rounded to nearest.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qor::accuracy {

enum class Shape {
  R1,    // T f(T)
  R2,    // T f(T, T)
  RX,    // Powx: T f(T, scalar T)
  RSC,   // (T, T) f(T): SinCos, SinCospi
  RN,    // T f(int order, T): Jn, Yn
  C1,    // C f(C)
  C2,    // C f(C, C)
  CX,    // Powx: C f(C, scalar C)
  CR,    // T f(C): Abs, Arg
  RC,    // C f(T): CIS
};

struct FunctionInfo {
  const char *name;  // catalogue spelling
  Shape real_shape;  // shape for s/d, or Shape::R1 with has_real = false
  bool has_real;
  Shape complex_shape;
  bool has_complex;
};

// Every function the harness knows (those with an elementwise definition;
// the arithmetic, rounding and packing functions are exact by construction
// and tested by their own suites).
const std::vector<FunctionInfo> &functions();
const FunctionInfo *find_function(const std::string &name);

struct Options {
  char type = 'd';          // s, d, c, z
  int slot = 1;             // 0 LA, 1 HA, 2 EP
  long samples = 20000;     // random samples (special values come on top)
  bool exhaustive = false;  // every float (s only; one-argument functions)
  bool library = false;     // measure the exported entry point instead of elem
  std::string library_path; // path of libqor_sse42.so for library mode
  bool strided = false;     // library mode: use the strided (I) form
  int order = 3;            // Jn/Yn order
  uint64_t seed = 0x5eed1234abcdULL;
  bool quiet = false;
};

struct Worst {
  double in[4] = {0, 0, 0, 0};
  double out[2] = {0, 0};
  double exact[2] = {0, 0};
};

struct Report {
  std::string entry;        // what was measured ("elem vsExp HA" or "_pexsExp_HA")
  long count = 0;           // elements compared
  long correctly_rounded = 0;
  long special_mismatch = 0;
  long code_mismatch = 0;   // elem mode: code disagrees with the exact value
  long layout_damage = 0;   // library strided mode: gap elements overwritten
  double max_ulp = 0;
  Worst worst;
  std::string error;        // non-empty if the measurement could not run
  double bound() const;     // the slot's bound in ulps for this type
  bool within_bound() const;
  int slot = 1;
  char type = 'd';
};

// Bound of a slot in ulps: HA 1, LA 4, EP 2^(p-11) for float / 2^(p-26) for
// double (i.e. at least 11 or 26 correct bits).
double slot_bound(char type, int slot);

Report measure(const FunctionInfo &f, const Options &opt);

// Entry-point name of a function in library mode ("_pexsExp_HA").
std::string entry_name(const FunctionInfo &f, char type, int slot, bool strided);

// One-line summary and a multi-line detail block.
std::string format_report(const FunctionInfo &f, const Report &r, bool verbose);

}  // namespace qor::accuracy
