#pragma once

// What the error text asks of the OS: the C library's own words for an error number. One
// implementation per OS is built.

#include <cstddef>

// The text of a nonzero error number, or nullptr when the C library has none for it. buffer (of
// size bytes) may hold the text.
const char* errorNumberText(int number, char* buffer, size_t size);
