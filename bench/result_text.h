#pragma once

// What a PS test run reports: the lines of its result text and, in verbose runs, the console lines
// that go with them.

#include <QString>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "cpu_report.h"

// Where a run's lines go. Every line of the result text is appended to the text; a verbose run
// also prints its own version of the line at once, and lines of progress that only the console
// gets. Only the CPU report goes to one of the two: printed in verbose runs, appended otherwise.
class RunOutput {
  public:
    RunOutput(QString& text, bool verbose) : text_(text), verbose_(verbose) {}

    // A console line (a printf format and its values), printed only in verbose runs.
    template <typename... Values>
    void show(const char* format, Values... values) const {
        if (verbose_) {
            if constexpr (sizeof...(Values) == 0) {
                printf("%s", format);
            } else {
                printf(format, values...);
            }
        }
    }

    // A line of the result text, and the console line that stands for it in verbose runs.
    template <typename... Values>
    void record(const QString& line, const char* format, Values... values) {
        show(format, values...);
        text_ += line;
    }

    void report(const ReportText& report);

    // Hands the console lines printed so far to the system, so that they are not lost with a run
    // stopped from outside.
    void flush() const;

  private:
    QString& text_;
    bool verbose_;
};

// One measured worker as the result text reports it.
struct WorkerResult {
    double ps;
    int64_t measuredMs;
    int32_t passCount;
};

// One "adding thread" line per worker and the "=totalSpeed" line; returns the summed PS, at least
// 2.0. results holds at least one worker.
float addWorkerResults(RunOutput& out, const std::vector<WorkerResult>& results);

// The closing "PS_Result" line, without a line feed in the text.
void addPsResult(RunOutput& out, float ps);

// Groups of three digits separated by blanks, magnitudes up to 1000 written plain ("1000",
// "5 980", "1000 500"); negative values start with "-", others with " " when showPlus.
QString formatGroupedNumber(int64_t value, bool showPlus);
