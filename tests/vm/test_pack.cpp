// Pack and Unpack for all four element types, through the exported entry
// points (32-bit integers) and through the kernels' 64-bit integer path.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

extern "C" {
#define QOR_PACK_DECL(t, E)                                                   \
  void _pex##t##PackI(int32_t, const E *, int32_t, E *);                     \
  void _pex##t##PackV(int32_t, const E *, const int32_t *, E *);             \
  void _pex##t##PackM(int32_t, const E *, const int32_t *, E *);             \
  void _pex##t##UnpackI(int32_t, const E *, E *, int32_t);                   \
  void _pex##t##UnpackV(int32_t, const E *, E *, const int32_t *);           \
  void _pex##t##UnpackM(int32_t, const E *, E *, const int32_t *);           \
  void _pex##t##PackI_21(int32_t, const E *, int32_t, E *);                  \
  void _pex##t##UnpackV_26(int32_t, const E *, E *, const int32_t *);
struct Z16 {
  double re, im;
};
QOR_PACK_DECL(s, float)
QOR_PACK_DECL(d, double)
QOR_PACK_DECL(c, uint64_t)
QOR_PACK_DECL(z, Z16)
}
#include "qor/vm.h"
extern "C" const QorPexKernelTable qor_pex_kernel_dPackI_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_dUnpackV_ttab;

namespace {

template <class E>
E make(int i) {
  E e;
  std::memset(&e, 0, sizeof e);
  // distinct bit patterns, including a signalling-NaN-like one for floats
  uint64_t v = 0x7FA0000000000000ull + uint64_t(i) * 0x10001ull;
  std::memcpy(&e, &v, sizeof e < 8 ? sizeof e : 8);
  if (sizeof e == 4) {
    uint32_t w = 0x7FA00000u + uint32_t(i);
    std::memcpy(&e, &w, 4);
  }
  return e;
}
template <class E>
bool same(const E &a, const E &b) {
  return std::memcmp(&a, &b, sizeof(E)) == 0;
}

template <class E, class Fns>
void check(const Fns &f) {
  const int n = 9;
  std::vector<E> a(3 * n);
  for (int i = 0; i < 3 * n; ++i) a[i] = make<E>(i);
  const E fill = make<E>(1000);
  // PackI: every third element
  {
    std::vector<E> y(n + 1, fill);
    f.packI(n, a.data(), 3, y.data());
    for (int i = 0; i < n; ++i) EXPECT_TRUE(same(y[i], a[3 * i])) << i;
    EXPECT_TRUE(same(y[n], fill));
  }
  // PackV: by index, repeated and reversed indices
  {
    int32_t ia[n] = {8, 0, 3, 3, 26, 1, 7, 2, 5};
    std::vector<E> y(n + 1, fill);
    f.packV(n, a.data(), ia, y.data());
    for (int i = 0; i < n; ++i) EXPECT_TRUE(same(y[i], a[ia[i]])) << i;
    EXPECT_TRUE(same(y[n], fill));
  }
  // PackM: the masked elements, compacted
  {
    int32_t ma[n] = {1, 0, 0, 5, -1, 0, 1, 0, 1};
    std::vector<E> y(n, fill);
    f.packM(n, a.data(), ma, y.data());
    int j = 0;
    for (int i = 0; i < n; ++i)
      if (ma[i]) {
        EXPECT_TRUE(same(y[j++], a[i])) << i;
      }
    for (; j < n; ++j) EXPECT_TRUE(same(y[j], fill)) << "written past the packed count";
  }
  // UnpackI
  {
    std::vector<E> y(2 * n, fill);
    f.unpackI(n, a.data(), y.data(), 2);
    for (int i = 0; i < 2 * n; ++i) EXPECT_TRUE(same(y[i], i % 2 ? fill : a[i / 2])) << i;
  }
  // UnpackV
  {
    int32_t iy[n] = {4, 0, 11, 2, 9, 1, 3, 10, 5};
    std::vector<E> y(12, fill);
    f.unpackV(n, a.data(), y.data(), iy);
    for (int i = 0; i < n; ++i) EXPECT_TRUE(same(y[iy[i]], a[i])) << i;
    EXPECT_TRUE(same(y[6], fill));
  }
  // UnpackM: consecutive sources to the masked places, others untouched
  {
    int32_t my[n] = {0, 1, 1, 0, 0, 7, 0, 1, 0};
    std::vector<E> y(n, fill);
    f.unpackM(n, a.data(), y.data(), my);
    int j = 0;
    for (int i = 0; i < n; ++i) EXPECT_TRUE(same(y[i], my[i] ? a[j++] : fill)) << i;
  }
  // n <= 0 writes nothing
  {
    std::vector<E> y(2, fill);
    int32_t idx[1] = {0};
    f.packI(0, a.data(), 1, y.data());
    f.packV(-3, a.data(), idx, y.data());
    f.unpackM(-1, a.data(), y.data(), idx);
    EXPECT_TRUE(same(y[0], fill));
  }
}

#define QOR_PACK_FNS(t, E)                                                     \
  struct Fns_##t {                                                             \
    void (*packI)(int32_t, const E *, int32_t, E *) = _pex##t##PackI;          \
    void (*packV)(int32_t, const E *, const int32_t *, E *) = _pex##t##PackV;  \
    void (*packM)(int32_t, const E *, const int32_t *, E *) = _pex##t##PackM;  \
    void (*unpackI)(int32_t, const E *, E *, int32_t) = _pex##t##UnpackI;      \
    void (*unpackV)(int32_t, const E *, E *, const int32_t *) = _pex##t##UnpackV; \
    void (*unpackM)(int32_t, const E *, E *, const int32_t *) = _pex##t##UnpackM; \
  };
QOR_PACK_FNS(s, float)
QOR_PACK_FNS(d, double)
QOR_PACK_FNS(c, uint64_t)
QOR_PACK_FNS(z, Z16)

TEST(VmPack, Single) { check<float>(Fns_s{}); }
TEST(VmPack, Double) { check<double>(Fns_d{}); }
TEST(VmPack, SingleComplex) { check<uint64_t>(Fns_c{}); }
TEST(VmPack, DoubleComplex) { check<Z16>(Fns_z{}); }

// The suffixed entries pass the same width argument.
TEST(VmPack, AccuracySuffixesBehaveAlike) {
  float a[6] = {1, 2, 3, 4, 5, 6}, y[3];
  _pexsPackI_21(3, a, 2, y);
  EXPECT_EQ(y[2], 5.0f);
  double b[2] = {7, 8}, z[3] = {0, 0, 0};
  int32_t iy[2] = {2, 0};
  _pexdUnpackV_26(2, b, z, iy);
  EXPECT_EQ(z[2], 7.0);
  EXPECT_EQ(z[0], 8.0);
}

// Width other than 1: count, increment and indices are 64-bit.
TEST(VmPack, SixtyFourBitPath) {
  using PI = void (*)(int64_t, const double *, int64_t, double *, int);
  using UV = void (*)(int64_t, const double *, double *, const int64_t *, int);
  double a[8] = {0, 1, 2, 3, 4, 5, 6, 7}, y[4];
  // a count with garbage above bit 31 would be wrong under the 32-bit path
  reinterpret_cast<PI>(qor_pex_kernel_dPackI_ttab.kernel[1])(4, a, 2, y, 8);
  EXPECT_EQ(y[3], 6.0);
  reinterpret_cast<PI>(qor_pex_kernel_dPackI_ttab.kernel[1])(int64_t(0x100000000) | 2, a, 1, y,
                                                             1);
  EXPECT_EQ(y[0], 0.0);
  EXPECT_EQ(y[1], 1.0);
  EXPECT_EQ(y[2], 4.0) << "32-bit path reads only the low half of the count";
  int64_t iy[2] = {3, 1};
  double z[4] = {-1, -1, -1, -1};
  reinterpret_cast<UV>(qor_pex_kernel_dUnpackV_ttab.kernel[0])(2, a + 5, z, iy, 0);
  EXPECT_EQ(z[3], 5.0);
  EXPECT_EQ(z[1], 6.0);
  EXPECT_EQ(z[0], -1.0);
}

}  // namespace
