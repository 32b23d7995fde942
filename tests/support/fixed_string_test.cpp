#include "fixed_string.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

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
    small.assign(small.text + 1);  // from its own characters
    EXPECT_EQ(str(small), "bcde");
}

TEST(FixedString, FindEdgeCases) {
    const FixedString<50> s("xbcAd");
    EXPECT_EQ(s.find("", 0), -1);
    EXPECT_EQ(s.find("XBCAD", 0), 0);  // same length: compares, ignoring case
    EXPECT_EQ(s.find("xbcae", 0), -1);
    EXPECT_EQ(s.find("xbcad", 1), -1);  // needle + start beyond the text
    EXPECT_EQ(s.find("ad", 4), -1);
    EXPECT_EQ(s.find("d", INT_MAX), -1);
    // "BC" has the same byte sum as "AD"; only the byte check tells them apart.
    EXPECT_EQ(s.find("aD", 0), 3);
    EXPECT_EQ(s.find("bc", 2), -1);
}

TEST(FixedString, CaseFoldingIsAsciiOnly) {
    const FixedString<10> eAcute("\xe9");
    const FixedString<10> capitalEAcute("\xc9");
    EXPECT_FALSE(eAcute.equalsIgnoreCase(capitalEAcute));
    EXPECT_TRUE(eAcute.equalsIgnoreCase(FixedString<10>("\xe9")));
    // Bytes >= 0x80 compare as unsigned, so they sort after ASCII letters.
    EXPECT_GT(eAcute.compareIgnoreCase(FixedString<10>("z")), 0);
    EXPECT_EQ(FixedString<10>("ab\xe9").find("B\xe9", 0), 1);
    EXPECT_EQ(FixedString<10>("a\xe9").findCharIgnoreCase('\xe9', 0), 1);
}

TEST(FixedString, TrimRemovesControlBlanksBothSides) {
    FixedString<20> s("\t x \r\n");
    s.trim();
    EXPECT_EQ(str(s), "x");
    s.assign(" \t ");
    s.trim();
    EXPECT_TRUE(s.isEmpty());
}

TEST(FixedString, ParseDecimal) {
    struct Case {
        const char* text;
        float value;
        bool ok;
    };
    // Seven fraction digits drop the fraction; the sign stays with the integer part.
    const Case cases[] = {
        {"1.234,5", 1234.5f, true},    {"1,234.5", 1234.5f, true}, {"2.60", 2.6f, true},
        {"1.123456", 1.123456f, true}, {"1.1234567", 1.0f, true},  {"-1.5", -0.5f, true},
        {"42", 42.0f, true},           {"", 0.0f, true},           {"4-2", 0.0f, false},
        {"1x.5", 0.0f, false},         {"3.5x", 3.0f, false}};
    for (const Case& c : cases) {
        bool ok = !c.ok;
        EXPECT_FLOAT_EQ(FixedString<250>(c.text).parseDecimal(&ok), c.value) << c.text;
        EXPECT_EQ(ok, c.ok) << c.text;
    }
    EXPECT_FLOAT_EQ(FixedString<250>("7.5").parseDecimal(nullptr), 7.5f);
}

TEST(FixedString, AppendNumberPadsOnTheSideOfTheWidthSign) {
    struct Case {
        int64_t value;
        char width;
        const char* text;
    };
    const Case cases[] = {{-42, -6, "   -42"},
                          {-42, 6, "-42   "},
                          {-42, 0, "-42"},
                          {123456, 3, "123456"},
                          {INT64_MIN, 6, "-9223372036854775808"}};
    for (const Case& c : cases) {
        FixedString<50> s;
        s.appendNumber(c.value, c.width);
        EXPECT_EQ(str(s), c.text);
    }
}

TEST(FixedString, RemoveInsertAndRemoveAll) {
    FixedString<50> s("8-Core Processor");
    s.remove(-1, 2);  // from a start of -1 the cut ends at 1
    EXPECT_EQ(str(s), "-Core Processor");
    s.remove(5, 100);
    EXPECT_EQ(str(s), "-Core");
    s.remove(9, 1);
    EXPECT_EQ(str(s), "-Core");

    FixedString<6> t("abef");
    t.insert(2, FixedString<10>("cd"));
    EXPECT_EQ(str(t), "abcdef");
    t.insert(1, "XY");
    EXPECT_EQ(str(t), "aXYbcd");

    FixedString<50> xeon("Gold Xeon GOLD gold 6148");
    xeon.removeAll("gold ");
    EXPECT_EQ(str(xeon), "Xeon 6148");
    FixedString<10> runs("aaaaa");
    runs.removeAll("aa");
    EXPECT_EQ(str(runs), "a");
}

TEST(FixedString, LengthControl) {
    FixedString<10> s("abc");
    s.setLength(5);  // moves the terminator only, no blanks
    EXPECT_EQ(s.length, 5);
    EXPECT_EQ(std::string(s.text, 6), std::string("abc\0\0\0", 6));
    s.setLength(-1);
    EXPECT_EQ(s.length, 0);
    s.setLength(100);
    EXPECT_EQ(s.length, 10);
    EXPECT_EQ(s.text[10], '\0');

    memset(s.text, 'x', sizeof(s.text));  // a raw write that left no terminator
    s.syncLength();
    EXPECT_EQ(s.length, 10);
    EXPECT_EQ(s.text[10], '\0');
    s.text[3] = '\0';
    s.syncLength();
    EXPECT_EQ(s.length, 3);
}

TEST(FixedString, FindLastCharStartRule) {
    const FixedString<20> s("a.b.c");
    EXPECT_EQ(s.findLastChar('.', -1), 3);
    EXPECT_EQ(s.findLastChar('.', 3), 3);
    EXPECT_EQ(s.findLastChar('.', 2), 1);
    EXPECT_EQ(s.findLastChar('.', 0), -1);
    EXPECT_EQ(s.findLastChar('.', 5), 3);  // a start at or past the end scans from the end
    EXPECT_EQ(FixedString<20>().findLastChar('.', -1), -1);
}

}  // namespace
