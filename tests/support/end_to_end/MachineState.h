// The state of a machine, as far as installing and uninstalling can touch it: every file and every registry value.
#pragma once

#include "support/end_to_end/Names.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
// One file, folder, link, registry key or registry value. Whatever does not apply is zero.
struct StateEntry
{
    enum class Kind
    {
        Folder,
        File,
        Link,
        Key,
        Value,
        Unreadable
    };

    Kind kind = Kind::Folder;
    // The attributes of a file, the type of a value, the error number of what could not be read.
    DWORD detail = 0;
    std::uint64_t size = 0;
    std::uint64_t lastWritten = 0;
    std::uint64_t contentHash = 0;
    // The bytes of a registry value.
    std::vector<std::byte> data;

    bool operator==(const StateEntry&) const = default;
};

// The entry of a registry value of the type REG_SZ or REG_EXPAND_SZ.
StateEntry TextValue(DWORD type, std::wstring_view text);

// An entry in one line for a person.
std::string Describe(const StateEntry& entry);

// The root of a registry key and its path below it.
struct RootAndKey
{
    HKEY root;
    std::wstring key;
};
RootAndKey SplitKey(std::wstring_view path);

class MachineState
{
public:
    using Entries = std::map<std::wstring, StateEntry, NameOrder>;

    // Reads the state: drive C: and the further drives given as letters, and the registry. Links are never followed.
    static MachineState Capture(std::wstring_view furtherDrives = {});

    // Files as full paths, keys as "HKLM\…", values as their key, the separator and their name.
    const Entries& All() const { return m_entries; }

    // The entry of a path; nothing when there is none.
    const StateEntry* Find(std::wstring_view path) const;

    // Takes out a path and everything below it.
    void Erase(std::wstring_view path);

    // Puts in an entry, or replaces it.
    void Set(std::wstring_view path, StateEntry entry);

    // Puts in the folder or key and those above it, unless they are there.
    void AddWithParents(std::wstring_view path, StateEntry::Kind kind);

    // Takes a path and everything below it from another state.
    void CopyTree(std::wstring_view path, const MachineState& source);

    // Takes the entry of the path, and those above it, from another state.
    void CopyWithParents(std::wstring_view path, const MachineState& source);

private:
    Entries m_entries;
};

// What differs between two states, one line each: what went, what came, what changed. Empty when nothing does.
std::vector<std::string> Compare(const MachineState& before, const MachineState& after);
} // namespace Testing
