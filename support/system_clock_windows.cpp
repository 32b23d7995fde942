// Windows counts its system time in 100 ns steps since 1601-01-01 UTC and sleeps in whole
// milliseconds.

#include <windows.h>

#include "system_clock.h"

namespace {

// 1601-01-01 to 1970-01-01 in 100 ns steps.
constexpr int64_t kUnixEpochSteps = 116444736000000000;

}  // namespace

int64_t wallClockMs() {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    const int64_t steps =
        static_cast<int64_t>(static_cast<uint64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime);
    return (steps - kUnixEpochSteps) / 10000;
}

void localTimeOf(int64_t seconds, tm* local) {
    const time_t t = static_cast<time_t>(seconds);
    if (localtime_s(local, &t) != 0) {
        *local = tm{};
    }
}

// Rounded up, so that a sleep is never shorter than asked.
int sleepMicroseconds(useconds_t microseconds) {
    Sleep(static_cast<DWORD>((microseconds + 999) / 1000));
    return 0;
}
