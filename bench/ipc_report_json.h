// The run's figures as JSON, for scripts: the setting (machine, load, build type, plan), every
// row with its figures and their ratios to the Unix socket's, the rows skipped and why, and the
// goals with their verdicts (the queue's own, and the queue against every peer library).
#pragma once

#include <string>
#include <vector>

#include "ipc_measure.h"
#include "ipc_report.h"

namespace conflink::bench {

struct SkippedRow {
  std::string label;
  std::string reason;
};

struct RunSetting {
  int load = 0;  // CPU-bound processes running beside the measurement
  std::string loadAverageBefore;
  std::string loadAverageAfter;
  std::string buildType;
  bool quick = false;
  Plan plan;
  double seconds = 0;
};

// The queue against one peer row on one figure.
struct PeerVerdict {
  const char* goal;
  const Row* queue;
  const Row* peer;
  double queueValue;
  double peerValue;
  double ratio;  // queue / peer
  bool met;
};

// For every queue row and every peer row: the round trip median lower, the 64-byte throughput
// higher. A failed row on either side is never met.
std::vector<PeerVerdict> judgePeerGoals(const std::vector<Row>& rows);
// Prints them; true when every one is met.
bool printPeerGoals(const std::vector<Row>& rows);
void printSkipped(const std::vector<SkippedRow>& skipped);

// Writes the JSON document; false with `error` set when the file cannot be written.
bool writeRunJson(const std::string& path, const RunSetting& setting, const std::vector<Row>& rows,
                  const std::vector<SkippedRow>& skipped, std::string& error);

}  // namespace conflink::bench
