#include "wil/filesystem.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace wil
{

namespace
{

constexpr std::wstring_view c_extendedPrefix = L"\\\\?\\";
constexpr std::wstring_view c_devicePrefix = L"\\\\.\\";
constexpr std::wstring_view c_uncPrefix = L"\\\\";
constexpr std::wstring_view c_extendedUncPrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view c_separators = L"\\/";

// How much of a directory is listed in one call.
constexpr size_t c_listingBytes = size_t{64} * 1024;

// Where the share's name ends in "server\share\...", from `begin` on.
size_t EndOfShare(std::wstring_view path, size_t begin)
{
    const size_t server = path.find_first_of(c_separators, begin);
    const size_t share = server == std::wstring_view::npos ? server : path.find_first_of(c_separators, server + 1);
    return share == std::wstring_view::npos ? path.size() : share + 1;
}

// The length of the part of a path that is no directory of its own: a drive, a share.
size_t RootLength(std::wstring_view path)
{
    if (path.starts_with(c_extendedUncPrefix))
    {
        return EndOfShare(path, c_extendedUncPrefix.size());
    }
    const bool isExtended = path.starts_with(c_extendedPrefix) || path.starts_with(c_devicePrefix);
    if (!isExtended && path.starts_with(c_uncPrefix))
    {
        return EndOfShare(path, c_uncPrefix.size());
    }
    size_t length = isExtended ? c_extendedPrefix.size() : 0;
    if (path.size() > length + 1 && path[length + 1] == L':')
    {
        length += 2;
    }
    const size_t end = path.find_first_not_of(c_separators, length);
    return end == std::wstring_view::npos ? path.size() : end;
}

void TrimTrailingSeparators(std::wstring& path)
{
    const size_t end = path.find_last_not_of(c_separators);
    path.resize(std::max(RootLength(path), end == std::wstring_view::npos ? 0 : end + 1));
}

// The length of the path of the directory that a path's last name lies in; 0 when that is no directory of its own.
size_t ParentLength(std::wstring_view path)
{
    const size_t nameEnd = path.find_last_not_of(c_separators);
    const size_t separator = nameEnd == std::wstring_view::npos ? nameEnd : path.find_last_of(c_separators, nameEnd);
    const size_t parentEnd =
        separator == std::wstring_view::npos ? separator : path.find_last_not_of(c_separators, separator);
    return parentEnd == std::wstring_view::npos || parentEnd < RootLength(path) ? 0 : parentEnd + 1;
}

// A path as it is understood beyond MAX_PATH and whatever the names below it end with. One that is extended already is
// taken as it is; any other is first made full and normalised as usual.
HRESULT ExtendPath(PCWSTR path, std::wstring& extended)
{
    extended = path;
    if (!extended.starts_with(c_extendedPrefix))
    {
        std::wstring full(MAX_PATH, L'\0');
        DWORD length = GetFullPathNameW(path, static_cast<DWORD>(full.size()), full.data(), nullptr);
        if (length >= full.size())
        {
            full.resize(length);
            length = GetFullPathNameW(path, static_cast<DWORD>(full.size()), full.data(), nullptr);
        }
        RETURN_LAST_ERROR_IF(length == 0);
        full.resize(length);
        if (full.starts_with(c_devicePrefix))
        {
            extended = full.replace(0, c_devicePrefix.size(), c_extendedPrefix);
        }
        else if (full.starts_with(c_uncPrefix))
        {
            extended = full.replace(0, c_uncPrefix.size(), c_extendedUncPrefix);
        }
        else
        {
            extended = full.insert(0, c_extendedPrefix);
        }
    }
    TrimTrailingSeparators(extended);
    return S_OK;
}

// Opens what the path names, a link itself and not its target.
unique_hfile OpenItself(PCWSTR path, DWORD access, DWORD share) noexcept
{
    return unique_hfile(CreateFileW(path, access, share, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// Whether what lies below this directory belongs to it. Some directories (those of a cloud store, for one) have a
// reparse point without being links; a link gives another place's contents.
bool CanRecurseInto(const FILE_ATTRIBUTE_TAG_INFO& info)
{
    const bool isDirectory = WI_IsFlagSet(info.FileAttributes, FILE_ATTRIBUTE_DIRECTORY);
    const bool isReparsePoint = WI_IsFlagSet(info.FileAttributes, FILE_ATTRIBUTE_REPARSE_POINT);
    const bool isPlace = !IsReparseTagNameSurrogate(info.ReparseTag) &&
                         (IsReparseTagDirectory(info.ReparseTag) || info.ReparseTag == IO_REPARSE_TAG_WCI);
    return isDirectory && (!isReparsePoint || isPlace);
}

// One removal of a tree, depth first. The directories from the root down to the one being worked on stay open, so none
// of them can be exchanged for a link meanwhile; a tree is never as deep as a process may hold handles.
class TreeRemoval
{
public:
    TreeRemoval(std::wstring root, RemoveDirectoryOptions options) : m_path(std::move(root)), m_options(options) {}

    // rootHandle: the root's own handle, or INVALID_HANDLE_VALUE. Returns S_OK or the first failure.
    HRESULT Run(HANDLE rootHandle);

private:
    // A directory, or a link to one, that is held open.
    struct Directory
    {
        unique_hfile handle;
        FILE_ATTRIBUTE_TAG_INFO info{};    // as seen through the handle
        DWORD deleteError = ERROR_SUCCESS; // why it cannot be deleted through the handle, if so
    };

    // An entry of a listing.
    struct Subdirectory
    {
        std::wstring name;
        DWORD attributes;
    };

    // A directory that is being emptied.
    struct Level
    {
        Directory directory;
        size_t pathLength;
        std::vector<Subdirectory> subdirectories; // still to be removed
        bool isEmptied = true;
    };

    DWORD Open(Directory& directory) const;
    static DWORD ReadInformation(Directory& directory);
    static bool IsPlace(const Directory& directory, DWORD attributesOfPath);
    HRESULT OpenRoot(HANDLE handle, Directory& root) const;

    void Enter(Directory directory);
    void RemoveFilesOfListing(bool& isFirst, bool& isLast);
    void RemoveFile(DWORD attributes);
    void RemoveNextSubdirectory();
    void Leave();
    void RemoveOpened(const Directory& directory);
    void Name(std::wstring_view entry);
    void Fail(DWORD error);

    std::wstring m_path; // what is being worked on
    RemoveDirectoryOptions m_options;
    std::vector<Level> m_levels;
    std::vector<ULONGLONG> m_listing = std::vector<ULONGLONG>(c_listingBytes / sizeof(ULONGLONG));
    HRESULT m_firstFailure = S_OK;
};

HRESULT TreeRemoval::Run(HANDLE rootHandle)
{
    Directory root;
    RETURN_IF_FAILED(OpenRoot(rootHandle, root));
    Enter(std::move(root));
    while (!m_levels.empty())
    {
        if (m_levels.back().subdirectories.empty())
        {
            Leave();
        }
        else
        {
            RemoveNextSubdirectory();
        }
    }
    return m_firstFailure;
}

// Opens the directory of the path. One that may not be deleted is opened all the same when it can be listed: its
// contents may be removable.
DWORD TreeRemoval::Open(Directory& directory) const
{
    directory.handle = OpenItself(m_path.c_str(), GENERIC_READ | DELETE, FILE_SHARE_READ);
    if (!directory.handle)
    {
        const DWORD error = GetLastError();
        if (error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION)
        {
            directory.deleteError = error;
            directory.handle = OpenItself(m_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
        }
        if (!directory.handle)
        {
            return error;
        }
    }
    return ReadInformation(directory);
}

DWORD TreeRemoval::ReadInformation(Directory& directory)
{
    return GetFileInformationByHandleEx(directory.handle.get(), FileAttributeTagInfo, &directory.info,
                                        sizeof(directory.info))
               ? ERROR_SUCCESS
               : GetLastError();
}

// Whether an opened directory may be entered: what its path was seen as must not have been a link either, for some
// systems open a link's target all the same.
bool TreeRemoval::IsPlace(const Directory& directory, DWORD attributesOfPath)
{
    return CanRecurseInto(directory.info) &&
           (WI_IsFlagClear(attributesOfPath, FILE_ATTRIBUTE_REPARSE_POINT) ||
            WI_IsFlagSet(directory.info.FileAttributes, FILE_ATTRIBUTE_REPARSE_POINT));
}

HRESULT TreeRemoval::OpenRoot(HANDLE handle, Directory& root) const
{
    DWORD error = ERROR_SUCCESS;
    if (handle != INVALID_HANDLE_VALUE)
    {
        HANDLE copy = nullptr;
        RETURN_IF_WIN32_BOOL_FALSE(
            DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS));
        root.handle.reset(copy);
        error = ReadInformation(root);
    }
    else
    {
        error = Open(root);
    }
    // An absent directory is told in one way, whether the directory above it exists or not.
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), error == ERROR_FILE_NOT_FOUND);
    RETURN_IF_WIN32_ERROR(error);
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_DIRECTORY),
                 WI_IsFlagClear(root.info.FileAttributes, FILE_ATTRIBUTE_DIRECTORY));
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED),
                 !IsPlace(root, GetFileAttributesW(m_path.c_str())));
    return S_OK;
}

// Removes the files of the directory that the path names, and remembers its subdirectories.
void TreeRemoval::Enter(Directory directory)
{
    m_levels.push_back({.directory = std::move(directory), .pathLength = m_path.size(), .subdirectories = {}});
    bool isFirst = true;
    for (bool isLast = false; !isLast;)
    {
        RemoveFilesOfListing(isFirst, isLast);
    }
}

void TreeRemoval::RemoveFilesOfListing(bool& isFirst, bool& isLast)
{
    Level& level = m_levels.back();
    if (!GetFileInformationByHandleEx(level.directory.handle.get(),
                                      std::exchange(isFirst, false) ? FileFullDirectoryRestartInfo
                                                                    : FileFullDirectoryInfo,
                                      m_listing.data(), static_cast<DWORD>(c_listingBytes)))
    {
        isLast = true;
        const DWORD error = GetLastError();
        if (error != ERROR_NO_MORE_FILES && error != ERROR_FILE_NOT_FOUND)
        {
            m_path.resize(level.pathLength);
            Fail(error);
        }
        return;
    }
    const void* next = m_listing.data();
    for (;;)
    {
        const auto& entry = *static_cast<const FILE_FULL_DIR_INFO*>(next);
        const std::wstring_view name(entry.FileName, entry.FileNameLength / sizeof(wchar_t));
        if (WI_IsFlagClear(entry.FileAttributes, FILE_ATTRIBUTE_DIRECTORY))
        {
            Name(name);
            RemoveFile(entry.FileAttributes);
        }
        else if (name != L"." && name != L"..")
        {
            level.subdirectories.push_back({.name = std::wstring(name), .attributes = entry.FileAttributes});
        }
        if (entry.NextEntryOffset == 0)
        {
            return;
        }
        next = static_cast<const std::byte*>(next) + entry.NextEntryOffset;
    }
}

void TreeRemoval::RemoveFile(DWORD attributes)
{
    if (DeleteFileW(m_path.c_str()))
    {
        return;
    }
    DWORD error = GetLastError();
    if (error == ERROR_ACCESS_DENIED && WI_IsFlagSet(m_options, RemoveDirectoryOptions::RemoveReadOnly) &&
        WI_IsFlagSet(attributes, FILE_ATTRIBUTE_READONLY))
    {
        const DWORD writable = attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
        if (SetFileAttributesW(m_path.c_str(), writable != 0 ? writable : FILE_ATTRIBUTE_NORMAL) &&
            DeleteFileW(m_path.c_str()))
        {
            return;
        }
        error = GetLastError();
    }
    if (error != ERROR_FILE_NOT_FOUND)
    {
        Fail(error);
    }
}

void TreeRemoval::RemoveNextSubdirectory()
{
    const Subdirectory subdirectory = std::move(m_levels.back().subdirectories.back());
    m_levels.back().subdirectories.pop_back();
    Name(subdirectory.name);
    Directory directory;
    const DWORD error = Open(directory);
    if (error != ERROR_SUCCESS)
    {
        if (error != ERROR_FILE_NOT_FOUND)
        {
            Fail(error);
        }
    }
    else if (IsPlace(directory, subdirectory.attributes))
    {
        Enter(std::move(directory));
    }
    else if (WI_IsFlagSet(directory.info.FileAttributes, FILE_ATTRIBUTE_REPARSE_POINT))
    {
        RemoveOpened(directory);
    }
    else
    {
        // Listed as a link, but what was opened is none: it is the link's target, or something put in its place.
        Fail(ERROR_REPARSE_POINT_ENCOUNTERED);
    }
}

// Removes the innermost directory, if all that lay in it is gone, and goes back to the one above it.
void TreeRemoval::Leave()
{
    const Level level = std::move(m_levels.back());
    m_levels.pop_back();
    m_path.resize(level.pathLength);
    const bool isKept = m_levels.empty() && WI_IsFlagSet(m_options, RemoveDirectoryOptions::KeepRootDirectory);
    if (level.isEmptied && !isKept)
    {
        RemoveOpened(level.directory);
    }
    else if (!m_levels.empty())
    {
        m_levels.back().isEmptied = false;
    }
}

// Deletes a directory through its handle: a name could mean something else by now.
void TreeRemoval::RemoveOpened(const Directory& directory)
{
    DWORD error = directory.deleteError;
    if (error == ERROR_SUCCESS)
    {
        // With these semantics the name goes at once, even while others have the directory open. Where they are not
        // known, the directory goes with its last handle.
        FILE_DISPOSITION_INFO_EX atOnce{.Flags = FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS};
        FILE_DISPOSITION_INFO atLastClose{.DeleteFile = TRUE};
        if (SetFileInformationByHandle(directory.handle.get(), FileDispositionInfoEx, &atOnce, sizeof(atOnce)))
        {
            return;
        }
        error = GetLastError();
        if (error != ERROR_ACCESS_DENIED &&
            SetFileInformationByHandle(directory.handle.get(), FileDispositionInfo, &atLastClose, sizeof(atLastClose)))
        {
            return;
        }
        error = GetLastError();
    }
    Fail(error);
}

// Lets the path name an entry of the innermost directory.
void TreeRemoval::Name(std::wstring_view entry)
{
    m_path.resize(m_levels.back().pathLength);
    if (m_path.back() != L'\\')
    {
        m_path += L'\\';
    }
    m_path += entry;
}

// Records that what the path names stays, and so does the directory that it lies in.
void TreeRemoval::Fail(DWORD error)
{
    const HRESULT hr =
        details::Report(FailureType::Log, WIL_DETAILS_PLACE(nullptr), HRESULT_FROM_WIN32(error), m_path.c_str());
    if (SUCCEEDED(m_firstFailure))
    {
        m_firstFailure = hr;
    }
    if (!m_levels.empty())
    {
        m_levels.back().isEmptied = false;
    }
}

} // namespace

HRESULT CreateDirectoryDeepNoThrow(PCWSTR path) noexcept
try
{
    // Up to the first directory that can be created or is there, then down again.
    std::wstring directory = path;
    std::vector<size_t> lengths{directory.size()};
    bool isGoingUp = true;
    while (!lengths.empty())
    {
        directory.assign(path, lengths.back());
        const DWORD error = CreateDirectoryW(directory.c_str(), nullptr) ? ERROR_SUCCESS : GetLastError();
        if (error == ERROR_SUCCESS || error == ERROR_ALREADY_EXISTS)
        {
            lengths.pop_back();
            isGoingUp = false;
            continue;
        }
        const size_t parentLength = error == ERROR_PATH_NOT_FOUND && isGoingUp ? ParentLength(directory) : 0;
        if (parentLength == 0)
        {
            RETURN_WIN32(error);
        }
        lengths.push_back(parentLength);
    }
    return S_OK;
}
CATCH_RETURN()

unique_hfile TryCreateFileCanRecurseIntoDirectory(PCWSTR path, PWIN32_FIND_DATAW findData, DWORD access,
                                                  DWORD share) noexcept
{
    unique_hfile directory = OpenItself(path, access, share);
    FILE_ATTRIBUTE_TAG_INFO info{};
    if (directory)
    {
        if (!GetFileInformationByHandleEx(directory.get(), FileAttributeTagInfo, &info, sizeof(info)) ||
            !CanRecurseInto(info))
        {
            directory.reset();
        }
        else if (findData)
        {
            findData->dwFileAttributes = info.FileAttributes;
            findData->dwReserved0 = info.ReparseTag;
        }
    }
    return directory;
}

HRESULT RemoveDirectoryRecursiveNoThrow(PCWSTR path, RemoveDirectoryOptions options, HANDLE deleteHandle) noexcept
try
{
    std::wstring root;
    RETURN_IF_FAILED(ExtendPath(path, root));
    return TreeRemoval(std::move(root), options).Run(deleteHandle);
}
CATCH_RETURN()

} // namespace wil
