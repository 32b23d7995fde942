#include "filler.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

// Runs one print function with standard output redirected into a temporary file and returns the
// bytes it wrote.
std::string captureStdout(void (*print)()) {
    fflush(stdout);
    FILE* sink = tmpfile();
    if (sink == nullptr) {
        ADD_FAILURE() << "tmpfile failed";
        return {};
    }
    const int savedStdout = dup(STDOUT_FILENO);
    dup2(fileno(sink), STDOUT_FILENO);
    print();
    fflush(stdout);
    dup2(savedStdout, STDOUT_FILENO);
    close(savedStdout);

    std::string text;
    rewind(sink);
    char buffer[4096];
    size_t count;
    while ((count = fread(buffer, 1, sizeof buffer, sink)) > 0) {
        text.append(buffer, count);
    }
    fclose(sink);
    return text;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t begin = 0;
    for (size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        lines.push_back(text.substr(begin, end - begin));
    }
    EXPECT_EQ(begin, text.size()) << "last line is not terminated";
    return lines;
}

// The frame ^R[ 0-9]{2}[0-9]\| spelled out by hand: GCC 12's <regex> trips -Wmaybe-uninitialized
// in the sanitizer builds.
bool hasFrame(const std::string& line) {
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    return line.size() >= 6 && line[0] == 'R' && (line[1] == ' ' || digit(line[1])) &&
           (line[2] == ' ' || digit(line[2])) && digit(line[3]) && line[4] == '|' && line[5] == ' ';
}

uint64_t fnv1a(const std::string& text) {
    uint64_t hash = 0xcbf29ce484222325u;
    for (unsigned char c : text) {
        hash = (hash ^ c) * 0x100000001b3u;
    }
    return hash;
}

TEST(FillerLoremIpsum, PrintsTheFiveBlocksByteExact) {
    const std::string out = captureStdout(printLoremIpsum);
    EXPECT_EQ(out.size(), 4680u);
    // Each block is followed by the newline puts adds, so a block of the wrong length moves every
    // later block and its own tail.
    struct Block {
        size_t offset;
        size_t length;
        const char* head;
        const char* tail;
    };
    const Block blocks[] = {
        {0, 448, "\n\nLorem ipsum dolor sit amet", "id est laborum.\n"},
        {449, 914, "De Finibus Bonorum et Malorum 1.10.32  (Cicero)\nSed ut", "nulla pariatur?\n"},
        {1364, 972, "But I must explain", "resultant pleasure?\n\n"},
        {2337, 494, "Lorem ipsum dolor sit amet",
         "laborum.\n\nDe Finibus Bonorum et Malorum 1.10.33  (Cicero)"},
        {2832, 1847, "At vero eos et accusamus", "to avoid worse pains.\n\n\n\n\n"},
    };
    for (const Block& b : blocks) {
        ASSERT_GE(out.size(), b.offset + b.length + 1);
        EXPECT_EQ(out.substr(b.offset, strlen(b.head)), b.head) << "block at " << b.offset;
        EXPECT_EQ(out.substr(b.offset + b.length - strlen(b.tail), strlen(b.tail)), b.tail)
            << "block at " << b.offset;
        EXPECT_EQ(out[b.offset + b.length], '\n') << "block at " << b.offset;
    }
    // Hash of the whole quoted text: catches a changed letter anywhere inside a block.
    EXPECT_EQ(fnv1a(out), 0x89ebc2a0a2961ed1u);
}

TEST(FillerOutput, IsPrintableAsciiWithoutPercentSigns) {
    for (void (*print)() : {printLoremIpsum, printBlenderLog, printHoudiniLog}) {
        const std::string out = captureStdout(print);
        EXPECT_EQ(out.find('%'), std::string::npos);
        for (unsigned char c : out) {
            ASSERT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7f)) << "byte " << int(c);
        }
    }
}

struct LogCase {
    const char* name;
    void (*print)();
    size_t bytes;
    size_t lines;
    size_t longest;
    std::vector<std::pair<int, int>> numberRanges;  // inclusive; gaps between them are cut lines
    std::vector<std::string> quotedRows;
};

// Names the case in failure messages instead of dumping the struct's bytes.
void PrintTo(const LogCase& logCase, std::ostream* os) {
    *os << logCase.name;
}

class FillerLog : public testing::TestWithParam<LogCase> {
  protected:
    void SetUp() override { lines = splitLines(captureStdout(GetParam().print)); }

    std::vector<int> expectedNumbers() const {
        std::vector<int> numbers;
        for (const auto& range : GetParam().numberRanges) {
            for (int n = range.first; n <= range.second; ++n) {
                numbers.push_back(n);
            }
        }
        return numbers;
    }

    std::vector<std::string> lines;
};

TEST_P(FillerLog, HasTheRecordedSize) {
    size_t bytes = 0;
    size_t longest = 0;
    for (const std::string& line : lines) {
        bytes += line.size() + 1;
        longest = std::max(longest, line.size());
    }
    EXPECT_EQ(lines.size(), GetParam().lines);
    EXPECT_EQ(bytes, GetParam().bytes);
    EXPECT_EQ(longest, GetParam().longest);
}

TEST_P(FillerLog, FramesEveryLineWithItsRightAlignedNumber) {
    const std::vector<int> numbers = expectedNumbers();
    ASSERT_EQ(lines.size(), numbers.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(hasFrame(lines[i])) << lines[i];
        char prefix[16];
        snprintf(prefix, sizeof prefix, "R%3d| ", numbers[i]);
        EXPECT_EQ(lines[i].compare(0, strlen(prefix), prefix), 0)
            << "line " << i << " should start with '" << prefix << "': " << lines[i];
    }
}

TEST_P(FillerLog, PrintsTheQuotedRowsAtTheirNumbers) {
    const std::vector<int> numbers = expectedNumbers();
    ASSERT_EQ(lines.size(), numbers.size());
    for (const std::string& row : GetParam().quotedRows) {
        const int number = std::stoi(row.substr(1, 3));
        const auto at = std::find(numbers.begin(), numbers.end(), number) - numbers.begin();
        ASSERT_LT(size_t(at), numbers.size()) << row;
        EXPECT_EQ(lines[at], row);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Filler, FillerLog,
    testing::Values(
        LogCase{"Blender",
                printBlenderLog,
                14808,
                116,
                416,
                {{8, 73}, {123, 125}, {132, 159}, {189, 202}, {306, 310}},
                {"R 12| ' 18:12.03 --Blend      : Success! ",
                 "R 21| Error: Attribute is not part of this geometry",
                 "R 31| ' 18:12.11 --Blend      : [GPU] Device mode was set to: NONE ",
                 "R309| Fra:1121 Mem:5457.04M (Peak 20930.78M) | Time:01:59.99 | Compositing | "
                 "De-initializing execution"}},
        LogCase{
            "Houdini",
            printHoudiniLog,
            14005,
            172,
            203,
            {{8, 149}, {156, 185}},
            {"R 24| 00:00:01   387MB         | loaded 6 plugins from 4 lib(s) in 0:00.31",
             "R 72| ' 02:34.43 --Houdini      : Rendering USD/LOP ",
             "R144| 00:00:01  4583MB WARNING | /lights/aim/rim_aim: parameter opaque is deprecated",
             "R174| ALF_PROGRESS 0P", "R183| 00:31:25 25038MB         | releasing resources"}}),
    [](const testing::TestParamInfo<LogCase>& info) { return std::string(info.param.name); });

}  // namespace
