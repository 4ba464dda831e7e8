#pragma once

#include "support/ImportTableFake.h"

#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace Testing
{

// While this lives, the directories that a test names are what Windows knows and Wine does not: reparse points, places
// that grant few rights, a drive formatted as FAT. All else about them is left to the system. Paths are full ones, with
// or without "\\?\".
class DirectoriesAsOnWindows
{
public:
    // Makes a reparse point of an existing directory, with the target that its data names if it is a mount point.
    void MakeReparsePoint(const std::wstring& path, DWORD tag, const std::wstring& target = {})
    {
        Node& node = m_nodes[path];
        node.isReparsePoint = true;
        node.tag = tag;
        node.target = target;
    }

    // Grants these rights alone, and with them FILE_READ_ATTRIBUTES, which is everybody's who may list the parent.
    void Grant(const std::wstring& path, ACCESS_MASK rights) { m_nodes[path].rights = rights | FILE_READ_ATTRIBUTES; }

    // A directory whose reparse point is seen in its parent alone, so that who opens it sees a plain one.
    void HideReparsePointOfOpened(const std::wstring& path) { m_nodes[path].isHidden = true; }

    // Whether the file system is FAT32 or exFAT.
    bool isFat = false;

    // The directories that were listed, and the mount points that RemoveDirectoryW has taken from their volumes.
    const std::vector<std::wstring>& Listed() const { return m_listed; }
    const std::vector<std::wstring>& Unmounted() const { return m_unmounted; }

private:
    struct Node
    {
        bool isReparsePoint = false;
        bool isHidden = false;
        DWORD tag = 0;
        std::wstring target;
        ACCESS_MASK rights = FILE_ALL_ACCESS;
    };
    struct Opened
    {
        std::wstring path;
        ACCESS_MASK access;
        DWORD share;
    };
    // The data of a mount point, before its names.
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

    // The tag of what is no reparse point may be anything.
    static constexpr DWORD c_meaningless = 0x90000042;

    static std::wstring Plain(const std::wstring& path) { return path.starts_with(L"\\\\?\\") ? path.substr(4) : path; }

    static BOOL Fail(DWORD error)
    {
        SetLastError(error);
        return FALSE;
    }

    const Node& NodeOf(const std::wstring& path) const
    {
        static const Node s_plain;
        const auto node = m_nodes.find(Plain(path));
        return node == m_nodes.end() ? s_plain : node->second;
    }

    // What is asked for when a file is opened: every handle can be waited for and asked for attributes.
    static ACCESS_MASK RightsIn(DWORD access)
    {
        GENERIC_MAPPING mapping{.GenericRead = FILE_GENERIC_READ,
                                .GenericWrite = FILE_GENERIC_WRITE,
                                .GenericExecute = FILE_GENERIC_EXECUTE,
                                .GenericAll = FILE_ALL_ACCESS};
        ACCESS_MASK rights = access | SYNCHRONIZE | FILE_READ_ATTRIBUTES;
        MapGenericMask(&rights, &mapping);
        return rights;
    }

    // Why a directory cannot be opened like that; 0 when its rights and its reparse point do not keep it from being.
    DWORD Refusal(const wchar_t* path, DWORD access, DWORD flags) const
    {
        const Node& node = NodeOf(path);
        if ((RightsIn(access) & ~node.rights) != 0)
        {
            return ERROR_ACCESS_DENIED;
        }
        // No driver is there that would take the tag for its own.
        return node.isReparsePoint && (flags & FILE_FLAG_OPEN_REPARSE_POINT) == 0 ? ERROR_CANT_ACCESS_FILE : 0;
    }

    BOOL Inform(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* answer, DWORD size)
    {
        const auto opened = m_opened.find(handle);
        const bool isListing = kind == FileFullDirectoryInfo || kind == FileFullDirectoryRestartInfo;
        if (opened == m_opened.end())
        {
            return m_inform.Hidden(handle, kind, answer, size);
        }
        if (kind == FileAttributeTagInfo && isFat)
        {
            return Fail(ERROR_INVALID_PARAMETER);
        }
        if (isListing && (opened->second.access & FILE_LIST_DIRECTORY) == 0)
        {
            return Fail(ERROR_ACCESS_DENIED);
        }
        if (kind == FileFullDirectoryRestartInfo)
        {
            m_listed.push_back(opened->second.path);
        }
        if (!m_inform.Hidden(handle, kind, answer, size))
        {
            return FALSE;
        }
        const Node& node = NodeOf(opened->second.path);
        if (isListing)
        {
            TellReparsePoints(opened->second.path, static_cast<std::byte*>(answer));
        }
        else if (kind == FileAttributeTagInfo)
        {
            auto& info = *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(answer);
            const bool isSeen = node.isReparsePoint && !node.isHidden;
            info.FileAttributes |= isSeen ? FILE_ATTRIBUTE_REPARSE_POINT : 0;
            info.ReparseTag = isSeen ? node.tag : c_meaningless;
        }
        else if (node.isReparsePoint && !node.isHidden && kind == FileBasicInfo)
        {
            static_cast<FILE_BASIC_INFO*>(answer)->FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        }
        return TRUE;
    }

    // In a listing a reparse point has its tag in the place of the size of its extended attributes.
    void TellReparsePoints(const std::wstring& path, std::byte* entry) const
    {
        for (;;)
        {
            auto& info = *static_cast<FILE_FULL_DIR_INFO*>(static_cast<void*>(entry));
            const std::wstring name(info.FileName, info.FileNameLength / sizeof(wchar_t));
            const Node& node = NodeOf(path + L"\\" + name);
            if (node.isReparsePoint)
            {
                info.FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
                info.EaSize = node.tag;
            }
            if (info.NextEntryOffset == 0)
            {
                return;
            }
            entry += info.NextEntryOffset;
        }
    }

    BOOL Change(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* change, DWORD size)
    {
        const auto opened = m_opened.find(handle);
        if (opened != m_opened.end() && (opened->second.access & DELETE) == 0)
        {
            return Fail(ERROR_ACCESS_DENIED);
        }
        if (opened != m_opened.end() && isFat && kind != FileDispositionInfo)
        {
            return Fail(ERROR_INVALID_PARAMETER);
        }
        return m_change.Hidden(handle, kind, change, size);
    }

    BOOL ReadReparsePoint(HANDLE handle, void* answer, DWORD size, DWORD* returned) const
    {
        const auto opened = m_opened.find(handle);
        if (opened == m_opened.end() || !NodeOf(opened->second.path).isReparsePoint)
        {
            return Fail(ERROR_NOT_A_REPARSE_POINT);
        }
        const Node& node = NodeOf(opened->second.path);
        const size_t nameBytes = node.target.size() * sizeof(wchar_t);
        const size_t total = sizeof(MountPoint) + nameBytes + 2 * sizeof(wchar_t);
        if (total > size)
        {
            return Fail(ERROR_MORE_DATA);
        }
        MountPoint data{};
        data.tag = node.tag;
        data.dataLength = static_cast<WORD>(total - offsetof(MountPoint, substituteNameOffset));
        // The name that is shown comes first here: nothing says that it must not.
        data.substituteNameOffset = sizeof(wchar_t);
        data.substituteNameLength = static_cast<WORD>(nameBytes);
        std::memset(answer, 0, total);
        std::memcpy(answer, &data, sizeof(data));
        std::memcpy(static_cast<std::byte*>(answer) + sizeof(data) + data.substituteNameOffset, node.target.data(),
                    nameBytes);
        *returned = static_cast<DWORD>(total);
        return TRUE;
    }

    // Removes an empty directory or a link, whichever is there: it opens the name itself, with DELETE.
    BOOL Remove(const wchar_t* path)
    {
        const std::wstring name = Plain(path);
        if ((RightsIn(DELETE) & ~NodeOf(name).rights) != 0)
        {
            return Fail(ERROR_ACCESS_DENIED);
        }
        const bool isHeld = std::ranges::any_of(m_opened, [&](const auto& opened) {
            return opened.second.path == name && (opened.second.share & FILE_SHARE_DELETE) == 0;
        });
        if (isHeld)
        {
            return Fail(ERROR_SHARING_VIOLATION);
        }
        if (!m_remove.Hidden(path))
        {
            return FALSE;
        }
        if (NodeOf(name).target.starts_with(L"\\??\\Volume{"))
        {
            m_unmounted.push_back(name);
        }
        return TRUE;
    }

    std::map<std::wstring, Node> m_nodes;
    std::map<HANDLE, Opened> m_opened;
    std::vector<std::wstring> m_listed;
    std::vector<std::wstring> m_unmounted;

    Fake<&CloseHandle> m_close = [this](HANDLE handle) {
        m_opened.erase(handle);
        return m_close.Hidden(handle);
    };
    Fake<&CreateFileW> m_create = [this](const wchar_t* path, DWORD access, DWORD share,
                                         SECURITY_ATTRIBUTES* attributes, DWORD creation, DWORD flags,
                                         HANDLE templateFile) {
        const DWORD refusal = Refusal(path, access, flags);
        if (refusal != 0)
        {
            Fail(refusal);
            return INVALID_HANDLE_VALUE;
        }
        const HANDLE handle = m_create.Hidden(path, access, share, attributes, creation, flags, templateFile);
        if (handle != INVALID_HANDLE_VALUE)
        {
            m_opened[handle] = {.path = Plain(path), .access = RightsIn(access), .share = share};
        }
        return handle;
    };
    Fake<&GetFileAttributesW> m_attributes = [this](const wchar_t* path) -> DWORD {
        const DWORD attributes = m_attributes.Hidden(path);
        return NodeOf(path).isReparsePoint ? attributes | FILE_ATTRIBUTE_REPARSE_POINT : attributes;
    };
    Fake<&GetFileInformationByHandleEx> m_inform = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* answer,
                                                          DWORD size) { return Inform(handle, kind, answer, size); };
    Fake<&SetFileInformationByHandle> m_change = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* change,
                                                        DWORD size) { return Change(handle, kind, change, size); };
    Fake<&DeviceIoControl> m_control = [this](HANDLE handle, DWORD code, void* in, DWORD inSize, void* out,
                                              DWORD outSize, DWORD* returned, OVERLAPPED* overlapped) -> BOOL {
        return code == FSCTL_GET_REPARSE_POINT
                   ? ReadReparsePoint(handle, out, outSize, returned)
                   : m_control.Hidden(handle, code, in, inSize, out, outSize, returned, overlapped);
    };
    Fake<&RemoveDirectoryW> m_remove = [this](const wchar_t* path) { return Remove(path); };
};

} // namespace Testing
