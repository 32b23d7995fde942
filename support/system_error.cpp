#include "system_error.h"

#include <cerrno>
#include <cstdio>

#include "system_error_text.h"

FixedString<250> systemErrorText(uint32_t code) {
    FixedString<250> text;
    const int number = code == 0xFFFFFFFFu ? errno : static_cast<int>(code);
    if (number != 0) {
        char buffer[250] = {};
        const char* message = errorNumberText(number, buffer, sizeof(buffer));
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
