#include "support/unit/OutOfMemory.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace
{

unsigned spared = 0;  // allocations that are still granted
unsigned refused = 0; // so many at most are refused then
bool hasRefused = false;

bool Refuses()
{
    if (refused == 0 || spared != 0)
    {
        spared -= refused == 0 ? 0 : 1;
        return false;
    }
    --refused;
    hasRefused = true;
    return true;
}

} // namespace

void* operator new(std::size_t size)
{
    void* const memory = Refuses() ? nullptr : std::malloc(size);
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
    refused = std::numeric_limits<unsigned>::max();
    hasRefused = false;
}

OutOfMemory::OutOfMemory(unsigned count)
{
    spared = count;
    refused = 1;
    hasRefused = false;
}

OutOfMemory::~OutOfMemory()
{
    spared = 0;
    refused = 0;
}

bool OutOfMemory::HasRefused()
{
    return hasRefused;
}

} // namespace Testing
