#include "Store.h"

#include "Envelope.h"
#include "Identifier.h"

#include <array>
#include <utility>

namespace Reporter
{

namespace
{

constexpr std::wstring_view c_runEnding = L".run";
constexpr std::wstring_view c_lockEnding = L".lock";
constexpr std::wstring_view c_envelopeEnding = L".envelope";
constexpr std::wstring_view c_minidumpEnding = L".dmp";

// More than a report ever has; what is larger is none.
constexpr LONGLONG c_largestEnvelope = 1LL << 20;
constexpr LONGLONG c_largestMinidump = 16LL << 20;

// So many reports of the past are sent at most, of so many runs; the others go unsent.
constexpr std::size_t c_mostLeft = 20;
constexpr std::size_t c_mostRuns = 20;

// So many names in a folder are looked at: nobody waits for those of a folder that was filled up.
constexpr int c_mostNames = 10'000;

// The full path, in the form that has no limit of length.
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

// Makes a folder with its parents. What is there already is left as it is.
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
    return name.ends_with(c_envelopeEnding);
}

// Calls something for the name of every file, or of every folder, in a folder.
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
    } while (++names < c_mostNames && FindNextFileW(search.get(), &found));
}

// Makes and locks a file that goes when it is closed.
wil::unique_hfile Lock(const std::wstring& path)
{
    return wil::unique_hfile(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, OPEN_ALWAYS,
                                         FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// The content of a file; empty when it cannot be read or is a link, by another name or to another place: through it,
// whoever can write here could have files sent that only administrators may read.
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
    // Without the right to delete for others: it can neither be replaced by a link nor be renamed now.
    const std::wstring path = folder.path.substr(0, folder.path.size() - 1);
    folder.handle.reset(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    BY_HANDLE_FILE_INFORMATION information{};
    // By its name too: there are file systems that show a link there only.
    if (folder.handle && GetFileInformationByHandle(folder.handle.get(), &information) &&
        ((information.dwFileAttributes | GetFileAttributesW(path.c_str())) &
         (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) == FILE_ATTRIBUTE_DIRECTORY)
    {
        return true;
    }
    folder.handle.reset(); // what is no folder of ours is not removed in the end either
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
    store->m_run.path = store->m_database.path + std::wstring(id.begin(), id.end()) + std::wstring(c_runEnding);
    store->m_run.lock = Lock(store->m_run.path + std::wstring(c_lockEnding));
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
    for (Folder& left : m_left)
    {
        Remove(left);
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

// Removes a run's folder unless there is something in it, and unlocks it.
void Store::Remove(Folder& folder)
{
    folder.handle.reset();
    folder.path.pop_back(); // in place: this happens without memory too
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
    return m_run.path + std::wstring(id.begin(), id.end()) + std::wstring(c_envelopeEnding);
}

std::wstring Store::MinidumpPath(const std::string& id) const
{
    return m_run.path + std::wstring(id.begin(), id.end()) + std::wstring(c_minidumpEnding);
}

std::size_t Store::Count() const
{
    std::size_t count = 0;
    ForEach(m_run.path, false, [&](const std::wstring& name) { count += IsEnvelopeName(name) ? 1U : 0U; });
    return count;
}

bool Store::HasLeft() const
{
    std::size_t runs = 0;
    ForEach(m_database.path, true, [&](const std::wstring& name) { runs += name.ends_with(c_runEnding) ? 1U : 0U; });
    return runs > 1; // more than this one
}

void Store::TakeOverLeft()
{
    std::vector<std::wstring> runs;
    ForEach(m_database.path, true, [&](const std::wstring& name) {
        if (runs.size() < c_mostRuns && name.ends_with(c_runEnding) && m_database.path + name + L'\\' != m_run.path)
        {
            runs.push_back(m_database.path + name);
        }
    });
    for (const std::wstring& run : runs)
    {
        Folder folder{.path = run + L'\\', .handle = {}, .lock = Lock(run + std::wstring(c_lockEnding))};
        if (!folder.lock || !OpenFolder(folder))
        {
            continue; // it goes on, or this run has it already, or it is no folder of a run
        }
        ForEach(folder.path, false, [&](const std::wstring& name) {
            if (!IsEnvelopeName(name))
            {
                return;
            }
            if (m_reportsTaken < c_mostLeft)
            {
                ++m_reportsTaken;
                m_leftEnvelopes.push_back(folder.path + name);
            }
            else
            {
                Drop(Left{.path = folder.path + name, .envelope = {}, .minidump = {}});
            }
        });
        m_left.push_back(std::move(folder));
    }
}

std::optional<Store::Left> Store::NextLeft()
{
    if (m_leftEnvelopes.empty())
    {
        TakeOverLeft();
    }
    if (m_leftEnvelopes.empty())
    {
        return std::nullopt;
    }
    Left left{.path = std::move(m_leftEnvelopes.back()), .envelope = {}, .minidump = {}};
    m_leftEnvelopes.pop_back();
    const std::wstring stem = left.path.substr(0, left.path.size() - c_envelopeEnding.size());
    left.envelope = ReadReport(left.path, c_largestEnvelope);
    left.minidump = ReadReport(stem + std::wstring(c_minidumpEnding), c_largestMinidump);
    if (!IsMinidump(left.minidump))
    {
        left.minidump.clear();
    }
    return left;
}

void Store::Drop(const Left& left)
{
    const std::wstring stem = left.path.substr(0, left.path.size() - c_envelopeEnding.size());
    DeleteFileW(left.path.c_str());
    DeleteFileW((stem + std::wstring(c_minidumpEnding)).c_str());
}

} // namespace Reporter
