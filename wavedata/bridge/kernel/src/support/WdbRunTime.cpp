#include "korvel/WdbRunTime.h"

#include <chrono>

#include <sys/resource.h>

namespace Korvel {
namespace {

double secondsOf(const timeval& time) {
    constexpr double MicrosecondsPerSecond = 1e6;
    return static_cast<double>(time.tv_sec) +
           static_cast<double>(time.tv_usec) / MicrosecondsPerSecond;
}

}  // namespace

WdbRunTime getRunTime() {
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto sinceBoot = std::chrono::steady_clock::now().time_since_epoch();
    return {secondsOf(usage.ru_utime), secondsOf(usage.ru_stime),
            std::chrono::duration<double>(sinceBoot).count()};
}

}  // namespace Korvel
