// Command line of the accuracy harness.
#include "cli.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "harness.h"

namespace qor::accuracy {
namespace {

std::string default_library() {
  char buf[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return "libqor_sse42.so";
  std::string exe(buf, static_cast<size_t>(n));
  const auto slash = exe.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : exe.substr(0, slash);
  return dir + "/../lib/libqor_sse42.so";
}

int usage(const std::string &msg) {
  std::fprintf(stderr, "qor accuracy: %s\n%s", msg.c_str(), cli_usage());
  return 2;
}

bool parse_long(const std::string &s, long &v) {
  char *end = nullptr;
  errno = 0;
  v = std::strtol(s.c_str(), &end, 0);
  return errno == 0 && end && *end == 0 && !s.empty();
}

}  // namespace

const char *cli_usage() {
  return "usage: qor accuracy FUNC|all [options]\n"
         "  --type s|d|c|z|all        element type (default: s and d, or c and z for\n"
         "                            complex-only functions; all = every type the function has)\n"
         "  --accuracy HA|LA|EP|all   slot (default HA)\n"
         "  --samples N               random samples besides the special values (default 20000)\n"
         "  --exhaustive              every float input (type s, one-argument functions)\n"
         "  --library [PATH]          measure the exported entry point of the kernel library\n"
         "                            (default PATH: ../lib/libqor_sse42.so beside the program)\n"
         "  --strided                 library mode: the strided (I) form\n"
         "  --order N                 order of Jn and Yn (default 3)\n"
         "  --seed N                  random seed\n"
         "  -v, --verbose             worst input and values\n";
}

int run_cli(const std::vector<std::string> &args) {
  if (args.empty()) return usage("missing function name");
  Options base;
  std::string func, type_arg, acc_arg = "HA";
  bool verbose = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    auto value = [&](std::string &out) {
      if (i + 1 >= args.size()) return false;
      out = args[++i];
      return true;
    };
    std::string v;
    long n;
    if (a == "--type") {
      if (!value(type_arg)) return usage("--type needs a value");
    } else if (a == "--accuracy") {
      if (!value(acc_arg)) return usage("--accuracy needs a value");
    } else if (a == "--samples") {
      if (!value(v) || !parse_long(v, n) || n < 0) return usage("--samples needs a count");
      base.samples = n;
    } else if (a == "--order") {
      if (!value(v) || !parse_long(v, n) || n < INT_MIN || n > INT_MAX) return usage("--order needs an integer");
      base.order = static_cast<int>(n);
    } else if (a == "--seed") {
      if (!value(v) || !parse_long(v, n)) return usage("--seed needs an integer");
      base.seed = static_cast<uint64_t>(n);
    } else if (a == "--exhaustive") {
      base.exhaustive = true;
    } else if (a == "--strided") {
      base.strided = true;
    } else if (a == "--library") {
      base.library = true;
      if (i + 1 < args.size() && args[i + 1].rfind("-", 0) != 0 && !func.empty())
        base.library_path = args[++i];
    } else if (a == "-v" || a == "--verbose") {
      verbose = true;
    } else if (!a.empty() && a[0] == '-') {
      return usage("unknown option " + a);
    } else if (func.empty()) {
      func = a;
    } else {
      return usage("unexpected argument " + a);
    }
  }
  if (func.empty()) return usage("missing function name");
  if (base.library && base.library_path.empty()) base.library_path = default_library();
  if (base.strided && !base.library) return usage("--strided applies to --library");

  std::vector<const FunctionInfo *> funcs;
  if (func == "all") {
    for (const auto &f : functions()) funcs.push_back(&f);
  } else {
    const FunctionInfo *f = find_function(func);
    if (!f) return usage("unknown function " + func);
    funcs.push_back(f);
  }
  std::vector<int> slots;
  if (acc_arg == "HA") slots = {1};
  else if (acc_arg == "LA") slots = {0};
  else if (acc_arg == "EP") slots = {2};
  else if (acc_arg == "all") slots = {0, 1, 2};
  else return usage("--accuracy must be HA, LA, EP or all");
  if (!type_arg.empty() && type_arg != "all" &&
      (type_arg.size() != 1 || std::string("sdcz").find(type_arg[0]) == std::string::npos))
    return usage("--type must be s, d, c, z or all");

  int status = 0;
  for (const FunctionInfo *f : funcs) {
    std::string types;
    if (type_arg.empty()) types = f->has_real ? "sd" : "cz";
    else if (type_arg == "all") types = std::string(f->has_real ? "sd" : "") + (f->has_complex ? "cz" : "");
    else types = type_arg;
    for (char t : types) {
      const bool cplx = t == 'c' || t == 'z';
      if ((cplx && !f->has_complex) || (!cplx && !f->has_real)) {
        if (funcs.size() == 1) return usage(std::string("no ") + t + " form of " + f->name);
        continue;
      }
      for (int s : slots) {
        Options o = base;
        o.type = t;
        o.slot = s;
        const Report r = measure(*f, o);
        std::printf("%s\n", format_report(*f, r, verbose).c_str());
        std::fflush(stdout);
        if (!r.within_bound()) status = 1;
      }
    }
  }
  return status;
}

}  // namespace qor::accuracy
