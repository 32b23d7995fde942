#include "usage.h"

#include <cstdio>

void printUsage() {
    // One puts per entry, so an entry ending in "\n" is followed by an empty line.
    puts("Usage: ");
    puts(
        "corebench [testName] [exitCodeThreshold <divider>]  [LoremIpsum] [BlenderLog] "
        "[HoudiniLog]\n");
    puts(
        "[LoremIpsum] [BlenderLog] [HoudiniLog]:\n\tThese print some text to increase the size of "
        "the printed output\n");
    puts(
        "[exitCodeThreshold <divider>]: Return measured PS. <divider> divides the PS before "
        "returning it.");
    puts(
        "             The divider might be required on Linux as the exit code must be smaller "
        "than 255.\n");
    puts("[testName]: Available tests are:");
    puts("\t All: (default) Test all cores for ~1 minute ");
    puts("\t AllVerbose: Same, but with verbose log");
    puts("\t Single: Test 1 core only for ~1-2 minutes");
    puts("\t Single5: 5 times the Single test in a row");
    puts("\t Single5Verbose: 5 times the Single test in a row, with verbose log");
    puts("\t Single10: 10 times the Single test in a row");
    puts("\t Single10Verbose: 10 times the Single test in a row, with verbose log");
    puts("\t SingleSpeed: Test 1 core only for ~8 seconds");
}
