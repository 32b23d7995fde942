#pragma once

// Memory at an alignment beyond what malloc promises. One implementation per OS is built.

#include <cstddef>

// alignment is a power of two and a multiple of sizeof(void*); nullptr when there is no memory.
void* allocateAligned(size_t alignment, size_t size);
// Releases what allocateAligned returned; nullptr is ignored.
void freeAligned(void* memory);
