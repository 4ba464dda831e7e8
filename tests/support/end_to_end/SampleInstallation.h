// A complete sample installation of the product, with neighbours of every kind that an uninstall must not touch.
// What of it goes, the table of the steps says; laying it down, showing it, removing it and the state that is expected
// after an uninstall all follow from that.
#pragma once

#include "support/common/Steps.h"
#include "support/end_to_end/MachineState.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
// What becomes of an item in an uninstall.
enum class Fate
{
    Removed,
    RemovedWithSettings, // only together with the user's settings
    Stays                // not the product's
};

// A part of the product or a bystander: a tree of files, a shortcut, a registry key with all below it, a registry value
// or an entry of the machine's PATH.
struct SampleItem
{
    Fate fate;
    // Its path as MachineState has it. For an entry of PATH: the path of the value.
    std::wstring path;
    // The entry of PATH; empty for everything else.
    std::wstring pathEntry;
    // For a person.
    std::string what;
};

// Everything that LayDownSample lays down, with the folders of this machine filled in.
std::vector<SampleItem> SampleItems();

// Whether an item is on the machine now.
bool IsThere(const SampleItem& item);

// Where MachineState has a part of the product.
std::wstring PathOf(const ProductPart& part);

// Number of files below an item's folder, and their size in bytes.
struct TreeSize
{
    std::size_t files = 0;
    std::uint64_t bytes = 0;
};
TreeSize MeasureTree(const std::wstring& folder);

// Replaces "<ProgramFiles>" and the other names of folders in a declared path by this machine's own.
// Known: ProgramFiles, ProgramData, PublicDesktop, CommonPrograms, UserDesktop, UserPrograms, LocalAppData, Downloads.
std::wstring Expand(std::wstring_view text);

// The installation folder, without a backslash at its end.
std::wstring InstallFolder();

// The product's own entry in the machine's PATH, as it is written there.
inline constexpr std::wstring_view c_pathEntry = LR"(%USERPROFILE%\AppData\Local\Vel Mora\lib)";

// The value that holds the machine's PATH, as MachineState names it.
inline constexpr std::wstring_view c_machinePathValue =
    LR"(HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment : PATH)";

// The full name and the folder of the sample's legacy package.
inline constexpr std::wstring_view c_legacyPackage = L"Orvane.Velmora_1.4.2.0_x64__k4wz81tqm0d3x";
std::wstring LegacyPackageFolder();

// The call that removes it from the package manager.
inline const std::wstring c_packageRemoval = L"RemovePackageAsync " + std::wstring(c_legacyPackage) + L" 80000";

// Lays the installation and its bystanders down, except for what these steps remove.
void LayDownSample(const std::set<Step>& leftOut = {});

// Removes everything that LayDownSample makes, bystanders too, as far as it is there.
void RemoveSample();

// Removes a tree of files, read-only ones too. Links in it are removed, never followed.
void RemoveTree(const std::wstring& folder);

// Makes a folder and those above it, as far as they are missing.
void MakeFolder(const std::wstring& folder);

// Writes one file and the folders above it. Paths may be longer than 260 characters.
void WriteTestFile(const std::wstring& path, std::size_t size, DWORD attributes = 0);

// The same with that content.
void WriteBytes(const std::wstring& path, const std::string& bytes);

// The bytes of a file; nothing when it cannot be read.
std::string ReadText(const std::wstring& path);

// The value of the machine's PATH; without bytes when there is none.
StateEntry ReadMachinePath();

// Sets the machine's PATH to any type and bytes; takes the value away when there are none.
void WriteMachinePath(const StateEntry& value);

// Sets one value under a key named as MachineState names it; the key is made when it is missing.
void WriteValue(std::wstring_view key, const wchar_t* name, DWORD type, const std::vector<std::byte>& data);

// Takes a value away; a missing one is none the worse.
void RemoveValue(std::wstring_view key, const wchar_t* name);

// What the declarations make of a state when the product is uninstalled: only that, not what the run itself leaves
// behind.
MachineState AfterUninstall(const MachineState& before, bool removeUserSettings);
} // namespace Testing
