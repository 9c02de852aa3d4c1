// The kernel-held locks on a queue's shared-memory object: open-file-description locks, one byte
// each, so that they belong to one open of the object (not to the process) and vanish with it
// when its holder dies.
//
//   byte 0      taken exclusively to attach, leave or initialise the object; an inspector takes
//               it shared, which keeps the object's size and its places' holders still
//   byte 1 + p  held by the party in place p for as long as it is attached
//   byte kLineLockBase + t % kLineSlots
//               held by the process waiting in line for a place with ticket t (see
//               SegmentHeader::lineNext), so that those behind it can tell whether it still
//               waits (one that dies or gives up leaves the line with its lock)
#pragma once

#include <fcntl.h>

#include <cstdint>

namespace conflink::queue {

constexpr off_t kBookkeepingLockByte = 0;
constexpr off_t kLineLockBase = 16;
constexpr std::uint32_t kLineSlots = 1024;
inline off_t PlaceLockByte(int place) {
  return static_cast<off_t>(1 + place);
}

// Takes (F_RDLCK, F_WRLCK) or releases (F_UNLCK) the lock on `byte` without waiting; false with
// errno set when another open holds it in a conflicting way.
inline bool SetByteLock(int fd, short type, off_t byte) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = 1;
  return fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

// Whether another open of the object holds a lock on `byte`. When the kernel cannot say, the
// answer is "held", so that a party that may be alive is never declared gone; `failed`, if
// given, tells the two apart.
inline bool ByteLockHeldElsewhere(int fd, off_t byte, bool* failed = nullptr) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = 1;
  const bool error = fcntl(fd, F_OFD_GETLK, &lock) != 0;
  if (failed != nullptr) *failed = error;
  return error || lock.l_type != F_UNLCK;
}

}  // namespace conflink::queue
