#pragma once

// Runs the built corebench as a separate process, with exact argument bytes (no shell between),
// and what the end-to-end tests know about its output independent of the machine.

#include <string>
#include <vector>

struct ProcessResult {
    std::string output;   // everything written to standard output
    bool exited = false;  // false when killed by a signal or not started
    int status = -1;      // exit status as the shell sees it, 0 to 255
    double seconds = 0;   // wall time
};

ProcessResult runCorebench(const std::vector<std::string>& arguments);

// The usage text byte for byte, including the empty lines that entries ending in "\n" produce.
extern const std::string kUsageText;

// The lines of a text, without their line feeds.
std::vector<std::string> splitLines(const std::string& text);

// Matches a whole line against a template in which '#' stands for an integer (optionally
// negative), '~' for a score written with three decimals after optional blanks, '@' for a number
// in blank-separated groups ("7 315"), '?' for exactly one digit; every other character stands for
// itself. The numbers read are appended to numbers. (GCC 12's <regex> trips -Wmaybe-uninitialized
// in the sanitizer builds, hence this.)
bool matchLine(const std::string& line, const char* pattern, std::vector<double>* numbers);

// The opening time stamp and system summary: their length in bytes (0 when the output does not
// start with them) and the NumberOfThreads figure.
struct Summary {
    size_t length = 0;
    int threads = -1;
};
Summary readSummary(const std::string& output);
