#pragma once

// A small file of the system (/proc, /sys) read whole in one go. POSIX systems only: the readers
// of those trees are the only callers.

#include <string>

// False with errno set by the failed call; text then holds what was read before it.
bool readWholeFile(const std::string& path, std::string* text);
