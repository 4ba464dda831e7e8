#include "support/stand_ins/FlowGuard.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Testing
{
namespace
{
// What IMAGE_LOAD_CONFIG_DIRECTORY64 says of the guard; older headers lack it.
struct GuardConfiguration
{
    std::byte before[0x70];
    void** checkPointer;
    void** dispatchPointer;
    const std::uint32_t* functions; // addresses relative to the image's base, in their order
    std::uint64_t functionCount;
    std::uint32_t flags;
};

constexpr std::uint32_t c_hasTable = 0x00000400;      // IMAGE_GUARD_CF_FUNCTION_TABLE_PRESENT
constexpr std::uint32_t c_entrySizeMask = 0xF0000000; // what an entry has beside the address
constexpr UINT c_notATarget = 0xC0000409;             // STATUS_STACK_BUFFER_OVERRUN

struct Image
{
    std::uintptr_t base = 0;
    std::uintptr_t size = 0;
    std::span<const std::uint32_t> functions;
    volatile long* calls = nullptr;
};

Image& Program()
{
    static Image image;
    return image;
}

void Replace(void** pointer, void (*function)())
{
    DWORD before = 0;
    VirtualProtect(pointer, sizeof(*pointer), PAGE_READWRITE, &before);
    *pointer = reinterpret_cast<void*>(function);
    VirtualProtect(pointer, sizeof(*pointer), before, &before);
}
} // namespace

extern "C" {
// Called by the code below.
void CheckTarget(std::uintptr_t target) noexcept;
__attribute__((used)) void CheckTarget(std::uintptr_t target) noexcept
{
    const Image& image = Program();
    InterlockedIncrement(image.calls);
    const std::uintptr_t offset = target - image.base; // a target before the image makes a huge one
    if (offset < image.size && !std::ranges::binary_search(image.functions, static_cast<std::uint32_t>(offset)))
    {
        TerminateProcess(GetCurrentProcess(), c_notATarget);
    }
}

// The call's target is in rax (a jump there is expected) or rcx (a return). All registers may hold arguments.
void CheckedJump();
void CheckedReturn();
}

#define CHECK_TARGET_IN(reg)                                                                                           \
    "push %rax\n push %rcx\n push %rdx\n push %r8\n push %r9\n push %r10\n push %r11\n sub $128, %rsp\n"               \
    "movups %xmm0, 32(%rsp)\n movups %xmm1, 48(%rsp)\n movups %xmm2, 64(%rsp)\n"                                       \
    "movups %xmm3, 80(%rsp)\n movups %xmm4, 96(%rsp)\n movups %xmm5, 112(%rsp)\n"                                      \
    "mov " reg ", %rcx\n call CheckTarget\n"                                                                           \
    "movups 32(%rsp), %xmm0\n movups 48(%rsp), %xmm1\n movups 64(%rsp), %xmm2\n"                                       \
    "movups 80(%rsp), %xmm3\n movups 96(%rsp), %xmm4\n movups 112(%rsp), %xmm5\n"                                      \
    "add $128, %rsp\n pop %r11\n pop %r10\n pop %r9\n pop %r8\n pop %rdx\n pop %rcx\n pop %rax\n"

asm(".text\n .globl CheckedJump\nCheckedJump:\n" CHECK_TARGET_IN(
    "%rax") "jmp *%rax\n"
            ".globl CheckedReturn\nCheckedReturn:\n" CHECK_TARGET_IN("%rcx") "ret\n");

bool StartFlowGuard(volatile long& calls) noexcept
{
    const auto base = reinterpret_cast<std::uintptr_t>(GetModuleHandleW(nullptr));
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto& header =
        reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + static_cast<std::uintptr_t>(dos->e_lfanew))->OptionalHeader;
    const auto& directory = header.DataDirectory[IMAGE_DIRECTORY_ENTRY_LOAD_CONFIG];
    const auto* const guard = reinterpret_cast<const GuardConfiguration*>(base + directory.VirtualAddress);
    if (directory.VirtualAddress == 0 || (guard->flags & c_hasTable) == 0 || (guard->flags & c_entrySizeMask) != 0)
    {
        return false;
    }
    Program() = {.base = base,
                 .size = header.SizeOfImage,
                 .functions = {guard->functions, static_cast<std::size_t>(guard->functionCount)},
                 .calls = &calls};
    Replace(guard->checkPointer, &CheckedReturn);
    Replace(guard->dispatchPointer, &CheckedJump);
    return true;
}
} // namespace Testing
