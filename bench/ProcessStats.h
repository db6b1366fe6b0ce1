#pragma once
// What /proc says of another process: CPU seconds (user + system) of the whole process or of one of
// its threads, and resident memory. Zero when the process is gone.

#include <sys/types.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace lorvane::bench {

inline double cpuSeconds(long long pid, long long thread = -1) {
    const std::string root = "/proc/" + std::to_string(pid);
    std::ifstream stat(thread < 0 ? root + "/stat" : root + "/task/" + std::to_string(thread) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const auto close = text.rfind(')');
    if (close == std::string::npos) return 0;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14 || i == 15) ticks += std::stod(field);  // utime, stime
    }
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

inline double residentMegabytes(long long pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
    }
    return 0;
}

}  // namespace lorvane::bench
