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
  kOther,
};

struct Row {
  std::string label;
  std::string note;  // how a 4 MiB message travels
  RowRole role;
  Figures figures;
};

void printTable(const std::vector<Row>& rows);
// Prints each goal for each queue row (and the messengers, for reference); true when every goal
// of the queue rows is met.
bool printGoals(const std::vector<Row>& rows);

}  // namespace conflink::bench
