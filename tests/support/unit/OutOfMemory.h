#pragma once

namespace Testing
{

// While one lives, this program gets no more memory from operator new.
class OutOfMemory
{
public:
    OutOfMemory();
    // Only the allocation that follows so many others is refused.
    explicit OutOfMemory(unsigned spared);
    ~OutOfMemory();
    OutOfMemory(const OutOfMemory&) = delete;
    OutOfMemory& operator=(const OutOfMemory&) = delete;

    // Whether any was refused so far.
    static bool HasRefused();
};

} // namespace Testing
