#pragma once
// CPU seconds (user + system) another process has used so far, from /proc; 0 when it is gone.

#include <sys/types.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace lorvane::bench {

inline double childCpuSeconds(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
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

}  // namespace lorvane::bench
