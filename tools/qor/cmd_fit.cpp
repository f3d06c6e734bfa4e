// qor fit: cell search from the command line.
//
//   qor fit search --x FILE --sites FILE [--method NAME] [--peak N]
//
// FILE holds numbers separated by white space (a '#' starts a comment that
// runs to the end of the line); "-" reads standard input.  The breakpoints
// must be finite and strictly ascending.  One cell index is printed per site.
// Without arguments `qor fit` shows the methods on a small example.
//
//   qor fit spline --x FILE --y FILE --kind KIND [--bc BC] [--at FILE] [--der N]
//
// builds one spline through (x, y) and prints, without --at, one line per
// cell: its left and right breakpoints and its coefficients in u = t - x[i];
// with --at, one line per site: the site, the value and derivatives 1 to N
// (N from --der, 0 to 3, default 0).  Sites outside the partition continue
// the end cells.  KIND: linear, quadratic, natural, default, akima, bessel,
// hyman.  BC: free (default; Akima: akima), not-a-knot, periodic, akima,
// first:A,B  second:A,B  first-second:A,B  second-first:A,B (left, right),
// slope:A (quadratic, required: the slope at x[0]).
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "qor/fit.h"
#include "qor/fit_construct.h"
#include "qor/fit_interp.h"

namespace qor::tool {
namespace {

const char *const kMethods[] = {"auto", "uniform", "quasi-uniform", "sorted", "peak", "hybrid"};

// Reads every number of a file; on failure returns false with a message.
bool read_numbers(const std::string &path, std::vector<double> &out, std::string &err) {
  std::ifstream file;
  std::istream *in = &std::cin;
  if (path != "-") {
    file.open(path);
    if (!file) {
      err = "cannot open '" + path + "'";
      return false;
    }
    in = &file;
  }
  std::string line;
  for (int lineno = 1; std::getline(*in, line); ++lineno) {
    if (const auto hash = line.find('#'); hash != std::string::npos) line.erase(hash);
    std::istringstream words(line);
    std::string w;
    while (words >> w) {
      errno = 0;
      char *end = nullptr;
      const double v = std::strtod(w.c_str(), &end);
      if (end == w.c_str() || *end != '\0' || errno == ERANGE) {
        err = path + ":" + std::to_string(lineno) + ": not a number: '" + w + "'";
        return false;
      }
      out.push_back(v);
    }
  }
  return true;
}

int method_index(const std::string &name) {
  for (int i = 0; i < 6; ++i)
    if (name == kMethods[i]) return i;
  return -1;
}

// Runs one method over the partition; returns a status.
int32_t search(int method, const std::vector<double> &x, const std::vector<double> &s,
               int64_t peak, std::vector<int64_t> &cell) {
  const int64_t nx = static_cast<int64_t>(x.size()), n = static_cast<int64_t>(s.size());
  cell.assign(s.size(), 0);
  const double scale = static_cast<double>(nx - 1) / (x[nx - 1] - x[0]);
  switch (method) {
    case 1: {
      const double ends[2] = {x[0], x[nx - 1]};
      return qor_df_kernel_dDFUniformSearch1D64(nx, ends, n, s.data(), nullptr, scale, nullptr,
                                                cell.data());
    }
    case 2:
      return qor_df_kernel_dDFQuasiUniformSearch1D64(nx, x.data(), n, s.data(), nullptr, scale,
                                                     nullptr, cell.data());
    case 3: {
      int64_t carried = 0;
      return qor_df_kernel_dDFSortedSearch1D64(nx, x.data(), n, s.data(), &carried, 0, nullptr,
                                               cell.data());
    }
    case 4:
      return qor_df_kernel_dDFPeakSearch1D64(nx, x.data(), n, s.data(), nullptr,
                                             static_cast<double>(peak), nullptr, cell.data());
    default: {
      // auto: the general entry on a task without a hint; hybrid: the task
      // marked non-uniform, which the general entry serves with its table.
      qor_df_task_t *task = nullptr;
      int32_t st = qor_df_kernel_dNewTask1D(&task, nx, x.data(), method == 5 ? 1 : 0, 0, nullptr,
                                            0, 1);
      if (st == 0)
        st = qor_df_kernel_dDFSearch1D(task, n, s.data(), QOR_DF_SITES_NO_INFO, nullptr,
                                       cell.data(), nullptr, nullptr, nullptr, nullptr, nullptr);
      if (task) qor_df_kernel_DeleteTask(&task);
      return st;
    }
  }
}

int demo() {
  const std::vector<double> x = {0, 0.5, 1, 4, 4.25, 9, 16};
  const std::vector<double> s = {-1, 0, 0.75, 1, 4.1, 8.999, 16, 20, NAN};
  std::printf("breakpoints:");
  for (double v : x) std::printf(" %g", v);
  std::printf("\nsite      ");
  for (double v : s) std::printf(" %6g", v);
  std::printf("\n");
  for (int m : {0, 2, 4, 5}) {
    std::vector<int64_t> cell;
    if (search(m, x, s, 3, cell) != 0) return 1;
    std::printf("%-14s", kMethods[m]);
    for (int64_t c : cell) std::printf(" %3lld", static_cast<long long>(c));
    std::printf("\n");
  }
  std::printf("(a site equal to an inner breakpoint opens the next cell; NaN gets 0;\n"
              " try: qor fit search --x FILE --sites FILE [--method NAME])\n");
  return 0;
}


// ---- fit spline ----------------------------------------------------------------

struct SplineKind {
  const char *name;
  int order;
  int32_t (*ctor)(qor_df_task_t *, qor_df_threader_fn, const void *, int32_t);
};

const SplineKind kSplineKinds[] = {
    {"linear", 2, qor_df_kernel_dDFLinearSpline1D},
    {"quadratic", 3, qor_df_kernel_dDFQuadraticSpline1D},
    {"natural", 4, qor_df_kernel_dDFNaturalCubicSpline1D},
    {"default", 4, qor_df_kernel_dDFDefaultCubicSpline1D},
    {"akima", 4, qor_df_kernel_dDFAkimaCubicSpline1D},
    {"bessel", 4, qor_df_kernel_dDFBesselCubicSpline1D},
    {"hyman", 4, qor_df_kernel_dDFHymanCubicSpline1D},
};

// Parses "A,B" (or "A" when one value is wanted).
bool parse_values(const std::string &text, size_t want, double *out) {
  size_t pos = 0;
  for (size_t k = 0; k < want; ++k) {
    const size_t comma = text.find(',', pos);
    const bool last = k + 1 == want;
    if (last != (comma == std::string::npos)) return false;
    const std::string w = text.substr(pos, last ? std::string::npos : comma - pos);
    char *end = nullptr;
    errno = 0;
    out[k] = std::strtod(w.c_str(), &end);
    if (w.empty() || *end || errno == ERANGE || !std::isfinite(out[k])) return false;
    pos = comma + 1;
  }
  return true;
}

// Boundary condition text to its type and values; false when malformed.
bool parse_bc(const std::string &text, int64_t *type, double bc[2]) {
  const size_t colon = text.find(':');
  const std::string name = text.substr(0, colon);
  const std::string vals = colon == std::string::npos ? "" : text.substr(colon + 1);
  const struct {
    const char *name;
    int64_t type;
    size_t values;
  } table[] = {{"free", QOR_DF_BC_FREE_END, 0},   {"not-a-knot", QOR_DF_BC_NOT_A_KNOT, 0},
               {"periodic", QOR_DF_BC_PERIODIC, 0}, {"akima", 0, 0},
               {"first", 12, 2},                   {"second", 48, 2},
               {"first-second", 36, 2},            {"second-first", 24, 2},
               {"slope", QOR_DF_BC_QUADRATIC_LEFT_SLOPE, 1}};
  for (const auto &e : table) {
    if (name != e.name) continue;
    if (e.values == 0) {
      if (colon != std::string::npos) return false;
    } else if (!parse_values(vals, e.values, bc)) {
      return false;
    }
    *type = e.type;
    return true;
  }
  return false;
}

int run_spline(const Args &args) {
  std::string xpath, ypath, kind_name, bc_text, at_path;
  int der = 0;
  bool der_given = false;
  for (size_t i = 1; i < args.size(); ++i) {
    const std::string &a = args[i];
    if (a != "--x" && a != "--y" && a != "--kind" && a != "--bc" && a != "--at" && a != "--der")
      return usage_error("fit spline: unknown option '" + a + "'");
    if (i + 1 >= args.size()) return usage_error("fit spline: " + a + " needs a value");
    const std::string &v = args[++i];
    if (a == "--x") xpath = v;
    else if (a == "--y") ypath = v;
    else if (a == "--kind") kind_name = v;
    else if (a == "--bc") bc_text = v;
    else if (a == "--at") at_path = v;
    else {
      if (v.size() != 1 || v[0] < '0' || v[0] > '3')
        return usage_error("fit spline: --der wants 0, 1, 2 or 3, not '" + v + "'");
      der = v[0] - '0';
      der_given = true;
    }
  }
  if (xpath.empty() || ypath.empty() || kind_name.empty())
    return usage_error("fit spline: --x, --y and --kind are required");
  if (der_given && at_path.empty()) return usage_error("fit spline: --der needs --at");
  const SplineKind *kind = nullptr;
  for (const SplineKind &k : kSplineKinds)
    if (kind_name == k.name) kind = &k;
  if (!kind)
    return usage_error("fit spline: unknown kind '" + kind_name +
                       "' (linear, quadratic, natural, default, akima, bessel, hyman)");
  const bool quadratic = kind->order == 3, linear = kind->order == 2;
  if (bc_text.empty()) bc_text = kind_name == "akima" ? "akima" : "free";
  int64_t bc_type = 0;
  double bc[2] = {0, 0};
  if (!linear || bc_text != "free") {
    if (!parse_bc(bc_text, &bc_type, bc))
      return usage_error("fit spline: malformed --bc '" + bc_text + "'");
    if (linear) return usage_error("fit spline: the linear spline takes no --bc");
    if (quadratic != (bc_type == QOR_DF_BC_QUADRATIC_LEFT_SLOPE))
      return usage_error(quadratic ? "fit spline: the quadratic spline needs --bc slope:A"
                                   : "fit spline: --bc slope:A is for the quadratic spline");
    if (bc_type == 0 && kind_name != "akima")
      return usage_error("fit spline: --bc akima is for the akima spline");
  }
  std::vector<double> x, y, at;
  std::string err;
  if (!read_numbers(xpath, x, err) || !read_numbers(ypath, y, err)) return usage_error(err);
  if (!at_path.empty() && !read_numbers(at_path, at, err)) return usage_error(err);
  const size_t min_nx = kind_name == "akima" ? 5 : (kind_name == "bessel" || kind_name == "hyman") ? 4
                        : kind_name == "default" ? 3 : 2;
  if (x.size() < min_nx)
    return usage_error("fit spline: the " + kind_name + " spline needs at least " +
                       std::to_string(min_nx) + " breakpoints");
  if (y.size() != x.size())
    return usage_error("fit spline: " + std::to_string(x.size()) + " breakpoints but " +
                       std::to_string(y.size()) + " values");
  for (size_t i = 0; i < x.size(); ++i) {
    if (!std::isfinite(x[i]) || !std::isfinite(y[i]))
      return usage_error("fit spline: point " + std::to_string(i) + " is not finite");
    if (i > 0 && !(x[i] > x[i - 1]))
      return usage_error("fit spline: breakpoints must be strictly ascending (index " +
                         std::to_string(i) + ")");
  }
  if (bc_type == QOR_DF_BC_NOT_A_KNOT && x.size() < 3)
    return usage_error("fit spline: not-a-knot ends need at least 3 breakpoints");
  const int64_t nx = static_cast<int64_t>(x.size());
  std::vector<double> coeff(static_cast<size_t>((nx - 1) * kind->order));
  qor_df_task_t *task = nullptr;
  int32_t st = qor_df_kernel_dNewTask1D(&task, nx, x.data(), QOR_DF_NO_HINT, 1, y.data(),
                                        QOR_DF_STORAGE_ROWS, 1);
  if (st == 0)
    st = qor_df_kernel_dEditPPSpline1D(task, kind->order, 0, bc_type, bc, 0, nullptr, coeff.data(),
                                       QOR_DF_STORAGE_ROWS);
  if (st == 0) st = kind->ctor(task, nullptr, nullptr, 1);
  std::vector<double> r;
  const int64_t n = static_cast<int64_t>(at.size());
  if (st == 0 && !at_path.empty() && n > 0) {
    const int64_t dorder[4] = {1, 1, 1, 1};
    r.resize(static_cast<size_t>(n * (der + 1)));
    st = qor_df_kernel_dDFInterpolate1D(task, QOR_DF_INTERP, n, at.data(), QOR_DF_SITES_NO_INFO,
                                        der + 1, dorder, nullptr, r.data(), QOR_DF_MATRIX_STORAGE_ROWS,
                                        nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  }
  if (task) qor_df_kernel_DeleteTask(&task);
  if (st != 0) {
    std::fprintf(stderr, "qor: fit spline: status %d\n", st);
    return 1;
  }
  if (!at_path.empty()) {
    for (int64_t i = 0; i < n; ++i) {
      std::printf("%.17g", at[i]);
      for (int k = 0; k <= der; ++k) std::printf(" %.17g", r[i * (der + 1) + k]);
      std::printf("\n");
    }
    return 0;
  }
  for (int64_t i = 0; i + 1 < nx; ++i) {
    std::printf("%.17g %.17g", x[i], x[i + 1]);
    for (int k = 0; k < kind->order; ++k) std::printf(" %.17g", coeff[i * kind->order + k]);
    std::printf("\n");
  }
  return 0;
}

int run_fit(const Args &args) {
  if (args.empty()) return demo();
  if (args[0] == "spline") return run_spline(args);
  if (args[0] != "search") return usage_error("fit: unknown subcommand '" + args[0] + "'");
  std::string xpath, spath, method_name = "auto";
  int64_t peak = -1;
  for (size_t i = 1; i < args.size(); ++i) {
    const std::string &a = args[i];
    if (a == "--x" || a == "--sites" || a == "--method" || a == "--peak") {
      if (i + 1 >= args.size()) return usage_error("fit search: " + a + " needs a value");
      const std::string &v = args[++i];
      if (a == "--x") xpath = v;
      else if (a == "--sites") spath = v;
      else if (a == "--method") method_name = v;
      else {
        char *end = nullptr;
        errno = 0;
        peak = std::strtoll(v.c_str(), &end, 10);
        if (end == v.c_str() || *end || errno || peak < 0)
          return usage_error("fit search: --peak wants a non-negative cell index, not '" + v + "'");
      }
    } else {
      return usage_error("fit search: unknown option '" + a + "'");
    }
  }
  if (xpath.empty() || spath.empty()) return usage_error("fit search: --x and --sites are required");
  const int method = method_index(method_name);
  if (method < 0)
    return usage_error("fit search: unknown method '" + method_name +
                       "' (auto, uniform, quasi-uniform, sorted, peak, hybrid)");
  std::vector<double> x, s;
  std::string err;
  if (!read_numbers(xpath, x, err) || !read_numbers(spath, s, err)) return usage_error(err);
  if (x.size() < 2) return usage_error("fit search: the partition needs at least 2 breakpoints");
  for (size_t i = 0; i < x.size(); ++i) {
    if (!std::isfinite(x[i])) return usage_error("fit search: breakpoint " + std::to_string(i) + " is not finite");
    if (i > 0 && !(x[i] > x[i - 1]))
      return usage_error("fit search: breakpoints must be strictly ascending (index " +
                         std::to_string(i) + ")");
  }
  if (method == 3)
    for (size_t i = 1; i < s.size(); ++i)
      if (s[i] < s[i - 1])
        return usage_error("fit search: the sorted method needs ascending sites (index " +
                           std::to_string(i) + ")");
  if (peak < 0) peak = static_cast<int64_t>(x.size() / 2);
  std::vector<int64_t> cell;
  if (const int32_t st = search(method, x, s, peak, cell); st != 0) {
    std::fprintf(stderr, "qor: fit search: status %d\n", st);
    return 1;
  }
  for (int64_t c : cell) std::printf("%lld\n", static_cast<long long>(c));
  return 0;
}

}  // namespace

QOR_COMMAND("fit",
            "cell search and splines: fit search --x FILE --sites FILE [--method NAME] | "
            "fit spline --x FILE --y FILE --kind KIND [--bc BC] [--at FILE] [--der N]",
            run_fit, 60);

}  // namespace qor::tool
