#include <sys/time.h>
#include <unistd.h>

#include "system_clock.h"

int64_t wallClockMs() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

void localTimeOf(int64_t seconds, tm* local) {
    const time_t t = static_cast<time_t>(seconds);
    localtime_r(&t, local);
}

int sleepMicroseconds(useconds_t microseconds) {
    return usleep(microseconds);
}
