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
// Others may be able to write to the folder, so nothing is read, written or deleted through a link: the database folder
// and those of the runs are held open, and what lies in them is opened relative to their handles and checked before it
// is read (HeldFolder.h). Throws std::bad_alloc and nothing else.
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

    // Where a crash writes: one more handle to the folder of this run (empty on failure), and the names in it.
    wil::unique_hfile DuplicateRunFolder() const;
    static std::wstring EnvelopeName(const std::string& id);
    static std::wstring MinidumpName(const std::string& id);

    // The number of envelopes of this run.
    std::size_t Count() const;

    struct PendingReport
    {
        std::size_t run = 0; // of those adopted
        std::wstring stem;   // of its names
        std::string envelope;
        std::string minidump; // empty: none
    };

    // Whether there are folders of other runs.
    bool HasPending() const;

    // The next pending report of another run, each once. Adopts runs that have ended since the last call.
    std::optional<PendingReport> NextPending();
    void Drop(const PendingReport& report) const;

private:
    struct Run
    {
        wil::unique_hfile lock;
        wil::unique_hfile folder;
    };

    Store() = default;
    std::vector<std::wstring> FindOtherRuns(std::size_t limit) const;
    void AdoptEndedRuns();
    static void Remove(Run& run);

    wil::unique_hfile m_database;
    std::wstring m_runName;
    Run m_run;
    std::vector<Run> m_adoptedRuns;
    std::vector<PendingReport> m_pendingReports; // still without their contents
    std::size_t m_reportsTaken = 0;
};

} // namespace Reporter
