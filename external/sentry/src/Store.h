#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Reporter
{

// The reports that wait on the disk: in the database folder, every run of a program has a folder of its own, with a
// lock beside it for as long as the run lasts. A folder without one was left behind: by a crash, or with reports that
// did not get through.
//
// The folder may lie where others can write. So nothing is read, written or deleted through a link: folders are held
// open, which keeps them what they were when they were looked at, and files are looked at before they are read.
// No function throws, except without memory; what cannot be done is not done.
class Store
{
public:
    // Opens the database folder, which is made if need be, and begins a run in it. Null when the folder is a link or a
    // file, or cannot be written to.
    static std::unique_ptr<Store> Open(const std::string& utf8Path);

    // Ends the run: its folder goes unless a report is left in it, and so does the database folder.
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Keeps an envelope until it is dropped. Returns whether it is on the disk.
    bool Keep(const std::string& id, std::string_view envelope) const;
    void Drop(const std::string& id) const;

    // Where a crash puts its envelope and its minidump, so that a later run finds them.
    std::wstring EnvelopePath(const std::string& id) const;
    std::wstring MinidumpPath(const std::string& id) const;

    // How many envelopes of this run are on the disk.
    std::size_t Count() const;

    // A report that another run has left behind.
    struct Left
    {
        std::wstring path;
        std::string envelope;
        std::string minidump; // empty when there is none
    };

    // Whether another run has left anything. Quick.
    bool HasLeft() const;

    // The next report that was left, and of which run this one took over its folder; each comes once. When there is
    // none, it looks for runs that have left some since the last time, because they went on until then.
    std::optional<Left> NextLeft();
    static void Drop(const Left& left);

private:
    struct Folder
    {
        std::wstring path; // ends in a backslash
        wil::unique_hfile handle;
        wil::unique_hfile lock;
    };

    Store() = default;
    static bool OpenFolder(Folder& folder);
    void TakeOverLeft();
    static void Remove(Folder& folder);

    Folder m_database;
    Folder m_run;
    std::vector<Folder> m_left;
    std::vector<std::wstring> m_leftEnvelopes;
    std::size_t m_reportsTaken = 0;
};

} // namespace Reporter
