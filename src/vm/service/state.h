// Per-thread vector math state: mode word, error status, callback and the
// input base used to turn piece-relative indices into whole-vector indices.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qor/pex.h"

namespace qor::vm {

struct ThreadState {
  uint32_t mode;  // 0 until this thread first reads or changes it
  int32_t status;
  PexErrorCallback callback;
  const void *input_base;  // not cleared when the block is created
  uint64_t reserved;
};
static_assert(sizeof(ThreadState) == 32);
static_assert(offsetof(ThreadState, mode) == 0);
static_assert(offsetof(ThreadState, status) == 4);
static_assert(offsetof(ThreadState, callback) == 8);
static_assert(offsetof(ThreadState, input_base) == 16);

// The calling thread's block, created on first use.  Ends the process with
// exit code 3 (after message 773) when no block can be had.
ThreadState &thread_state();

// The thread's mode word, initialised from QOR_PEX_MODE when still 0.  This is
// what every kernel frame reads.
uint32_t current_mode();

// Parses a QOR_PEX_MODE text.  Returns false when the text yields no value
// (malformed, or empty); `value` is the OR of the tokens' values otherwise.
bool parse_mode_text(const char *text, int length, uint64_t *value);

// The mode a thread starts with, given the environment's text (null or a
// length below 1 meaning no value).
uint32_t initial_mode(const char *text, int length);

// Puts back a mode word saved earlier, exactly: SetMode's merge cannot clear
// a field to zero, so library code that brackets its own vector-math calls
// (the distributions) restores the caller's word through this.
void restore_mode(uint32_t mode);

// Field-by-field merge used by SetMode.
uint32_t merge_mode(uint32_t old_mode, uint32_t new_mode);

// Test hooks: number of live per-thread blocks in the private heap.
size_t live_state_blocks();

}  // namespace qor::vm
