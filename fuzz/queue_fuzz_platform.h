// What the queue-object target puts under the queue, through the linker's symbol wrapping (see
// fuzz/CMakeLists.txt): a simulated clock and futex, so that no step sleeps and every run of an
// input takes the same path; mappings of shared objects placed between inaccessible guard pages,
// so that an access past the queue's object faults at once; and a watch on the sizes allocated.
#pragma once

#include <cstddef>
#include <cstdint>

namespace conflink::fuzz::queue_platform {

// Checks that the wrapping is in effect (the queue's waits would really sleep otherwise) and
// stops the program when it is not.
void RequireSimulation();

// Sets the simulated clock back to its start, for the next input.
void ResetClock();

// Called when a party goes to sleep on its doorbell, with the time of the sleep not yet passed:
// what the peer would do meanwhile. Not called again while it runs (a sleep inside it only moves
// the clock on). Null: nothing happens during sleeps.
using SleepHook = void (*)(void* context);
void SetSleepHook(SleepHook hook, void* context);

// The largest single allocation (operator new) made while watching, since the last reset.
void WatchAllocations(bool on);
void ResetLargestAllocation();
std::size_t LargestAllocation();

// Mappings of shared objects currently held between guard pages.
int GuardedMappings();

}  // namespace conflink::fuzz::queue_platform
