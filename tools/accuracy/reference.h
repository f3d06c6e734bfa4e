// MPFR references of the vector math functions.
//
// A real reference receives its arguments as MPFR numbers (exact copies of the
// float or double inputs) and writes the function value(s) at the precision
// of its outputs.  Functions that MPFR provides are correctly rounded at that
// precision; the others (inverse error functions, erfcx, I0/I1, the complex
// functions) are computed by formulas whose accuracy the harness checks by
// evaluating twice, at p and 2p bits, and escalating until both agree after
// rounding to the element type (Ziv's strategy).
#pragma once

#include <mpfr.h>

namespace qor::accuracy {

// out[0], out[1]: results (real part / imaginary part for complex results,
// first / second result for two-result functions).
// in[0..3]: arguments (a, b for real functions; a.re, a.im, b.re, b.im for
// complex ones).  n: integer order of Jn/Yn.
using RefFn = void (*)(mpfr_ptr out0, mpfr_ptr out1, mpfr_srcptr const *in, long n);

// Looks a reference up by catalogue name ("Exp", "Pow", ...) and kind
// (complex = true for the c/z functions).  Returns null if unknown.
RefFn find_reference(const char *name, bool complex);

// True when the reference of this real function is correctly rounded by
// MPFR itself, so one evaluation suffices.
bool reference_is_exact(const char *name, bool complex);

// Widens MPFR's exponent range to its maximum; call once before measuring.
void init_reference();

}  // namespace qor::accuracy
