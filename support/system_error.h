#pragma once

#include <cstdint>

#include "fixed_string.h"

// One line of text for an OS error number; a code with all bits set (a call's -1 result) means
// the current errno.
FixedString<250> systemErrorText(uint32_t code);
