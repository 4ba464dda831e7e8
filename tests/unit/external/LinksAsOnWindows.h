#pragma once

#include "support/DirectoryLink.h"
#include "support/ImportTableFake.h"

#include <windows.h>

#include <map>
#include <string>

namespace Testing
{

// While this lives, a directory link behaves under Wine as it does on Windows: a handle opened on the link itself tells
// that it is a link, and deleting through that handle deletes the link. On Windows it changes nothing.
class LinksAsOnWindows
{
private:
    // The link that a handle was opened on; empty for any other handle.
    std::wstring LinkOf(HANDLE handle) const
    {
        const auto link = m_links.find(handle);
        return link == m_links.end() ? L"" : link->second;
    }

    std::map<HANDLE, std::wstring> m_links;

    Fake<&CreateFileW> m_create = [this](const wchar_t* path, DWORD access, DWORD share,
                                         SECURITY_ATTRIBUTES* attributes, DWORD creation, DWORD flags,
                                         HANDLE templateFile) {
        const DWORD seen = GetFileAttributesW(path);
        const HANDLE handle = Fake<&CreateFileW>::Real(path, access, share, attributes, creation, flags, templateFile);
        m_links.erase(handle);
        if (!CanRemoveDirectoryLinks() && handle != INVALID_HANDLE_VALUE && seen != INVALID_FILE_ATTRIBUTES &&
            (seen & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && (flags & FILE_FLAG_OPEN_REPARSE_POINT) != 0)
        {
            m_links[handle] = path;
        }
        return handle;
    };

    Fake<&GetFileInformationByHandleEx> m_inform = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* answer,
                                                          DWORD size) {
        const BOOL result = Fake<&GetFileInformationByHandleEx>::Real(handle, kind, answer, size);
        if (result && kind == FileAttributeTagInfo && !LinkOf(handle).empty())
        {
            auto& info = *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(answer);
            info.FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
            info.ReparseTag = static_cast<DWORD>(IO_REPARSE_TAG_MOUNT_POINT);
        }
        return result;
    };

    Fake<&SetFileInformationByHandle> m_change = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* change,
                                                        DWORD size) -> BOOL {
        const std::wstring link = LinkOf(handle);
        return link.empty() ? Fake<&SetFileInformationByHandle>::Real(handle, kind, change, size)
                            : RemoveDirectoryLink(link);
    };
};

} // namespace Testing
