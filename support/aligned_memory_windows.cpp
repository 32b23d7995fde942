// The C runtime of Windows has no posix_memalign; its aligned blocks have their own free.

#include <malloc.h>

#include "aligned_memory.h"

void* allocateAligned(size_t alignment, size_t size) {
    return _aligned_malloc(size, alignment);
}

void freeAligned(void* memory) {
    _aligned_free(memory);
}
