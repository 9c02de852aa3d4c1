// The demo: a conference server (PS), call control (CC) and a web front end (CGI) as three
// processes on two queues, each a program of its own (demo_ps.cpp, demo_cc.cpp, demo_cgi.cpp).
//
//   conflink_demo [CC_QUEUE]        (the web front end's queue is the next number)
//
// This launcher starts the three programs from its own directory, waits for them (asleep until
// one ends; at most 30 seconds: a program that outlives that is killed, and each dies with the
// launcher), and checks the clean end: every program ended with status 0 and no queue object is
// left under /dev/shm. Run it with CONFLINK_TRACE=stderr to see every message the three exchange.
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <conflink/platform/cyclic_message_queue.h>

namespace {

struct Program {
  std::string name;
  std::vector<std::string> args;
  pid_t pid = -1;
  int status = -1;
};

std::string ownDirectory() {
  std::string path(4096, '\0');
  const ssize_t n = readlink("/proc/self/exe", &path[0], path.size() - 1);
  path.resize(n > 0 ? static_cast<size_t>(n) : 0);
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

pid_t start(const std::string& directory, const Program& p) {
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive the launcher
  if (getppid() != parent) _exit(127);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);  // the launcher's blocked SIGCHLD is not the child's
  const std::string path = directory + "/" + p.name;
  std::vector<char*> argv{const_cast<char*>(path.c_str())};
  for (const std::string& a : p.args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  execv(path.c_str(), argv.data());
  std::perror(path.c_str());
  _exit(127);
}

}  // namespace

int main(int argc, char** argv) {
  const int ccQueue = argc > 1 ? std::atoi(argv[1]) : 40000 + 2 * (getpid() % 10000);
  const int cgiQueue = ccQueue + 1;
  const std::string cc = std::to_string(ccQueue), cgi = std::to_string(cgiQueue);
  std::vector<Program> programs = {
      {"conflink_demo_ps", {cc, cgi}}, {"conflink_demo_cc", {cc}}, {"conflink_demo_cgi", {cgi}}};
  const std::string directory = ownDirectory();
  // SIGCHLD stays blocked, so that the launcher can sleep until a program ends (sigtimedwait).
  sigset_t childEnded;
  sigemptyset(&childEnded);
  sigaddset(&childEnded, SIGCHLD);
  sigprocmask(SIG_BLOCK, &childEnded, nullptr);
  for (Program& p : programs) p.pid = start(directory, p);

  // Reap each program as it ends; kill whatever is left at the deadline.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (size_t running = programs.size(); running > 0;) {
    const auto now = std::chrono::steady_clock::now();
    const bool late = now > deadline;
    running = 0;
    for (Program& p : programs) {
      if (p.pid <= 0 || p.status != -1) continue;
      if (late) kill(p.pid, SIGKILL);
      int status = 0;
      if (waitpid(p.pid, &status, late ? 0 : WNOHANG) == p.pid) {
        p.status = status;
      } else {
        ++running;
      }
    }
    if (running > 0 && !late) {
      const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - now);
      timespec wait{static_cast<time_t>(left.count() / 1000000000),
                    static_cast<long>(left.count() % 1000000000)};
      sigtimedwait(&childEnded, nullptr, &wait);  // a program ended, or the deadline came
    }
  }

  bool ok = true;
  for (const Program& p : programs) {
    if (p.pid > 0 && WIFEXITED(p.status) && WEXITSTATUS(p.status) == 0) continue;
    std::printf("demo: %s %s\n", p.name.c_str(),
                p.pid <= 0              ? "could not be started"
                : WIFSIGNALED(p.status) ? "was killed"
                                        : "failed");
    ok = false;
  }
  for (int queue : {ccQueue, cgiQueue}) {
    const std::string object = conflink::QueueObjectName(queue, "/bin/ping");
    if (access(("/dev/shm" + object).c_str(), F_OK) == 0) {
      std::printf("demo: queue object %s was left behind; removing it\n", object.c_str());
      shm_unlink(object.c_str());
      ok = false;
    }
  }
  std::printf(ok ? "demo: exchange complete, every program ended cleanly, no queue left\n"
                 : "demo: exchange FAILED\n");
  return ok ? 0 : 1;
}
