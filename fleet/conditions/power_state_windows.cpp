// The Windows power state: the active power plan (PowerGetActiveScheme) and its maximum processor
// state on the power source in use (PowerReadACValueIndex, PowerReadDCValueIndex on battery). A
// call the system does not answer leaves its figure empty; Wine answers neither.

#include <windows.h>
// windows.h first: powrprof.h relies on its types.
#include <powrprof.h>

#include <cstdio>

#include "power_state_reader.h"

namespace {

// The processor settings group of a power plan and its "Maximum processor state" setting, as
// Windows documents them (written out here: MinGW's headers declare them without a definition).
constexpr GUID kProcessorSettings = {
    0x54533251, 0x82be, 0x4824, {0x96, 0xc1, 0x47, 0xb6, 0x0b, 0x74, 0x0d, 0x00}};
constexpr GUID kMaximumProcessorState = {
    0xbc5038f7, 0x23e0, 0x4960, {0x96, 0xda, 0x33, 0xab, 0xaf, 0x59, 0x35, 0xec}};

std::string guidText(const GUID& guid) {
    char text[40];
    snprintf(text, sizeof(text), "%08lx-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
             static_cast<unsigned long>(guid.Data1), guid.Data2, guid.Data3, guid.Data4[0],
             guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
             guid.Data4[6], guid.Data4[7]);
    return text;
}

bool onBattery() {
    SYSTEM_POWER_STATUS status;
    return GetSystemPowerStatus(&status) && status.ACLineStatus == 0;
}

}  // namespace

PowerState systemPowerState(const std::vector<int>&) {
    PowerState state;
    GUID* scheme = nullptr;
    if (PowerGetActiveScheme(nullptr, &scheme) != ERROR_SUCCESS || scheme == nullptr) {
        return state;
    }
    state.powerScheme = guidText(*scheme);
    DWORD percent = 0;
    const DWORD read = onBattery() ? PowerReadDCValueIndex(nullptr, scheme, &kProcessorSettings,
                                                           &kMaximumProcessorState, &percent)
                                   : PowerReadACValueIndex(nullptr, scheme, &kProcessorSettings,
                                                           &kMaximumProcessorState, &percent);
    if (read == ERROR_SUCCESS && percent <= 100) {
        state.maxProcessorStatePercent = percent;
    }
    LocalFree(scheme);
    return state;
}
