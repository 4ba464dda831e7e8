#include "support/common/ImportTableFake.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Testing
{

namespace
{

// The object that lies at an offset from where the program was loaded.
template <class T>
T* AtOffset(DWORD_PTR offset)
{
    return reinterpret_cast<T*>(reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr)) + offset);
}

void* FindProgramSlot(std::string_view name) noexcept
{
    const auto* const headers =
        AtOffset<IMAGE_NT_HEADERS>(static_cast<DWORD_PTR>(AtOffset<IMAGE_DOS_HEADER>(0)->e_lfanew));
    const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (const auto* dll = AtOffset<IMAGE_IMPORT_DESCRIPTOR>(directory.VirtualAddress); dll->FirstThunk != 0; ++dll)
    {
        for (DWORD offset = 0;; offset += sizeof(IMAGE_THUNK_DATA))
        {
            IMAGE_THUNK_DATA imported{};
            std::memcpy(&imported, AtOffset<BYTE>(dll->OriginalFirstThunk + offset), sizeof(imported));
            if (imported.u1.AddressOfData == 0)
            {
                break;
            }
            if (!IMAGE_SNAP_BY_ORDINAL(imported.u1.Ordinal) &&
                name == AtOffset<IMAGE_IMPORT_BY_NAME>(imported.u1.AddressOfData)->Name)
            {
                return AtOffset<BYTE>(dll->FirstThunk + offset);
            }
        }
    }
    return nullptr;
}

// What the functions that stand before others call next, by their slots. As many as anybody imports.
struct Front
{
    const void* slot;
    void** next;
};
constinit std::array<Front, 512> s_fronts{};
constinit std::size_t s_frontCount = 0;

} // namespace

void* FindImportSlot(std::string_view name) noexcept
{
    void* const slot = FindProgramSlot(name);
    const auto* const end = s_fronts.data() + s_frontCount;
    const auto* const front =
        std::find_if<const Front*>(s_fronts.data(), end, [&](const Front& one) { return one.slot == slot; });
    return front == end ? slot : static_cast<void*>(front->next);
}

void StandBefore(void* slot, void* function, void** next)
{
    if (s_frontCount == s_fronts.size())
    {
        throw std::logic_error("too many functions that stand before others");
    }
    *next = GetImportSlot(slot);
    s_fronts[s_frontCount] = {.slot = slot, .next = next};
    ++s_frontCount;
    SetImportSlot(slot, function);
}

void* ImportSlot(std::string_view name)
{
    void* const slot = FindImportSlot(name);
    if (slot == nullptr)
    {
        throw std::logic_error(std::string(name) + " is not imported");
    }
    return slot;
}

void* GetImportSlot(const void* slot)
{
    void* function = nullptr;
    std::memcpy(&function, slot, sizeof(function));
    return function;
}

void SetImportSlot(void* slot, void* function)
{
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(function), PAGE_READWRITE, &protection);
    std::memcpy(slot, &function, sizeof(function));
    VirtualProtect(slot, sizeof(function), protection, &protection);
}

} // namespace Testing
