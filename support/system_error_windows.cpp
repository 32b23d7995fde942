// The C runtime of Windows has strerror_s instead of strerror_r; it names only the classic error
// numbers, so the others read "Error N.".

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "system_error.h"

FixedString<250> systemErrorText(uint32_t code) {
    FixedString<250> text;
    const int number = code == 0xFFFFFFFFu ? errno : static_cast<int>(code);
    if (number == 0) {
        text.assign("No Error.");
        return text;
    }
    char buffer[250] = {};
    if (strerror_s(buffer, sizeof(buffer), number) == 0 && strcmp(buffer, "Unknown error") != 0) {
        text.append(buffer);
    }
    if (text.isEmpty()) {
        text.setLength(
            static_cast<int16_t>(snprintf(text.text, sizeof(text.text), "Error %d.", number)));
    }
    for (int i = 0; i < text.length; ++i) {
        if (text.text[i] == '\n' || text.text[i] == '\r') {
            text.text[i] = ' ';
        }
    }
    return text;
}
