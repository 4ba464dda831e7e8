#include "Store.h"

#include "Envelope.h"
#include "HeldFolder.h"
#include "Identifier.h"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Reporter
{

namespace
{

constexpr std::wstring_view c_runSuffix = L".run";
constexpr std::wstring_view c_lockSuffix = L".lock";
constexpr std::wstring_view c_envelopeSuffix = L".envelope";
constexpr std::wstring_view c_minidumpSuffix = L".dmp";

// In bytes. Larger files are ignored.
constexpr LONGLONG c_maxEnvelopeSize = 1LL << 20;
constexpr LONGLONG c_maxMinidumpSize = 16LL << 20;

// The most that one run sends of earlier runs. Further reports of an adopted run are deleted.
constexpr std::size_t c_maxPendingReports = 20;
constexpr std::size_t c_maxRuns = 20;

// Of a folder: somebody else may have flooded it.
constexpr int c_maxNames = 10'000;

// The full path with the prefix that lifts MAX_PATH. Empty for invalid UTF-8.
std::wstring ToFullPath(const std::string& utf8Path)
{
    if (utf8Path.empty()) // which Windows does not convert
    {
        return {};
    }
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8Path.data(),
                                           static_cast<int>(utf8Path.size()), nullptr, 0);
    std::wstring path(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8Path.data(), static_cast<int>(utf8Path.size()), path.data(),
                        length);
    const DWORD capacity = path.empty() ? 0 : GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(capacity, L'\0');
    full.resize(capacity == 0 ? 0 : GetFullPathNameW(path.c_str(), capacity, full.data(), nullptr));
    while (full.ends_with(L'\\'))
    {
        full.pop_back();
    }
    if (full.empty() || full.starts_with(LR"(\\?\)") || full.starts_with(LR"(\\.\)"))
    {
        return full;
    }
    return full.starts_with(LR"(\\)") ? LR"(\\?\UNC)" + full.substr(1) : LR"(\\?\)" + full;
}

void MakeFolder(const std::wstring& path)
{
    if (CreateDirectoryW(path.c_str(), nullptr) || GetLastError() != ERROR_PATH_NOT_FOUND)
    {
        return;
    }
    const auto parentEnd = path.rfind(L'\\');
    if (parentEnd != std::wstring::npos && parentEnd > 0)
    {
        MakeFolder(path.substr(0, parentEnd));
        CreateDirectoryW(path.c_str(), nullptr);
    }
}

std::wstring Name(const std::string& id, std::wstring_view suffix)
{
    return std::wstring(id.begin(), id.end()) += suffix;
}

// Visits the names of the files, or of the folders, in a folder. Links are neither.
template <class Function>
void ForEach(HANDLE folder, bool isFolder, Function function)
{
    // Another thread may be listing the folder, too: a handle has one position.
    const wil::unique_hfile listed = ReopenFolder(folder, FILE_LIST_DIRECTORY);
    std::array<ULONGLONG, 1024> listing{}; // aligned as the entries are
    int names = 0;
    while (listed && GetFileInformationByHandleEx(listed.get(), FileFullDirectoryInfo, listing.data(),
                                                  static_cast<DWORD>(sizeof(listing))))
    {
        const void* place = listing.data();
        for (;;)
        {
            const auto& entry = *static_cast<const FILE_FULL_DIR_INFO*>(place);
            const DWORD attributes = entry.FileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
            if (attributes == (isFolder ? FILE_ATTRIBUTE_DIRECTORY : 0U))
            {
                function(std::wstring_view(entry.FileName, entry.FileNameLength / sizeof(wchar_t)));
            }
            if (++names == c_maxNames)
            {
                return;
            }
            if (entry.NextEntryOffset == 0)
            {
                break;
            }
            place = static_cast<const std::byte*>(place) + entry.NextEntryOffset;
        }
    }
}

// Of what is open. Returns whether it is a folder, and no link.
bool IsFolder(HANDLE opened, DWORD attributes = 0)
{
    BY_HANDLE_FILE_INFORMATION information{};
    return GetFileInformationByHandle(opened, &information) &&
           ((information.dwFileAttributes | attributes) & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) ==
               FILE_ATTRIBUTE_DIRECTORY;
}

// Returns whether it is a file that has this one name, and no link. A link or a hard link would let whoever can write
// here get files sent or locked that only administrators may open.
bool IsOwnFile(HANDLE opened, BY_HANDLE_FILE_INFORMATION& information)
{
    return GetFileInformationByHandle(opened, &information) &&
           (information.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) == 0 &&
           information.nNumberOfLinks == 1;
}

// Opens the database folder. It cannot be renamed, nor be replaced by a link, without FILE_SHARE_DELETE.
wil::unique_hfile OpenDatabase(const std::wstring& path)
{
    wil::unique_hfile folder(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    // By its path too: some file systems report a link there only.
    if (!folder || !IsFolder(folder.get(), GetFileAttributesW(path.c_str())))
    {
        folder.reset(); // so that it is not removed in the end
    }
    return folder;
}

// Opens or creates the folder of a run.
wil::unique_hfile OpenRun(HANDLE database, std::wstring_view run, ULONG disposition)
{
    return OpenIn(database, run, FILE_LIST_DIRECTORY, FILE_SHARE_READ, disposition, FILE_DIRECTORY_FILE);
}

// Opens or creates the lock of a run. Nobody else can open it, and it is deleted with its handle.
wil::unique_hfile Lock(HANDLE database, std::wstring_view run)
{
    wil::unique_hfile file =
        OpenIn(database, std::wstring(run) += c_lockSuffix, DELETE, 0, FILE_OPEN_IF, FILE_NON_DIRECTORY_FILE);
    BY_HANDLE_FILE_INFORMATION information{};
    FILE_DISPOSITION_INFO atLastClose{.DeleteFile = TRUE};
    if (!file || !IsOwnFile(file.get(), information) ||
        !SetFileInformationByHandle(file.get(), FileDispositionInfo, &atLastClose, sizeof(atLastClose)))
    {
        file.reset();
    }
    return file;
}

// The content of a file; empty when it cannot be read.
std::string ReadReport(HANDLE folder, std::wstring_view name, LONGLONG largest)
{
    const wil::unique_hfile file =
        OpenIn(folder, name, FILE_GENERIC_READ, FILE_SHARE_READ, FILE_OPEN, FILE_NON_DIRECTORY_FILE);
    BY_HANDLE_FILE_INFORMATION information{};
    if (!file || !IsOwnFile(file.get(), information))
    {
        return {};
    }
    const LONGLONG size = (static_cast<LONGLONG>(information.nFileSizeHigh) << 32) | information.nFileSizeLow;
    if (size < 0 || size > largest)
    {
        return {};
    }
    std::string content(static_cast<std::size_t>(size), '\0');
    DWORD read = 0;
    if (!ReadFile(file.get(), content.data(), static_cast<DWORD>(size), &read, nullptr))
    {
        return {};
    }
    content.resize(read);
    return content;
}

} // namespace

std::unique_ptr<Store> Store::Open(const std::string& utf8Path)
{
    const std::wstring path = ToFullPath(utf8Path);
    if (path.empty())
    {
        return nullptr;
    }
    MakeFolder(path);
    std::unique_ptr<Store> store(new Store);
    store->m_database = OpenDatabase(path);
    if (!store->m_database)
    {
        return nullptr;
    }
    store->m_runName = Name(ToHex(NewId()), c_runSuffix);
    store->m_run.lock = Lock(store->m_database.get(), store->m_runName);
    if (!store->m_run.lock)
    {
        return nullptr;
    }
    store->m_run.folder = OpenRun(store->m_database.get(), store->m_runName, FILE_CREATE);
    return store->m_run.folder ? std::move(store) : nullptr;
}

Store::~Store()
{
    for (Run& run : m_adoptedRuns)
    {
        Remove(run);
    }
    Remove(m_run);
    DeleteFolder(m_database);
}

void Store::Remove(Run& run)
{
    DeleteFolder(run.folder);
    run.lock.reset();
}

bool Store::Keep(const std::string& id, std::string_view envelope) const
{
    const wil::unique_hfile file = CreateFileIn(m_run.folder.get(), EnvelopeName(id));
    if (!file)
    {
        return false;
    }
    DWORD written = 0;
    if (!WriteFile(file.get(), envelope.data(), static_cast<DWORD>(envelope.size()), &written, nullptr) ||
        written != envelope.size())
    {
        Delete(file.get());
        return false;
    }
    return true;
}

void Store::Drop(const std::string& id) const
{
    DeleteFileIn(m_run.folder.get(), EnvelopeName(id));
}

wil::unique_hfile Store::DuplicateRunFolder() const
{
    wil::unique_hfile folder;
    DuplicateHandle(GetCurrentProcess(), m_run.folder.get(), GetCurrentProcess(), folder.put(), 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    return folder;
}

std::wstring Store::EnvelopeName(const std::string& id)
{
    return Name(id, c_envelopeSuffix);
}

std::wstring Store::MinidumpName(const std::string& id)
{
    return Name(id, c_minidumpSuffix);
}

std::size_t Store::Count() const
{
    std::size_t count = 0;
    ForEach(m_run.folder.get(), false,
            [&](std::wstring_view name) { count += name.ends_with(c_envelopeSuffix) ? 1U : 0U; });
    return count;
}

std::vector<std::wstring> Store::FindOtherRuns(std::size_t limit) const
{
    std::vector<std::wstring> runs;
    ForEach(m_database.get(), true, [&](std::wstring_view name) {
        if (runs.size() < limit && name.ends_with(c_runSuffix) && name != m_runName)
        {
            runs.emplace_back(name);
        }
    });
    return runs;
}

bool Store::HasPending() const
{
    return !FindOtherRuns(1).empty();
}

void Store::AdoptEndedRuns()
{
    for (const std::wstring& name : FindOtherRuns(c_maxRuns))
    {
        Run run{.lock = Lock(m_database.get(), name), .folder = {}};
        if (run.lock)
        {
            run.folder = OpenRun(m_database.get(), name, FILE_OPEN);
        }
        if (!run.folder || !IsFolder(run.folder.get()))
        {
            continue; // the run is not over, is adopted already, or is no folder
        }
        HANDLE folder = run.folder.get();
        m_adoptedRuns.push_back(std::move(run));
        ForEach(folder, false, [&](std::wstring_view envelope) {
            if (!envelope.ends_with(c_envelopeSuffix))
            {
                return;
            }
            envelope.remove_suffix(c_envelopeSuffix.size());
            PendingReport report{
                .run = m_adoptedRuns.size() - 1, .stem = std::wstring(envelope), .envelope = {}, .minidump = {}};
            if (m_reportsTaken < c_maxPendingReports)
            {
                ++m_reportsTaken;
                m_pendingReports.push_back(std::move(report));
            }
            else
            {
                Drop(report);
            }
        });
    }
}

std::optional<Store::PendingReport> Store::NextPending()
{
    if (m_pendingReports.empty())
    {
        AdoptEndedRuns();
    }
    if (m_pendingReports.empty())
    {
        return std::nullopt;
    }
    PendingReport report = std::move(m_pendingReports.back());
    m_pendingReports.pop_back();
    HANDLE folder = m_adoptedRuns[report.run].folder.get();
    report.envelope = ReadReport(folder, report.stem + std::wstring(c_envelopeSuffix), c_maxEnvelopeSize);
    report.minidump = ReadReport(folder, report.stem + std::wstring(c_minidumpSuffix), c_maxMinidumpSize);
    if (!IsMinidump(report.minidump))
    {
        report.minidump.clear();
    }
    return report;
}

void Store::Drop(const PendingReport& report) const
{
    HANDLE folder = m_adoptedRuns[report.run].folder.get();
    DeleteFileIn(folder, report.stem + std::wstring(c_envelopeSuffix));
    DeleteFileIn(folder, report.stem + std::wstring(c_minidumpSuffix));
}

} // namespace Reporter
