#pragma once

// The tests a name on the command line can select, how each one is run and how the scores of its
// runs make one. corebench runs them from here; corebench-fleet names, reads and averages its
// records by the same table.

#include "fixed_string.h"
#include "pass_counts.h"

struct TestEntry {
    const char* name;
    bool allCores;  // the all-cores run; otherwise the single-core run
    int runs;       // 1, 5 or 10 runs in a row; 5 and 10 average their scores for the exit code
    bool verbose;
    int passes;           // kDefaultPassCount, or kSpeedPassCount (single-core run only)
    bool scaleOneWorker;  // single-core run only: one worker scaled to all CPUs, not one per CPU
};

// An empty name selects All. Otherwise the first test whose name equals the given one, ignoring
// case, or nullptr when none does.
const TestEntry* findTest(const FixedString<100>& name);

// Every test, in the order findTest searches them.
struct TestRange {
    const TestEntry* first;
    const TestEntry* last;
    const TestEntry* begin() const { return first; }
    const TestEntry* end() const { return last; }
};
TestRange allTests();

// The score of several runs: their mean, summed in run order in single precision (the first plus
// 0.0f, then the others) and divided by the run count; a single run's score as it is.
float meanOfRuns(const float* ps, int runs);
