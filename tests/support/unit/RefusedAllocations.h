#pragma once

#include "support/unit/OutOfMemory.h"

#include <new>
#include <optional>
#include <type_traits>
#include <vector>

namespace Testing
{

// What a function returns when each of its allocations is refused in turn, and none in the end; nothing where it throws
// std::bad_alloc.
template <class Function>
auto ReturnedWithoutEachAllocation(Function function)
{
    std::vector<std::optional<std::invoke_result_t<Function>>> returned;
    for (bool hasRefused = true; hasRefused;)
    {
        std::optional<std::invoke_result_t<Function>> result;
        try
        {
            const OutOfMemory outOfMemory(static_cast<unsigned>(returned.size()));
            result = function();
            hasRefused = OutOfMemory::HasRefused();
        }
        catch (const std::bad_alloc&)
        {
            result.reset();
        }
        returned.push_back(result);
    }
    return returned;
}

} // namespace Testing
