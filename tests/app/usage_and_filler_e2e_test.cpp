// Runs the built corebench with names that match no test: it prints its summary, the filler asked
// for and the usage text, and exits 0 without running a benchmark, so these are quick.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "corebench_process.h"

namespace {

struct Block {
    const char* start;   // the block's first bytes
    const char* marker;  // a text only this block holds
    size_t bytes;
    long lines;
};
const Block kLoremIpsum = {"\n\nLorem ipsum dolor sit amet,", "(Cicero)", 4680, 0};
const Block kBlenderLog = {"R  8| ", "Fra:1121 Mem:", 14808, 116};
const Block kHoudiniLog = {"R  8| ", "ALF_PROGRESS", 14005, 172};

struct UsageCase {
    const char* what;
    std::vector<std::string> arguments;
    std::vector<const Block*> filler;  // in the order they must appear
};

// The output must be: summary, the filler blocks once each in their fixed order, then the usage
// text and nothing after it, with exit status 0.
void checkUsageRun(const UsageCase& c) {
    SCOPED_TRACE(c.what);
    const ProcessResult run = runCorebench(c.arguments);
    ASSERT_TRUE(run.exited);
    EXPECT_EQ(run.status, 0);
    const size_t head = readSummary(run.output).length;
    ASSERT_GT(head, 0u) << run.output.substr(0, 300);
    ASSERT_GE(run.output.size(), head + kUsageText.size());
    const size_t usageAt = run.output.size() - kUsageText.size();
    EXPECT_EQ(run.output.substr(usageAt), kUsageText);

    const std::string filler = run.output.substr(head, usageAt - head);
    size_t at = 0;
    for (const Block* block : c.filler) {
        ASSERT_LE(at + block->bytes, filler.size()) << block->marker;
        const std::string text = filler.substr(at, block->bytes);
        EXPECT_EQ(text.rfind(block->start, 0), 0u) << block->marker;
        EXPECT_NE(text.find(block->marker), std::string::npos) << block->marker;
        if (block->lines > 0) {
            EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), block->lines) << block->marker;
        }
        at += block->bytes;
    }
    EXPECT_EQ(filler.size(), at) << "unexpected text before the usage";
}

TEST(CorebenchUsage, UnknownTestNamePrintsUsageAndExitsZero) {
    const UsageCase cases[] = {
        {"unknown name", {"Nope"}, {}},
        {"prefix of a name", {"Singl"}, {}},
        {"trailing blank", {"Single5 "}, {}},
        {"threshold with an unknown name", {"Nope", "exitCodeThreshold", "1"}, {}},
    };
    for (const UsageCase& c : cases) {
        checkUsageRun(c);
    }
}

TEST(CorebenchUsage, FillerComesOnceEachInFixedOrderBeforeTheUsage) {
    const std::string x90(90, 'x');
    const UsageCase cases[] = {
        {"keyword first is no test name",
         {"HoudiniLog", "LoremIpsum"},
         {&kLoremIpsum, &kHoudiniLog}},
        {"keyword in a late position", {"Nope", "x", "y", "BlenderLog"}, {&kBlenderLog}},
        {"inside a word, any case", {"Nope", "xloremipsumx"}, {&kLoremIpsum}},
        {"repeated and reversed",
         {"Nope", "houdinilog", "BLENDERLOG", "LoremIpsum", "LoremIpsum", "blenderlog"},
         {&kLoremIpsum, &kBlenderLog, &kHoudiniLog}},
        {"ends at character 100", {"Nope", x90 + "LoremIpsum"}, {&kLoremIpsum}},
        {"ends at character 101", {"Nope", x90 + "xLoremIpsum"}, {}},
    };
    for (const UsageCase& c : cases) {
        checkUsageRun(c);
    }
}

TEST(CorebenchUsage, HostileArgumentsAreCutNotTrusted) {
    std::vector<std::string> many = {"Nope"};
    many.resize(9999, "x");
    many.push_back("HoudiniLog");
    const UsageCase cases[] = {
        {"70,000-character name", {std::string(70000, 'A')}, {}},
        // 70,000 counts as 4,464 and is then cut to 100, which still holds the keyword.
        {"70,000 characters", {"Nope", "BlenderLog" + std::string(69990, 'x')}, {&kBlenderLog}},
        // 65,541 counts as 5: only "Lorem" is left.
        {"length wraps at 65536", {"Nope", "LoremIpsum" + std::string(65531, 'x')}, {}},
        {"empty arguments", {"Nope", "", "", "", "", "HoudiniLog", ""}, {&kHoudiniLog}},
        {"bytes >= 0x80", {"\xC3\x80LL", "\x80LoremIpsum\xFF", "\xE9"}, {&kLoremIpsum}},
        {"10,000 arguments", many, {&kHoudiniLog}},
    };
    for (const UsageCase& c : cases) {
        checkUsageRun(c);
    }
}

}  // namespace
