#include <cstdlib>

#include "aligned_memory.h"

void* allocateAligned(size_t alignment, size_t size) {
    void* memory = nullptr;
    return posix_memalign(&memory, alignment, size) == 0 ? memory : nullptr;
}

void freeAligned(void* memory) {
    free(memory);
}
