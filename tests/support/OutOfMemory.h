#pragma once

namespace Testing
{

// While one lives, this program gets no more memory from operator new.
class OutOfMemory
{
public:
    OutOfMemory();
    ~OutOfMemory();
    OutOfMemory(const OutOfMemory&) = delete;
    OutOfMemory& operator=(const OutOfMemory&) = delete;
};

} // namespace Testing
