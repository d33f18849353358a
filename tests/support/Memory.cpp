#include "tests/support/Memory.h"

#include <cstdlib>
#include <new>

bool Tolvar::Testing::MemoryFails = false;

void* operator new(std::size_t Size) {
    void* const Made = Tolvar::Testing::MemoryFails ? nullptr : std::malloc(Size);
    if (Made == nullptr) throw std::bad_alloc();
    return Made;
}

void operator delete(void* Made) noexcept {
    std::free(Made);
}

void operator delete(void* Made, std::size_t /*Size*/) noexcept {
    std::free(Made);
}
