#include <conflink/messaging/wait_set.h>

#include <utility>

namespace conflink {

bool WaitSet::Add(int fd, short events, Handler handler) {
  if (fd < 0) return false;
  for (std::size_t i = 0; i < fds_.size(); ++i) {
    if (fds_[i].fd == fd) {
      fds_[i].events = events;
      handlers_[i] = std::move(handler);
      return true;
    }
  }
  fds_.push_back(pollfd{fd, events, 0});
  handlers_.push_back(std::move(handler));
  return true;
}

bool WaitSet::Remove(int fd) {
  for (std::size_t i = 0; i < fds_.size(); ++i) {
    if (fds_[i].fd == fd) {
      fds_.erase(fds_.begin() + static_cast<std::ptrdiff_t>(i));
      handlers_.erase(handlers_.begin() + static_cast<std::ptrdiff_t>(i));
      return true;
    }
  }
  return false;
}

int WaitSet::Wait(int timeoutMs) {
  for (pollfd& p : fds_) p.revents = 0;
  const int n = poll(fds_.data(), static_cast<nfds_t>(fds_.size()), timeoutMs);
  if (n <= 0) return n;
  // Handlers may change the set: collect what is ready first, and look each one up again
  // before running it, so that a removed entry does not run.
  std::vector<pollfd> ready;
  for (const pollfd& p : fds_)
    if (p.revents != 0) ready.push_back(p);
  int ran = 0;
  for (const pollfd& r : ready) {
    for (std::size_t i = 0; i < fds_.size(); ++i) {
      if (fds_[i].fd != r.fd) continue;
      Handler handler = handlers_[i];  // a copy: the handler may remove its own entry
      handler(r.fd, r.revents);
      ++ran;
      break;
    }
  }
  return ran;
}

}  // namespace conflink
