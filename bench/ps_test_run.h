#pragma once

// The two runs the driver can start. Both return the measured PS and write the run's result text
// into resultText; cpuName (up to 10 Latin-1 characters) and totalClock (GHz) are filled when
// given.

#include <QString>
#include <cstdint>

#include "fixed_string.h"

// One worker per logical CPU.
float runAllCoresTest(QString& resultText, bool& verbose, FixedString<10>* cpuName,
                      float* totalClock);

// One worker (single set) scaled to the whole processor, or one worker per CPU (single clear).
// A threadHint above 0 stands in for the logical CPU count and implies hyperthreading.
float runSingleCoreTest(QString& resultText, bool& verbose, bool& speed, bool& single,
                        int32_t threadHint, FixedString<10>* cpuName, float* totalClock);
