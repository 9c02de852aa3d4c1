// Opening a queue's shared object safely. Queue names are predictable and the directory behind
// them is writable by every user, so whatever is found under a queue's name may have been put
// there by someone else: a FIFO (an open would block for ever), a symbolic link or a hard link to
// another file of the user (sizing the object would truncate that file), or an object of
// another user. Every open of a queue object goes through here.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

namespace conflink::queue {

// What OpenQueueObject insists on beyond a regular file with at most one link.
enum class Ownership {
  kPrivate,  // owned by the effective user, no access for group or others (parties)
  kAny,      // reported by the caller (an inspector only reads, and says whose it is)
};

// Opens the object `name` (as shm_open takes it) with `flags` plus O_NOFOLLOW, O_NONBLOCK and
// O_CLOEXEC, `mode` for a new one, and checks what it opened: a regular file (no FIFO, device
// or directory), at most one link (none when it was removed meanwhile: the caller decides), and
// as `ownership` says, its owner and mode. Returns the descriptor, with `st` filled; or -1 with
// nothing open, `error` saying which check failed and errno ENOENT only when nothing is there.
int OpenQueueObject(const std::string& name, int flags, mode_t mode, Ownership ownership,
                    struct stat& st, std::string& error);

}  // namespace conflink::queue
