// Helpers of the distribution tests: uniform streams fed with chosen values,
// independent reference transformations.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "qor/rng.h"

namespace qor_dist_test {

// Values handed out, cyclically, by the refill routines of the fed abstract
// streams; a refill with `fail` set returns 0 numbers.
struct Feed {
  std::vector<double> values;
  size_t next = 0;
  bool fail = false;
};
inline Feed &feed() {
  static Feed f;
  return f;
}

template <class T>
int32_t feed_refill(void *, int32_t *n, T *buffer, int32_t *, int32_t *nmax, int32_t *idx) {
  Feed &f = feed();
  if (f.fail) return 0;
  for (int32_t j = 0; j < *nmax; ++j) {
    buffer[(*idx + j) % *n] = static_cast<T>(f.values[f.next % f.values.size()]);
    ++f.next;
  }
  return *nmax;
}

// An abstract stream over [0, 1) handing out the feed's values.
class FedStream {
 public:
  FedStream(bool single, std::vector<double> values, bool fail = false) {
    feed().values = std::move(values);
    feed().next = 0;
    feed().fail = fail;
    if (single)
      status_ = __rixsNewAbstractStream(&p_, kLen, sbuf_, 0.0f, 1.0f, feed_refill<float>);
    else
      status_ = __rixdNewAbstractStream(&p_, kLen, dbuf_, 0.0, 1.0, feed_refill<double>);
  }
  ~FedStream() {
    if (p_) __rixDeleteStream(&p_);
  }
  void *get() const { return p_; }
  int32_t status() const { return status_; }

 private:
  static constexpr int32_t kLen = 64;
  void *p_ = nullptr;
  int32_t status_ = 0;
  double dbuf_[kLen] = {};
  float sbuf_[kLen] = {};
};

// Inverse error function by Newton steps on std::erf (independent of the
// library's kernel).
inline double erfinv_ref(double y) {
  if (y <= -1.0) return -INFINITY;
  if (y >= 1.0) return INFINITY;
  // Start from a rough closed form, then refine.
  const double w = -std::log((1.0 - y) * (1.0 + y));
  const double t = 4.330746750799873 - w / 2;  // 2 / (pi * 0.147) + ln(1 - y^2) / 2
  double x = std::copysign(std::sqrt(std::sqrt(t * t + w / 0.147) - t), y);
  for (int i = 0; i < 4; ++i) {
    const double err = std::erf(x) - y;
    x -= err / (1.1283791670955126 * std::exp(-x * x));
  }
  return x;
}

}  // namespace qor_dist_test
