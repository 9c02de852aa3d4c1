// The printed result of a run: one aligned table with every figure and its ratio to the Unix
// socket's, then the queue's goals, each met or missed.
#pragma once

#include <string>
#include <vector>

#include "ipc_measure.h"

namespace conflink::bench {

enum class RowRole {
  kBaseline,    // the Unix socket: every ratio is against this row
  kQueue,       // the queue: the goals apply
  kMessengers,  // the library's own path: goals shown for reference
  kPeer,        // a library a user would pick instead: the queue must be ahead of it
  kOther,
};

struct Row {
  std::string label;
  std::string note;  // how a 4 MiB message travels
  RowRole role;
  Figures figures;
};

// One goal judged for one row.
struct Verdict {
  const char* goal;  // the goal as printed
  const Row* row;
  double value;  // the row's figure; kNotMeasured when it has none
  double ratio;  // to the unix socket's figure, for goals set against it; else kNotMeasured
  bool met;
};

void printTable(const std::vector<Row>& rows);
// Every goal of the regime (`load` busy processes beside the parties: the idle goals for 0, the
// loaded ones otherwise) for every queue row and, where the goal applies to them, the messengers.
// A row that failed, or a relative goal without a unix socket figure, is never met.
std::vector<Verdict> judgeGoals(const std::vector<Row>& rows, int load = 0);
// Prints each goal for each queue row (and the messengers, for reference); true when every goal
// of the queue rows is met.
bool printGoals(const std::vector<Row>& rows, int load = 0);

}  // namespace conflink::bench
