// qor stats mad FILE: median and mean absolute deviation of every column of a
// CSV file, computed by the library's absolute deviation estimators.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "command.h"
#include "qor/stats.h"

namespace qor::tool {
namespace {

const char kMadUsage[] =
    "usage: qor stats mad [--header] [--weights] FILE\n"
    "  FILE       CSV, one column per variable, one row per observation ('-': stdin)\n"
    "  --header   the first line names the columns\n"
    "  --weights  the last column holds non-negative observation weights, used by\n"
    "             the mean absolute deviation\n";

struct Table {
  std::vector<std::string> names;
  std::vector<double> values;  // row-major
  size_t cols = 0;
  size_t rows = 0;
};

std::string trim(const std::string &s) {
  size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

std::vector<std::string> split(const std::string &line) {
  std::vector<std::string> out;
  size_t start = 0;
  for (;;) {
    size_t comma = line.find(',', start);
    out.push_back(trim(line.substr(start, comma == std::string::npos ? std::string::npos
                                                                      : comma - start)));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return out;
}

// Reads the CSV; on malformed input prints "qor: FILE:LINE: reason" and
// returns false.
bool read_csv(std::istream &in, const std::string &file, bool header, Table *t) {
  std::string line;
  long lineno = 0;
  bool have_header = !header;
  auto fail = [&](const std::string &why) {
    std::fprintf(stderr, "qor: %s:%ld: %s\n", file.c_str(), lineno, why.c_str());
    return false;
  };
  while (std::getline(in, line)) {
    ++lineno;
    if (trim(line).empty()) continue;
    std::vector<std::string> fields = split(line);
    if (!have_header) {
      t->names = fields;
      t->cols = fields.size();
      have_header = true;
      continue;
    }
    if (t->cols == 0) t->cols = fields.size();
    if (fields.size() != t->cols)
      return fail("expected " + std::to_string(t->cols) + " fields, found " +
                  std::to_string(fields.size()));
    for (size_t c = 0; c < fields.size(); ++c) {
      const std::string &f = fields[c];
      char *end = nullptr;
      errno = 0;
      const double v = f.empty() ? 0.0 : std::strtod(f.c_str(), &end);
      if (f.empty() || *end != '\0')
        return fail("field " + std::to_string(c + 1) + " is not a number: '" + f + "'");
      t->values.push_back(v);
    }
    ++t->rows;
  }
  if (t->rows == 0) {
    std::fprintf(stderr, "qor: %s: no observations\n", file.c_str());
    return false;
  }
  return true;
}

int run_mad(const std::vector<std::string> &args) {
  bool header = false, weights = false;
  std::string file;
  for (const std::string &a : args) {
    if (a == "--header") header = true;
    else if (a == "--weights") weights = true;
    else if (a == "--help") {
      std::fputs(kMadUsage, stdout);
      return 0;
    } else if (a.size() > 1 && a[0] == '-') return usage_error("stats mad: unknown option " + a);
    else if (!file.empty()) return usage_error("stats mad: more than one FILE");
    else file = a;
  }
  if (file.empty()) return usage_error("stats mad: FILE is missing");

  Table t;
  bool ok;
  if (file == "-") {
    ok = read_csv(std::cin, "<stdin>", header, &t);
  } else {
    std::ifstream in(file);
    if (!in) {
      std::fprintf(stderr, "qor: %s: %s\n", file.c_str(), std::strerror(errno));
      return 2;
    }
    ok = read_csv(in, file, header, &t);
  }
  if (!ok) return 2;

  const int64_t n = static_cast<int64_t>(t.rows);
  int64_t p = static_cast<int64_t>(t.cols) - (weights ? 1 : 0);
  if (p < 1) return usage_error("stats mad: --weights needs at least two columns");
  // The weights column is split off; the variables stay row-major with p
  // columns.
  std::vector<double> x, w;
  if (weights) {
    x.reserve(static_cast<size_t>(p * n));
    for (int64_t k = 0; k < n; ++k) {
      for (int64_t j = 0; j < p; ++j) x.push_back(t.values[k * (p + 1) + j]);
      const double wk = t.values[k * (p + 1) + p];
      if (!(wk >= 0) || std::isinf(wk)) {
        std::fprintf(stderr, "qor: %s: weight of observation %lld is not a finite non-negative number\n",
                     file.c_str(), static_cast<long long>(k + 1));
        return 2;
      }
      w.push_back(wk);
    }
  } else {
    x.swap(t.values);
  }

  const int64_t storage = QOR_SS_STORAGE_ROWS;
  qor_ss_task task = nullptr;
  std::vector<double> mdad(p), mnad(p);
  int32_t st = __rixdSSNewTask(&task, &p, &n, &storage, x.data(), weights ? w.data() : nullptr,
                               nullptr, 1);
  if (st == 0) st = __rixdSSEditTask(task, QOR_SS_ED_MDAD, mdad.data());
  if (st == 0) st = __rixdSSEditTask(task, QOR_SS_ED_MNAD, mnad.data());
  qor_ss_service_fn services[QOR_SS_SERVICE_TABLE_SIZE];
  qor_ss_default_services(services);
  if (st == 0) st = _rixdSSMAD(task, QOR_SS_MAD_MEDIAN, QOR_SS_METHOD_FAST, services);
  if (st == 0) st = _rixdSSMAD(task, QOR_SS_MAD_MEAN, QOR_SS_METHOD_FAST, services);
  if (task) __rixSSDeleteTask(&task);
  if (st != 0) {
    std::fprintf(stderr, "qor: stats mad: the estimator returned status %d\n", st);
    return 1;
  }
  std::printf("# %lld observations%s\n", static_cast<long long>(n),
              weights ? ", weighted mean absolute deviation" : "");
  std::printf("%-16s %24s %24s\n", "variable", "median_abs_dev", "mean_abs_dev");
  for (int64_t j = 0; j < p; ++j) {
    const std::string name = header && static_cast<size_t>(j) < t.names.size() &&
                                     !t.names[j].empty()
                                 ? t.names[j]
                                 : std::to_string(j + 1);
    std::printf("%-16s %24.17g %24.17g\n", name.c_str(), mdad[j], mnad[j]);
  }
  return 0;
}

int run_stats(const Args &args) {
  if (args.empty()) {
    std::fputs(kMadUsage, stderr);
    return usage_error("stats: a subcommand is required (mad)");
  }
  if (args[0] == "mad") return run_mad(Args(args.begin() + 1, args.end()));
  return usage_error("stats: unknown subcommand " + args[0]);
}

}  // namespace

QOR_COMMAND("stats", "summary statistics of a CSV file (stats mad FILE)", run_stats, 0);

}  // namespace qor::tool
