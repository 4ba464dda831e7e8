#include "support/OutOfMemory.h"

#include <cstdlib>
#include <new>

namespace
{

bool isOutOfMemory = false;

} // namespace

void* operator new(std::size_t size)
{
    void* const memory = isOutOfMemory ? nullptr : std::malloc(size);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

// Not every compiler declares this one by itself.
void operator delete(void* memory, std::size_t size) noexcept;

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace Testing
{

OutOfMemory::OutOfMemory()
{
    isOutOfMemory = true;
}

OutOfMemory::~OutOfMemory()
{
    isOutOfMemory = false;
}

} // namespace Testing
