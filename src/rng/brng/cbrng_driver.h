// The buffering logic shared by the counter-based generators.  A generator
// supplies, in a file-local traits type G:
//   G::State                         its state record (remaining, buf[4])
//   G::next_block(State&, uint32_t[4])  block of the current counter, counter += 1
//   G::bulk(State&, uint64_t n, uint32_t*) n whole blocks, counter += n
// Instantiations are made with file-local traits only, so each translation
// unit gets its own copy compiled with its own instruction-set flags.
#pragma once

#include <cstdint>

#include "rng/brng/cbrng.h"

namespace qor::rng {

// Delivers n words: first the buffered ones, then whole blocks straight into
// r, then the head of one more block whose unused words stay buffered.
template <class G>
void cb_fill_words(typename G::State &s, int n, uint32_t *r) {
  if (n <= 0) return;
  // A state with more than 4 remaining words cannot come from this code; read
  // it as a full buffer rather than reading outside the block.
  uint32_t rem = s.remaining > 4 ? 4 : s.remaining;
  const uint32_t take = rem < static_cast<uint32_t>(n) ? rem : static_cast<uint32_t>(n);
  for (uint32_t i = 0; i < take; ++i) r[i] = s.buf[4 - rem + i];
  rem -= take;
  r += take;
  const uint32_t left = static_cast<uint32_t>(n) - take;
  const uint32_t whole = left / 4;
  if (whole) {
    G::bulk(s, whole, r);
    r += 4 * static_cast<uint64_t>(whole);
  }
  const uint32_t tail = left % 4;
  if (tail) {
    G::next_block(s, s.buf);
    for (uint32_t i = 0; i < tail; ++i) r[i] = s.buf[i];
    rem = 4 - tail;
  }
  s.remaining = rem;
}

// Floating-point output through a small word buffer that stays in L1.
template <class G, class T, class Scale>
void cb_fill_scaled(typename G::State &s, int n, T *r, T a, T b, Scale scale) {
  constexpr int kChunk = 512;
  alignas(16) uint32_t words[kChunk];
  while (n > 0) {
    const int m = n < kChunk ? n : kChunk;
    cb_fill_words<G>(s, m, words);
    scale(words, m, r, a, b);
    r += m;
    n -= m;
  }
}

}  // namespace qor::rng
