// The candidates a measurement can run: the per-element routines, reached
// through one adapter signature per element width, and the exported entry
// points of the kernel library.
#pragma once

#include <string>

namespace qor::accuracy {

// in: up to four inputs (a, b or a.re, a.im, b.re, b.im); order: Jn/Yn order;
// out: one or two outputs; code: the routine's report code.
template <class T>
using ElemFn = void (*)(const T *in, int order, T *out, int &code);

struct ElemSet {
  ElemFn<float> f[3] = {nullptr, nullptr, nullptr};
  ElemFn<double> d[3] = {nullptr, nullptr, nullptr};
};

// Per-element routines of a function; complex selects the qor::vm::elem::cplx
// routine of that name.  Returns false when there is none.
bool find_elem(const std::string &name, bool complex, ElemSet &out);

}  // namespace qor::accuracy
