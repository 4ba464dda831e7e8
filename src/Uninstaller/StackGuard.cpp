// What -fstack-protector-strong needs of a runtime. The compiler's own, libssp, loads a cryptographic provider at each
// start.
#ifdef __MINGW32__
#define _CRT_RAND_S
#include <cstdint>
#include <cstdlib>

// NOLINTBEGIN(bugprone-reserved-identifier,misc-use-internal-linkage)
extern "C" std::uintptr_t __stack_chk_guard;
extern "C" [[noreturn]] void __stack_chk_fail();

// What stands on the stack between buffers and the return address.
std::uintptr_t __stack_chk_guard = 0x00000AFF0D0A0000; // ends strings and lines, where there are no random numbers

// Called when it was overwritten. Crash reporting sees the exception.
void __stack_chk_fail()
{
    __builtin_trap();
}
// NOLINTEND(bugprone-reserved-identifier,misc-use-internal-linkage)

namespace
{

// Before main. Not protected itself: the guard that it found is not the one that it leaves.
[[gnu::constructor, clang::no_stack_protector]] void RandomizeGuard()
{
    unsigned int low = 0;
    unsigned int high = 0;
    if (rand_s(&low) == 0 && rand_s(&high) == 0)
    {
        __stack_chk_guard = static_cast<std::uintptr_t>(high) << 32 | low;
    }
}

} // namespace
#endif
