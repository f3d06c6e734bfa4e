// qor fit: cell search from the command line.
//
//   qor fit search --x FILE --sites FILE [--method NAME] [--peak N]
//
// FILE holds numbers separated by white space (a '#' starts a comment that
// runs to the end of the line); "-" reads standard input.  The breakpoints
// must be finite and strictly ascending.  One cell index is printed per site.
// Without arguments `qor fit` shows the methods on a small example.
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

int run_fit(const Args &args) {
  if (args.empty()) return demo();
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

QOR_COMMAND("fit", "cell search over a partition: fit search --x FILE --sites FILE [--method NAME]",
            run_fit, 60);

}  // namespace qor::tool
