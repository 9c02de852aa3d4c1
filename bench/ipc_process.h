// Keeping a cross-process benchmark bounded in time and clean: the peer runs in a forked child
// under an alarm (conflink::testing::ChildProcess), the parent has a watchdog, and named
// shared-memory objects are removed however the run ends (normal end, a failed transport, a timeout
// or an interrupt).
#pragma once

#include <sys/types.h>

#include <string>

namespace conflink::bench {

// Remembers a shared-memory object name (as shm_open sees it) so that it is removed at the end
// of its row, by the watchdog, and on an interrupt. At most a handful are tracked at once.
void trackSharedObject(const std::string& name);
// Removes every tracked object now and forgets them. Safe to call more than once.
void removeSharedObjects();

// Installs the parent's handlers: SIGALRM (the watchdog), SIGINT, SIGTERM and SIGHUP kill the
// running child, remove the tracked objects, say why on stderr and exit with status 3. SIGCHLD is
// caught without restarting system calls, so a parent blocked in a kernel queue whose peer died
// wakes up with EINTR and can give up (see childEnded). SIGPIPE is ignored.
void installWatchdog();
// Starts the watchdog for one step of the run, named for the message it prints if it fires.
void armWatchdog(unsigned seconds, const char* step);
void disarmWatchdog();
// True once a child has ended since the last fork: blocking calls that return EINTR stop then.
bool childEnded();

// The child of the row being measured (tests/support/child_process.h), for the handlers: they
// kill it when they fire. Called with 0 before the fork (which also forgets that an earlier
// child ended, see childEnded), then with the child's pid, and with 0 once it is reaped.
void watchChild(pid_t pid);

// Describes an exit result from ChildProcess::wait for a report line.
std::string describeChildStatus(int status);

}  // namespace conflink::bench
