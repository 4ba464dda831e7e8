#include "support/unit/FakeFileSystem.h"

#include "support/common/Text.h"

#include <sddl.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <iterator>
#include <ranges>
#include <stdexcept>
#include <utility>

namespace Testing
{

namespace
{

// What ntdll gives for the Win32 codes that this file system knows.
constexpr std::pair<DWORD, ULONG> c_statuses[] = {
    {ERROR_SUCCESS, 0},
    {ERROR_FILE_NOT_FOUND, 0xC0000034},
    {ERROR_PATH_NOT_FOUND, 0xC000003A},
    {ERROR_ACCESS_DENIED, 0xC0000022},
    {ERROR_SHARING_VIOLATION, 0xC0000043},
    {ERROR_DIRECTORY, 0xC0000103},
    {ERROR_INVALID_HANDLE, 0xC0000008},
    {ERROR_INVALID_PARAMETER, 0xC000000D},
    {ERROR_CANT_ACCESS_FILE, 0xC0000909},
    {ERROR_REPARSE_POINT_ENCOUNTERED, 0xC000050B},
};

NTSTATUS ToStatus(DWORD error)
{
    const auto* const status = std::ranges::find(c_statuses, error, &std::pair<DWORD, ULONG>::first);
    return static_cast<NTSTATUS>(status == std::end(c_statuses) ? 0xC0000001 : status->second);
}

constexpr ULONG c_dontReparse = 0x1000;
// The tag of what is no reparse point may be anything.
constexpr DWORD c_meaningless = 0x90000042;

// What a mount point's data is before its names, and a request to the mount manager.
struct MountPoint
{
    DWORD tag;
    WORD dataLength;
    WORD reserved;
    WORD substituteNameOffset;
    WORD substituteNameLength;
    WORD printNameOffset;
    WORD printNameLength;
};
struct DeletedMountPoint
{
    WORD nameOffset;
    WORD nameLength;
    WORD volumeOffset;
    WORD volumeLength;
};

ACCESS_MASK MapGeneric(ACCESS_MASK access)
{
    GENERIC_MAPPING mapping{.GenericRead = FILE_GENERIC_READ,
                            .GenericWrite = FILE_GENERIC_WRITE,
                            .GenericExecute = FILE_GENERIC_EXECUTE,
                            .GenericAll = FILE_ALL_ACCESS};
    MapGenericMask(&access, &mapping);
    return access;
}

// What others have to share with who has this access.
DWORD NeededShare(ACCESS_MASK access)
{
    return ((access & (FILE_READ_DATA | FILE_EXECUTE)) != 0 ? DWORD{FILE_SHARE_READ} : 0) |
           ((access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0 ? DWORD{FILE_SHARE_WRITE} : 0) |
           ((access & DELETE) != 0 ? DWORD{FILE_SHARE_DELETE} : 0);
}

} // namespace

FakeFileSystem::FakeFileSystem() : FakeFileSystem(std::make_unique<Own>()) {}

FakeFileSystem::FakeFileSystem(std::unique_ptr<Own> own) : FakeFileSystem(own->journal, own->handles)
{
    m_own = std::move(own);
}

FakeFileSystem::FakeFileSystem(Journal& journal, Handles& handles) : m_journal(journal), m_handles(handles)
{
    m_root->name = L"C:";
}

FakeFileSystem::~FakeFileSystem()
{
    for (Opened* const opened : m_opened)
    {
        opened->m_files = nullptr;
    }
}

std::wstring FakeFileSystem::Node::Path() const
{
    const NodePointer folder = parent.lock();
    return folder ? folder->Path() + L'\\' + name : name;
}

std::wstring FakeFileSystem::Place::Path() const
{
    return folder ? folder->Path() + L'\\' + name : node->Path();
}

std::wstring FakeFileSystem::KeyOf(std::wstring_view name)
{
    std::wstring key(name);
    std::ranges::transform(key, key.begin(), [](wchar_t letter) { return std::towlower(letter); });
    return key;
}

std::wstring FakeFileSystem::Plain(std::wstring path)
{
    if (path.starts_with(L"\\\\?\\") || path.starts_with(L"\\??\\"))
    {
        path.erase(0, 4);
    }
    std::ranges::replace(path, L'/', L'\\');
    path.erase(path.find_last_not_of(L'\\') + 1);
    return path;
}

FakeFileSystem::Place FakeFileSystem::Look(std::wstring path, Links links) const
{
    path = Plain(std::move(path));
    if (KeyOf(path) == L"c:")
    {
        return {.node = m_root};
    }
    return KeyOf(path).starts_with(L"c:\\") ? LookIn(m_root, std::wstring_view(path).substr(3), links)
                                            : Place{.error = ERROR_PATH_NOT_FOUND};
}

FakeFileSystem::Place FakeFileSystem::LookIn(NodePointer folder, std::wstring_view path, Links links) const
{
    for (;;)
    {
        if (folder->IsLink() && links != Links::Ignore)
        {
            if (links == Links::Refuse)
            {
                return {.error = ERROR_REPARSE_POINT_ENCOUNTERED};
            }
            folder = Follow(*folder);
        }
        if (folder == nullptr || !folder->IsFolder())
        {
            return {.error = ERROR_PATH_NOT_FOUND};
        }
        const std::size_t end = path.find(L'\\');
        const std::wstring_view name = path.substr(0, end);
        const auto entry = folder->entries.find(KeyOf(name));
        const bool isThere = entry != folder->entries.end();
        if (end == std::wstring_view::npos)
        {
            return {.error = isThere ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_FILE_NOT_FOUND},
                    .folder = folder,
                    .name = isThere ? entry->second.name : std::wstring(name),
                    .node = isThere ? entry->second.node : nullptr};
        }
        if (!isThere)
        {
            return {.error = ERROR_PATH_NOT_FOUND};
        }
        folder = entry->second.node;
        path.remove_prefix(end + 1);
    }
}

FakeFileSystem::NodePointer FakeFileSystem::Follow(const Node& link) const
{
    const NodePointer target = Look(link.target).node;
    return target && target->IsLink() ? Follow(*target) : target;
}

FakeFileSystem::Node& FakeFileSystem::At(const std::wstring& path) const
{
    const Place place = Look(path, Links::Ignore);
    if (place.node == nullptr)
    {
        throw std::logic_error(Narrow(path) + " is not there");
    }
    return *place.node;
}

void FakeFileSystem::Put(const Place& place, const NodePointer& node)
{
    node->isPrivate = node->isPrivate || place.folder->isPrivate; // as the access list of a folder is inherited
    if (node->IsFolder())
    {
        node->name = place.name;
        node->parent = place.folder;
    }
    place.folder->entries[KeyOf(place.name)] = {place.name, node};
}

void FakeFileSystem::AddFolder(const std::wstring& path)
{
    const std::wstring plain = Plain(path);
    const Place place = Look(plain);
    if (place.node)
    {
        return;
    }
    if (place.folder == nullptr)
    {
        AddFolder(plain.substr(0, plain.rfind(L'\\')));
    }
    Put(Look(plain), std::make_shared<Node>());
}

void FakeFileSystem::AddFile(const std::wstring& path, const std::string& content, DWORD attributes)
{
    const std::wstring plain = Plain(path);
    AddFolder(plain.substr(0, plain.rfind(L'\\')));
    Put(Look(plain),
        std::make_shared<Node>(Node{.attributes = FILE_ATTRIBUTE_ARCHIVE | attributes, .content = content}));
}

void FakeFileSystem::AddHardLink(const std::wstring& path, const std::wstring& file)
{
    AddFolder(path.substr(0, path.rfind(L'\\')));
    Put(Look(path), Look(file).node);
}

void FakeFileSystem::AddReparsePoint(const std::wstring& path, DWORD tag, const std::wstring& target)
{
    AddFolder(path);
    Node& node = At(path);
    node.attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    node.tag = tag;
    node.target = target;
}

std::vector<std::wstring> FakeFileSystem::All() const
{
    std::vector<std::wstring> paths{m_root->name};
    Collect(*m_root, m_root->name, paths);
    return paths;
}

void FakeFileSystem::Collect(const Node& folder, const std::wstring& path, std::vector<std::wstring>& paths)
{
    for (const Entry& entry : folder.entries | std::views::values)
    {
        const std::wstring entryPath = path + L'\\' + entry.name;
        paths.push_back(entryPath);
        Collect(*entry.node, entryPath, paths);
    }
}

void FakeFileSystem::GiveAway(const std::wstring& path, ACCESS_MASK rights)
{
    Node& node = At(path);
    node.isForeign = true;
    node.isPrivate = false;
    node.rights = rights;
}

bool FakeFileSystem::MakeFolder(const std::wstring& path)
{
    const Place place = Look(path);
    if (place.node || place.folder == nullptr || IsDeniedToOthers(place.folder.get()))
    {
        return false;
    }
    AddFolder(path);
    GiveAway(path);
    return true;
}

bool FakeFileSystem::MakeHardLink(const std::wstring& path, const std::wstring& file)
{
    const Place place = Look(path);
    if (place.node || place.folder == nullptr || IsDeniedToOthers(place.folder.get()))
    {
        return false;
    }
    AddHardLink(path, file);
    return true;
}

bool FakeFileSystem::Overwrite(const std::wstring& path, const std::string& content)
{
    const Place place = Look(path);
    OpenedPointer opened;
    if (place.node == nullptr || isInUse(path) || IsDeniedToOthers(place.node.get()) ||
        Open(place, FILE_WRITE_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, FILE_NON_DIRECTORY_FILE,
             opened) != ERROR_SUCCESS)
    {
        return false;
    }
    place.node->content = content;
    return true;
}

bool FakeFileSystem::Rename(const std::wstring& from, const std::wstring& to)
{
    const Place source = Look(from, Links::Ignore);
    const Place target = Look(to, Links::Ignore);
    // Who renames opens it for deletion. A folder stays where it is while anything below it is open.
    OpenedPointer renaming;
    if (source.node == nullptr || target.folder == nullptr || target.node || HasOpenBelow(*source.node) ||
        IsDeniedToOthers(source.node.get()) || IsDeniedToOthers(target.folder.get()) ||
        Open(source, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, FILE_OPEN_REPARSE_POINT,
             renaming) != ERROR_SUCCESS)
    {
        return false;
    }
    source.folder->entries.erase(KeyOf(source.name));
    Put(target, source.node);
    for (Opened* const opened : m_opened)
    {
        if (opened->m_place.folder == source.folder && opened->m_place.name == source.name)
        {
            opened->m_place = Look(to, Links::Ignore);
        }
    }
    return true;
}

bool FakeFileSystem::Delete(const std::wstring& path)
{
    const Place place = Look(path, Links::Ignore);
    OpenedPointer opened;
    if (place.node == nullptr || IsDeniedToOthers(place.node.get()) ||
        Open(place, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, FILE_OPEN_REPARSE_POINT, opened) !=
            ERROR_SUCCESS ||
        RefuseDeletion(place) != ERROR_SUCCESS)
    {
        return false;
    }
    Unlink(place);
    return true;
}

bool FakeFileSystem::SetReparsePoint(const std::wstring& path, const std::wstring& target)
{
    const Place place = Look(path, Links::Ignore);
    if (place.node == nullptr || !place.node->IsFolder() || !place.node->entries.empty() ||
        place.node->isDeletePending || IsDeniedToOthers(place.node.get()))
    {
        return false;
    }
    AddReparsePoint(path, IO_REPARSE_TAG_MOUNT_POINT, target);
    return true;
}

bool FakeFileSystem::DeleteReparsePoint(const std::wstring& path)
{
    const Place place = Look(path, Links::Ignore);
    if (place.node == nullptr || !place.node->IsReparsePoint() || place.node->isDeletePending)
    {
        return false;
    }
    place.node->attributes &= ~DWORD{FILE_ATTRIBUTE_REPARSE_POINT};
    return true;
}

BOOL FakeFileSystem::Fail(DWORD error)
{
    SetLastError(error);
    return error == ERROR_SUCCESS;
}

FakeFileSystem::Opened::Opened(FakeFileSystem& files, const Place& place, ACCESS_MASK access, DWORD share,
                               ULONG options)
    : m_files(&files),
      m_place(place),
      m_access(access),
      m_share(share),
      m_options(options)
{
    files.m_opened.insert(this);
}

FakeFileSystem::Opened::~Opened()
{
    if (m_files == nullptr)
    {
        return;
    }
    m_files->m_opened.erase(this);
    Node& node = *m_place.node;
    node.isDeletePending = node.isDeletePending || ((m_options & FILE_DELETE_ON_CLOSE) != 0 &&
                                                    m_files->RefuseDeletion(m_place) == ERROR_SUCCESS);
    if (node.isDeletePending && !m_files->IsOpen(node))
    {
        m_files->Unlink(m_place);
    }
}

FakeFileSystem::Opened* FakeFileSystem::FindOpened(HANDLE handle)
{
    auto* const opened = m_handles.Find<OpenedPointer>(handle);
    return opened == nullptr ? nullptr : opened->get();
}

bool FakeFileSystem::IsOpen(const Node& node) const
{
    return std::ranges::any_of(m_opened, [&](const Opened* opened) { return opened->m_place.node.get() == &node; });
}

bool FakeFileSystem::HasOpenBelow(const Node& folder) const
{
    return std::ranges::any_of(m_opened, [&](const Opened* opened) {
        NodePointer above = opened->m_place.folder;
        while (above && above.get() != &folder)
        {
            above = above->parent.lock();
        }
        return above != nullptr;
    });
}

DWORD FakeFileSystem::Open(Place place, ACCESS_MASK access, DWORD share, ULONG options, OpenedPointer& opened)
{
    if (place.node && place.node->IsReparsePoint() && (options & FILE_OPEN_REPARSE_POINT) == 0)
    {
        // No driver is there that would take another tag for its own.
        place = place.node->IsLink() ? Look(place.node->target) : Place{.error = ERROR_CANT_ACCESS_FILE};
        return place.error == ERROR_SUCCESS ? Open(place, access, share, options, opened) : place.error;
    }
    if (place.error != ERROR_SUCCESS)
    {
        return place.error;
    }
    const Node& node = *place.node;
    if ((options & FILE_DIRECTORY_FILE) != 0 && !node.IsFolder())
    {
        return ERROR_DIRECTORY;
    }
    access = MapGeneric(access);
    constexpr ACCESS_MASK writing = FILE_WRITE_DATA | FILE_APPEND_DATA;
    const bool overridesRights = (options & FILE_OPEN_FOR_BACKUP_INTENT) != 0 && hasBackupPrivileges();
    const bool isReadOnly = !node.IsFolder() && (node.attributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (((options & FILE_NON_DIRECTORY_FILE) != 0 && node.IsFolder()) || node.isDeletePending ||
        ((access & ~node.rights) != 0 && !overridesRights) || (isReadOnly && (access & writing) != 0) ||
        ((options & FILE_DELETE_ON_CLOSE) != 0 && RefuseDeletion(place) == ERROR_ACCESS_DENIED))
    {
        return ERROR_ACCESS_DENIED;
    }
    // Who needs nothing shared, as for reading attributes, is in nobody's way.
    const DWORD needed = NeededShare(access);
    if (needed != 0 && std::ranges::any_of(m_opened, [&](const Opened* other) {
            const DWORD neededByOther = NeededShare(other->m_access);
            return other->m_place.node == place.node && neededByOther != 0 &&
                   ((needed & ~other->m_share) != 0 || (neededByOther & ~share) != 0);
        }))
    {
        return ERROR_SHARING_VIOLATION;
    }
    opened = std::make_shared<Opened>(*this, place, access, share, options);
    return ERROR_SUCCESS;
}

HANDLE FakeFileSystem::MakeHandle(const OpenedPointer& opened)
{
    return m_handles.Make(Narrow(opened->m_place.Path()), opened);
}

DWORD FakeFileSystem::RefuseDeletion(const Place& place) const
{
    if ((place.node->attributes & FILE_ATTRIBUTE_READONLY) != 0 || place.folder == nullptr || isInUse(place.Path()))
    {
        return ERROR_ACCESS_DENIED;
    }
    return place.node->entries.empty() ? ERROR_SUCCESS : ERROR_DIR_NOT_EMPTY;
}

void FakeFileSystem::Unlink(const Place& place)
{
    const auto entry = place.folder->entries.find(KeyOf(place.name));
    if (entry != place.folder->entries.end() && entry->second.node == place.node)
    {
        place.folder->entries.erase(entry);
    }
    // Nothing can be put into a folder that has no name any more.
    place.node->isDeletePending = place.node->IsFolder();
}

DWORD FakeFileSystem::DeleteByPath(const std::wstring& path, ULONG options)
{
    OpenedPointer opened;
    const DWORD error = Open(Look(path), DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             options | FILE_OPEN_REPARSE_POINT, opened);
    const DWORD refusal = error == ERROR_SUCCESS ? RefuseDeletion(opened->m_place) : error;
    if (refusal == ERROR_SUCCESS)
    {
        Unlink(opened->m_place);
    }
    return refusal;
}

HANDLE FakeFileSystem::Create(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags)
{
    if (const DWORD error = m_journal.Add("CreateFileW", Plain(path).c_str()))
    {
        Fail(error);
        return INVALID_HANDLE_VALUE;
    }
    if (std::wstring_view(path) == L"\\\\.\\MountPointManager")
    {
        return m_handles.Make("mount manager", MountManager{access});
    }
    const bool wasThere = Look(path).node != nullptr;
    if (!wasThere && disposition != OPEN_EXISTING && Look(path).folder)
    {
        AddFile(path, {});
    }
    const bool isForFolders = (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0;
    const ULONG options = (isForFolders ? ULONG{FILE_OPEN_FOR_BACKUP_INTENT} : ULONG{FILE_NON_DIRECTORY_FILE}) |
                          FILE_SYNCHRONOUS_IO_NONALERT |
                          ((flags & FILE_FLAG_OPEN_REPARSE_POINT) != 0 ? FILE_OPEN_REPARSE_POINT : 0U) |
                          ((flags & FILE_FLAG_DELETE_ON_CLOSE) != 0 ? FILE_DELETE_ON_CLOSE : 0U);
    OpenedPointer opened;
    const DWORD error = wasThere && disposition == CREATE_NEW
                            ? ERROR_FILE_EXISTS
                            : Open(Look(path), access | SYNCHRONIZE | FILE_READ_ATTRIBUTES, share, options, opened);
    Fail(error == ERROR_SUCCESS && wasThere && disposition == OPEN_ALWAYS ? ERROR_ALREADY_EXISTS : error);
    return error == ERROR_SUCCESS ? MakeHandle(opened) : INVALID_HANDLE_VALUE;
}

NTSTATUS FakeFileSystem::OpenRelative(HANDLE& handle, ACCESS_MASK access, const OBJECT_ATTRIBUTES& attributes,
                                      ULONG share, ULONG options)
{
    const std::wstring name(attributes.ObjectName->Buffer, attributes.ObjectName->Length / sizeof(wchar_t));
    if (const DWORD error = m_journal.Add("NtOpenFile", m_handles.NameOf(attributes.RootDirectory), name.c_str()))
    {
        return ToStatus(error);
    }
    const Opened* const folder = FindOpened(attributes.RootDirectory);
    constexpr ULONG kinds = FILE_DIRECTORY_FILE | FILE_NON_DIRECTORY_FILE;
    constexpr ULONG knownAttributes = OBJ_VALID_ATTRIBUTES | c_dontReparse;
    if (folder == nullptr || attributes.Length != sizeof(attributes) ||
        (attributes.Attributes & ~knownAttributes) != 0 || (options & kinds) == kinds || name.empty() ||
        name.find_first_of(L"\\/") != std::wstring::npos ||
        ((options & FILE_SYNCHRONOUS_IO_NONALERT) != 0 && (access & SYNCHRONIZE) == 0))
    {
        return ToStatus(folder == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
    }
    // A link that is opened itself still leads those away who open something relative to it.
    const bool isStrict = (attributes.Attributes & c_dontReparse) != 0;
    OpenedPointer opened;
    const DWORD error = Open(LookIn(folder->m_place.node, name, isStrict ? Links::Refuse : Links::Follow), access,
                             share, options, opened);
    handle = error == ERROR_SUCCESS ? MakeHandle(opened) : nullptr;
    return ToStatus(error);
}

ULONG FakeFileSystem::ToDosError(NTSTATUS status) const
{
    const auto* const known =
        std::ranges::find(c_statuses, static_cast<ULONG>(status), &std::pair<DWORD, ULONG>::second);
    return known == std::end(c_statuses) ? m_toDosError.Hidden(status) : known->first;
}

BOOL FakeFileSystem::Write(HANDLE handle, const void* data, DWORD size, DWORD* written)
{
    const Opened* const opened = FindOpened(handle);
    if (opened == nullptr)
    {
        return FALSE;
    }
    const std::string text(static_cast<const char*>(data), size);
    opened->m_place.node->content += text;
    *written = size;
    onWrite(opened->m_place.Path(), text);
    return TRUE;
}

BOOL FakeFileSystem::List(Opened& opened, bool fromStart, void* data, DWORD size) const
{
    if ((opened.m_access & FILE_LIST_DIRECTORY) == 0 || !opened.m_place.node->IsFolder())
    {
        return Fail(opened.m_place.node->IsFolder() ? ERROR_ACCESS_DENIED : ERROR_INVALID_PARAMETER);
    }
    EXPECT_NE(opened.m_options & FILE_SYNCHRONOUS_IO_NONALERT, 0U) << "the listing would not be waited for";
    const bool isFirst = fromStart || !std::exchange(opened.m_isListed, true);
    opened.m_isListed = true;
    const auto& entries = opened.m_place.node->entries;
    auto* place = static_cast<BYTE*>(data);
    FILE_FULL_DIR_INFO* last = nullptr;
    const auto add = [&](const std::wstring& name, const Node& node) {
        const std::size_t needed = (sizeof(FILE_FULL_DIR_INFO) + name.size() * sizeof(wchar_t) + 7) / 8 * 8;
        if (place + needed > static_cast<BYTE*>(data) + size)
        {
            return false;
        }
        last = reinterpret_cast<FILE_FULL_DIR_INFO*>(place);
        *last = {};
        last->NextEntryOffset = static_cast<ULONG>(needed);
        last->FileAttributes = node.attributes;
        // In a listing a reparse point has its tag in the place of the size of its extended attributes.
        last->EaSize = node.IsReparsePoint() ? node.tag : 0;
        last->FileNameLength = static_cast<ULONG>(name.size() * sizeof(wchar_t));
        std::memcpy(static_cast<void*>(last->FileName), name.data(), last->FileNameLength);
        place += needed;
        return true;
    };
    if (isFirst)
    {
        opened.m_lastListed.clear();
        add(L".", Node{});
        add(L"..", Node{});
    }
    for (auto entry = entries.upper_bound(opened.m_lastListed);
         entry != entries.end() && add(entry->second.name, *entry->second.node); ++entry)
    {
        opened.m_lastListed = entry->first;
    }
    if (last == nullptr)
    {
        return Fail(ERROR_NO_MORE_FILES);
    }
    last->NextEntryOffset = 0;
    return TRUE;
}

BOOL FakeFileSystem::Read(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* data, DWORD size)
{
    if (const DWORD error =
            m_journal.Add("GetFileInformationByHandleEx", m_handles.NameOf(handle), static_cast<int>(kind)))
    {
        return Fail(error);
    }
    Opened* const opened = FindOpened(handle);
    if (opened == nullptr)
    {
        return FALSE;
    }
    const Node& node = *opened->m_place.node;
    const bool isSeen = node.IsReparsePoint() && !node.isHidden;
    const DWORD attributes = isSeen ? node.attributes : node.attributes & ~DWORD{FILE_ATTRIBUTE_REPARSE_POINT};
    if (kind == FileFullDirectoryInfo || kind == FileFullDirectoryRestartInfo)
    {
        return List(*opened, kind == FileFullDirectoryRestartInfo, data, size);
    }
    if ((opened->m_access & FILE_READ_ATTRIBUTES) == 0)
    {
        return Fail(ERROR_ACCESS_DENIED);
    }
    if (kind == FileAttributeTagInfo && !isFat)
    {
        *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(data) = {.FileAttributes = attributes,
                                                        .ReparseTag = isSeen ? node.tag : c_meaningless};
        return TRUE;
    }
    if (kind == FileBasicInfo)
    {
        FILE_BASIC_INFO& info = *static_cast<FILE_BASIC_INFO*>(data);
        info = {};
        info.FileAttributes = attributes;
        return TRUE;
    }
    return Fail(ERROR_INVALID_PARAMETER);
}

BOOL FakeFileSystem::Dispose(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, const void* data, DWORD size)
{
    if (const DWORD error =
            m_journal.Add("SetFileInformationByHandle", m_handles.NameOf(handle), static_cast<int>(kind)))
    {
        return Fail(error);
    }
    Opened* const opened = FindOpened(handle);
    if (opened == nullptr)
    {
        return FALSE;
    }
    const bool isExtended = kind == FileDispositionInfoEx;
    ULONG flags = FILE_DISPOSITION_FLAG_DELETE;
    if (size != (isExtended ? sizeof(flags) : sizeof(FILE_DISPOSITION_INFO)))
    {
        return Fail(ERROR_BAD_LENGTH);
    }
    if (isExtended)
    {
        std::memcpy(&flags, data, sizeof(flags));
    }
    else if (kind != FileDispositionInfo || !static_cast<const FILE_DISPOSITION_INFO*>(data)->DeleteFile)
    {
        flags = 0;
    }
    constexpr ULONG known = FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS;
    if ((isFat && isExtended) || (flags & FILE_DISPOSITION_FLAG_DELETE) == 0 || (flags & ~known) != 0)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const DWORD error = (opened->m_access & DELETE) == 0 ? ERROR_ACCESS_DENIED : RefuseDeletion(opened->m_place);
    if (error != ERROR_SUCCESS)
    {
        return Fail(error);
    }
    if ((flags & FILE_DISPOSITION_FLAG_POSIX_SEMANTICS) != 0)
    {
        Unlink(opened->m_place);
    }
    else
    {
        opened->m_place.node->isDeletePending = true;
    }
    return TRUE;
}

BOOL FakeFileSystem::Control(HANDLE handle, DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize,
                             DWORD* returned)
{
    if (const DWORD error = m_journal.Add("DeviceIoControl", m_handles.NameOf(handle)))
    {
        return Fail(error);
    }
    constexpr DWORD deleted = CTL_CODE('m', 7, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);
    if (const auto* const manager = m_handles.Find<MountManager>(handle); manager != nullptr && code == deleted)
    {
        return Forget(*manager, in, inSize);
    }
    const Opened* const opened = FindOpened(handle);
    if (opened == nullptr || code != FSCTL_GET_REPARSE_POINT)
    {
        return opened != nullptr && Fail(ERROR_INVALID_FUNCTION);
    }
    return ReadReparsePoint(*opened->m_place.node, out, outSize, returned);
}

BOOL FakeFileSystem::ReadReparsePoint(const Node& node, void* data, DWORD size, DWORD* returned) const
{
    const std::size_t nameBytes = node.target.size() * sizeof(wchar_t);
    const std::size_t total = sizeof(MountPoint) + nameBytes + 2 * sizeof(wchar_t);
    if (!node.IsReparsePoint() || total > size)
    {
        return Fail(node.IsReparsePoint() ? ERROR_MORE_DATA : ERROR_NOT_A_REPARSE_POINT);
    }
    MountPoint mountPoint{};
    mountPoint.tag = node.tag;
    mountPoint.dataLength = static_cast<WORD>(total - offsetof(MountPoint, substituteNameOffset));
    // The name that is shown comes first here: nothing says that it must not.
    mountPoint.substituteNameOffset = sizeof(wchar_t);
    mountPoint.substituteNameLength = static_cast<WORD>(nameBytes);
    std::memset(data, 0, total);
    std::memcpy(data, &mountPoint, sizeof(mountPoint));
    std::memcpy(static_cast<BYTE*>(data) + sizeof(mountPoint) + mountPoint.substituteNameOffset, node.target.data(),
                nameBytes);
    *returned = static_cast<DWORD>(total);
    return TRUE;
}

BOOL FakeFileSystem::Forget(const MountManager& manager, const void* data, DWORD size)
{
    DeletedMountPoint request{};
    if ((manager.access & (GENERIC_READ | GENERIC_WRITE)) != (GENERIC_READ | GENERIC_WRITE))
    {
        return Fail(ERROR_ACCESS_DENIED);
    }
    std::memcpy(&request, data, std::min<std::size_t>(size, sizeof(request)));
    if (size < sizeof(request) || request.nameOffset + request.nameLength > size ||
        request.volumeOffset + request.volumeLength > size)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const auto text = [&](WORD offset, WORD length) {
        std::wstring name(length / sizeof(wchar_t), L'\0');
        std::memcpy(name.data(), static_cast<const BYTE*>(data) + offset, length);
        return name;
    };
    const std::wstring mountPoint = text(request.nameOffset, request.nameLength);
    if (!mountPoint.starts_with(L"\\??\\") || Has(mountPoint))
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    m_unmounted.push_back(Plain(mountPoint) + L" of " + text(request.volumeOffset, request.volumeLength));
    return TRUE;
}

std::vector<WIN32_FIND_DATAW> FakeFileSystem::Listing(const Node& folder)
{
    std::vector<WIN32_FIND_DATAW> found;
    const auto add = [&](const std::wstring& name, const Node& node) {
        WIN32_FIND_DATAW& data = found.emplace_back();
        data.dwFileAttributes = node.attributes;
        data.dwReserved0 = node.IsReparsePoint() ? node.tag : 0;
        name.copy(data.cFileName, std::size(data.cFileName) - 1);
    };
    add(L".", folder);
    add(L"..", folder);
    for (const Entry& entry : folder.entries | std::views::values)
    {
        add(entry.name, *entry.node);
    }
    return found;
}

HANDLE FakeFileSystem::FindFirst(const std::wstring& pattern, WIN32_FIND_DATAW& data)
{
    const Place place = Look(pattern);
    DWORD error = m_journal.Add("FindFirstFileW", Plain(pattern).c_str());
    Search search;
    if (error == ERROR_SUCCESS && place.folder)
    {
        search.found = Listing(*place.folder);
        if (place.name != L"*")
        {
            std::erase_if(search.found,
                          [&](const WIN32_FIND_DATAW& found) { return KeyOf(found.cFileName) != KeyOf(place.name); });
        }
    }
    if (search.found.empty())
    {
        error = error != ERROR_SUCCESS ? error : place.error;
        Fail(error);
        return INVALID_HANDLE_VALUE;
    }
    HANDLE handle = m_handles.Make("search", std::move(search), "FindClose");
    ++m_searches;
    FindNext(handle, data);
    return handle;
}

BOOL FakeFileSystem::FindNext(HANDLE handle, WIN32_FIND_DATAW& data)
{
    auto* const search = m_handles.Find<Search>(handle);
    if (search == nullptr || search->next == search->found.size())
    {
        return search != nullptr && Fail(ERROR_NO_MORE_FILES);
    }
    data = search->found[search->next++];
    return TRUE;
}

std::size_t FakeFileSystem::CountNames(const Node& folder, const Node& node)
{
    std::size_t count = 0;
    for (const Entry& entry : folder.entries | std::views::values)
    {
        count += (entry.node.get() == &node ? 1U : 0U) + CountNames(*entry.node, node);
    }
    return count;
}

BOOL FakeFileSystem::ReadContent(HANDLE handle, void* data, DWORD size, DWORD* read)
{
    Opened* const opened = FindOpened(handle);
    if (opened == nullptr || (opened->m_access & (FILE_READ_DATA | GENERIC_READ)) == 0)
    {
        return Fail(opened == nullptr ? ERROR_INVALID_HANDLE : ERROR_ACCESS_DENIED);
    }
    if (const DWORD error = m_journal.Add("ReadFile", m_handles.NameOf(handle)))
    {
        return Fail(error);
    }
    *read = static_cast<DWORD>(opened->m_place.node->content.copy(static_cast<char*>(data), size, opened->m_position));
    opened->m_position += *read;
    return TRUE;
}

BOOL FakeFileSystem::Describe(HANDLE handle, BY_HANDLE_FILE_INFORMATION& information)
{
    const DWORD error = m_journal.Add("GetFileInformationByHandle", m_handles.NameOf(handle));
    const Opened* const opened = FindOpened(handle);
    if (opened == nullptr || error != ERROR_SUCCESS)
    {
        return Fail(opened == nullptr ? ERROR_INVALID_HANDLE : error);
    }
    const Node& node = *opened->m_place.node;
    information = {};
    information.dwFileAttributes = node.attributes;
    information.nNumberOfLinks = static_cast<DWORD>(CountNames(*m_root, node));
    information.nFileSizeLow = static_cast<DWORD>(node.content.size());
    return TRUE;
}

DWORD FakeFileSystem::FindOwner(HANDLE handle, PSID* owner, PSECURITY_DESCRIPTOR* descriptor)
{
    const DWORD error = m_journal.Add("GetSecurityInfo", m_handles.NameOf(handle));
    const Opened* const opened = FindOpened(handle);
    if (opened == nullptr || (opened->m_access & READ_CONTROL) == 0 || error != ERROR_SUCCESS)
    {
        return opened == nullptr ? ERROR_INVALID_HANDLE : error == ERROR_SUCCESS ? DWORD{ERROR_ACCESS_DENIED} : error;
    }
    // Some user of the machine; or the administrators.
    const wchar_t* const text = opened->m_place.node->isForeign ? L"O:S-1-5-21-1-2-3-1001" : L"O:BA";
    BOOL isDefault = FALSE;
    EXPECT_TRUE(
        Fake<&ConvertStringSecurityDescriptorToSecurityDescriptorW>::Real(text, SDDL_REVISION_1, descriptor, nullptr) &&
        GetSecurityDescriptorOwner(*descriptor, owner, &isDefault));
    return ERROR_SUCCESS;
}

bool FakeFileSystem::IsPrivateList(PSECURITY_DESCRIPTOR descriptor)
{
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    BOOL isPresent = FALSE;
    BOOL isDefault = FALSE;
    ACL* list = nullptr;
    if (!GetSecurityDescriptorControl(descriptor, &control, &revision) || (control & SE_DACL_PROTECTED) == 0 ||
        !GetSecurityDescriptorDacl(descriptor, &isPresent, &list, &isDefault) || !isPresent || list == nullptr)
    {
        return false;
    }
    alignas(TOKEN_USER) BYTE user[SECURITY_MAX_SID_SIZE + sizeof(TOKEN_USER)]{};
    DWORD size = 0;
    EXPECT_TRUE(Fake<&GetTokenInformation>::Real(GetCurrentProcessToken(), TokenUser, user, sizeof(user), &size));
    for (DWORD index = 0; index < list->AceCount; ++index)
    {
        void* entry = nullptr;
        EXPECT_TRUE(GetAce(list, index, &entry));
        auto& ace = *static_cast<ACCESS_ALLOWED_ACE*>(entry);
        if (!Fake<&IsWellKnownSid>::Real(&ace.SidStart, WinLocalSystemSid) &&
            !Fake<&IsWellKnownSid>::Real(&ace.SidStart, WinBuiltinAdministratorsSid) &&
            !EqualSid(&ace.SidStart, reinterpret_cast<TOKEN_USER*>(user)->User.Sid))
        {
            return false;
        }
        EXPECT_TRUE(ace.Header.AceType == ACCESS_ALLOWED_ACE_TYPE && ace.Mask == FILE_ALL_ACCESS &&
                    ace.Header.AceFlags == (OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE));
    }
    return list->AceCount == 3;
}

BOOL FakeFileSystem::SetAccessList(HANDLE handle, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor)
{
    EXPECT_EQ(what, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION);
    const DWORD error = m_journal.Add("SetKernelObjectSecurity", m_handles.NameOf(handle));
    const Opened* const opened = FindOpened(handle);
    if (opened == nullptr || (opened->m_access & WRITE_DAC) == 0 || error != ERROR_SUCCESS)
    {
        return Fail(opened == nullptr ? ERROR_INVALID_HANDLE : error == ERROR_SUCCESS ? ERROR_ACCESS_DENIED : error);
    }
    opened->m_place.node->isPrivate = IsPrivateList(descriptor);
    return TRUE;
}

BOOL FakeFileSystem::Copy(const std::wstring& from, const std::wstring& to)
{
    const Place source = Look(from);
    const Place target = Look(to);
    if (source.node == nullptr || target.folder == nullptr)
    {
        return Fail(source.node == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
    }
    if (target.node == nullptr)
    {
        AddFile(to, source.node->content);
        return TRUE;
    }
    // What is there is overwritten, whatever other names it has, and what a link leads to.
    OpenedPointer opened;
    const DWORD error = Open(target, GENERIC_WRITE, FILE_SHARE_READ, FILE_NON_DIRECTORY_FILE, opened);
    if (error == ERROR_SUCCESS)
    {
        opened->m_place.node->content = source.node->content;
    }
    return Fail(error);
}

} // namespace Testing
