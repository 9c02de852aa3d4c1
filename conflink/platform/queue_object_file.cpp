#include <conflink/platform/queue_object_file.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace conflink::queue {
namespace {

std::string Octal(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

// Why `st` is not acceptable, or "" when it is.
std::string Refusal(const struct stat& st, Ownership ownership) {
  if (!S_ISREG(st.st_mode)) {
    const char* kind = S_ISFIFO(st.st_mode)   ? "a FIFO"
                       : S_ISDIR(st.st_mode)  ? "a directory"
                       : S_ISCHR(st.st_mode)  ? "a character device"
                       : S_ISBLK(st.st_mode)  ? "a block device"
                       : S_ISSOCK(st.st_mode) ? "a socket"
                                              : "not a regular file";
    return std::string("is ") + kind + ", not a regular file";
  }
  if (st.st_nlink > 1)
    return "has " + std::to_string(st.st_nlink) +
           " links: another name reaches the same file, so it is not the queue's alone";
  if (ownership == Ownership::kPrivate) {
    if (st.st_uid != geteuid())
      return "belongs to user " + std::to_string(st.st_uid) + ", not to this user (" +
             std::to_string(geteuid()) + ")";
    if ((st.st_mode & 0077) != 0)
      return "has mode " + Octal(st.st_mode) + ": open to others (a queue's object is 0600)";
  }
  return "";
}

}  // namespace

int OpenQueueObject(const std::string& name, int flags, mode_t mode, Ownership ownership,
                    struct stat& st, std::string& error) {
  const int fd = shm_open(name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
  if (fd < 0) {
    error = "cannot open shared object " + name + ": " +
            (errno == ELOOP ? std::string("it is a symbolic link") : std::strerror(errno));
    return -1;
  }
  if (fstat(fd, &st) != 0) {
    error = "cannot inspect shared object " + name + ": " + std::strerror(errno);
    close(fd);
    return -1;
  }
  const std::string refusal = Refusal(st, ownership);
  if (!refusal.empty()) {
    error = "shared object " + name + " " + refusal + "; not used";
    close(fd);
    errno = EPERM;  // not ENOENT: something is there
    return -1;
  }
  return fd;
}

}  // namespace conflink::queue
