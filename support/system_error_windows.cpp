// The C runtime of Windows has strerror_s instead of strerror_r; it names only the classic error
// numbers, and calls the others "Unknown error", which says less than the number.

#include <cstring>

#include "system_error_text.h"

const char* errorNumberText(int number, char* buffer, size_t size) {
    if (strerror_s(buffer, size, number) != 0 || strcmp(buffer, "Unknown error") == 0) {
        return nullptr;
    }
    return buffer;
}
