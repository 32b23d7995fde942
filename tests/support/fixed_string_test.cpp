#include "fixed_string.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

// The bytes up to length, so a length that disagrees with the text shows.
template <int N>
std::string str(const FixedString<N>& s) {
    return std::string(s.text, s.length);
}

TEST(FixedString, TruncatesAtCapacityAndKeepsTerminator) {
    const std::string longText(300, 'a');
    FixedString<250> s(longText.c_str());
    EXPECT_EQ(s.length, 250);
    EXPECT_EQ(s.text[250], '\0');
    s.append("b");
    EXPECT_EQ(s.length, 250);

    FixedString<5> small("abc");
    small.append("defg");
    EXPECT_EQ(str(small), "abcde");
    small.assign(small.text + 1);  // overlapping source: needs a move, not a copy
    EXPECT_EQ(str(small), "bcde");
    small.insert(1, "XY");
    EXPECT_EQ(str(small), "bXYcd");

    memset(small.text, 'x', sizeof(small.text));  // a raw write that left no terminator
    small.syncLength();
    EXPECT_EQ(str(small), "xxxxx");
    EXPECT_EQ(small.text[5], '\0');

    FixedString<20> blanks("\t x \r\n");
    blanks.trim();
    EXPECT_EQ(str(blanks), "x");
}

// Case-insensitive search in ASCII only; a needle that reaches past the text is not found.
TEST(FixedString, FindEdgeCases) {
    const FixedString<50> s("xbcAd");
    EXPECT_EQ(s.find("", 0), -1);
    EXPECT_EQ(s.find("XBCAD", 0), 0);  // same length: compares, ignoring case
    EXPECT_EQ(s.find("xbcad", 1), -1);
    EXPECT_EQ(s.find("d", INT_MAX), -1);
    // "BC" has the same byte sum as "AD"; only the byte check tells them apart.
    EXPECT_EQ(s.find("aD", 0), 3);
    EXPECT_EQ(FixedString<10>("ab\xe9").find("B\xe9", 0), 1);
    EXPECT_EQ(FixedString<10>("ab\xe9").find("B\xc9", 0), -1);  // Latin-1 capital E acute
    // Each removal searches again from the hit, so runs that close up are removed too.
    FixedString<10> runs("aaaaa");
    runs.removeAll("aa");
    EXPECT_EQ(str(runs), "a");
}

TEST(FixedString, ParseDecimal) {
    struct Case {
        const char* text;
        float value;
        bool ok;
    };
    // Seven fraction digits drop the fraction; the sign stays with the integer part.
    const Case cases[] = {{"1.234,5", 1234.5f, true}, {"1,234.5", 1234.5f, true},
                          {"2.60", 2.6f, true},       {"1.123456", 1.123456f, true},
                          {"1.1234567", 1.0f, true},  {"-1.5", -0.5f, true},
                          {"4-2", 0.0f, false},       {"3.5x", 3.0f, false}};
    for (const Case& c : cases) {
        bool ok = !c.ok;
        EXPECT_FLOAT_EQ(FixedString<250>(c.text).parseDecimal(&ok), c.value) << c.text;
        EXPECT_EQ(ok, c.ok) << c.text;
    }
}

TEST(FixedString, AppendNumberPadsOnTheSideOfTheWidthSign) {
    const auto number = [](int64_t value, int width) {
        FixedString<50> s;
        s.appendNumber(value, width);
        return str(s);
    };
    EXPECT_EQ(number(-42, -6), "   -42");
    EXPECT_EQ(number(-42, 6), "-42   ");
    EXPECT_EQ(number(123456, 3), "123456");
    EXPECT_EQ(number(INT64_MIN, 6), "-9223372036854775808");  // all 20 characters kept
}

}  // namespace
