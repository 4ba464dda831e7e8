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

// The retry queue on the disk. Each run has a folder in the database folder, with a lock file beside it while the run
// lasts. A folder without a lock has the pending reports of a run that is over: a crash, or envelopes without a
// response.
//
// Others may be able to write to the folder, so nothing is read, written or deleted through a link: folders are checked
// and held open, files are checked before they are read. Throws std::bad_alloc and nothing else.
class Store
{
public:
    // Opens the database folder, or creates it with its parents, and adds a run. Null when that is not possible or the
    // folder is a link.
    static std::unique_ptr<Store> Open(const std::string& utf8Path);

    // Ends the run. Its folder and the database folder are removed if they are empty.
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Keeps an envelope until it is dropped. Returns whether it was written.
    bool Keep(const std::string& id, std::string_view envelope) const;
    void Drop(const std::string& id) const;

    // Where a crash writes.
    std::wstring EnvelopePath(const std::string& id) const;
    std::wstring MinidumpPath(const std::string& id) const;

    // The number of envelopes of this run.
    std::size_t Count() const;

    struct PendingReport
    {
        std::wstring path;
        std::string envelope{};
        std::string minidump{}; // empty: none
    };

    // Whether there are folders of other runs.
    bool HasPending() const;

    // The next pending report of another run, each once. Adopts runs that have ended since the last call.
    std::optional<PendingReport> NextPending();
    static void Drop(const PendingReport& report);

private:
    struct Folder
    {
        std::wstring path; // ends in a backslash
        wil::unique_hfile handle{};
        wil::unique_hfile lock{};
    };

    Store() = default;
    static bool OpenFolder(Folder& folder);
    void AdoptEndedRuns();
    static void Remove(Folder& folder);

    Folder m_database;
    Folder m_run;
    std::vector<Folder> m_adoptedRuns;
    std::vector<std::wstring> m_pendingEnvelopes;
    std::size_t m_reportsTaken = 0;
};

} // namespace Reporter
