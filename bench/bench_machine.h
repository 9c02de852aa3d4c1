// What the benchmarks say about the machine they ran on, printed and in their JSON files.
#pragma once

#include <sys/utsname.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "bench_json.h"

namespace conflink::bench {

// The processor's model name from /proc/cpuinfo; "unknown" where there is none.
inline std::string cpuModel() {
  std::ifstream file("/proc/cpuinfo");
  std::string line;
  while (std::getline(file, line)) {
    if (line.compare(0, std::strlen("model name"), "model name") != 0) continue;
    const auto colon = line.find(':');
    const auto start =
        colon == std::string::npos ? colon : line.find_first_not_of(" \t", colon + 1);
    if (start != std::string::npos) return line.substr(start);
  }
  return "unknown";
}

inline std::string kernelRelease() {
  utsname system{};
  return uname(&system) == 0 ? system.release : "unknown";
}

// The "machine" member of a result file: processor, CPUs online and kernel.
inline void writeMachine(JsonWriter& json) {
  json.key("machine").beginObject();
  json.member("cpu", cpuModel()).member("cpus", sysconf(_SC_NPROCESSORS_ONLN));
  json.member("kernel", kernelRelease()).endObject();
}

}  // namespace conflink::bench
