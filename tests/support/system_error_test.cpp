#include "system_error.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

std::string textOf(uint32_t code) {
    const FixedString<250> text = systemErrorText(code);
    EXPECT_EQ(text.length, strlen(text.text));
    return text.text;
}

TEST(SystemErrorText, NoErrorForZeroAndForMinusOneWithErrnoZero) {
    EXPECT_EQ(textOf(0), "No Error.");
    errno = 0;
    EXPECT_EQ(textOf(0xFFFFFFFFu), "No Error.");
}

TEST(SystemErrorText, OsTextOnOneLine) {
    const std::string text = textOf(ENOENT);
    EXPECT_EQ(text, strerror(ENOENT));
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
    errno = ENOENT;
    EXPECT_EQ(textOf(0xFFFFFFFFu), text);  // -1 reads errno
}

TEST(SystemErrorText, UnknownNumberNamesTheNumber) {
    const std::string text = textOf(123456);
    EXPECT_NE(text.find("123456"), std::string::npos) << text;
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
}

}  // namespace
