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

// A code with all bits set is a call's -1 result and stands for errno.
TEST(SystemErrorText, NamesTheCodeOrErrno) {
    EXPECT_EQ(textOf(0), "No Error.");
    errno = 0;
    EXPECT_EQ(textOf(0xFFFFFFFFu), "No Error.");
    EXPECT_EQ(textOf(ENOENT), strerror(ENOENT));
    errno = EACCES;
    EXPECT_EQ(textOf(0xFFFFFFFFu), strerror(EACCES));
    EXPECT_NE(textOf(123456).find("123456"), std::string::npos);  // unknown to the OS
}

}  // namespace
