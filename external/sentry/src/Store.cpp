#include "Store.h"

#include "Envelope.h"
#include "Identifier.h"

#include <array>
#include <utility>

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

bool IsEnvelopeName(std::wstring_view name)
{
    return name.ends_with(c_envelopeSuffix);
}

// Visits the files, or the folders, of a folder. Links are neither.
template <class Function>
void ForEach(const std::wstring& folder, bool isFolder, Function function)
{
    WIN32_FIND_DATAW found{};
    const wil::unique_hfind search(FindFirstFileW((folder + L"*").c_str(), &found));
    if (!search)
    {
        return;
    }
    int names = 0;
    do
    {
        const DWORD attributes = found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
        if (attributes == (isFolder ? FILE_ATTRIBUTE_DIRECTORY : 0U))
        {
            function(std::wstring(found.cFileName));
        }
    } while (++names < c_maxNames && FindNextFileW(search.get(), &found));
}

// Creates a file that nobody else can open and that is deleted with its handle.
wil::unique_hfile Lock(const std::wstring& path)
{
    return wil::unique_hfile(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, OPEN_ALWAYS,
                                         FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// The content of a file; empty when it cannot be read, or is a link or has a hard link: these would let whoever can
// write here send files that only administrators may read.
std::string ReadReport(const std::wstring& path, LONGLONG largest)
{
    const wil::unique_hfile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                             FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    BY_HANDLE_FILE_INFORMATION information{};
    if (!file || GetFileType(file.get()) != FILE_TYPE_DISK || !GetFileInformationByHandle(file.get(), &information) ||
        (information.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) != 0 ||
        information.nNumberOfLinks != 1)
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

bool Store::OpenFolder(Folder& folder)
{
    // Without FILE_SHARE_DELETE the folder cannot be renamed, nor be replaced by a link.
    const std::wstring path = folder.path.substr(0, folder.path.size() - 1);
    folder.handle.reset(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    BY_HANDLE_FILE_INFORMATION information{};
    // By its path too: some file systems report a link there only.
    if (folder.handle && GetFileInformationByHandle(folder.handle.get(), &information) &&
        ((information.dwFileAttributes | GetFileAttributesW(path.c_str())) &
         (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) == FILE_ATTRIBUTE_DIRECTORY)
    {
        return true;
    }
    folder.handle.reset(); // so that it is not removed in the end
    return false;
}

std::unique_ptr<Store> Store::Open(const std::string& utf8Path)
{
    const std::wstring path = ToFullPath(utf8Path);
    if (path.empty())
    {
        return nullptr;
    }
    MakeFolder(path);
    std::unique_ptr<Store> store(new Store);
    store->m_database.path = path + L'\\';
    if (!OpenFolder(store->m_database))
    {
        return nullptr;
    }
    const std::string id = ToHex(NewId());
    store->m_run.path = store->m_database.path + std::wstring(id.begin(), id.end()) + std::wstring(c_runSuffix);
    store->m_run.lock = Lock(store->m_run.path + std::wstring(c_lockSuffix));
    if (!store->m_run.lock || !CreateDirectoryW(store->m_run.path.c_str(), nullptr))
    {
        return nullptr;
    }
    store->m_run.path += L'\\';
    return OpenFolder(store->m_run) ? std::move(store) : nullptr;
}

Store::~Store()
{
    if (!m_database.handle)
    {
        return;
    }
    for (Folder& run : m_adoptedRuns)
    {
        Remove(run);
    }
    if (m_run.handle)
    {
        Remove(m_run);
    }
    m_run.lock.reset();
    m_database.handle.reset();
    m_database.path.pop_back();
    RemoveDirectoryW(m_database.path.c_str());
}

void Store::Remove(Folder& folder)
{
    folder.handle.reset();
    folder.path.pop_back(); // in place: needs no memory
    RemoveDirectoryW(folder.path.c_str());
    folder.lock.reset();
}

bool Store::Keep(const std::string& id, std::string_view envelope) const
{
    const std::wstring path = EnvelopePath(id);
    wil::unique_hfile file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!file)
    {
        return false;
    }
    DWORD written = 0;
    if (!WriteFile(file.get(), envelope.data(), static_cast<DWORD>(envelope.size()), &written, nullptr) ||
        written != envelope.size())
    {
        file.reset();
        DeleteFileW(path.c_str());
        return false;
    }
    return true;
}

void Store::Drop(const std::string& id) const
{
    DeleteFileW(EnvelopePath(id).c_str());
}

std::wstring Store::EnvelopePath(const std::string& id) const
{
    return m_run.path + std::wstring(id.begin(), id.end()) + std::wstring(c_envelopeSuffix);
}

std::wstring Store::MinidumpPath(const std::string& id) const
{
    return m_run.path + std::wstring(id.begin(), id.end()) + std::wstring(c_minidumpSuffix);
}

std::size_t Store::Count() const
{
    std::size_t count = 0;
    ForEach(m_run.path, false, [&](const std::wstring& name) { count += IsEnvelopeName(name) ? 1U : 0U; });
    return count;
}

bool Store::HasPending() const
{
    std::size_t runs = 0;
    ForEach(m_database.path, true, [&](const std::wstring& name) { runs += name.ends_with(c_runSuffix) ? 1U : 0U; });
    return runs > 1; // besides this one
}

void Store::AdoptEndedRuns()
{
    std::vector<std::wstring> runs;
    ForEach(m_database.path, true, [&](const std::wstring& name) {
        if (runs.size() < c_maxRuns && name.ends_with(c_runSuffix) && m_database.path + name + L'\\' != m_run.path)
        {
            runs.push_back(m_database.path + name);
        }
    });
    for (const std::wstring& run : runs)
    {
        Folder folder{.path = run + L'\\', .lock = Lock(run + std::wstring(c_lockSuffix))};
        if (!folder.lock || !OpenFolder(folder))
        {
            continue; // the run is not over, is adopted already, or is no folder
        }
        ForEach(folder.path, false, [&](const std::wstring& name) {
            if (!IsEnvelopeName(name))
            {
                return;
            }
            if (m_reportsTaken < c_maxPendingReports)
            {
                ++m_reportsTaken;
                m_pendingEnvelopes.push_back(folder.path + name);
            }
            else
            {
                Drop(PendingReport{.path = folder.path + name});
            }
        });
        m_adoptedRuns.push_back(std::move(folder));
    }
}

std::optional<Store::PendingReport> Store::NextPending()
{
    if (m_pendingEnvelopes.empty())
    {
        AdoptEndedRuns();
    }
    if (m_pendingEnvelopes.empty())
    {
        return std::nullopt;
    }
    PendingReport report{.path = std::move(m_pendingEnvelopes.back())};
    m_pendingEnvelopes.pop_back();
    const std::wstring stem = report.path.substr(0, report.path.size() - c_envelopeSuffix.size());
    report.envelope = ReadReport(report.path, c_maxEnvelopeSize);
    report.minidump = ReadReport(stem + std::wstring(c_minidumpSuffix), c_maxMinidumpSize);
    if (!IsMinidump(report.minidump))
    {
        report.minidump.clear();
    }
    return report;
}

void Store::Drop(const PendingReport& report)
{
    const std::wstring stem = report.path.substr(0, report.path.size() - c_envelopeSuffix.size());
    DeleteFileW(report.path.c_str());
    DeleteFileW((stem + std::wstring(c_minidumpSuffix)).c_str());
}

} // namespace Reporter
