#pragma once

// The tests a name on the command line can select, and how each one is run.

#include "fixed_string.h"

struct TestSpec {
    const char* name;
    bool allCores;  // the all-cores run; otherwise the single-core run
    int runs;       // 1, 5 or 10 runs in a row; 5 and 10 average their scores for the exit code
    bool verbose;
    bool speed;           // single-core run only: 10 measured passes instead of 130
    bool scaleOneWorker;  // single-core run only: one worker scaled to all CPUs, not one per CPU
};

// An empty name selects All. Otherwise the first test whose name equals the given one, ignoring
// case, or nullptr when none does.
const TestSpec* findTest(const FixedString<100>& name);
