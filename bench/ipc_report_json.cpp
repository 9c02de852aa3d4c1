#include "ipc_report_json.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "bench_json.h"
#include "bench_machine.h"

namespace conflink::bench {
namespace {

struct Field {
  const char* key;
  double (*value)(const Figures&);
  bool lowerIsBetter;
};

const Field kFields[] = {
    {"round_trip_p50_us", [](const Figures& f) { return f.roundTripMedianUs; }, true},
    {"round_trip_p99_us", [](const Figures& f) { return f.roundTripP99Us; }, true},
    {"idle_round_trip_p50_us", [](const Figures& f) { return f.idleRoundTripMedianUs; }, true},
    {"idle_round_trip_p99_us", [](const Figures& f) { return f.idleRoundTripP99Us; }, true},
    {"msg_64B_per_s", [](const Figures& f) { return f.small.messagesPerSecond; }, false},
    {"mb_64B_per_s", [](const Figures& f) { return f.small.megabytesPerSecond; }, false},
    {"msg_4KiB_per_s", [](const Figures& f) { return f.page.messagesPerSecond; }, false},
    {"mb_4KiB_per_s", [](const Figures& f) { return f.page.megabytesPerSecond; }, false},
    {"gb_4MiB_per_s", [](const Figures& f) { return f.bigGigabytesPerSecond; }, false},
};
const Field& kRoundTripField = kFields[0];
const Field& kSmallRateField = kFields[4];

const char* roleName(RowRole role) {
  switch (role) {
    case RowRole::kBaseline:
      return "baseline";
    case RowRole::kQueue:
      return "queue";
    case RowRole::kMessengers:
      return "messengers";
    case RowRole::kPeer:
      return "peer";
    case RowRole::kOther:
      break;
  }
  return "kernel";
}

const Row* baselineOf(const std::vector<Row>& rows) {
  for (const Row& row : rows)
    if (row.role == RowRole::kBaseline && row.figures.ok) return &row;
  return nullptr;
}

double ratioOf(double value, double base) {
  return std::isnan(value) || std::isnan(base) || base <= 0 ? kNotMeasured : value / base;
}

struct PeerGoal {
  const char* text;
  const Field* field;
};
const PeerGoal kPeerGoals[] = {
    {"round trip (median) below every peer library's", &kRoundTripField},
    {"64-byte one-way throughput above every peer library's", &kSmallRateField},
};

}  // namespace

std::vector<PeerVerdict> judgePeerGoals(const std::vector<Row>& rows) {
  std::vector<PeerVerdict> verdicts;
  for (const PeerGoal& goal : kPeerGoals) {
    for (const Row& queue : rows) {
      if (queue.role != RowRole::kQueue) continue;
      for (const Row& peer : rows) {
        if (peer.role != RowRole::kPeer) continue;
        PeerVerdict v{goal.text,
                      &queue,
                      &peer,
                      goal.field->value(queue.figures),
                      goal.field->value(peer.figures),
                      kNotMeasured,
                      false};
        v.ratio = ratioOf(v.queueValue, v.peerValue);
        const bool ahead =
            goal.field->lowerIsBetter ? v.queueValue < v.peerValue : v.queueValue > v.peerValue;
        v.met = queue.figures.ok && peer.figures.ok && ahead;  // false when either is NaN
        verdicts.push_back(v);
      }
    }
  }
  return verdicts;
}

// "0.95 us" for a round trip, "1.87M msg/s" for a throughput.
std::string figureText(const Field& field, double value) {
  char text[32];
  if (std::isnan(value)) return "not measured";
  if (field.lowerIsBetter) {
    std::snprintf(text, sizeof text, "%.2f us", value);
  } else if (value >= 1e6) {
    std::snprintf(text, sizeof text, "%.2fM msg/s", value / 1e6);
  } else {
    std::snprintf(text, sizeof text, "%.1fk msg/s", value / 1e3);
  }
  return text;
}

bool printPeerGoals(const std::vector<Row>& rows) {
  const std::vector<PeerVerdict> verdicts = judgePeerGoals(rows);
  if (verdicts.empty()) return true;
  int queueWidth = 0;
  int peerWidth = 0;
  for (const PeerVerdict& v : verdicts) {
    queueWidth = std::max(queueWidth, static_cast<int>(v.queue->label.size()));
    peerWidth = std::max(peerWidth, static_cast<int>(v.peer->label.size()));
  }
  bool allMet = true;
  const char* goal = nullptr;
  std::printf("\nAgainst the peer libraries (ratio: the queue's figure to the peer's)\n");
  for (const PeerVerdict& v : verdicts) {
    if (v.goal != goal) std::printf("  the queue's %s\n", goal = v.goal);
    allMet = allMet && v.met;
    const Field& field =
        *std::find_if(std::begin(kPeerGoals), std::end(kPeerGoals), [&](const PeerGoal& g) {
           return g.text == v.goal;
         })->field;
    std::printf("    %-*s vs %-*s %14s vs %-14s = %6.3fx  %s\n", queueWidth, v.queue->label.c_str(),
                peerWidth, v.peer->label.c_str(), figureText(field, v.queueValue).c_str(),
                figureText(field, v.peerValue).c_str(), v.ratio, v.met ? "met" : "MISSED");
  }
  return allMet;
}

void printSkipped(const std::vector<SkippedRow>& skipped) {
  for (const SkippedRow& s : skipped)
    std::printf("skipped %s: %s\n", s.label.c_str(), s.reason.c_str());
}

bool writeRunJson(const std::string& path, const RunSetting& setting, const std::vector<Row>& rows,
                  const std::vector<SkippedRow>& skipped, std::string& error) {
  JsonWriter json;
  json.beginObject();
  json.member("benchmark", "ipc_bench");
  writeMachine(json);
  json.member("build_type", setting.buildType);
  json.member("load", setting.load);
  json.member("load_average_before", setting.loadAverageBefore);
  json.member("load_average_after", setting.loadAverageAfter);
  json.member("quick", setting.quick);
  const Plan& plan = setting.plan;
  json.key("plan").beginObject();
  json.member("round_trips", plan.roundTrips).member("idle_round_trips", plan.idleRoundTrips);
  json.member("idle_gap_us", plan.idleGapUs).member("messages_64B", plan.smallMessages);
  json.member("messages_4KiB", plan.pageMessages).member("messages_4MiB", plan.bigMessages);
  json.endObject();
  json.member("seconds", setting.seconds);
  json.member("ratios_to", "unix socket, SOCK_SEQPACKET");

  const Row* baseline = baselineOf(rows);
  json.key("rows").beginArray();
  for (const Row& row : rows) {
    json.beginObject();
    json.member("label", row.label).member("role", roleName(row.role));
    json.member("ok", row.figures.ok).member("error", row.figures.error);
    json.member("big_message", row.note);
    json.key("figures").beginObject();
    for (const Field& field : kFields) json.member(field.key, field.value(row.figures));
    json.endObject();
    json.key("ratio_to_unix_socket").beginObject();
    for (const Field& field : kFields) {
      json.member(field.key,
                  ratioOf(field.value(row.figures),
                          baseline != nullptr ? field.value(baseline->figures) : kNotMeasured));
    }
    json.endObject();
    json.endObject();
  }
  json.endArray();

  json.key("skipped").beginArray();
  for (const SkippedRow& s : skipped)
    json.beginObject().member("label", s.label).member("reason", s.reason).endObject();
  json.endArray();

  json.key("goals").beginArray();
  for (const Verdict& v : judgeGoals(rows, setting.load)) {
    json.beginObject().member("goal", v.goal).member("row", v.row->label);
    json.member("value", v.value).member("ratio_to_unix_socket", v.ratio);
    json.member("counts", v.row->role == RowRole::kQueue).member("met", v.met).endObject();
  }
  for (const PeerVerdict& v : judgePeerGoals(rows)) {
    json.beginObject().member("goal", std::string("the queue's ") + v.goal);
    json.member("row", v.queue->label).member("peer", v.peer->label);
    json.member("value", v.queueValue).member("peer_value", v.peerValue);
    json.member("ratio_to_peer", v.ratio).member("counts", true).member("met", v.met).endObject();
  }
  json.endArray();
  json.endObject();
  if (json.save(path)) return true;
  error = "cannot write " + path;
  return false;
}

}  // namespace conflink::bench
