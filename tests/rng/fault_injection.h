// Allocation fault injection for the random stream tests: the test program
// defines qor_serv_allocate itself (the kernel objects are linked statically,
// so their calls resolve here) and forwards to the core library unless a
// failure has been armed.
#pragma once

namespace qor_test {

// The next `skip` allocations succeed, the one after fails; -1 disarms.
void fail_allocation_after(int skip);

// Number of live blocks handed out through qor_serv_allocate minus those
// returned through qor_serv_deallocate, since the program started.
long live_blocks();

}  // namespace qor_test
