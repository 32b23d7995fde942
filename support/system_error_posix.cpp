#include <cstring>

#include "system_error_text.h"

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

const char* errorNumberText(int number, char* buffer, size_t size) {
    return messageOf(strerror_r(number, buffer, size), buffer);
}
