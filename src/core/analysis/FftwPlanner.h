#pragma once
// FFTW's planner is not thread-safe: every plan creation and destruction in the process takes this lock.

#include <mutex>

namespace lorvane {

std::mutex& fftwPlannerMutex();

}  // namespace lorvane
