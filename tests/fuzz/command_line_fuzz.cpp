// The command line against a model of its rules: the positional words, the filler keyword scan,
// the choice of test, the divider and the exit value. The input is a control byte, a float (the
// PS of the exit value), then the arguments separated by NUL bytes.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "command_line.h"
#include "exit_code.h"
#include "fuzz_check.h"
#include "test_table.h"

namespace {

std::string upperAll(std::string s) {
    for (char& c : s) {
        c = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return s;
}

// What is kept of an argument: its length taken modulo 65536, then at most 100 characters.
std::string kept(const char* arg) {
    if (arg == nullptr) {
        return "";
    }
    const std::string s(arg);
    return s.substr(0, std::min<size_t>(s.size() % 65536, 100));
}

struct ModelTest {
    const char* name;
    bool allCores;
    int runs;
    bool verbose;
    bool speed;
    bool single;
};

// The test table as the usage text describes it, in the order names are compared.
const ModelTest kModelTests[] = {
    {"ALL", true, 1, false, false, false},       {"ALLVERBOSE", true, 1, true, false, false},
    {"SINGLE", false, 1, false, false, true},    {"SINGLESPEED", false, 1, false, true, true},
    {"SINGLE10", false, 10, false, false, true}, {"SINGLE10VERBOSE", false, 10, true, false, true},
    {"SINGLE5", false, 5, false, false, true},   {"SINGLE5VERBOSE", false, 5, true, false, true},
};

void checkTest(const std::string& word, const TestSpec* test) {
    const std::string wanted = word.empty() ? "ALL" : upperAll(word);
    for (const ModelTest& m : kModelTests) {
        if (wanted == m.name) {
            FUZZ_CHECK(test != nullptr);
            FUZZ_CHECK(upperAll(test->name) == m.name);
            FUZZ_CHECK(test->allCores == m.allCores && test->runs == m.runs &&
                       test->verbose == m.verbose);
            FUZZ_CHECK(m.allCores || (test->speed == m.speed && test->single == m.single));
            return;
        }
    }
    FUZZ_CHECK(test == nullptr);
}

// atoi as our C libraries read it: blanks, a sign, digits; strtoll's saturation at 64 bits, then
// the low 32 bits.
int32_t modelAtoi(const std::string& s) {
    size_t i = s.find_first_not_of(" \t\n\v\f\r");
    if (i == std::string::npos) {
        return 0;
    }
    const bool negative = s[i] == '-';
    i += (s[i] == '-' || s[i] == '+');
    unsigned __int128 magnitude = 0;
    for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
        magnitude = std::min<unsigned __int128>(magnitude * 10 + (s[i] - '0'),
                                                static_cast<unsigned __int128>(1) << 64);
    }
    __int128 value = negative ? -static_cast<__int128>(magnitude) : magnitude;
    value = std::max<__int128>(std::min<__int128>(value, INT64_MAX), INT64_MIN);
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}

void checkExitValue(float ps, int32_t divider) {
    const int32_t value = exitValue(ps, divider);
    const long double quotient = static_cast<long double>(ps) / divider;
    // The divider and the quotient are both rounded to float, which moves the quotient by up to
    // about 1.2e-7 of itself; near 2^31 either outcome is right.
    if (divider == 0 || !std::isfinite(quotient) || std::fabs(quotient) >= 2147484600.0L) {
        FUZZ_CHECK(value == INT32_MIN);
    } else if (std::fabs(quotient) < 2147482600.0L) {
        FUZZ_CHECK(std::fabs(value - std::trunc(quotient)) <= 1 + std::fabs(quotient) * 3e-7L);
    }
    FUZZ_CHECK(exitCodeFor(value) == (value >= 256 ? 255 : value));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) {
        return 0;
    }
    const uint8_t control = data[0];
    float ps;
    memcpy(&ps, data + 1, sizeof(ps));

    std::vector<std::string> args{"corebench"};
    std::string current;
    for (size_t i = 5; i < size; ++i) {
        if (data[i] == 0) {
            args.push_back(current);
            current.clear();
        } else {
            current += static_cast<char>(data[i]);
        }
    }
    args.push_back(current);
    // A long argument whose length modulo 65536 is its first part: only that part counts.
    if (control & 1) {
        args.back() += std::string(65536, static_cast<char>('A' + control % 26));
    }
    std::vector<const char*> argv;
    for (const std::string& a : args) {
        argv.push_back(a.c_str());
    }
    // The OS never passes a null argument, but the copy is said to take one as empty.
    if (control & 2) {
        argv[1 + (control >> 2) % (argv.size() - 1)] = nullptr;
    }
    const int argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);

    const CommandWords words = readCommandWords(argc, argv.data());
    const ArgumentText* const got[] = {&words.testName, &words.thresholdKeyword, &words.divider};
    for (int i = 0; i < 3; ++i) {
        const std::string expected = i + 1 < argc ? kept(argv[i + 1]) : "";
        FUZZ_CHECK(std::string(got[i]->text, got[i]->length) == expected);
        FUZZ_CHECK(got[i]->text[got[i]->length] == '\0');
    }

    const FillerRequest filler = scanFillerKeywords(argc, argv.data());
    bool lorem = false, blender = false, houdini = false;
    for (int i = 1; i < argc; ++i) {
        const std::string t = upperAll(kept(argv[i]));
        lorem = lorem || t.find("LOREMIPSUM") != std::string::npos;
        blender = blender || t.find("BLENDERLOG") != std::string::npos;
        houdini = houdini || t.find("HOUDINILOG") != std::string::npos;
    }
    FUZZ_CHECK(filler.loremIpsum == lorem && filler.blenderLog == blender &&
               filler.houdiniLog == houdini);

    checkTest(std::string(words.testName.text, words.testName.length), findTest(words.testName));

    const int32_t divider = dividerFrom(words.divider.text);
    FUZZ_CHECK(divider == modelAtoi(std::string(words.divider.text, words.divider.length)));
    checkExitValue(ps, divider);
    return 0;
}
