// What a process has needed, as the kernel tells.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

namespace tolven {

// Processor seconds of the process and of the children that it has waited for.
inline double ProcessorSeconds(std::int64_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  // The name in brackets may hold anything.
  std::istringstream fields(text.substr(text.rfind(')') + 1));
  std::string skipped;
  for (int i = 3; i < 14; ++i) fields >> skipped;
  double ticks = 0;
  for (int i = 14; i <= 17; ++i) {
    double part = 0;
    fields >> part;
    ticks += part;
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The most memory that it had at a time, in MiB.
inline double PeakResidentMib(std::int64_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
  }
  return 0;
}

}  // namespace tolven
