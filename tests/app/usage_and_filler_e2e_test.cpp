// Runs the built corebench with names that match no test: it prints its summary, the filler asked
// for and the usage text, and exits 0 without running a benchmark, so these are quick.

#include <gtest/gtest.h>

#include <cstdint>

#include "corebench_process.h"

namespace {

const std::string kUsageText =
    "Usage: \n"
    "corebench [testName] [exitCodeThreshold <divider>]  [LoremIpsum] [BlenderLog] "
    "[HoudiniLog]\n\n"
    "[LoremIpsum] [BlenderLog] [HoudiniLog]:\n\tThese print some text to increase the size of the "
    "printed output\n\n"
    "[exitCodeThreshold <divider>]: Return measured PS. <divider> divides the PS before returning "
    "it.\n"
    "             The divider might be required on Linux as the exit code must be smaller than "
    "255.\n\n"
    "[testName]: Available tests are:\n"
    "\t All: (default) Test all cores for ~1 minute \n"
    "\t AllVerbose: Same, but with verbose log\n"
    "\t Single: Test 1 core only for ~1-2 minutes\n"
    "\t Single5: 5 times the Single test in a row\n"
    "\t Single5Verbose: 5 times the Single test in a row, with verbose log\n"
    "\t Single10: 10 times the Single test in a row\n"
    "\t Single10Verbose: 10 times the Single test in a row, with verbose log\n"
    "\t SingleSpeed: Test 1 core only for ~8 seconds\n";

// Checks that the run printed the summary, then anything, then the usage text as its last bytes,
// and exited 0; returns the filler in between.
std::string usageRunFiller(const std::vector<std::string>& arguments) {
    const ProcessResult run = runCorebench(arguments);
    EXPECT_TRUE(run.exited && run.status == 0) << run.status;
    const size_t head = summaryLength(run.output);
    if (head == 0 || run.output.size() < head + kUsageText.size() ||
        run.output.compare(run.output.size() - kUsageText.size(), kUsageText.size(), kUsageText)) {
        ADD_FAILURE() << "not summary, filler, usage:\n" << run.output;
        return "(no usage run)";
    }
    return run.output.substr(head, run.output.size() - kUsageText.size() - head);
}

// The sizes of the three blocks, which add up differently for every choice of blocks.
constexpr size_t kLoremIpsum = 4680, kBlenderLog = 14808, kHoudiniLog = 14005;

// FNV-1a: a wrong byte anywhere in a block changes it.
uint64_t hashOf(const std::string& text) {
    uint64_t hash = 0xcbf29ce484222325u;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
    }
    return hash;
}

// The blocks as recorded, each line followed by the newline puts adds. The two logs were checked
// line by line when they were recorded: 116 and 172 rows in the frame "R", a right-aligned
// three-digit number and "| ", with the row numbers and gaps they are quoted with.
TEST(CorebenchFiller, BlocksComeOnceEachInTheirOrderAsRecorded) {
    const std::string filler = usageRunFiller(
        {"Nope", "houdinilog", "BLENDERLOG", "LoremIpsum", "LoremIpsum", "blenderlog"});
    ASSERT_EQ(filler.size(), kLoremIpsum + kBlenderLog + kHoudiniLog);
    EXPECT_EQ(hashOf(filler.substr(0, kLoremIpsum)), 0x89ebc2a0a2961ed1u);
    EXPECT_EQ(hashOf(filler.substr(kLoremIpsum, kBlenderLog)), 0xbfbb4bb749d6d281u);
    EXPECT_EQ(hashOf(filler.substr(kLoremIpsum + kBlenderLog)), 0x770d18fc4fae9d54u);
}

// Arguments are cut, never trusted: lengths, counts and bytes of any kind.
TEST(CorebenchUsage, UnknownNamesPrintTheFillerAskedForThenTheUsage) {
    const std::string x90(90, 'x');
    std::vector<std::string> many = {"Nope"};
    many.resize(9999, "x");
    many.push_back("HoudiniLog");
    const struct {
        const char* what;
        std::vector<std::string> arguments;
        size_t fillerSize;
    } cases[] = {
        {"prefix of a name", {"Singl"}, 0},
        {"trailing blank", {"Single5 "}, 0},
        {"threshold with an unknown name", {"Nope", "exitCodeThreshold", "1"}, 0},
        {"keyword first is no test name", {"HoudiniLog", "LoremIpsum"}, kLoremIpsum + kHoudiniLog},
        {"keyword in a late position", {"Nope", "x", "y", "BlenderLog"}, kBlenderLog},
        {"keyword inside a word", {"Nope", "xloremipsumx"}, kLoremIpsum},
        {"keyword ends at character 100", {"Nope", x90 + "LoremIpsum"}, kLoremIpsum},
        {"keyword ends at character 101", {"Nope", x90 + "xLoremIpsum"}, 0},
        {"70,000-character name", {std::string(70000, 'A')}, 0},
        // 70,000 counts as 4,464 and is then cut to 100, which still holds the keyword.
        {"70,000 characters", {"Nope", "BlenderLog" + std::string(69990, 'x')}, kBlenderLog},
        // 65,541 counts as 5: only "Lorem" is left.
        {"length wraps at 65536", {"Nope", "LoremIpsum" + std::string(65531, 'x')}, 0},
        {"empty arguments", {"Nope", "", "", "HoudiniLog", ""}, kHoudiniLog},
        {"bytes >= 0x80", {"\xC3\x80LL", "\x80LoremIpsum\xFF", "\xE9"}, kLoremIpsum},
        {"10,000 arguments", many, kHoudiniLog},
    };
    for (const auto& c : cases) {
        if (!fitsCommandLine(c.arguments)) {
            continue;
        }
        EXPECT_EQ(usageRunFiller(c.arguments).size(), c.fillerSize) << c.what;
    }
}

}  // namespace
