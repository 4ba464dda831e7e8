#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <aclapi.h>
#include <winioctl.h>
#include <winternl.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{

// The files of a whole machine in memory, on its one drive C:, which is NTFS unless a test says otherwise. Nothing real
// is touched: what a test did not put there is not there. Each call of the program is in the journal, with the full
// path of what it is about; planned failures are Win32 codes. What Windows refuses is refused: rights, sharing,
// deleting what is read-only or not empty. Names are compared without regard to letter case.
class FakeFileSystem
{
public:
    FakeFileSystem();
    FakeFileSystem(Journal& journal, Handles& handles);
    ~FakeFileSystem();
    FakeFileSystem(const FakeFileSystem&) = delete;
    FakeFileSystem& operator=(const FakeFileSystem&) = delete;

    // Makes a folder with all parents, or a file in such a folder, or one more name for a file. Paths are full ones.
    void AddFolder(const std::wstring& path);
    void AddFile(const std::wstring& path, const std::string& content = "content", DWORD attributes = 0);
    void AddHardLink(const std::wstring& path, const std::wstring& file);
    // Makes a folder that is a reparse point, or makes one of a folder; a name surrogate leads to its target.
    void AddReparsePoint(const std::wstring& path, DWORD tag, const std::wstring& target = {});
    // The reparse point is from now on seen in its parent alone: who opens it sees a plain folder.
    void HideReparsePointOfOpened(const std::wstring& path) { At(path).isHidden = true; }
    // Grants these rights alone, and with them FILE_READ_ATTRIBUTES, which is everybody's who may list the parent.
    void Grant(const std::wstring& path, ACCESS_MASK rights) { At(path).rights = rights | FILE_READ_ATTRIBUTES; }
    // Lets it belong to somebody else than this process and the administrators, who may deny them everything; from now
    // on only it is private what the program makes so.
    void GiveAway(const std::wstring& path, ACCESS_MASK rights = FILE_ALL_ACCESS);
    // Whether nobody but the administrators and this process may change it.
    bool IsPrivate(const std::wstring& path) const { return At(path).isPrivate; }
    // Whether this process may do what its rights deny, if it asks for that.
    std::function<bool()> hasBackupPrivileges = [] { return false; };
    // Whether the drive is FAT: it has no owners and access lists, cannot be asked for reparse tags, nor delete at
    // once.
    bool isFat = false;

    // Whether something is there, by that very path: links are not followed.
    bool Has(const std::wstring& path) const { return Look(path, Links::Ignore).node != nullptr; }
    const std::string& ContentOf(const std::wstring& path) const { return At(path).content; }
    // Everything that is there, each with its full path.
    std::vector<std::wstring> All() const;
    // How many handles are open now, to files, folders and searches.
    std::size_t OpenHandles() const { return m_opened.size() + m_searches; }

    // Whether the other process is one that has no rights to what is private.
    bool isStranger = false;

    // What another process does that has every other right: false, and nothing done, where Windows refuses it.
    bool Rename(const std::wstring& from, const std::wstring& to);
    bool Delete(const std::wstring& path);
    bool MakeFolder(const std::wstring& path);
    bool MakeHardLink(const std::wstring& path, const std::wstring& file);
    bool Overwrite(const std::wstring& path, const std::string& content);
    // Makes a junction of an empty folder, and a plain folder of a junction.
    bool SetReparsePoint(const std::wstring& path, const std::wstring& target);
    bool DeleteReparsePoint(const std::wstring& path);

    // Whether a file cannot be deleted.
    std::function<bool(const std::wstring& path)> isInUse = [](const std::wstring&) { return false; };
    // Is told of everything that is written, with the path of the file.
    std::function<void(const std::wstring& path, const std::string& text)> onWrite = [](const std::wstring&,
                                                                                        const std::string&) {};

    // What goes at the next start of the machine.
    const std::vector<std::wstring>& Scheduled() const { return m_scheduled; }
    // What the mount manager was told to forget: "<mount point> of <volume>".
    const std::vector<std::wstring>& Unmounted() const { return m_unmounted; }

private:
    friend class FakeHeldFolders;

    struct Node;
    using NodePointer = std::shared_ptr<Node>;
    struct Entry
    {
        std::wstring name;
        NodePointer node;
    };
    // A file or a folder, whatever its names are.
    struct Node
    {
        DWORD attributes = FILE_ATTRIBUTE_DIRECTORY;
        std::string content{};
        DWORD tag = 0;
        std::wstring target{}; // of a link
        bool isHidden = false;
        bool isDeletePending = false;
        ACCESS_MASK rights = FILE_ALL_ACCESS;
        bool isForeign = false; // owned by somebody else
        bool isPrivate = false;
        std::map<std::wstring, Entry> entries{}; // of a folder, by name in lower case
        std::wstring name{};                     // of a folder, which has no other
        std::weak_ptr<Node> parent{};

        bool IsFolder() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
        bool IsReparsePoint() const { return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }
        bool IsLink() const { return IsReparsePoint() && IsReparseTagNameSurrogate(tag); }
        std::wstring Path() const;
    };
    // Where a path leads: a name in a folder, and what bears it, if anything does.
    struct Place
    {
        DWORD error = ERROR_SUCCESS;
        NodePointer folder{};
        std::wstring name{};
        NodePointer node{};

        std::wstring Path() const;
    };
    // What becomes of a link that a path leads through.
    enum class Links
    {
        Follow,
        Refuse,
        Ignore,
    };
    struct Opened
    {
        Opened(FakeFileSystem& files, const Place& place, ACCESS_MASK access, DWORD share, ULONG options);
        ~Opened();
        Opened(const Opened&) = delete;
        Opened& operator=(const Opened&) = delete;

        FakeFileSystem* m_files;
        Place m_place;
        ACCESS_MASK m_access;
        DWORD m_share;
        ULONG m_options;
        std::size_t m_position = 0; // of reading
        std::wstring m_lastListed{};
        bool m_isListed = false;
    };
    using OpenedPointer = std::shared_ptr<Opened>;
    struct Search
    {
        std::vector<WIN32_FIND_DATAW> found;
        std::size_t next = 0;
    };
    struct MountManager
    {
        DWORD access;
    };

    static std::wstring KeyOf(std::wstring_view name);
    Place Look(std::wstring path, Links links = Links::Follow) const;
    // Whether what another process wants to do is refused for the rights alone.
    bool IsDeniedToOthers(const Node* node) const { return isStranger && node != nullptr && node->isPrivate; }
    static std::size_t CountNames(const Node& folder, const Node& node);
    Place LookIn(NodePointer folder, std::wstring_view path, Links links) const;
    NodePointer Follow(const Node& link) const;
    Node& At(const std::wstring& path) const;
    static void Put(const Place& place, const NodePointer& node);
    static std::vector<WIN32_FIND_DATAW> Listing(const Node& folder);
    static void Collect(const Node& folder, const std::wstring& path, std::vector<std::wstring>& paths);

    static BOOL Fail(DWORD error);
    // The path for the journal.
    static std::wstring Plain(std::wstring path);
    Opened* FindOpened(HANDLE handle);
    DWORD Open(Place place, ACCESS_MASK access, DWORD share, ULONG options, OpenedPointer& opened);
    HANDLE MakeHandle(const OpenedPointer& opened);
    // Why something cannot be deleted now; then deletes it, or lets it go with its last handle.
    DWORD RefuseDeletion(const Place& place) const;
    void Unlink(const Place& place);
    bool IsOpen(const Node& node) const;
    bool HasOpenBelow(const Node& folder) const;
    DWORD DeleteByPath(const std::wstring& path, ULONG options);

    HANDLE Create(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags);
    NTSTATUS OpenRelative(HANDLE& handle, ACCESS_MASK access, const OBJECT_ATTRIBUTES& attributes, ULONG share,
                          ULONG options);
    ULONG ToDosError(NTSTATUS status) const;
    BOOL Write(HANDLE handle, const void* data, DWORD size, DWORD* written);
    BOOL ReadContent(HANDLE handle, void* data, DWORD size, DWORD* read);
    BOOL Describe(HANDLE handle, BY_HANDLE_FILE_INFORMATION& information);
    DWORD FindOwner(HANDLE handle, PSID* owner, PSECURITY_DESCRIPTOR* descriptor);
    BOOL SetAccessList(HANDLE handle, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor);
    // Whether the list grants access to nobody but the administrators and this process, and inherits nothing.
    static bool IsPrivateList(PSECURITY_DESCRIPTOR descriptor);
    BOOL Copy(const std::wstring& from, const std::wstring& to);
    BOOL List(Opened& opened, bool fromStart, void* data, DWORD size) const;
    BOOL Read(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* data, DWORD size);
    BOOL Dispose(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, const void* data, DWORD size);
    BOOL ReadReparsePoint(const Node& node, void* data, DWORD size, DWORD* returned) const;
    BOOL Forget(const MountManager& manager, const void* data, DWORD size);
    BOOL Control(HANDLE handle, DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD* returned);
    HANDLE FindFirst(const std::wstring& pattern, WIN32_FIND_DATAW& data);
    BOOL FindNext(HANDLE handle, WIN32_FIND_DATAW& data);

    struct Own
    {
        Journal journal;
        Handles handles{journal, 0x6A000000};
    };
    std::unique_ptr<Own> m_own;
    Journal& m_journal;
    Handles& m_handles;
    NodePointer m_root = std::make_shared<Node>();
    std::set<Opened*> m_opened;
    std::size_t m_searches = 0;
    std::vector<std::wstring> m_scheduled;
    std::vector<std::wstring> m_unmounted;

    explicit FakeFileSystem(std::unique_ptr<Own> own);

    Fake<&CreateFileW> m_createFile = [this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                                             DWORD disposition, DWORD flags,
                                             HANDLE) { return Create(path, access, share, disposition, flags); };
    Fake<&NtOpenFile> m_openFile = [this](PHANDLE handle, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                          PIO_STATUS_BLOCK, ULONG share, ULONG options) {
        return OpenRelative(*handle, access, *attributes, share, options);
    };
    // Windows' answers: not every Wine knows all of them.
    Fake<&RtlNtStatusToDosError> m_toDosError = [this](NTSTATUS status) { return ToDosError(status); };
    Fake<&WriteFile> m_writeFile = [this](HANDLE handle, LPCVOID data, DWORD size, LPDWORD written,
                                          LPOVERLAPPED overlapped) {
        return m_handles.IsOwn(handle) ? Write(handle, data, size, written)
                                       : m_writeFile.Hidden(handle, data, size, written, overlapped);
    };
    Fake<&CreateDirectoryW> m_createDirectory = [this](LPCWSTR path, LPSECURITY_ATTRIBUTES security) -> BOOL {
        if (const DWORD error = m_journal.Add("CreateDirectoryW", Plain(path).c_str()))
        {
            return Fail(error);
        }
        const Place place = Look(path);
        if (place.error != ERROR_FILE_NOT_FOUND)
        {
            return Fail(place.node ? ERROR_ALREADY_EXISTS : place.error);
        }
        Put(place, std::make_shared<Node>());
        if (security != nullptr && security->lpSecurityDescriptor != nullptr)
        {
            EXPECT_EQ(security->nLength, sizeof(*security));
            At(path).isPrivate = IsPrivateList(security->lpSecurityDescriptor);
        }
        return TRUE;
    };
    Fake<&RemoveDirectoryW> m_removeDirectory = [this](LPCWSTR path) -> BOOL {
        const DWORD error = m_journal.Add("RemoveDirectoryW", Plain(path).c_str());
        return Fail(error != ERROR_SUCCESS ? error : DeleteByPath(path, FILE_DIRECTORY_FILE));
    };
    Fake<&DeleteFileW> m_deleteFile = [this](LPCWSTR path) -> BOOL {
        const DWORD error = m_journal.Add("DeleteFileW", Plain(path).c_str());
        return Fail(error != ERROR_SUCCESS ? error : DeleteByPath(path, FILE_NON_DIRECTORY_FILE));
    };
    Fake<&GetFileAttributesW> m_attributes = [this](LPCWSTR path) -> DWORD {
        const DWORD planned = m_journal.Add("GetFileAttributesW", Plain(path).c_str());
        const Place place = Look(path);
        const DWORD error = planned != ERROR_SUCCESS ? planned : place.error;
        SetLastError(error);
        return error == ERROR_SUCCESS ? place.node->attributes : INVALID_FILE_ATTRIBUTES;
    };
    Fake<&GetFileInformationByHandleEx> m_informationEx = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind,
                                                                 LPVOID data,
                                                                 DWORD size) { return Read(handle, kind, data, size); };
    Fake<&SetFileInformationByHandle> m_setInformation = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind,
                                                                LPVOID data, DWORD size) {
        return Dispose(handle, kind, data, size);
    };
    Fake<&DeviceIoControl> m_control = [this](HANDLE handle, DWORD code, LPVOID in, DWORD inSize, LPVOID out,
                                              DWORD outSize, LPDWORD returned, LPOVERLAPPED overlapped) {
        return m_handles.IsOwn(handle) ? Control(handle, code, in, inSize, out, outSize, returned)
                                       : m_control.Hidden(handle, code, in, inSize, out, outSize, returned, overlapped);
    };
    Fake<&GetFinalPathNameByHandleW> m_finalPath = [this](HANDLE handle, LPWSTR path, DWORD size, DWORD) -> DWORD {
        const Opened* const opened = FindOpened(handle);
        if (opened == nullptr)
        {
            return 0;
        }
        const std::wstring name = L"\\\\?\\" + opened->m_place.Path() + (opened->m_place.node == m_root ? L"\\" : L"");
        if (size <= name.size())
        {
            return static_cast<DWORD>(name.size() + 1);
        }
        path[name.copy(path, name.size())] = L'\0';
        return static_cast<DWORD>(name.size());
    };
    Fake<&GetVolumePathNameW> m_volume = [](LPCWSTR, LPWSTR volume, DWORD size) -> BOOL {
        constexpr std::wstring_view root = L"C:\\";
        if (size <= root.size())
        {
            return Fail(ERROR_FILENAME_EXCED_RANGE);
        }
        volume[root.copy(volume, root.size())] = L'\0';
        return TRUE;
    };
    Fake<&FindFirstFileW> m_findFirst = [this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        return FindFirst(pattern, *data);
    };
    Fake<&FindNextFileW> m_findNext = [this](HANDLE handle, LPWIN32_FIND_DATAW data) {
        return FindNext(handle, *data);
    };
    Fake<&FindClose> m_findClose = [this](HANDLE handle) -> BOOL {
        --m_searches;
        return m_handles.Close(handle, "FindClose");
    };
    Fake<&MoveFileExW> m_move = [this](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL {
        if (to != nullptr || flags != MOVEFILE_DELAY_UNTIL_REBOOT)
        {
            return Fail(ERROR_NOT_SUPPORTED);
        }
        m_scheduled.emplace_back(from);
        return TRUE;
    };
    Fake<&CopyFileExW> m_copy = [this](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE, LPVOID, LPBOOL, DWORD) {
        return Copy(from, to);
    };
    Fake<&ReadFile> m_readFile = [this](HANDLE handle, LPVOID data, DWORD size, LPDWORD read, LPOVERLAPPED overlapped) {
        return m_handles.IsOwn(handle) ? ReadContent(handle, data, size, read)
                                       : m_readFile.Hidden(handle, data, size, read, overlapped);
    };
    Fake<&GetFileInformationByHandle> m_information = [this](HANDLE handle, LPBY_HANDLE_FILE_INFORMATION information) {
        return Describe(handle, *information);
    };
    Fake<&GetVolumeInformationByHandleW> m_volumeInformation = [this](HANDLE handle, LPWSTR, DWORD, LPDWORD, LPDWORD,
                                                                      LPDWORD flags, LPWSTR, DWORD) -> BOOL {
        const DWORD error = m_journal.Add("GetVolumeInformationByHandleW", m_handles.NameOf(handle));
        *flags = isFat ? 0 : FILE_PERSISTENT_ACLS;
        return Fail(FindOpened(handle) == nullptr ? ERROR_INVALID_HANDLE : error);
    };
    Fake<&GetSecurityInfo> m_security = [this](HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION what,
                                               PSID* owner, PSID*, PACL*, PACL*,
                                               PSECURITY_DESCRIPTOR* descriptor) -> DWORD {
        EXPECT_TRUE(type == SE_FILE_OBJECT && what == OWNER_SECURITY_INFORMATION);
        return FindOwner(handle, owner, descriptor);
    };
    Fake<&SetKernelObjectSecurity> m_setSecurity = [this](HANDLE handle, SECURITY_INFORMATION what,
                                                          PSECURITY_DESCRIPTOR descriptor) {
        return SetAccessList(handle, what, descriptor);
    };
};

} // namespace Testing
