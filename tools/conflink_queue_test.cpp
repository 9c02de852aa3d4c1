// The queue tool on real queue objects: `inspect` ends with 0 on a sound queue and with 3 when it
// lists findings, so that a script watching the queues can tell the two apart without reading
// the report.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "conflink/platform/queue_test_support.h"
#include "tests/support/child_process.h"

extern char** environ;

namespace conflink::testing {
namespace {

struct ToolRun {
  int status = -1;  // the exit code, or 128 + the signal that ended the tool
  std::string out;
};

ToolRun RunTool(const std::vector<std::string>& args) {
  ToolRun run;
  int fds[2];
  if (pipe(fds) != 0) return run;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  std::vector<std::string> words{CONFLINK_QUEUE_TOOL};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  if (spawned == 0) {
    char buffer[4096];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof buffer)) > 0) run.out.append(buffer, n);
    int status = 0;
    if (waitpid(pid, &status, 0) == pid)
      run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  close(fds[0]);
  return run;
}

TEST(QueueTool, InspectEndsWithZeroOnASoundQueueAndThreeWhenItHasFindings) {
  TestQueueName name;
  auto mine = name.Open();
  ASSERT_TRUE(mine->IsConnected());
  ToolRun run = RunTool({"inspect", name.Object()});
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("no inconsistencies found"), std::string::npos) << run.out;

  // A party that ends without leaving stays attached to its place: a finding.
  ChildProcess child([&]() -> int {
    auto other = name.Open();
    _exit(other->IsConnected() ? 0 : 1);  // leaves without closing the queue
  });
  ASSERT_EQ(child.wait(), 0);
  run = RunTool({"inspect", name.Object()});
  EXPECT_EQ(run.status, 3) << run.out;
  EXPECT_NE(run.out.find("findings:"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("ended without leaving"), std::string::npos) << run.out;
}

}  // namespace
}  // namespace conflink::testing
