#pragma once

#include "support/unit/FakeFileSystem.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <ranges>
#include <string>
#include <vector>

// Somebody who may write to a folder changes it while the program works in it, to have something read, written or
// deleted that is not his, but lies in C:\Windows.
namespace Testing
{

struct Attack
{
    std::string name;
    std::function<bool(FakeFileSystem&)> make; // returns whether Windows let it be done
    std::function<void(FakeFileSystem&)> undo{};
};

// The path of something, which may be known, or made, only when it is wanted.
using PathIn = std::function<std::wstring(FakeFileSystem&)>;

inline std::map<std::wstring, std::string> SystemFiles(const FakeFileSystem& files)
{
    std::map<std::wstring, std::string> found;
    for (const std::wstring& path : files.All())
    {
        if (path.starts_with(L"C:\\Windows"))
        {
            found[path] = files.ContentOf(path);
        }
    }
    return found;
}

// Deletes all that may be deleted below a folder.
inline void Empty(FakeFileSystem& files, const std::wstring& folder)
{
    for (const std::wstring& path : files.All() | std::views::reverse)
    {
        if (path.starts_with(folder + L'\\'))
        {
            files.Delete(path);
        }
    }
}

// Adds something under a name, in place of what is there. Returns false if that cannot be deleted or has no folder.
inline bool Put(FakeFileSystem& files, const std::wstring& path, const std::function<void()>& add)
{
    Empty(files, path);
    files.Delete(path);
    if (files.Has(path) || !files.Has(path.substr(0, path.rfind(L'\\'))))
    {
        return false;
    }
    add();
    return true;
}

inline Attack ExchangeForLink(const std::string& name, const PathIn& folder, const PathIn& target)
{
    const std::wstring aside = L"C:\\ProgramData\\aside";
    return {name + " is moved away and a link put in its place",
            [=](FakeFileSystem& files) {
                const std::wstring path = folder(files);
                const std::wstring leadsTo = target(files);
                if (!files.Rename(path, aside))
                {
                    return false;
                }
                files.AddReparsePoint(path, IO_REPARSE_TAG_MOUNT_POINT, leadsTo);
                return true;
            },
            [=](FakeFileSystem& files) {
                const std::wstring path = folder(files);
                files.Delete(path);
                files.Rename(aside, path);
            }};
}

// Undone, the folder has a new file.
inline Attack MakeLinkOf(const std::string& name, const PathIn& folder, const PathIn& target, const std::wstring& file)
{
    return {name + " is emptied and becomes a link",
            [=](FakeFileSystem& files) {
                const std::wstring path = folder(files);
                const std::wstring leadsTo = target(files);
                Empty(files, path);
                return files.SetReparsePoint(path, leadsTo);
            },
            [=](FakeFileSystem& files) {
                const std::wstring path = folder(files);
                if (files.DeleteReparsePoint(path))
                {
                    files.AddFile(path + L'\\' + file, "new");
                }
            }};
}

// Makes every attack before each call of a run in turn, on a Machine of its own, which has a journal, handles and files
// and closes everything; undoes it some calls later, or never. The run expects what may not have happened to it.
template <class Machine>
void RunUnder(const std::vector<Attack>& attacks, const std::function<void(const Machine&)>& run)
{
    const Machine outermost; // the import table is patched once, not for every machine
    std::size_t tried = 0;
    std::size_t made = 0;
    // Returns whether Windows let the attack be made, or nothing when there are fewer calls.
    const auto runUnder = [&](const Attack& attack, std::size_t at, std::size_t undoneAt) -> std::optional<bool> {
        SCOPED_TRACE(attack.name + " before call " + std::to_string(at) + ", undone before call " +
                     std::to_string(undoneAt));
        Machine machine;
        auto before = SystemFiles(machine.files);
        std::size_t calls = 0;
        bool isMade = false;
        machine.journal.onCall = [&](const std::string&) {
            ++calls;
            if (calls == at)
            {
                isMade = attack.make(machine.files);
                before = SystemFiles(machine.files);
            }
            else if (calls == undoneAt)
            {
                attack.undo(machine.files);
            }
        };
        run(machine);
        EXPECT_EQ(SystemFiles(machine.files), before);
        ++tried;
        return calls < at ? std::nullopt : std::optional(isMade);
    };
    for (const Attack& attack : attacks)
    {
        const std::size_t madeBefore = made;
        std::optional<bool> isMade;
        for (std::size_t at = 1; (isMade = runUnder(attack, at, 0)); ++at)
        {
            made += *isMade ? 1U : 0U;
            for (std::size_t undoneAt = at + 1; *isMade && attack.undo && undoneAt <= at + 4; ++undoneAt)
            {
                runUnder(attack, at, undoneAt);
            }
        }
        EXPECT_GT(made, madeBefore) << attack.name << ": Windows never lets it be done";
    }
    std::cout << tried << " runs under attack, " << made << " attacks at one call and another\n";
}

} // namespace Testing
