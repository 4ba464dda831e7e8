#include "support/unit/FakeFileSystem.h"

#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"
#include "support/unit/FakeFolders.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>
#include <winioctl.h>
#include <winternl.h>

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
    {ERROR_ALREADY_EXISTS, 0xC0000035},
};

NTSTATUS ToStatus(DWORD error)
{
    const auto* const status = std::ranges::find(c_statuses, error, &std::pair<DWORD, ULONG>::first);
    return static_cast<NTSTATUS>(status == std::end(c_statuses) ? 0xC0070000 | error : status->second);
}

constexpr ULONG c_dontReparse = 0x1000; // OBJ_DONT_REPARSE
constexpr DWORD c_shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
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

// A name as it is compared.
std::wstring KeyOf(std::wstring_view name)
{
    std::wstring key(name);
    std::ranges::transform(key, key.begin(), [](wchar_t letter) { return std::towlower(letter); });
    return key;
}

// The path for the journal.
std::wstring Plain(std::wstring path)
{
    if (path.starts_with(L"\\\\?\\") || path.starts_with(L"\\??\\"))
    {
        path.erase(0, 4);
    }
    std::ranges::replace(path, L'/', L'\\');
    path.erase(path.find_last_not_of(L'\\') + 1);
    return path;
}

std::wstring ParentOf(const std::wstring& path)
{
    return path.substr(0, path.rfind(L'\\'));
}

// Whether the list grants access to nobody but the administrators and this process, and inherits nothing.
bool IsPrivateList(PSECURITY_DESCRIPTOR descriptor)
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

// Lets the program import functions: what it does not import cannot be replaced, and it need not call all that is here.
template <class... Names>
void Import(Names... functions)
{
    [[maybe_unused]] const void* const volatile imported[] = {reinterpret_cast<const void*>(functions)...};
}

} // namespace

// Something open. It outlives the file system where a test still has its handle.
struct FakeFileSystem::Opened
{
    Opened(FakeFileSystem& files, const Place& place, ACCESS_MASK access, DWORD share, ULONG options)
        : m_files(&files),
          m_place(place),
          m_access(access),
          m_share(share),
          m_options(options)
    {
        files.m_opened.insert(this);
    }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;
    ~Opened()
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
            m_place.Unlink();
        }
    }

    FakeFileSystem* m_files;
    Place m_place;
    ACCESS_MASK m_access;
    DWORD m_share;
    ULONG m_options;
    std::size_t m_position = 0; // of reading
    std::wstring m_lastListed{};
    bool m_isListed = false;
};

std::wstring FakeFileSystem::Node::Path() const
{
    const NodePointer folder = parent.lock();
    return folder ? folder->Path() + L'\\' + name : name;
}

void FakeFileSystem::Node::CollectBelow(std::vector<std::wstring>& paths) const
{
    for (const Entry& entry : entries | std::views::values)
    {
        paths.push_back(Path() + L'\\' + entry.name);
        entry.node->CollectBelow(paths);
    }
}

DWORD FakeFileSystem::Node::CountNamesOf(const Node& node) const
{
    DWORD count = 0;
    for (const Entry& entry : entries | std::views::values)
    {
        count += (entry.node.get() == &node ? 1U : 0U) + entry.node->CountNamesOf(node);
    }
    return count;
}

std::wstring FakeFileSystem::Place::Path() const
{
    return folder ? folder->Path() + L'\\' + name : node->Path();
}

void FakeFileSystem::Place::Put(const NodePointer& newNode) const
{
    newNode->isPrivate = newNode->isPrivate || folder->isPrivate; // as the access list of a folder is inherited
    if (newNode->IsFolder())
    {
        newNode->name = name;
        newNode->parent = folder;
    }
    folder->entries[KeyOf(name)] = {name, newNode};
}

void FakeFileSystem::Place::Unlink() const
{
    const auto entry = folder->entries.find(KeyOf(name));
    if (entry != folder->entries.end() && entry->second.node == node)
    {
        folder->entries.erase(entry);
    }
    // Nothing can be put into a folder that has no name any more.
    node->isDeletePending = node->IsFolder();
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

void FakeFileSystem::AddFolder(const std::wstring& path)
{
    const std::wstring plain = Plain(path);
    if (Look(plain).folder == nullptr && plain != m_root->name)
    {
        AddFolder(ParentOf(plain));
    }
    if (const Place place = Look(plain); place.node == nullptr)
    {
        place.Put(std::make_shared<Node>());
    }
}

void FakeFileSystem::AddFile(const std::wstring& path, const std::string& content, DWORD attributes)
{
    const std::wstring plain = Plain(path);
    AddFolder(ParentOf(plain));
    Look(plain).Put(
        std::make_shared<Node>(Node{.attributes = FILE_ATTRIBUTE_ARCHIVE | attributes, .content = content}));
}

void FakeFileSystem::AddHardLink(const std::wstring& path, const std::wstring& file)
{
    AddFolder(ParentOf(path));
    Look(path).Put(Look(file).node);
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
    m_root->CollectBelow(paths);
    return paths;
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
        Open(place, FILE_WRITE_DATA, c_shareAll, FILE_NON_DIRECTORY_FILE, opened) != ERROR_SUCCESS)
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
    // Who renames it opens it for deletion. A folder stays where it is while anything below it is open.
    OpenedPointer renaming;
    if (source.node == nullptr || target.folder == nullptr || target.node || HasOpenBelow(*source.node) ||
        IsDeniedToOthers(source.node.get()) || IsDeniedToOthers(target.folder.get()) ||
        Open(source, DELETE, c_shareAll, FILE_OPEN_REPARSE_POINT, renaming) != ERROR_SUCCESS)
    {
        return false;
    }
    source.folder->entries.erase(KeyOf(source.name));
    target.Put(source.node);
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
        Open(place, DELETE, c_shareAll, FILE_OPEN_REPARSE_POINT, opened) != ERROR_SUCCESS ||
        RefuseDeletion(place) != ERROR_SUCCESS)
    {
        return false;
    }
    place.Unlink();
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

DWORD FakeFileSystem::RefuseDeletion(const Place& place) const
{
    if ((place.node->attributes & FILE_ATTRIBUTE_READONLY) != 0 || place.folder == nullptr || isInUse(place.Path()))
    {
        return ERROR_ACCESS_DENIED;
    }
    return place.node->entries.empty() ? ERROR_SUCCESS : ERROR_DIR_NOT_EMPTY;
}

struct FakeFileSystem::Functions
{
    FakeFileSystem& files;
    Journal& journal;
    Handles& handles;

    struct Search
    {
        std::vector<WIN32_FIND_DATAW> found;
        std::size_t next = 0;
    };
    struct MountManager
    {
        DWORD access;
    };

    // What is open, or null with the last error.
    Opened* Find(HANDLE handle) const
    {
        auto* const opened = handles.Find<OpenedPointer>(handle);
        return opened == nullptr ? nullptr : opened->get();
    }

    // The same, and notes the call of a function for it, which may be planned to fail.
    template <class... Arguments>
    Opened* Called(const char* function, HANDLE handle, const Arguments&... arguments) const
    {
        const DWORD error = journal.Add(function, handles.NameOf(handle), arguments...);
        return Succeeds(error) ? Find(handle) : nullptr;
    }

    HANDLE MakeHandle(const OpenedPointer& opened) const
    {
        return handles.Make(Narrow(opened->m_place.Path()), opened);
    }

    BOOL DeleteByPath(const char* function, const wchar_t* path, ULONG options) const
    {
        OpenedPointer opened;
        DWORD error = journal.Add(function, Plain(path).c_str());
        error = error != ERROR_SUCCESS
                    ? error
                    : files.Open(files.Look(path), DELETE, c_shareAll, options | FILE_OPEN_REPARSE_POINT, opened);
        error = error != ERROR_SUCCESS ? error : files.RefuseDeletion(opened->m_place);
        if (error == ERROR_SUCCESS)
        {
            opened->m_place.Unlink();
        }
        return Succeeds(error);
    }

    // Opens what has a name in an open folder, or creates it there, as the disposition says.
    NTSTATUS OpenIn(const char* function, HANDLE& handle, ACCESS_MASK access, const OBJECT_ATTRIBUTES& attributes,
                    ULONG share, ULONG disposition, ULONG options) const
    {
        const std::wstring name(attributes.ObjectName->Buffer, attributes.ObjectName->Length / sizeof(wchar_t));
        if (const DWORD error = journal.Add(function, handles.NameOf(attributes.RootDirectory), name.c_str()))
        {
            return ToStatus(error);
        }
        const Opened* const folder = Find(attributes.RootDirectory);
        constexpr ULONG kinds = FILE_DIRECTORY_FILE | FILE_NON_DIRECTORY_FILE;
        constexpr ULONG knownAttributes = OBJ_VALID_ATTRIBUTES | c_dontReparse;
        if (folder == nullptr || attributes.Length != sizeof(attributes) ||
            (attributes.Attributes & ~knownAttributes) != 0 || (options & kinds) == kinds || name.empty() ||
            name.find_first_of(L"\\/") != std::wstring::npos ||
            (disposition != FILE_OPEN && disposition != FILE_CREATE && disposition != FILE_OPEN_IF) ||
            ((options & FILE_SYNCHRONOUS_IO_NONALERT) != 0 && (access & SYNCHRONIZE) == 0))
        {
            return ToStatus(folder == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
        }
        // A link that is opened itself still leads those away who open something relative to it.
        const bool isStrict = (attributes.Attributes & c_dontReparse) != 0;
        OpenedPointer opened;
        const DWORD error =
            OpenOrCreate(files.LookIn(folder->m_place.node, name, isStrict ? Links::Refuse : Links::Follow), access,
                         share, disposition, options, opened);
        handle = error == ERROR_SUCCESS ? MakeHandle(opened) : nullptr;
        return ToStatus(error);
    }

    DWORD OpenOrCreate(Place place, ACCESS_MASK access, ULONG share, ULONG disposition, ULONG options,
                       OpenedPointer& opened) const
    {
        if (place.node && place.node->IsLink() && (options & FILE_OPEN_REPARSE_POINT) == 0)
        {
            place = files.Look(place.node->target); // which is created if it is not there
        }
        if (place.node && disposition == FILE_CREATE)
        {
            return ERROR_ALREADY_EXISTS;
        }
        if (place.error == ERROR_FILE_NOT_FOUND && disposition != FILE_OPEN)
        {
            if (place.folder->isDeletePending)
            {
                return ERROR_ACCESS_DENIED;
            }
            const bool isFolder = (options & FILE_DIRECTORY_FILE) != 0;
            place.node = std::make_shared<Node>();
            place.node->attributes = isFolder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
            place.error = ERROR_SUCCESS;
            place.Put(place.node);
        }
        return files.Open(place, access, share, options, opened);
    }

    // What the flags of CreateFileW and ReOpenFile are to NtCreateFile.
    static ULONG ToOptions(DWORD flags)
    {
        const bool isForFolders = (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0;
        return (isForFolders ? ULONG{FILE_OPEN_FOR_BACKUP_INTENT} : ULONG{FILE_NON_DIRECTORY_FILE}) |
               FILE_SYNCHRONOUS_IO_NONALERT |
               ((flags & FILE_FLAG_OPEN_REPARSE_POINT) != 0 ? FILE_OPEN_REPARSE_POINT : 0U) |
               ((flags & FILE_FLAG_DELETE_ON_CLOSE) != 0 ? FILE_DELETE_ON_CLOSE : 0U);
    }

    BOOL List(Opened& opened, bool fromStart, void* data, DWORD size) const
    {
        if ((opened.m_access & FILE_LIST_DIRECTORY) == 0 || !opened.m_place.node->IsFolder())
        {
            return Succeeds(opened.m_place.node->IsFolder() ? ERROR_ACCESS_DENIED : ERROR_INVALID_PARAMETER);
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
            return Succeeds(ERROR_NO_MORE_FILES);
        }
        last->NextEntryOffset = 0;
        return TRUE;
    }

    static BOOL ReadReparsePoint(const Node& node, void* data, DWORD size, DWORD* returned)
    {
        const std::size_t nameBytes = node.target.size() * sizeof(wchar_t);
        const std::size_t total = sizeof(MountPoint) + nameBytes + 2 * sizeof(wchar_t);
        if (!node.IsReparsePoint() || total > size)
        {
            return Succeeds(node.IsReparsePoint() ? ERROR_MORE_DATA : ERROR_NOT_A_REPARSE_POINT);
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

    BOOL Forget(const MountManager& manager, const void* data, DWORD size) const
    {
        DeletedMountPoint request{};
        if ((manager.access & (GENERIC_READ | GENERIC_WRITE)) != (GENERIC_READ | GENERIC_WRITE))
        {
            return Succeeds(ERROR_ACCESS_DENIED);
        }
        std::memcpy(&request, data, std::min<std::size_t>(size, sizeof(request)));
        if (size < sizeof(request) || request.nameOffset + request.nameLength > size ||
            request.volumeOffset + request.volumeLength > size)
        {
            return Succeeds(ERROR_INVALID_PARAMETER);
        }
        const auto text = [&](WORD offset, WORD length) {
            std::wstring name(length / sizeof(wchar_t), L'\0');
            std::memcpy(name.data(), static_cast<const BYTE*>(data) + offset, length);
            return name;
        };
        const std::wstring mountPoint = text(request.nameOffset, request.nameLength);
        if (!mountPoint.starts_with(L"\\??\\") || files.Has(mountPoint))
        {
            return Succeeds(ERROR_INVALID_PARAMETER);
        }
        files.m_unmounted.push_back(Plain(mountPoint) + L" of " + text(request.volumeOffset, request.volumeLength));
        return TRUE;
    }

    Fake<&CreateFileW> createFile = [this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                                           DWORD disposition, DWORD flags, HANDLE) -> HANDLE {
        if (!Succeeds(journal.Add("CreateFileW", Plain(path).c_str())))
        {
            return INVALID_HANDLE_VALUE;
        }
        if (std::wstring_view(path) == L"\\\\.\\MountPointManager")
        {
            return handles.Make("mount manager", MountManager{access});
        }
        const bool wasThere = files.Look(path).node != nullptr;
        if (!wasThere && disposition != OPEN_EXISTING && files.Look(path).folder)
        {
            files.AddFile(path, {});
        }
        OpenedPointer opened;
        const DWORD error = wasThere && disposition == CREATE_NEW
                                ? ERROR_FILE_EXISTS
                                : files.Open(files.Look(path), access | SYNCHRONIZE | FILE_READ_ATTRIBUTES, share,
                                             ToOptions(flags), opened);
        SetLastError(error == ERROR_SUCCESS && wasThere && disposition == OPEN_ALWAYS ? ERROR_ALREADY_EXISTS : error);
        return error == ERROR_SUCCESS ? MakeHandle(opened) : INVALID_HANDLE_VALUE;
    };
    Fake<&NtOpenFile> ntOpenFile = [this](PHANDLE handle, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                          PIO_STATUS_BLOCK, ULONG share, ULONG options) {
        return OpenIn("NtOpenFile", *handle, access, *attributes, share, FILE_OPEN, options);
    };
    Fake<&NtCreateFile> ntCreateFile = [this](PHANDLE handle, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                              PIO_STATUS_BLOCK, PLARGE_INTEGER, ULONG, ULONG share, ULONG disposition,
                                              ULONG options, PVOID, ULONG) {
        return OpenIn("NtCreateFile", *handle, access, *attributes, share, disposition, options);
    };
    Fake<&ReOpenFile> reOpenFile = [this](HANDLE handle, DWORD access, DWORD share, DWORD flags) -> HANDLE {
        const Opened* const original = Called("ReOpenFile", handle, Mask(access));
        OpenedPointer opened;
        return original != nullptr &&
                       Succeeds(files.Open(original->m_place, access | SYNCHRONIZE | FILE_READ_ATTRIBUTES, share,
                                           ToOptions(flags), opened))
                   ? MakeHandle(opened)
                   : INVALID_HANDLE_VALUE;
    };
    Fake<&DuplicateHandle> duplicateHandle = [this](HANDLE process, HANDLE handle, HANDLE target, LPHANDLE duplicate,
                                                    DWORD access, BOOL isInherited, DWORD options) -> BOOL {
        if (!handles.IsOwn(handle))
        {
            return duplicateHandle.Hidden(process, handle, target, duplicate, access, isInherited, options);
        }
        if (Called("DuplicateHandle", handle) == nullptr)
        {
            return FALSE;
        }
        *duplicate = MakeHandle(*handles.Find<OpenedPointer>(handle));
        return TRUE;
    };
    // Windows' answers: not every Wine knows all of them.
    Fake<&RtlNtStatusToDosError> toDosError = [this](NTSTATUS status) -> ULONG {
        const auto* const known =
            std::ranges::find(c_statuses, static_cast<ULONG>(status), &std::pair<DWORD, ULONG>::second);
        return known == std::end(c_statuses) ? toDosError.Hidden(status) : known->first;
    };
    Fake<&WriteFile> writeFile = [this](HANDLE handle, LPCVOID data, DWORD size, LPDWORD written,
                                        LPOVERLAPPED overlapped) -> BOOL {
        if (!handles.IsOwn(handle))
        {
            return writeFile.Hidden(handle, data, size, written, overlapped);
        }
        const Opened* const opened = Find(handle);
        if (opened == nullptr)
        {
            return FALSE;
        }
        const std::string text(static_cast<const char*>(data), size);
        opened->m_place.node->content += text;
        *written = size;
        files.onWrite(opened->m_place.Path(), text);
        return TRUE;
    };
    Fake<&ReadFile> readFile = [this](HANDLE handle, LPVOID data, DWORD size, LPDWORD read,
                                      LPOVERLAPPED overlapped) -> BOOL {
        if (!handles.IsOwn(handle))
        {
            return readFile.Hidden(handle, data, size, read, overlapped);
        }
        Opened* const opened = Called("ReadFile", handle);
        if (opened == nullptr || (opened->m_access & FILE_READ_DATA) == 0)
        {
            return opened != nullptr && Succeeds(ERROR_ACCESS_DENIED);
        }
        *read =
            static_cast<DWORD>(opened->m_place.node->content.copy(static_cast<char*>(data), size, opened->m_position));
        opened->m_position += *read;
        return TRUE;
    };
    Fake<&CopyFileExW> copyFile = [this](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE, LPVOID, LPBOOL, DWORD) -> BOOL {
        const Place source = files.Look(from);
        const Place target = files.Look(to);
        if (source.node == nullptr || target.folder == nullptr)
        {
            return Succeeds(source.node == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
        }
        if (target.node == nullptr)
        {
            files.AddFile(to, source.node->content);
            return TRUE;
        }
        // What is there is overwritten, whatever other names it has, and what a link leads to.
        OpenedPointer opened;
        const DWORD error = files.Open(target, GENERIC_WRITE, FILE_SHARE_READ, FILE_NON_DIRECTORY_FILE, opened);
        if (error == ERROR_SUCCESS)
        {
            opened->m_place.node->content = source.node->content;
        }
        return Succeeds(error);
    };
    Fake<&MoveFileExW> moveFile = [this](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL {
        if (to != nullptr || flags != MOVEFILE_DELAY_UNTIL_REBOOT)
        {
            return Succeeds(ERROR_NOT_SUPPORTED);
        }
        files.m_scheduled.emplace_back(from);
        return TRUE;
    };
    Fake<&DeleteFileW> deleteFile = [this](LPCWSTR path) {
        return DeleteByPath("DeleteFileW", path, FILE_NON_DIRECTORY_FILE);
    };
    Fake<&RemoveDirectoryW> removeDirectory = [this](LPCWSTR path) {
        return DeleteByPath("RemoveDirectoryW", path, FILE_DIRECTORY_FILE);
    };
    Fake<&CreateDirectoryW> createDirectory = [this](LPCWSTR path, LPSECURITY_ATTRIBUTES security) -> BOOL {
        if (!Succeeds(journal.Add("CreateDirectoryW", Plain(path).c_str())))
        {
            return FALSE;
        }
        const Place place = files.Look(path);
        if (place.error != ERROR_FILE_NOT_FOUND)
        {
            return Succeeds(place.node ? ERROR_ALREADY_EXISTS : place.error);
        }
        place.Put(std::make_shared<Node>());
        if (security != nullptr && security->lpSecurityDescriptor != nullptr)
        {
            EXPECT_EQ(security->nLength, sizeof(*security));
            files.At(path).isPrivate = IsPrivateList(security->lpSecurityDescriptor);
        }
        return TRUE;
    };
    Fake<&GetFileAttributesW> getAttributes = [this](LPCWSTR path) -> DWORD {
        const DWORD planned = journal.Add("GetFileAttributesW", Plain(path).c_str());
        const Place place = files.Look(path);
        return Succeeds(planned != ERROR_SUCCESS ? planned : place.error) ? place.node->attributes
                                                                          : INVALID_FILE_ATTRIBUTES;
    };
    Fake<&GetFileInformationByHandle> getInformation = [this](HANDLE handle,
                                                              LPBY_HANDLE_FILE_INFORMATION information) -> BOOL {
        const Opened* const opened = Called("GetFileInformationByHandle", handle);
        if (opened == nullptr)
        {
            return FALSE;
        }
        const Node& node = *opened->m_place.node;
        *information = {};
        information->dwFileAttributes = node.attributes;
        information->nNumberOfLinks = files.m_root->CountNamesOf(node);
        information->nFileSizeLow = static_cast<DWORD>(node.content.size());
        return TRUE;
    };
    Fake<&GetFileInformationByHandleEx> getInformationEx = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind,
                                                                  LPVOID data, DWORD size) -> BOOL {
        Opened* const opened = Called("GetFileInformationByHandleEx", handle, static_cast<int>(kind));
        if (opened == nullptr)
        {
            return FALSE;
        }
        if (kind == FileFullDirectoryInfo || kind == FileFullDirectoryRestartInfo)
        {
            return List(*opened, kind == FileFullDirectoryRestartInfo, data, size);
        }
        if ((opened->m_access & FILE_READ_ATTRIBUTES) == 0)
        {
            return Succeeds(ERROR_ACCESS_DENIED);
        }
        const Node& node = *opened->m_place.node;
        const bool isSeen = node.IsReparsePoint() && !node.isHidden;
        const DWORD attributes = isSeen ? node.attributes : node.attributes & ~DWORD{FILE_ATTRIBUTE_REPARSE_POINT};
        if (kind == FileAttributeTagInfo && !files.isFat)
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
        return Succeeds(ERROR_INVALID_PARAMETER);
    };
    Fake<&SetFileInformationByHandle> setInformation = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind,
                                                              LPVOID data, DWORD size) -> BOOL {
        const Opened* const opened = Called("SetFileInformationByHandle", handle, static_cast<int>(kind));
        if (opened == nullptr)
        {
            return FALSE;
        }
        const bool isExtended = kind == FileDispositionInfoEx;
        if (!isExtended && kind != FileDispositionInfo)
        {
            return Succeeds(ERROR_INVALID_PARAMETER);
        }
        if (size != (isExtended ? sizeof(ULONG) : sizeof(FILE_DISPOSITION_INFO)))
        {
            return Succeeds(ERROR_BAD_LENGTH);
        }
        ULONG flags = 0;
        std::memcpy(&flags, data, size); // the shorter one is a BOOLEAN, and FILE_DISPOSITION_FLAG_DELETE is 1
        constexpr ULONG known = FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS;
        if ((files.isFat && isExtended) || (flags & ~known) != 0)
        {
            return Succeeds(ERROR_INVALID_PARAMETER);
        }
        const bool isToGo = (flags & FILE_DISPOSITION_FLAG_DELETE) != 0;
        DWORD error = (opened->m_access & DELETE) == 0 ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
        error = error == ERROR_SUCCESS && isToGo ? files.RefuseDeletion(opened->m_place) : error;
        if (error != ERROR_SUCCESS)
        {
            return Succeeds(error);
        }
        if (isToGo && (flags & FILE_DISPOSITION_FLAG_POSIX_SEMANTICS) != 0)
        {
            opened->m_place.Unlink();
        }
        else
        {
            opened->m_place.node->isDeletePending = isToGo;
        }
        return TRUE;
    };
    Fake<&DeviceIoControl> control = [this](HANDLE handle, DWORD code, LPVOID in, DWORD inSize, LPVOID out,
                                            DWORD outSize, LPDWORD returned, LPOVERLAPPED overlapped) -> BOOL {
        if (!handles.IsOwn(handle))
        {
            return control.Hidden(handle, code, in, inSize, out, outSize, returned, overlapped);
        }
        if (!Succeeds(journal.Add("DeviceIoControl", handles.NameOf(handle))))
        {
            return FALSE;
        }
        constexpr DWORD deleted = CTL_CODE('m', 7, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);
        if (const auto* const manager = handles.Find<MountManager>(handle); manager != nullptr && code == deleted)
        {
            return Forget(*manager, in, inSize);
        }
        const Opened* const opened = Find(handle);
        if (opened == nullptr || code != FSCTL_GET_REPARSE_POINT)
        {
            return opened != nullptr && Succeeds(ERROR_INVALID_FUNCTION);
        }
        return ReadReparsePoint(*opened->m_place.node, out, outSize, returned);
    };
    Fake<&GetFinalPathNameByHandleW> getFinalPath = [this](HANDLE handle, LPWSTR path, DWORD size, DWORD) -> DWORD {
        const Opened* const opened = Find(handle);
        if (opened == nullptr)
        {
            return 0;
        }
        const bool isRoot = opened->m_place.node == files.m_root;
        return GivePath(L"\\\\?\\" + opened->m_place.Path() + (isRoot ? L"\\" : L""), size, path);
    };
    Fake<&GetVolumePathNameW> getVolumePath = [](LPCWSTR, LPWSTR volume, DWORD size) -> BOOL {
        return GivePath(L"C:\\", size, volume) < size || Succeeds(ERROR_FILENAME_EXCED_RANGE);
    };
    Fake<&GetVolumeInformationByHandleW> getVolumeInformation = [this](HANDLE handle, LPWSTR, DWORD, LPDWORD, LPDWORD,
                                                                       LPDWORD flags, LPWSTR, DWORD) -> BOOL {
        *flags = files.isFat ? 0 : FILE_PERSISTENT_ACLS;
        return Called("GetVolumeInformationByHandleW", handle) != nullptr;
    };
    Fake<&FindFirstFileW> findFirst = [this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) -> HANDLE {
        const Place place = files.Look(pattern);
        const DWORD planned = journal.Add("FindFirstFileW", Plain(pattern).c_str());
        Search search;
        const auto add = [&](const std::wstring& name, const Node& node) {
            if (planned == ERROR_SUCCESS && (place.name == L"*" || KeyOf(place.name) == KeyOf(name)))
            {
                WIN32_FIND_DATAW& found = search.found.emplace_back();
                found.dwFileAttributes = node.attributes;
                found.dwReserved0 = node.IsReparsePoint() ? node.tag : 0;
                name.copy(found.cFileName, std::size(found.cFileName) - 1);
            }
        };
        if (place.folder)
        {
            add(L".", *place.folder);
            add(L"..", *place.folder);
            for (const Entry& entry : place.folder->entries | std::views::values)
            {
                add(entry.name, *entry.node);
            }
        }
        if (search.found.empty())
        {
            SetLastError(planned != ERROR_SUCCESS ? planned : place.error);
            return INVALID_HANDLE_VALUE;
        }
        *data = search.found[search.next++];
        return handles.Make("search", std::move(search), "FindClose");
    };
    Fake<&FindNextFileW> findNext = [this](HANDLE handle, LPWIN32_FIND_DATAW data) -> BOOL {
        auto* const search = handles.Find<Search>(handle);
        if (search == nullptr || search->next == search->found.size())
        {
            return search != nullptr && Succeeds(ERROR_NO_MORE_FILES);
        }
        *data = search->found[search->next++];
        return TRUE;
    };
    Fake<&FindClose> findClose = [this](HANDLE handle) -> BOOL { return handles.Close(handle, "FindClose"); };
    Fake<&GetSecurityInfo> getSecurity = [this](HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION what,
                                                PSID* owner, PSID*, PACL*, PACL*,
                                                PSECURITY_DESCRIPTOR* descriptor) -> DWORD {
        EXPECT_TRUE(type == SE_FILE_OBJECT && what == OWNER_SECURITY_INFORMATION);
        const Opened* const opened = Called("GetSecurityInfo", handle);
        if (opened == nullptr || (opened->m_access & READ_CONTROL) == 0)
        {
            return opened == nullptr ? GetLastError() : ERROR_ACCESS_DENIED;
        }
        // Some user of the machine; or the administrators.
        const wchar_t* const text = opened->m_place.node->isForeign ? L"O:S-1-5-21-1-2-3-1001" : L"O:BA";
        BOOL isDefault = FALSE;
        EXPECT_TRUE(Fake<&ConvertStringSecurityDescriptorToSecurityDescriptorW>::Real(text, SDDL_REVISION_1, descriptor,
                                                                                      nullptr) &&
                    GetSecurityDescriptorOwner(*descriptor, owner, &isDefault));
        return ERROR_SUCCESS;
    };
    Fake<&SetKernelObjectSecurity> setSecurity = [this](HANDLE handle, SECURITY_INFORMATION what,
                                                        PSECURITY_DESCRIPTOR descriptor) -> BOOL {
        EXPECT_EQ(what, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION);
        const Opened* const opened = Called("SetKernelObjectSecurity", handle);
        if (opened == nullptr || (opened->m_access & WRITE_DAC) == 0)
        {
            return opened != nullptr && Succeeds(ERROR_ACCESS_DENIED);
        }
        opened->m_place.node->isPrivate = IsPrivateList(descriptor);
        return TRUE;
    };
};

FakeFileSystem::FakeFileSystem() : FakeFileSystem(std::make_unique<Own>()) {}

FakeFileSystem::FakeFileSystem(std::unique_ptr<Own> own) : FakeFileSystem(own->journal, own->handles)
{
    m_own = std::move(own);
}

FakeFileSystem::FakeFileSystem(Journal& journal, Handles& handles)
{
    m_root->name = L"C:";
    Import(&CopyFileExW, &DeviceIoControl, &DuplicateHandle, &GetFinalPathNameByHandleW, &GetSecurityInfo,
           &GetVolumeInformationByHandleW, &GetVolumePathNameW, &MoveFileExW, &NtCreateFile, &NtOpenFile, &ReOpenFile,
           &RtlNtStatusToDosError, &SetKernelObjectSecurity);
    m_functions.reset(new Functions{*this, journal, handles});
}

FakeFileSystem::~FakeFileSystem()
{
    for (Opened* const opened : m_opened)
    {
        opened->m_files = nullptr;
    }
}

} // namespace Testing
