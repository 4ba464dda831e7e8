#pragma once

namespace Testing
{
// Does in this process what Windows' control flow guard does and Wine does not: an indirect call within the program
// that does not go to a function of the program's table ends the process with STATUS_STACK_BUFFER_OVERRUN. `calls`
// counts the calls that were checked. Returns whether the program has a table.
bool StartFlowGuard(volatile long& calls) noexcept;
} // namespace Testing
