// The command line against a model of its rules: the positional words, the filler keyword scan,
// the choice of test, the divider and the exit value. The input is a control byte, a float (the
// PS of the exit value), then the arguments separated by NUL bytes.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "command_line.h"
#include "exit_code.h"
#include "fuzz_check.h"
#include "test_table.h"

namespace {

std::string upper(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? char(c - 32) : c; });
    return s;
}

// What is kept of an argument: its length taken modulo 65536, then at most 100 characters.
std::string kept(const char* arg) {
    const std::string s(arg == nullptr ? "" : arg);
    return s.substr(0, std::min<size_t>(s.size() % 65536, 100));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) {
        return 0;
    }
    float ps;
    memcpy(&ps, data + 1, sizeof(ps));
    std::vector<std::string> args{"corebench", ""};
    for (size_t i = 5; i < size; ++i) {
        data[i] == 0 ? void(args.emplace_back())
                     : args.back().push_back(static_cast<char>(data[i]));
    }
    // A long argument whose length modulo 65536 is its first part: only that part counts.
    if (data[0] & 1) {
        args.back() += std::string(65536, static_cast<char>('A' + data[0] % 26));
    }
    std::vector<const char*> argv(args.size() + 1, nullptr);  // argv[argc] is null
    std::transform(args.begin(), args.end(), argv.begin(), [](auto& a) { return a.c_str(); });
    // The OS never passes a null argument, but the copy is said to take one as empty.
    if (data[0] & 2) {
        argv[1 + (data[0] >> 2) % (args.size() - 1)] = nullptr;
    }
    const int argc = static_cast<int>(args.size());

    const CommandWords words = readCommandWords(argc, argv.data());
    const ArgumentText* const got[] = {&words.testName, &words.thresholdKeyword, &words.divider};
    for (int i = 0; i < 3; ++i) {
        FUZZ_CHECK(std::string(got[i]->text, got[i]->length) ==
                   (i + 1 < argc ? kept(argv[i + 1]) : ""));
        FUZZ_CHECK(got[i]->text[got[i]->length] == '\0');
    }

    const FillerRequest filler = scanFillerKeywords(argc, argv.data());
    std::string all;
    for (int i = 1; i < argc; ++i) {
        all += upper(kept(argv[i])) + '\0';  // a keyword never spans two arguments
    }
    FUZZ_CHECK(filler.loremIpsum == (all.find("LOREMIPSUM") != std::string::npos) &&
               filler.blenderLog == (all.find("BLENDERLOG") != std::string::npos) &&
               filler.houdiniLog == (all.find("HOUDINILOG") != std::string::npos));

    // An empty name is All, else the name as given, ignoring case, or none (how each test runs is
    // pinned by TestTable's own table).
    const std::string name = upper(std::string(words.testName.text, words.testName.length));
    const TestEntry* test = findTest(words.testName);
    const char* names[] = {"ALL",      "ALLVERBOSE",      "SINGLE",  "SINGLESPEED",
                           "SINGLE10", "SINGLE10VERBOSE", "SINGLE5", "SINGLE5VERBOSE"};
    const bool known = name.empty() || std::count(std::begin(names), std::end(names), name) == 1;
    FUZZ_CHECK(known ? test != nullptr && upper(test->name) == (name.empty() ? "ALL" : name)
                     : test == nullptr);

    const int32_t divider = dividerFrom(words.divider.text);
    // atoi as glibc reads it: strtoll's reading, saturated at 64 bits, then its low 32 bits.
    const long long read = std::strtoll(words.divider.text, nullptr, 10);
    FUZZ_CHECK(divider == static_cast<int32_t>(static_cast<uint32_t>(read)));
    // The quotients are pinned by ExitCode's table; here any PS and divider must convert without
    // undefined behaviour.
    const int32_t value = exitValue(ps, divider);
    FUZZ_CHECK(exitCodeFor(value) == std::min(value, 255));
    return 0;
}
