// ARS5 against Random123's ars4x32 with five rounds, a second independent
// implementation of the same published block function.  Random123 needs the
// AES instructions at compile time, so only its header is built for them and
// the test runs only when the processor has them.
#include <gtest/gtest.h>

#include <random>

#include "rng/brng/cbrng.h"

#pragma GCC push_options
#pragma GCC target("aes")
#define R123_USE_AES_NI 1
#include <Random123/ars.h>

namespace {

// Built for AES along with the header; called only after the processor check.
void random123_ars5(const uint32_t key[4], const uint64_t c[2], uint32_t out[4]) {
  using G = r123::ARS4x32_R<5>;
  G::ukey_type uk = {{key[0], key[1], key[2], key[3]}};
  const G::ctr_type ctr = {{static_cast<uint32_t>(c[0]), static_cast<uint32_t>(c[0] >> 32),
                            static_cast<uint32_t>(c[1]), static_cast<uint32_t>(c[1] >> 32)}};
  const G::ctr_type r = G()(ctr, G::key_type(uk));
  for (int i = 0; i < 4; ++i) out[i] = r.v[i];
}

}  // namespace
#pragma GCC pop_options

namespace {

TEST(Ars5Random123, BlocksMatchArs4x32WithFiveRounds) {
  if (!qor::rng::cpu_has_aes()) GTEST_SKIP() << "processor without AES";
  std::mt19937_64 rng(4242);
  for (int t = 0; t < 500; ++t) {
    const uint64_t c[2] = {rng(), t % 3 == 0 ? ~uint64_t{0} : rng()};
    uint32_t key[4];
    for (int i = 0; i < 4; ++i) key[i] = static_cast<uint32_t>(rng());
    uint32_t out[4], ref[4];
    qor::rng::ars5_block(key, c, out);
    random123_ars5(key, c, ref);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(out[i], ref[i]) << "trial " << t << " word " << i;
  }
}

}  // namespace
