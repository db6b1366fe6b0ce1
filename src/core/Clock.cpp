#include "core/Clock.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace lorvane {

double SteadyClock::now() const {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    const double seconds = std::chrono::duration<double>(since).count();
    return std::max(seconds, std::numeric_limits<double>::min());
}

double ReferenceDateClock::now() const {
    // 1 January 2001 00:00 UTC is 978307200 seconds after the Unix epoch.
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(since).count() - 978307200.0;
}

}  // namespace lorvane
