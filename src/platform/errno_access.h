// The C runtime's errno, reached through the runtime's own accessor so that
// the value the caller's runtime reads is the one we set.
#pragma once

namespace qor::platform {

// Sets the calling thread's errno through the runtime accessor.  The accessor
// is looked up once per process; if the runtime exports none, nothing is set.
void set_errno(int value);

}  // namespace qor::platform
