#pragma once

#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

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
        // Adds the full paths of everything below this folder.
        void CollectBelow(std::vector<std::wstring>& paths) const;
        // How many names something has below this folder.
        DWORD CountNamesOf(const Node& node) const;
    };
    // Where a path leads: a name in a folder, and what bears it, if anything does.
    struct Place
    {
        DWORD error = ERROR_SUCCESS;
        NodePointer folder{};
        std::wstring name{};
        NodePointer node{};

        std::wstring Path() const;
        void Put(const NodePointer& newNode) const;
        void Unlink() const;
    };
    struct Opened;
    using OpenedPointer = std::shared_ptr<Opened>;
    struct Functions; // of Windows, in whose place these are
    // What becomes of a link that a path leads through.
    enum class Links
    {
        Follow,
        Refuse,
        Ignore,
    };

    Place Look(std::wstring path, Links links = Links::Follow) const;
    Place LookIn(NodePointer folder, std::wstring_view path, Links links) const;
    NodePointer Follow(const Node& link) const;
    Node& At(const std::wstring& path) const;
    // Whether what another process wants to do is refused for the rights alone.
    bool IsDeniedToOthers(const Node* node) const { return isStranger && node != nullptr && node->isPrivate; }
    DWORD Open(Place place, ACCESS_MASK access, DWORD share, ULONG options, OpenedPointer& opened);
    // Why something cannot be deleted now.
    DWORD RefuseDeletion(const Place& place) const;
    bool IsOpen(const Node& node) const;
    bool HasOpenBelow(const Node& folder) const;

    struct Own
    {
        Journal journal;
        Handles handles{journal, 0x6A000000};
    };
    explicit FakeFileSystem(std::unique_ptr<Own> own);

    std::unique_ptr<Own> m_own;
    NodePointer m_root = std::make_shared<Node>();
    std::set<Opened*> m_opened;
    std::vector<std::wstring> m_scheduled;
    std::vector<std::wstring> m_unmounted;
    std::unique_ptr<Functions> m_functions;
};

} // namespace Testing
