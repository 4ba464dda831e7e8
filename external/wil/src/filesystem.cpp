#include "wil/filesystem.h"

#include "wil/resource.h"

#include <winioctl.h>
#include <winternl.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <cwctype>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace wil
{

namespace
{

constexpr std::wstring_view c_extendedPrefix = L"\\\\?\\";
constexpr std::wstring_view c_devicePrefix = L"\\\\.\\";
constexpr std::wstring_view c_uncPrefix = L"\\\\";
constexpr std::wstring_view c_extendedUncPrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view c_objectPrefix = L"\\??\\";
constexpr std::wstring_view c_separators = L"\\/";

// How much of a directory is listed in one call. A reparse point's data is never as large.
constexpr size_t c_listingBytes = size_t{64} * 1024;
static_assert(c_listingBytes >= MAXIMUM_REPARSE_DATA_BUFFER_SIZE);

// Whether a path begins with a prefix, with whichever separators and in whichever letter case.
bool BeginsWith(std::wstring_view path, std::wstring_view prefix)
{
    return std::ranges::equal(prefix, path.substr(0, prefix.size()), [](wchar_t expected, wchar_t letter) {
        return expected == L'\\' ? c_separators.find(letter) != std::wstring_view::npos
                                 : letter == expected || letter == std::towlower(expected);
    });
}

// Where so many names end in a path, with one separator after the last of them, from `begin` on.
size_t EndOfNames(std::wstring_view path, size_t begin, int names)
{
    size_t end = begin;
    for (int i = 0; i < names; ++i)
    {
        end = path.find_first_of(c_separators, path.find_first_not_of(c_separators, end));
    }
    return end == std::wstring_view::npos ? path.size() : end + 1;
}

// The length of the part of a path that is no directory of its own: a drive, a volume, a share.
size_t RootLength(std::wstring_view path)
{
    for (const std::wstring_view prefix : {c_extendedPrefix, c_devicePrefix})
    {
        if (BeginsWith(path, prefix))
        {
            const bool isUnc = BeginsWith(path.substr(prefix.size()), L"UNC\\");
            // The device's name, or that of the redirector, the server's and the share's.
            return EndOfNames(path, prefix.size(), isUnc ? 3 : 1);
        }
    }
    if (BeginsWith(path, c_uncPrefix))
    {
        return EndOfNames(path, c_uncPrefix.size(), 2);
    }
    const size_t drive = path.size() > 1 && path[1] == L':' ? 2 : 0;
    return std::min(path.find_first_not_of(c_separators, drive), path.size());
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
// taken as it is; any other is first made full and normalised as usual, also when its prefix has forward slashes.
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
        if (full.starts_with(c_devicePrefix) || full.starts_with(c_extendedPrefix))
        {
            extended = full.replace(0, c_extendedPrefix.size(), c_extendedPrefix);
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

// A directory that is held open cannot be renamed, but whoever may write its attributes can make a link of it as soon
// as it is empty: FSCTL_SET_REPARSE_POINT does not ask for sharing. So below the root nothing has a path: an entry is
// opened by its bare name, relative to its directory's handle, then examined and deleted through its own handle. Should
// the directory have become a link by then, the open fails with c_dontReparse, where it might follow the link without.
// So what is opened lies in that directory; if it is a link, it is opened itself. Where it is moved later, only
// somebody moves it who may delete it, too. The names are those of the listing, letter for letter: in a directory that
// is case-sensitive another letter case is another file.
constexpr ULONG c_dontReparse = 0x1000; // ntdef.h has it as OBJ_DONT_REPARSE

DWORD OpenEntry(HANDLE directory, std::wstring_view name, ACCESS_MASK access, DWORD share, ULONG options,
                unique_hfile& entry)
{
    const auto bytes = static_cast<USHORT>(name.size() * sizeof(wchar_t));
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): nothing writes to it
    UNICODE_STRING text{.Length = bytes, .MaximumLength = bytes, .Buffer = const_cast<PWSTR>(name.data())};
    OBJECT_ATTRIBUTES attributes{};
    InitializeObjectAttributes(&attributes, &text, c_dontReparse, directory, nullptr);
    IO_STATUS_BLOCK status{};
    return RtlNtStatusToDosError(NtOpenFile(entry.put(), access, &attributes, &status, share,
                                            options | FILE_OPEN_REPARSE_POINT | FILE_OPEN_FOR_BACKUP_INTENT));
}

bool HasAttribute(DWORD attributes, DWORD attribute)
{
    return (attributes & attribute) != 0;
}

// Reads a file's attributes and, if it is a reparse point, the tag; 0 for the tag of anything else.
DWORD ReadAttributes(HANDLE file, FILE_ATTRIBUTE_TAG_INFO& info)
{
    if (GetFileInformationByHandleEx(file, FileAttributeTagInfo, &info, sizeof(info)))
    {
        info.ReparseTag = HasAttribute(info.FileAttributes, FILE_ATTRIBUTE_REPARSE_POINT) ? info.ReparseTag : 0;
        return ERROR_SUCCESS;
    }
    // FAT32 and exFAT, which have no reparse points, cannot be asked for tags.
    FILE_BASIC_INFO basic{};
    if (GetLastError() != ERROR_INVALID_PARAMETER ||
        !GetFileInformationByHandleEx(file, FileBasicInfo, &basic, sizeof(basic)))
    {
        return GetLastError();
    }
    info = {.FileAttributes = basic.FileAttributes, .ReparseTag = 0};
    return ERROR_SUCCESS;
}

// Whether this is a name for another place, or a reparse point of which nobody tells what it is. Other reparse points
// are files and directories like any: a cloud store's, a container's.
bool IsLink(const FILE_ATTRIBUTE_TAG_INFO& info)
{
    return HasAttribute(info.FileAttributes, FILE_ATTRIBUTE_REPARSE_POINT) &&
           (info.ReparseTag == 0 || IsReparseTagNameSurrogate(info.ReparseTag));
}

// The data of a mount point before its names, whose offsets count from its end. A program's headers do not have it.
struct MountPointData
{
    DWORD tag;
    WORD dataLength;
    WORD reserved;
    WORD substituteNameOffset;
    WORD substituteNameLength;
    WORD printNameOffset;
    WORD printNameLength;
};

// IOCTL_MOUNTMGR_VOLUME_MOUNT_POINT_DELETED of mountmgr.h, which is a header for drivers.
constexpr DWORD c_mountPointDeleted = CTL_CODE('m', 7, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);

// Lets the mount manager forget a mount point that is gone, as RemoveDirectoryW does. If it fails, the mount manager
// finds out when it looks at the volume the next time.
void TellMountManager(std::wstring_view path, std::wstring_view volume)
{
    const unique_hfile manager(CreateFileW(L"\\\\.\\MountPointManager", GENERIC_READ | GENERIC_WRITE,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!manager)
    {
        return;
    }
    // A MOUNTMGR_VOLUME_MOUNT_POINT: where the two names begin and how long they are, in bytes; then the names.
    constexpr size_t c_numbers = 4;
    const auto bytes = [](size_t characters) { return static_cast<wchar_t>(characters * sizeof(wchar_t)); };
    const size_t length = c_objectPrefix.size() + path.size();
    std::wstring request{bytes(c_numbers), bytes(length), bytes(c_numbers + length), bytes(volume.size())};
    request.append(c_objectPrefix).append(path).append(volume);
    DWORD returned = 0;
    DeviceIoControl(manager.get(), c_mountPointDeleted, request.data(),
                    static_cast<DWORD>(request.size() * sizeof(wchar_t)), nullptr, 0, &returned, nullptr);
}

// One removal of a tree, depth first. The directories from the root down to the one being worked on stay open: what
// lies in them is opened through them. A tree is never as deep as a process may hold handles.
class TreeRemoval
{
public:
    explicit TreeRemoval(std::wstring root) : m_path(std::move(root)) {}

    // Returns S_OK or the first failure.
    HRESULT Run();

private:
    // A directory, or a link to one, that is held open.
    struct Directory
    {
        unique_hfile handle;
        FILE_ATTRIBUTE_TAG_INFO info{};    // as seen through the handle
        DWORD listError = ERROR_SUCCESS;   // why it cannot be listed through the handle, if so
        DWORD deleteError = ERROR_SUCCESS; // why it cannot be deleted through the handle, if so
    };

    // An entry of a listing.
    struct Subdirectory
    {
        std::wstring name;
        FILE_ATTRIBUTE_TAG_INFO info;
    };

    // A directory that is being emptied.
    struct Level
    {
        Directory directory;
        size_t pathLength;
        std::vector<Subdirectory> subdirectories; // still to be removed
        bool isEmptied = true;
    };

    DWORD OpenItself(DWORD access, DWORD share, unique_hfile& directory) const;
    DWORD Open(Directory& directory) const;
    HRESULT OpenRoot(Directory& root) const;

    void Enter(Directory directory);
    void RemoveFilesOfListing(bool& isFirst, bool& isLast);
    void RemoveFile();
    void RemoveNextSubdirectory();
    void Leave();
    DWORD DeleteOpened(HANDLE file);
    DWORD Delete(const Directory& directory);
    DWORD DeleteLink(Directory& link);
    std::wstring FindMountedVolume(const Directory& link);
    void Name(std::wstring_view entry);
    std::wstring_view EntryName() const;
    void Fail(DWORD error);

    std::wstring m_path; // what is being worked on
    std::vector<Level> m_levels;
    std::vector<ULONGLONG> m_listing = std::vector<ULONGLONG>(c_listingBytes / sizeof(ULONGLONG));
    bool m_deletesAtOnce = true; // whether the file system may be able to
    HRESULT m_firstFailure = S_OK;
};

HRESULT TreeRemoval::Run()
{
    Directory root;
    RETURN_IF_FAILED(OpenRoot(root));
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

// Opens the directory that the path names, itself if it is a link: the root by its path, all others by their names.
DWORD TreeRemoval::OpenItself(DWORD access, DWORD share, unique_hfile& directory) const
{
    if (!m_levels.empty())
    {
        // As CreateFileW asks for it.
        return OpenEntry(m_levels.back().directory.handle.get(), EntryName(),
                         access | FILE_READ_ATTRIBUTES | SYNCHRONIZE, share,
                         FILE_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT, directory);
    }
    directory.reset(CreateFileW(m_path.c_str(), access, share, nullptr, OPEN_EXISTING,
                                FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    return directory ? ERROR_SUCCESS : GetLastError();
}

// Opens the directory of the path, for as much as it grants: the contents of one that may not be deleted may be
// removable, and one that may not be listed may be a link or empty.
DWORD TreeRemoval::Open(Directory& directory) const
{
    constexpr DWORD c_list = FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES;
    const DWORD error = OpenItself(c_list | DELETE, FILE_SHARE_READ, directory.handle);
    if (error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION)
    {
        if (OpenItself(c_list, FILE_SHARE_READ | FILE_SHARE_WRITE, directory.handle) == ERROR_SUCCESS)
        {
            directory.deleteError = error;
        }
        else
        {
            directory.listError = error;
            OpenItself(DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, directory.handle);
        }
    }
    if (!directory.handle)
    {
        return error;
    }
    return ReadAttributes(directory.handle.get(), directory.info);
}

HRESULT TreeRemoval::OpenRoot(Directory& root) const
{
    const DWORD error = Open(root);
    // An absent directory is told in one way, whether the directory above it exists or not.
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), error == ERROR_FILE_NOT_FOUND);
    RETURN_IF_WIN32_ERROR(error);
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_DIRECTORY),
                 !HasAttribute(root.info.FileAttributes, FILE_ATTRIBUTE_DIRECTORY));
    // Some systems open a link's target all the same: then its path alone is seen as a reparse point.
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED),
                 IsLink(root.info) || IsLink({.FileAttributes = GetFileAttributesW(m_path.c_str()),
                                              .ReparseTag = root.info.ReparseTag}));
    return S_OK;
}

// Removes the files of the directory that the path names, if it can be listed, and remembers its subdirectories.
void TreeRemoval::Enter(Directory directory)
{
    m_levels.push_back({.directory = std::move(directory), .pathLength = m_path.size(), .subdirectories = {}});
    bool isFirst = true;
    for (bool isLast = m_levels.back().directory.listError != ERROR_SUCCESS; !isLast;)
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
        if (!HasAttribute(entry.FileAttributes, FILE_ATTRIBUTE_DIRECTORY))
        {
            Name(name);
            RemoveFile();
        }
        else if (name != L"." && name != L"..")
        {
            // A reparse point's tag lies where others have the size of their extended attributes.
            level.subdirectories.push_back(
                {.name = std::wstring(name),
                 .info = {.FileAttributes = entry.FileAttributes, .ReparseTag = entry.EaSize}});
        }
        if (entry.NextEntryOffset == 0)
        {
            return;
        }
        next = static_cast<const std::byte*>(next) + entry.NextEntryOffset;
    }
}

void TreeRemoval::RemoveFile()
{
    // What goes with its last handle needs no call of its own for that.
    const ULONG goes = m_deletesAtOnce ? 0 : FILE_DELETE_ON_CLOSE;
    unique_hfile file;
    DWORD error =
        OpenEntry(m_levels.back().directory.handle.get(), EntryName(), DELETE,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, FILE_NON_DIRECTORY_FILE | goes, file);
    if (error == ERROR_SUCCESS && goes == 0)
    {
        error = DeleteOpened(file.get());
    }
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND)
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
    DWORD error = Open(directory);
    if (error == ERROR_SUCCESS)
    {
        if (IsLink(directory.info))
        {
            error = DeleteLink(directory);
        }
        else if (IsLink(subdirectory.info))
        {
            // What was opened is the link's target, as some systems do it, or something put in its place.
            error = ERROR_REPARSE_POINT_ENCOUNTERED;
        }
        else
        {
            Enter(std::move(directory));
        }
    }
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND)
    {
        Fail(error);
    }
}

// Removes the innermost directory, if all that lay in it is gone, and goes back to the one above it.
void TreeRemoval::Leave()
{
    const Level level = std::move(m_levels.back());
    m_levels.pop_back();
    m_path.resize(level.pathLength);
    if (!level.isEmptied)
    {
        if (!m_levels.empty())
        {
            m_levels.back().isEmptied = false;
        }
        return;
    }
    const DWORD error = Delete(level.directory);
    if (error != ERROR_SUCCESS)
    {
        Fail(error);
    }
}

// Deletes what a handle was opened on.
DWORD TreeRemoval::DeleteOpened(HANDLE file)
{
    if (m_deletesAtOnce)
    {
        // With these semantics the name goes at once, even while others have the file open.
        FILE_DISPOSITION_INFO_EX atOnce{.Flags = FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS};
        if (SetFileInformationByHandle(file, FileDispositionInfoEx, &atOnce, sizeof(atOnce)))
        {
            return ERROR_SUCCESS;
        }
        const DWORD error = GetLastError();
        if (error == ERROR_ACCESS_DENIED)
        {
            return error;
        }
        m_deletesAtOnce = error != ERROR_INVALID_PARAMETER;
    }
    // Where they are not known, it goes with the last handle.
    FILE_DISPOSITION_INFO atLastClose{.DeleteFile = TRUE};
    return SetFileInformationByHandle(file, FileDispositionInfo, &atLastClose, sizeof(atLastClose)) ? ERROR_SUCCESS
                                                                                                    : GetLastError();
}

// Deletes a directory or a link.
DWORD TreeRemoval::Delete(const Directory& directory)
{
    if (directory.deleteError != ERROR_SUCCESS)
    {
        return directory.deleteError;
    }
    const DWORD error = DeleteOpened(directory.handle.get());
    // What is in it could not be seen, and that is what the administrator has to know.
    return error == ERROR_DIR_NOT_EMPTY && directory.listError != ERROR_SUCCESS ? directory.listError : error;
}

DWORD TreeRemoval::DeleteLink(Directory& link)
{
    const std::wstring volume = FindMountedVolume(link);
    const DWORD error = Delete(link);
    link.handle.reset();
    if (error == ERROR_SUCCESS && !volume.empty())
    {
        TellMountManager(std::wstring_view(m_path).substr(c_extendedPrefix.size()), volume);
    }
    return error;
}

// Which volume is mounted at a link, as the mount manager names it; empty when there is none or it cannot be read.
std::wstring TreeRemoval::FindMountedVolume(const Directory& link)
{
    DWORD bytes = 0;
    if (link.info.ReparseTag != IO_REPARSE_TAG_MOUNT_POINT ||
        !DeviceIoControl(link.handle.get(), FSCTL_GET_REPARSE_POINT, nullptr, 0, m_listing.data(),
                         static_cast<DWORD>(c_listingBytes), &bytes, nullptr))
    {
        return {};
    }
    MountPointData data{};
    std::memcpy(&data, m_listing.data(), sizeof(data));
    if (sizeof(data) + data.substituteNameOffset + data.substituteNameLength > bytes)
    {
        return {};
    }
    const void* const names = m_listing.data() + sizeof(data) / sizeof(ULONGLONG);
    std::wstring target(data.substituteNameLength / sizeof(wchar_t), L'\0');
    std::memcpy(target.data(), static_cast<const std::byte*>(names) + data.substituteNameOffset,
                target.size() * sizeof(wchar_t));
    if (!target.starts_with(L"\\??\\Volume{") || !target.ends_with(L"}\\"))
    {
        return {};
    }
    target.pop_back();
    return target;
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

// The name of that entry.
std::wstring_view TreeRemoval::EntryName() const
{
    const std::wstring_view path = m_path;
    return path.substr(path.rfind(L'\\') + 1);
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
            RETURN_IF_WIN32_ERROR(error);
        }
        lengths.push_back(parentLength);
    }
    return S_OK;
}
CATCH_RETURN()

HRESULT RemoveDirectoryRecursiveNoThrow(PCWSTR path) noexcept
try
{
    std::wstring root;
    RETURN_IF_FAILED(ExtendPath(path, root));
    return TreeRemoval(std::move(root)).Run();
}
CATCH_RETURN()

} // namespace wil
