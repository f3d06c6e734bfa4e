// qor vm: runs one vector math function over values from the command line or
// standard input through the library's exported entry points, and prints the
// results with the error status and every reported element.
#include <dlfcn.h>
#include <strings.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "vm_catalogue.h"
#include "qor/pex.h"
#include "qor/vm.h"

namespace qor::tool {
namespace {

using Fn = VmFn;
constexpr const auto &kFns = kVmFns;

const char *kUsage =
    "usage: qor vm FUNC [--type s|d|c|z] [--accuracy HA|LA|EP] [--strided]\n"
    "                   [--scalar V] [--order N] [--coeffs SA,HA,SB,HB] [values... | -]\n"
    "  one value per element; fields of an element are separated by commas:\n"
    "  x (one argument), a,b (two arguments), re,im (complex), re,im,re,im\n"
    "  (two complex arguments).  --scalar: Powx exponent (re,im for c/z);\n"
    "  --order: Jn/Yn order; --coeffs: LinearFrac scalea,shifta,scaleb,shiftb.\n"
    "  --strided runs the strided form with every vector at increment 2.\n"
    "  '-' reads the values from standard input.";

struct Reported {
  int code, index;
};
std::vector<Reported> g_reports;

int32_t record(PexErrorContext *c) {
  g_reports.push_back({c->code, c->index});
  return 0;
}

const char *code_name(int c) {
  switch (c) {
    case 0: return "ok";
    case 1: return "domain";
    case 2: return "singularity";
    case 3: return "overflow";
    case 4: return "underflow";
    case -1: return "bad argument";
    case -2: return "bad access";
    default: return "other";
  }
}

bool parse_fields(const std::string &tok, std::vector<double> &out) {
  std::stringstream ss(tok);
  std::string f;
  while (std::getline(ss, f, ',')) {
    if (f.empty()) return false;
    char *end = nullptr;
    double v = std::strtod(f.c_str(), &end);
    if (*end) return false;
    out.push_back(v);
  }
  return true;
}

// Arguments per element for a shape: real fields in, real fields out.
void arity(Shape s, int &in, int &out) {
  switch (s) {
    case Shape::U: case Shape::X: case Shape::J: in = 1, out = 1; break;
    case Shape::B: case Shape::LF: in = 2, out = 1; break;
    case Shape::R2: in = 1, out = 2; break;
    case Shape::CU: case Shape::CX: in = 2, out = 2; break;
    case Shape::CB: in = 4, out = 2; break;
    case Shape::CR: in = 2, out = 1; break;
    case Shape::CC: in = 1, out = 2; break;
    default: in = out = 0;
  }
}

template <class T>
void print_value(T v) {
  if constexpr (sizeof(T) == 4)
    std::printf(" %.9g", double(v));
  else
    std::printf(" %.17g", v);
}

// Runs the entry point on vectors of T.  a/b/r/r2 hold the element fields
// for contiguous operation; with inc 2 they are spread out first.
template <class T>
void run(void *entry, Shape shape, int n, int inc, std::vector<double> &args, int in, int out,
         const std::vector<double> &scalar, int order, const std::vector<double> &coeffs,
         std::vector<double> &results) {
  // Per-element field counts of each vector.
  int fa = 1, fb = 0, fr = 1, fr2 = 0;
  switch (shape) {
    case Shape::B: case Shape::LF: fb = 1; break;
    case Shape::R2: fr2 = 1; break;
    case Shape::CU: case Shape::CX: fa = 2, fr = 2; break;
    case Shape::CB: fa = 2, fb = 2, fr = 2; break;
    case Shape::CR: fa = 2; break;
    case Shape::CC: fr = 2; break;
    default: break;
  }
  std::vector<T> a(size_t(n) * fa * inc + 2), b(size_t(n) * (fb ? fb : 1) * inc + 2),
      r(size_t(n) * fr * inc + 2), r2(size_t(n) * inc + 2);
  for (int i = 0; i < n; ++i) {
    const double *e = &args[size_t(i) * in];
    for (int k = 0; k < fa; ++k) a[size_t(i) * inc * fa + k] = T(e[k]);
    for (int k = 0; k < fb; ++k) b[size_t(i) * inc * fb + k] = T(e[fa + k]);
  }
  const bool st = inc != 1;
  void *pa = a.data(), *pb = b.data(), *pr = r.data(), *pr2 = r2.data();
#define CALL(...) reinterpret_cast<void (*)(__VA_ARGS__)>(entry)
  switch (shape) {
    case Shape::U: case Shape::CU: case Shape::CR: case Shape::CC:
      if (st) CALL(int, void *, int, void *, int)(n, pa, inc, pr, inc);
      else CALL(int, void *, void *)(n, pa, pr);
      break;
    case Shape::B: case Shape::CB:
      if (st) CALL(int, void *, int, void *, int, void *, int)(n, pa, inc, pb, inc, pr, inc);
      else CALL(int, void *, void *, void *)(n, pa, pb, pr);
      break;
    case Shape::R2:
      if (st) CALL(int, void *, int, void *, int, void *, int)(n, pa, inc, pr, inc, pr2, inc);
      else CALL(int, void *, void *, void *)(n, pa, pr, pr2);
      break;
    case Shape::J:
      if (st) CALL(int, void *, int, int, void *, int)(n, pa, inc, order, pr, inc);
      else CALL(int, void *, int, void *)(n, pa, order, pr);
      break;
    case Shape::X: {
      T s = T(scalar[0]);
      if (st) CALL(int, void *, int, T, void *, int)(n, pa, inc, s, pr, inc);
      else CALL(int, void *, T, void *)(n, pa, s, pr);
      break;
    }
    case Shape::CX:
      if constexpr (sizeof(T) == 4) {
        QorComplex8 s{float(scalar[0]), float(scalar[1])};
        if (st) CALL(int, void *, int, QorComplex8, void *, int)(n, pa, inc, s, pr, inc);
        else CALL(int, void *, QorComplex8, void *)(n, pa, s, pr);
      } else {
        QorComplex16 s{scalar[0], scalar[1]};
        if (st) CALL(int, void *, int, const QorComplex16 *, void *, int)(n, pa, inc, &s, pr, inc);
        else CALL(int, void *, const QorComplex16 *, void *)(n, pa, &s, pr);
      }
      break;
    case Shape::LF: {
      T c[4] = {T(coeffs[0]), T(coeffs[1]), T(coeffs[2]), T(coeffs[3])};
      if (st)
        CALL(int, void *, int, void *, int, T, T, T, T, void *, int)(n, pa, inc, pb, inc, c[0],
                                                                    c[1], c[2], c[3], pr, inc);
      else
        CALL(int, void *, void *, T, T, T, T, void *)(n, pa, pb, c[0], c[1], c[2], c[3], pr);
      break;
    }
    default: break;
  }
#undef CALL
  results.assign(size_t(n) * out, 0);
  for (int i = 0; i < n; ++i) {
    for (int k = 0; k < fr; ++k) results[size_t(i) * out + k] = r[size_t(i) * inc * fr + k];
    if (fr2) results[size_t(i) * out + 1] = r2[size_t(i) * inc];
  }
}

int run_vm(const Args &args) {
  if (args.empty()) return usage_error(std::string("vm needs a function name\n") + kUsage);
  std::string func = args[0];
  char type = 's';
  std::string acc = "HA";
  bool strided = false, from_stdin = false;
  std::vector<double> scalar, coeffs;
  int order = 0;
  std::vector<std::string> tokens;
  for (size_t i = 1; i < args.size(); ++i) {
    const std::string &a = args[i];
    auto value = [&](const char *opt) -> const std::string * {
      if (i + 1 >= args.size()) return nullptr;
      (void)opt;
      return &args[++i];
    };
    if (a == "--type") {
      auto v = value("--type");
      if (!v || v->size() != 1 || std::string("sdcz").find((*v)[0]) == std::string::npos)
        return usage_error("--type takes s, d, c or z");
      type = (*v)[0];
    } else if (a == "--accuracy") {
      auto v = value("--accuracy");
      if (!v || (*v != "HA" && *v != "LA" && *v != "EP"))
        return usage_error("--accuracy takes HA, LA or EP");
      acc = *v;
    } else if (a == "--strided") {
      strided = true;
    } else if (a == "--scalar") {
      auto v = value("--scalar");
      if (!v || !parse_fields(*v, scalar)) return usage_error("--scalar takes a number or re,im");
    } else if (a == "--order") {
      auto v = value("--order");
      char *end = nullptr;
      if (!v || (order = int(std::strtol(v->c_str(), &end, 10)), *end))
        return usage_error("--order takes an integer");
    } else if (a == "--coeffs") {
      auto v = value("--coeffs");
      if (!v || !parse_fields(*v, coeffs) || coeffs.size() != 4)
        return usage_error("--coeffs takes four numbers: scalea,shifta,scaleb,shiftb");
    } else if (a == "-") {
      from_stdin = true;
    } else if (a.size() > 1 && a[0] == '-' && !(std::isdigit(uint8_t(a[1])) || a[1] == '.' ||
                                                 a[1] == 'i' || a[1] == 'n')) {
      return usage_error("unknown option " + a + "\n" + kUsage);
    } else {
      tokens.push_back(a);
    }
  }
  if (from_stdin)
    for (std::string t; std::cin >> t;) tokens.push_back(t);

  const Fn *fn = nullptr;
  for (auto &f : kFns)
    if (f.t == type && strcasecmp(func.c_str(), f.name) == 0) fn = &f;  // exp, Exp, EXP
  if (!fn) return usage_error("no function " + func + " for type " + std::string(1, type));
  if (fn->shape >= Shape::P_PackI) return usage_error("Pack and Unpack are not run by this tool");
  int in, out;
  arity(fn->shape, in, out);
  if (fn->shape == Shape::X && scalar.size() != ((type == 'c' || type == 'z') ? 2u : 1u))
    return usage_error("Powx needs --scalar (re,im for complex types)");
  if (fn->shape == Shape::CX && scalar.size() != 2) return usage_error("--scalar needs re,im");
  if (fn->shape == Shape::LF && coeffs.size() != 4) return usage_error("LinearFrac needs --coeffs");

  std::vector<double> vals;
  for (auto &t : tokens) {
    std::vector<double> f;
    if (!parse_fields(t, f) || int(f.size()) != in)
      return usage_error("element '" + t + "' needs " + std::to_string(in) + " field(s)");
    vals.insert(vals.end(), f.begin(), f.end());
  }
  const int n = int(vals.size()) / (in ? in : 1);

  // The catalogue spelling: the user may type exp, Exp or EXP.
  std::string sym = std::string("_pex") + type + fn->name + (strided ? "I" : "");
  const bool single = type == 's' || type == 'c';
  if (acc == "LA") sym += single ? "_21" : "_50";
  if (acc == "EP") sym += single ? "_11" : "_26";
  if (acc == "HA") sym += "_HA";
  void *entry = dlsym(RTLD_DEFAULT, sym.c_str());
  if (!entry) {
    std::fprintf(stderr, "qor: %s is not exported\n", sym.c_str());
    return 1;
  }

  uint32_t old_mode = qor_pex_kernel_SetMode(PEX_ERRMODE_CALLBACK);
  PexErrorCallback old_cb = qor_pex_kernel_SetErrorCallBack(record);
  qor_pex_kernel_ClearErrStatus();
  std::vector<double> res;
  const int inc = strided ? 2 : 1;
  if (single)
    run<float>(entry, fn->shape, n, inc, vals, in, out, scalar, order, coeffs, res);
  else
    run<double>(entry, fn->shape, n, inc, vals, in, out, scalar, order, coeffs, res);
  const int status = qor_pex_kernel_GetErrStatus();
  qor_pex_kernel_SetErrorCallBack(old_cb);
  qor_pex_kernel_SetMode(old_mode);

  std::printf("%s (%d elements)\n", sym.c_str(), n);
  for (int i = 0; i < n; ++i) {
    std::printf("%6d ", i);
    for (int k = 0; k < in; ++k) {
      if (single) print_value(float(vals[size_t(i) * in + k]));
      else print_value(vals[size_t(i) * in + k]);
    }
    std::printf("  ->");
    for (int k = 0; k < out; ++k) {
      if (single) print_value(float(res[size_t(i) * out + k]));
      else print_value(res[size_t(i) * out + k]);
    }
    for (auto &r : g_reports)
      if (r.index == i) std::printf("   [code %d %s]", r.code, code_name(r.code));
    std::printf("\n");
  }
  std::printf("status %d (%s)\n", status, code_name(status));
  return 0;
}

}  // namespace

QOR_COMMAND("vm", "run a vector math function on values: qor vm FUNC [options] [values | -]",
            run_vm, 0);

}  // namespace qor::tool
