#include "ipc_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace conflink::bench {
namespace {

std::string printed(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string micros(double us) {
  return printed(us < 100 ? "%.2f" : "%.0f", us);
}
std::string rate(double perSecond) {
  if (perSecond >= 1e6) return printed("%.2fM", perSecond / 1e6);
  if (perSecond >= 1e3) return printed("%.1fk", perSecond / 1e3);
  return printed("%.0f", perSecond);
}
std::string megabytes(double mbps) {
  return printed(mbps < 100 ? "%.1f" : "%.0f", mbps);
}
std::string gigabytes(double gbps) {
  return printed("%.2f", gbps);
}
// Two or three significant digits, so that a small ratio does not round to nothing.
std::string ratio(double r) {
  return printed(r >= 100 ? "%.0fx" : r >= 10 ? "%.1fx" : r >= 0.1 ? "%.2fx" : "%.3fx", r);
}

struct Column {
  const char* title;
  double (*value)(const Figures&);
  std::string (*format)(double);
};

const Column kColumns[] = {
    {"round trip p50 us", [](const Figures& f) { return f.roundTripMedianUs; }, micros},
    {"round trip p99 us", [](const Figures& f) { return f.roundTripP99Us; }, micros},
    {"after 1 ms idle p50 us", [](const Figures& f) { return f.idleRoundTripMedianUs; }, micros},
    {"64 B msg/s", [](const Figures& f) { return f.small.messagesPerSecond; }, rate},
    {"64 B MB/s", [](const Figures& f) { return f.small.megabytesPerSecond; }, megabytes},
    {"4 KiB msg/s", [](const Figures& f) { return f.page.messagesPerSecond; }, rate},
    {"4 KiB MB/s", [](const Figures& f) { return f.page.megabytesPerSecond; }, megabytes},
    {"4 MiB GB/s", [](const Figures& f) { return f.bigGigabytesPerSecond; }, gigabytes},
};

const Row* baselineOf(const std::vector<Row>& rows) {
  for (const Row& row : rows)
    if (row.role == RowRole::kBaseline && row.figures.ok) return &row;
  return nullptr;
}

// A figure with its ratio to the baseline's: "12.34 0.81x"; "-" when it was not measured.
std::string cell(const Column& column, const Figures& figures, const Row* baseline) {
  const double value = column.value(figures);
  if (std::isnan(value)) return "-";
  std::string text = column.format(value);
  const double base = baseline != nullptr ? column.value(baseline->figures) : kNotMeasured;
  if (!std::isnan(base) && base > 0) text += " " + ratio(value / base);
  return text;
}

// Which regimes a goal holds in: the machine to the parties alone, or other busy processes
// beside them.
enum class Regime { kIdle, kLoaded, kAny };

struct Goal {
  const char* text;
  const Column* column;
  const char* unit;
  bool againstBaseline;  // the bound is a multiple of the baseline's figure, else absolute
  double bound;
  bool atMost;  // the figure must not exceed the bound (else: must reach it)
  Regime regime;
};

const Goal kGoals[] = {
    {"round trip (median) at most a quarter of the unix socket's", &kColumns[0], " us", true, 0.25,
     true, Regime::kIdle},
    {"64-byte one-way throughput at least five times the unix socket's", &kColumns[3], " msg/s",
     true, 5.0, false, Regime::kIdle},
    {"round trip (median) no slower than the unix socket's", &kColumns[0], " us", true, 1.0, true,
     Regime::kLoaded},
    {"round trip (99th percentile) at most 1.5 times the unix socket's", &kColumns[1], " us", true,
     1.5, true, Regime::kLoaded},
    {"64-byte one-way throughput at least the unix socket's", &kColumns[3], " msg/s", true, 1.0,
     false, Regime::kLoaded},
    {"4 KiB one-way throughput at least the unix socket's", &kColumns[5], " msg/s", true, 1.0,
     false, Regime::kLoaded},
    {"one 4 MiB message moved at no less than 1 GB/s", &kColumns[7], " GB/s", false, 1.0, false,
     Regime::kAny},
};

bool applies(const Goal& goal, int load) {
  return goal.regime == Regime::kAny || (goal.regime == Regime::kIdle) == (load == 0);
}

}  // namespace

void printTable(const std::vector<Row>& rows) {
  const Row* baseline = baselineOf(rows);
  std::vector<std::vector<std::string>> grid;
  std::vector<std::string> header{"transport"};
  for (const Column& column : kColumns) header.push_back(column.title);
  header.push_back("how 4 MiB travels");
  grid.push_back(header);
  for (const Row& row : rows) {
    std::vector<std::string> line{row.label + (row.figures.ok ? "" : " (FAILED)")};
    for (const Column& column : kColumns) line.push_back(cell(column, row.figures, baseline));
    line.push_back(row.note);
    grid.push_back(line);
  }

  std::vector<std::size_t> widths(header.size(), 0);
  for (const auto& line : grid)
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  auto printLine = [&](const std::vector<std::string>& line) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      const bool leftAligned = i == 0 || i + 1 == line.size();
      const std::string pad(widths[i] - line[i].size(), ' ');
      text += leftAligned ? line[i] + (i + 1 == line.size() ? "" : pad) : pad + line[i];
      if (i + 1 < line.size()) text += "   ";
    }
    std::printf("%s\n", text.c_str());
  };

  std::printf("Each figure is followed by its ratio to the unix socket's figure.\n\n");
  printLine(grid[0]);
  std::size_t total = 0;
  for (std::size_t w : widths) total += w + 3;
  std::printf("%s\n", std::string(total - 3, '-').c_str());
  for (std::size_t i = 1; i < grid.size(); ++i) printLine(grid[i]);
  for (const Row& row : rows)
    if (!row.figures.ok)
      std::printf("\nFAILED %s: %s\n", row.label.c_str(), row.figures.error.c_str());
}

std::vector<Verdict> judgeGoals(const std::vector<Row>& rows, int load) {
  const Row* baseline = baselineOf(rows);
  std::vector<Verdict> verdicts;
  for (const Goal& goal : kGoals) {
    if (!applies(goal, load)) continue;
    for (const Row& row : rows) {
      if (row.role != RowRole::kQueue && row.role != RowRole::kMessengers) continue;
      Verdict v{goal.text, &row, goal.column->value(row.figures), kNotMeasured, false};
      // The messengers carry no large message: that goal is not theirs. A queue row without a
      // figure (it failed) misses every goal.
      if (std::isnan(v.value) && row.role == RowRole::kMessengers) continue;
      double bound = goal.bound;
      if (goal.againstBaseline) {
        const double base =
            baseline != nullptr ? goal.column->value(baseline->figures) : kNotMeasured;
        if (!std::isnan(base) && base > 0) v.ratio = v.value / base;
        bound *= base;  // NaN without a baseline: nothing compares as met
      }
      v.met = row.figures.ok && (goal.atMost ? v.value <= bound : v.value >= bound);
      verdicts.push_back(v);
    }
  }
  return verdicts;
}

bool printGoals(const std::vector<Row>& rows, int load) {
  std::size_t labelWidth = 0;
  for (const Row& row : rows) labelWidth = std::max(labelWidth, row.label.size());
  bool allMet = true;
  const char* goal = nullptr;
  std::printf("\nGoals with %d busy process%s beside the parties\n", load, load == 1 ? "" : "es");
  for (const Verdict& v : judgeGoals(rows, load)) {
    if (v.goal != goal) std::printf("  %s\n", goal = v.goal);
    const Goal& g = *std::find_if(std::begin(kGoals), std::end(kGoals),
                                  [&](const Goal& each) { return each.text == v.goal; });
    std::string figure = std::isnan(v.value) ? "not measured" : g.column->format(v.value) + g.unit;
    if (!std::isnan(v.ratio)) figure += " = " + ratio(v.ratio) + " the socket's";
    if (g.againstBaseline && std::isnan(v.ratio) && !std::isnan(v.value))
      figure += ", no unix socket figure to compare with";
    const bool counts = v.row->role == RowRole::kQueue;
    if (counts && !v.met) allMet = false;
    std::printf("    %-*s %-36s %s%s\n", static_cast<int>(labelWidth), v.row->label.c_str(),
                figure.c_str(), v.met ? "met" : "MISSED", counts ? "" : " (for reference)");
  }
  return allMet;
}

}  // namespace conflink::bench
