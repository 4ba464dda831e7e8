// What -fstack-protector-strong needs of a runtime. The compiler's own, libssp, loads a cryptographic provider at each
// start.
#ifdef __MINGW32__
#include <cstdint>

// NOLINTBEGIN(bugprone-reserved-identifier,misc-use-internal-linkage,readability-identifier-naming)
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
extern "C" std::uintptr_t __stack_chk_guard;
extern "C" [[noreturn]] void __stack_chk_fail();

// What stands on the stack between buffers and the return address.
std::uintptr_t __stack_chk_guard = 0x00000AFF0D0A0000; // ends strings and lines, where there are no random numbers

// Called when it was overwritten. Crash reporting sees the exception.
void __stack_chk_fail()
{
    __builtin_trap();
}
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
// NOLINTEND(bugprone-reserved-identifier,misc-use-internal-linkage,readability-identifier-naming)

// <cstdlib> has it only for who defines a macro before the first header.
extern "C" [[gnu::dllimport]] int rand_s(unsigned int* number); // NOLINT(readability-identifier-naming)

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
