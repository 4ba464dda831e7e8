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

DWORD FindDirectory(unsigned index) noexcept
{
    const auto* const headers =
        AtOffset<IMAGE_NT_HEADERS>(static_cast<DWORD_PTR>(AtOffset<IMAGE_DOS_HEADER>(0)->e_lfanew));
    return headers->OptionalHeader.DataDirectory[index].VirtualAddress;
}

// Looks for a function in what is imported from one library: its names, and the slots of the same order.
void* FindSlotIn(DWORD names, DWORD slots, std::string_view name) noexcept
{
    for (DWORD offset = 0;; offset += sizeof(IMAGE_THUNK_DATA))
    {
        IMAGE_THUNK_DATA imported{};
        std::memcpy(&imported, AtOffset<BYTE>(names + offset), sizeof(imported));
        if (imported.u1.AddressOfData == 0)
        {
            return nullptr;
        }
        if (!IMAGE_SNAP_BY_ORDINAL(imported.u1.Ordinal) &&
            name == AtOffset<IMAGE_IMPORT_BY_NAME>(imported.u1.AddressOfData)->Name)
        {
            return AtOffset<BYTE>(slots + offset);
        }
    }
}

void* FindLoadedSlot(std::string_view name) noexcept
{
    void* slot = nullptr;
    for (const auto* dll = AtOffset<IMAGE_IMPORT_DESCRIPTOR>(FindDirectory(IMAGE_DIRECTORY_ENTRY_IMPORT));
         slot == nullptr && dll->FirstThunk != 0; ++dll)
    {
        slot = FindSlotIn(dll->OriginalFirstThunk, dll->FirstThunk, name);
    }
    return slot;
}

void* FindProgramSlot(std::string_view name) noexcept
{
    void* const slot = FindLoadedSlot(name);
    return slot == nullptr ? FindDelayedSlot(name) : slot;
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

void* FindDelayedSlot(std::string_view name) noexcept
{
    const DWORD directory = FindDirectory(IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT);
    void* slot = nullptr;
    for (const auto* dll = AtOffset<IMAGE_DELAYLOAD_DESCRIPTOR>(directory);
         directory != 0 && slot == nullptr && dll->DllNameRVA != 0; ++dll)
    {
        slot = FindSlotIn(dll->ImportNameTableRVA, dll->ImportAddressTableRVA, name);
    }
    return slot;
}

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
