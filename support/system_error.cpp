#include "system_error.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// strerror_r comes in two shapes: the XSI one returns 0 and leaves the text in the buffer, the GNU
// one returns the text itself, which need not be the buffer. Overloading on the result type picks
// the right reading for whichever one the C library declares; the other overload goes unused.
[[maybe_unused]] const char* messageOf(int result, const char* buffer) {
    return result == 0 ? buffer : nullptr;
}
[[maybe_unused]] const char* messageOf(const char* result, const char*) {
    return result;
}

}  // namespace

FixedString<250> systemErrorText(uint32_t code) {
    FixedString<250> text;
    const int number = code == 0xFFFFFFFFu ? errno : static_cast<int>(code);
    if (number != 0) {
        char buffer[250] = {};
        const char* message = messageOf(strerror_r(number, buffer, sizeof(buffer)), buffer);
        if (message != nullptr) {
            text.append(message);
        }
        if (text.isEmpty()) {
            text.setLength(
                static_cast<int16_t>(snprintf(text.text, sizeof(text.text), "Error %d.", number)));
        }
    } else {
        text.assign("No Error.");
    }
    // The text goes into a line-oriented log, so it must stay on one line.
    for (int i = 0; i < text.length; ++i) {
        if (text.text[i] == '\n' || text.text[i] == '\r') {
            text.text[i] = ' ';
        }
    }
    return text;
}
