// qor rng: raw integer output and uniform doubles of the basic generators.
//
//   qor rng bits    --brng NAME[:MEMBER] [--seed S[,S...]] [-n N] [--dim D]
//   qor rng uniform --brng NAME[:MEMBER] [--seed S[,S...]] [-n N] [--a A] [--b B] [--dim D]
//
// --dim D (quasi-random generators only: sobol, niederreiter) becomes seed
// word 0, the number of coordinates per point; --seed words then follow it.
//
// --save FILE writes the stream after its output to FILE; --load FILE takes
// the stream (generator included) from such a file instead of --brng and
// --seed, so that a sequence continues across runs.
//
// Without arguments it prints the first outputs of every generator that the
// library provides (the tour's view).
#include <cerrno>
#include <cmath>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "command.h"
#include "qor/rng.h"

namespace qor::tool {
namespace {

struct Named {
  const char *name;
  int32_t brng;
};

const Named kGenerators[] = {
    {"MCG31M1", QOR_BRNG_MCG31},     {"R250", QOR_BRNG_R250},
    {"MRG32K3A", QOR_BRNG_MRG32K3A}, {"MCG59", QOR_BRNG_MCG59},
    {"WH", QOR_BRNG_WH},             {"SOBOL", QOR_BRNG_SOBOL},
    {"NIEDERR", QOR_BRNG_NIEDERR},   {"MT19937", QOR_BRNG_MT19937},
    {"MT2203", QOR_BRNG_MT2203},     {"SFMT19937", QOR_BRNG_SFMT19937},
    {"NONDETERM", QOR_BRNG_NONDETERM}, {"ARS5", QOR_BRNG_ARS5},
    {"PHILOX4X32X10", QOR_BRNG_PHILOX4X32X10},
};

bool quasi_random(int32_t brng) { return brng == QOR_BRNG_SOBOL || brng == QOR_BRNG_NIEDERR; }

std::string upper(std::string s) {
  for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

bool parse_u64(const std::string &s, uint64_t max, uint64_t &out) {
  if (s.empty() || s[0] == '-' || s[0] == '+') return false;
  errno = 0;
  char *end = nullptr;
  const unsigned long long v = std::strtoull(s.c_str(), &end, 0);
  if (errno || *end || v > max) return false;
  out = v;
  return true;
}

bool parse_double(const std::string &s, double &out) {
  if (s.empty()) return false;
  errno = 0;
  char *end = nullptr;
  out = std::strtod(s.c_str(), &end);
  return !errno && !*end;
}

struct Options {
  int32_t brng = -1;
  std::string name;
  std::vector<uint32_t> seed;
  int32_t n = 10;
  double a = 0.0, b = 1.0;
  bool has_dim = false;
  uint32_t dim = 1;
  std::string save, load;  // stream files
};

// Returns 0, or the exit status of a usage error already reported.
int parse(const Args &args, bool uniform, Options &o) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &opt = args[i];
    const bool known = opt == "--brng" || opt == "--seed" || opt == "-n" || opt == "--dim" ||
                       opt == "--save" || opt == "--load" ||
                       (uniform && (opt == "--a" || opt == "--b"));
    if (!known) return usage_error("rng: unknown option '" + opt + "'");
    if (i + 1 >= args.size()) return usage_error("rng: option " + opt + " needs a value");
    const std::string v = args[++i];
    uint64_t u = 0;
    if (opt == "--brng") {
      const size_t colon = v.find(':');
      o.name = upper(v.substr(0, colon));
      if (o.name == "NIEDERREITER") o.name = "NIEDERR";
      o.brng = -1;
      for (const Named &g : kGenerators)
        if (o.name == g.name) o.brng = g.brng;
      if (o.brng < 0) return usage_error("rng: unknown generator '" + v.substr(0, colon) + "'");
      if (colon != std::string::npos) {
        if (!parse_u64(v.substr(colon + 1), 0xFFFFF, u))
          return usage_error("rng: bad member number '" + v.substr(colon + 1) + "'");
        o.brng += static_cast<int32_t>(u);
        GeneratorRecord r;
        if (__rixGetBrngProperties(o.brng, &r) != 0)
          return usage_error("rng: " + o.name + " has no member " + std::to_string(u));
      }
    } else if (opt == "--seed") {
      o.seed.clear();
      size_t start = 0;
      for (;;) {
        const size_t comma = v.find(',', start);
        const std::string part = v.substr(start, comma - start);
        if (!parse_u64(part, 0xFFFFFFFFu, u)) return usage_error("rng: bad seed word '" + part + "'");
        o.seed.push_back(static_cast<uint32_t>(u));
        if (comma == std::string::npos) break;
        start = comma + 1;
      }
    } else if (opt == "--dim") {
      if (!parse_u64(v, 0xFFFFFFFFu, u) || u == 0) return usage_error("rng: bad dimension '" + v + "'");
      o.has_dim = true;
      o.dim = static_cast<uint32_t>(u);
    } else if (opt == "--save" || opt == "--load") {
      if (v.empty()) return usage_error("rng: " + opt + " needs a file name");
      (opt == "--save" ? o.save : o.load) = v;
    } else if (opt == "-n") {
      if (!parse_u64(v, 0x7FFFFFFF, u)) return usage_error("rng: bad count '" + v + "'");
      o.n = static_cast<int32_t>(u);
    } else if (!parse_double(v, opt == "--a" ? o.a : o.b)) {
      return usage_error("rng: bad number '" + v + "' for " + opt);
    }
  }
  if (!o.load.empty() && (o.brng >= 0 || !o.seed.empty() || o.has_dim))
    return usage_error("rng: --load takes the generator and its state from the file; "
                       "drop --brng, --seed and --dim");
  if (o.brng < 0 && o.load.empty()) return usage_error("rng: --brng NAME is required");
  if (o.has_dim && !quasi_random(o.brng))
    return usage_error("rng: --dim applies only to sobol and niederreiter");
  if (o.has_dim) o.seed.insert(o.seed.begin(), o.dim);
  if (uniform && !(o.a < o.b)) return usage_error("rng: --a must be below --b");
  return 0;
}

int generate(Options o, bool uniform) {
  void *stream = nullptr;
  int32_t st = 0;
  if (!o.load.empty()) {
    st = __rixLoadStreamF(&stream, o.load.c_str(), -1);
    if (st != 0) {
      std::fprintf(stderr, "qor: rng: cannot load a stream from '%s' (status %d)\n",
                   o.load.c_str(), st);
      return 1;
    }
    o.brng = __rixGetStreamStateBrng(stream);
  } else {
    st = __rixNewStreamEx(&stream, o.brng, static_cast<uint32_t>(o.seed.size()), o.seed.data());
  }
  if (st != 0) {
    if (stream) __rixDeleteStream(&stream);
    if (st == QOR_RNG_ERROR_BAD_ARG)
      std::fprintf(stderr, "qor: rng: %s rejects the seed or dimension (status %d)\n",
                   o.name.c_str(), st);
    else
      std::fprintf(stderr, "qor: rng: %s is not available (status %d)\n", o.name.c_str(), st);
    return 1;
  }
  GeneratorRecord row;
  __rixGetBrngProperties(o.brng, &row);
  if (!o.load.empty() && (!row.generateI || o.brng == QOR_BRNG_IABSTRACT ||
                          o.brng == QOR_BRNG_DABSTRACT || o.brng == QOR_BRNG_SABSTRACT)) {
    // A legacy row without a generator loads but cannot produce numbers, and
    // an abstract stream's state points into the process that saved it.
    __rixDeleteStream(&stream);
    std::fprintf(stderr, "qor: rng: '%s' holds no stream this tool can continue\n", o.load.c_str());
    return 1;
  }
  constexpr int32_t kBlock = 1 << 14;
  std::vector<uint32_t> words(static_cast<size_t>(kBlock) * 4);
  std::vector<double> reals(kBlock);
  for (int32_t done = 0; done < o.n && st == 0;) {
    const int32_t m = o.n - done < kBlock ? o.n - done : kBlock;
    if (uniform) {
      st = row.generateD(stream, m, reals.data(), o.a, o.b);
      for (int32_t i = 0; i < m && st == 0; ++i) std::printf("%.17g\n", reals[i]);
    } else {
      st = row.generateI(stream, m, words.data());
      for (int32_t i = 0; i < m && st == 0; ++i) {
        if (row.wordSize == 8)
          std::printf("%" PRIu64 "\n", words[2 * i] | (uint64_t{words[2 * i + 1]} << 32));
        else if (row.wordSize == 16)
          std::printf("%u %u %u %u\n", words[4 * i], words[4 * i + 1], words[4 * i + 2],
                      words[4 * i + 3]);
        else
          std::printf("%u\n", words[i]);
      }
    }
    done += m;
  }
  if (st == 0 && !o.save.empty()) {
    st = __rixSaveStreamF(stream, o.save.c_str(), -1);
    if (st != 0) {
      __rixDeleteStream(&stream);
      std::fprintf(stderr, "qor: rng: cannot save the stream to '%s' (status %d)\n",
                   o.save.c_str(), st);
      return 1;
    }
  }
  __rixDeleteStream(&stream);
  if (st != 0) {
    std::fprintf(stderr, "qor: rng: generation failed (status %d)\n", st);
    return 1;
  }
  return 0;
}

int overview() {
  std::printf("%-14s %-10s %s\n", "generator", "id", "first outputs with seed 1 (integer | uniform [0,1))");
  for (const Named &g : kGenerators) {
    Options o;
    o.brng = g.brng;
    o.name = g.name;
    void *s = nullptr;
    const uint32_t seed = 1;
    const int32_t st = __rixNewStreamEx(&s, g.brng, 1, &seed);
    if (st != 0) {
      if (s) __rixDeleteStream(&s);
      std::printf("%-14s 0x%-8X not built yet (status %d)\n", g.name, g.brng, st);
      continue;
    }
    GeneratorRecord row;
    __rixGetBrngProperties(g.brng, &row);
    uint32_t w[8];
    double d[2];
    row.generateI(s, 1, w);
    row.generateD(s, 2, d, 0.0, 1.0);
    if (row.wordSize == 8)
      std::printf("%-14s 0x%-8X %" PRIu64 " | %.6f %.6f\n", g.name, g.brng,
                  w[0] | (uint64_t{w[1]} << 32), d[0], d[1]);
    else
      std::printf("%-14s 0x%-8X %u | %.6f %.6f\n", g.name, g.brng, w[0], d[0], d[1]);
    __rixDeleteStream(&s);
  }
  return 0;
}

// ---- continuous distributions ---------------------------------------------
//   qor rng DIST --brng NAME[:MEMBER] [--seed S,..] [-n N] [--method M] P1 P2 ..
// DIST is flat (the Uniform distribution), gaussian, exponential, laplace,
// weibull, cauchy, rayleigh, lognormal or gumbel; the parameters follow the
// entry point's order.  The kernels trust their parameters, so the tool
// checks them and says which one is wrong.

struct Dist {
  const char *name;
  std::vector<const char *> params;
  bool many_methods;  // Gaussian: methods 0, 1, 2
  // Empty when the parameters are valid, else what is wrong.
  std::string (*check)(const std::vector<double> &p);
  int32_t (*draw)(uint32_t method, void *stream, int32_t n, double *r, const double *p);
};

std::string positive(const char *what, double v) {
  return v > 0 ? std::string() : std::string(what) + " must be positive";
}

const Dist kDists[] = {
    {"flat",
     {"a", "b"},
     false,
     [](const std::vector<double> &p) {
       return p[0] < p[1] ? std::string() : std::string("a must be below b");
     },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngUniform(m, s, n, r, p[0], p[1]);
     }},
    {"gaussian",
     {"a", "sigma"},
     true,
     [](const std::vector<double> &p) { return positive("sigma", p[1]); },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngGaussian(m, s, n, r, p[0], p[1]);
     }},
    {"exponential",
     {"a", "beta"},
     false,
     [](const std::vector<double> &p) { return positive("beta", p[1]); },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngExponential(m, s, n, r, p[0], p[1]);
     }},
    {"laplace",
     {"a", "beta"},
     false,
     [](const std::vector<double> &p) { return positive("beta", p[1]); },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngLaplace(m, s, n, r, p[0], p[1]);
     }},
    {"weibull",
     {"alpha", "a", "beta"},
     false,
     [](const std::vector<double> &p) {
       std::string e = positive("alpha", p[0]);
       return e.empty() ? positive("beta", p[2]) : e;
     },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngWeibull(m, s, n, r, p[0], p[1], p[2]);
     }},
    {"cauchy",
     {"a", "beta"},
     false,
     [](const std::vector<double> &p) { return positive("beta", p[1]); },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngCauchy(m, s, n, r, p[0], p[1]);
     }},
    {"rayleigh",
     {"a", "beta"},
     false,
     [](const std::vector<double> &p) { return positive("beta", p[1]); },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngRayleigh(m, s, n, r, p[0], p[1]);
     }},
    {"lognormal",
     {"a", "sigma", "b", "beta"},
     false,
     [](const std::vector<double> &p) {
       std::string e = positive("sigma", p[1]);
       return e.empty() ? positive("beta", p[3]) : e;
     },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngLognormal(m, s, n, r, p[0], p[1], p[2], p[3]);
     }},
    {"gumbel",
     {"a", "beta"},
     false,
     [](const std::vector<double> &p) { return positive("beta", p[1]); },
     [](uint32_t m, void *s, int32_t n, double *r, const double *p) {
       return _rixdRngGumbel(m, s, n, r, p[0], p[1]);
     }},
};

const Dist *find_dist(const std::string &name) {
  for (const Dist &d : kDists)
    if (name == d.name) return &d;
  return nullptr;
}

std::string dist_usage(const Dist &d) {
  std::string u =
      std::string("usage: qor rng ") + d.name + " --brng NAME [--seed S] [-n N] [--method M]";
  for (const char *p : d.params) u += std::string(" ") + p;
  return u;
}

int run_dist(const Dist &d, const Args &args) {
  Args rest;
  std::vector<double> params;
  uint64_t method = 0;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    if (a == "--method") {
      if (i + 1 >= args.size()) return usage_error("rng: option --method needs a value");
      if (!parse_u64(args[++i], 0xFFFFFFFFu, method))
        return usage_error("rng: bad method '" + args[i] + "'");
    } else if (a == "--brng" || a == "--seed" || a == "-n" || a.rfind("--", 0) == 0) {
      rest.push_back(a);  // parse() checks the option and its value
      if (i + 1 < args.size()) rest.push_back(args[++i]);
    } else {
      double v = 0;
      if (!parse_double(a, v))
        return usage_error("rng: " + std::string(d.name) + ": bad parameter '" + a + "'");
      params.push_back(v);
    }
  }
  if (params.size() != d.params.size())
    return usage_error("rng: " + std::string(d.name) + " takes " + std::to_string(d.params.size()) +
                       " parameters, got " + std::to_string(params.size()) + "\n" + dist_usage(d));
  const uint32_t low = static_cast<uint32_t>(method) & ~QOR_RNG_METHOD_ACCURATE;
  if (low > (d.many_methods ? 2u : 0u))
    return usage_error("rng: " + std::string(d.name) + ": method " + std::to_string(low) +
                       (d.many_methods
                            ? " is not 0, 1 or 2"
                            : " is not 0 (only the accuracy flag 0x40000000 may be set)"));
  if (std::string e = d.check(params); !e.empty())
    return usage_error("rng: " + std::string(d.name) + ": " + e);
  Options o;
  if (int rc = parse(rest, false, o); rc != 0) return rc;
  void *stream = nullptr;
  int32_t st =
      __rixNewStreamEx(&stream, o.brng, static_cast<uint32_t>(o.seed.size()), o.seed.data());
  if (st != 0) {
    if (stream) __rixDeleteStream(&stream);
    std::fprintf(stderr, "qor: rng: %s is not available (status %d)\n", o.name.c_str(), st);
    return 1;
  }
  constexpr int32_t kBlock = 1 << 14;
  std::vector<double> r(kBlock);
  for (int32_t done = 0; done < o.n && st >= 0;) {
    const int32_t m = o.n - done < kBlock ? o.n - done : kBlock;
    st = d.draw(static_cast<uint32_t>(method), stream, m, r.data(), params.data());
    for (int32_t i = 0; i < m && st >= 0; ++i) std::printf("%.17g\n", r[i]);
    done += m;
  }
  __rixDeleteStream(&stream);
  if (st < 0) {
    std::fprintf(stderr, "qor: rng: %s failed (status %d)\n", d.name, st);
    return 1;
  }
  return 0;
}

// Integer members:
//   qor rng uniform-int --brng NAME [--seed S] [-n N] A B
//   qor rng bernoulli   --brng NAME [--seed S] [-n N] P
//   qor rng bits32|bits64 --brng NAME [--seed S] [-n N]
int run_integer(const std::string &sub, const Args &args) {
  Args rest;
  std::vector<double> params;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    if (a == "--brng" || a == "--seed" || a == "-n" || a.rfind("--", 0) == 0) {
      rest.push_back(a);
      if (i + 1 < args.size()) rest.push_back(args[++i]);
    } else {
      double v = 0;
      if (!parse_double(a, v)) return usage_error("rng: " + sub + ": bad parameter '" + a + "'");
      params.push_back(v);
    }
  }
  const size_t want = sub == "uniform-int" ? 2 : sub == "bernoulli" ? 1 : 0;
  if (params.size() != want)
    return usage_error("rng: " + sub + " takes " + std::to_string(want) + " parameters, got " +
                       std::to_string(params.size()));
  if (sub == "uniform-int") {
    for (double v : params)
      if (v != std::floor(v) || v < -2147483648.0 || v > 2147483647.0)
        return usage_error("rng: uniform-int: bounds must be 32-bit integers");
    if (!(params[0] < params[1])) return usage_error("rng: uniform-int: a must be below b");
  }
  if (sub == "bernoulli" && !(params[0] >= 0 && params[0] <= 1))
    return usage_error("rng: bernoulli: p must lie in [0, 1]");
  Options o;
  if (int rc = parse(rest, false, o); rc != 0) return rc;
  void *stream = nullptr;
  int32_t st =
      __rixNewStreamEx(&stream, o.brng, static_cast<uint32_t>(o.seed.size()), o.seed.data());
  if (st != 0) {
    if (stream) __rixDeleteStream(&stream);
    std::fprintf(stderr, "qor: rng: %s is not available (status %d)\n", o.name.c_str(), st);
    return 1;
  }
  constexpr int32_t kBlock = 1 << 13;
  std::vector<uint32_t> w(2 * static_cast<size_t>(kBlock));
  for (int32_t done = 0; done < o.n && st >= 0;) {
    const int32_t m = o.n - done < kBlock ? o.n - done : kBlock;
    if (sub == "uniform-int") {
      auto *r = reinterpret_cast<int32_t *>(w.data());
      st = _rixiRngUniform(0, stream, m, r, static_cast<int32_t>(params[0]),
                           static_cast<int32_t>(params[1]));
      for (int32_t i = 0; i < m && st >= 0; ++i) std::printf("%d\n", r[i]);
    } else if (sub == "bernoulli") {
      st = _rixiRngBernoulli(0, stream, m, w.data(), params[0]);
      for (int32_t i = 0; i < m && st >= 0; ++i) std::printf("%u\n", w[i]);
    } else if (sub == "bits32") {
      st = _rixiRngUniformBits32(0, stream, m, w.data());
      for (int32_t i = 0; i < m && st >= 0; ++i) std::printf("%u\n", w[i]);
    } else {
      st = _rixiRngUniformBits64(0, stream, m, w.data());
      for (int32_t i = 0; i < m && st >= 0; ++i)
        std::printf("%" PRIu64 "\n", w[2 * i] | (uint64_t{w[2 * i + 1]} << 32));
    }
    done += m;
  }
  __rixDeleteStream(&stream);
  if (st == QOR_RNG_ERROR_NO_UNIFORM_BITS) {
    std::fprintf(stderr, "qor: rng: %s cannot give uniform bits of that width (status %d)\n",
                 o.name.c_str(), st);
    return 1;
  }
  if (st < 0) {
    std::fprintf(stderr, "qor: rng: %s failed (status %d)\n", sub.c_str(), st);
    return 1;
  }
  return 0;
}

int run_rng(const Args &args) {
  if (args.empty()) return overview();
  const std::string sub = args[0];
  if (const Dist *d = find_dist(sub)) return run_dist(*d, Args(args.begin() + 1, args.end()));
  if (sub == "uniform-int" || sub == "bernoulli" || sub == "bits32" || sub == "bits64")
    return run_integer(sub, Args(args.begin() + 1, args.end()));
  if (sub != "bits" && sub != "uniform")
    return usage_error(
        "rng: unknown subcommand '" + sub +
        "' (bits, uniform, uniform-int, bernoulli, bits32, bits64, or a distribution: "
        "flat gaussian exponential laplace weibull cauchy rayleigh lognormal gumbel)");
  Options o;
  const bool uniform = sub == "uniform";
  if (int rc = parse(Args(args.begin() + 1, args.end()), uniform, o); rc != 0) return rc;
  return generate(o, uniform);
}

}  // namespace

QOR_COMMAND("rng",
            "basic random generators: rng bits|uniform --brng NAME[:MEMBER] --seed S,.. -n N "
            "[--dim D] [--save FILE] [--load FILE]",
            run_rng, 30);

}  // namespace qor::tool
