#include "support/FakeFileSystem.h"

#include <algorithm>
#include <cstring>
#include <cwctype>

namespace Testing
{

namespace
{

// The name that a path ends with.
std::wstring NameOf(const std::wstring& path)
{
    return path.substr(path.rfind(L'\\') + 1);
}

} // namespace

FakeFileSystem::FakeFileSystem()
{
    m_nodes.emplace(L"c:", Node{.path = L"C:", .attributes = FILE_ATTRIBUTE_DIRECTORY});
}

std::wstring FakeFileSystem::KeyOf(std::wstring path)
{
    if (path.starts_with(L"\\\\?\\"))
    {
        path.erase(0, 4);
    }
    std::ranges::replace(path, L'/', L'\\');
    path.erase(path.find_last_not_of(L'\\') + 1);
    std::ranges::transform(path, path.begin(), [](wchar_t letter) { return std::towlower(letter); });
    return path;
}

std::wstring FakeFileSystem::ParentOf(const std::wstring& key)
{
    const auto end = key.rfind(L'\\');
    return end == std::wstring::npos ? std::wstring() : key.substr(0, end);
}

void FakeFileSystem::AddFolder(const std::wstring& path)
{
    const std::wstring key = KeyOf(path);
    if (key.empty() || m_nodes.contains(key))
    {
        return;
    }
    std::wstring plain = path.starts_with(L"\\\\?\\") ? path.substr(4) : path;
    plain.resize(key.size());
    AddFolder(ParentOf(plain));
    m_nodes.emplace(key, Node{.path = plain, .attributes = FILE_ATTRIBUTE_DIRECTORY});
}

void FakeFileSystem::AddFile(const std::wstring& path, const std::string& content, DWORD attributes)
{
    const std::wstring plain = path.starts_with(L"\\\\?\\") ? path.substr(4) : path;
    AddFolder(ParentOf(plain));
    m_nodes[KeyOf(plain)] = {.path = plain, .attributes = FILE_ATTRIBUTE_ARCHIVE | attributes, .content = content};
}

bool FakeFileSystem::Has(const std::wstring& path) const
{
    return Find(KeyOf(path)) != nullptr;
}

std::vector<std::wstring> FakeFileSystem::All() const
{
    std::vector<std::wstring> paths;
    for (const auto& [key, node] : m_nodes)
    {
        paths.push_back(node.path);
    }
    return paths;
}

std::vector<FakeFileSystem::Node> FakeFileSystem::ChildrenOf(const std::wstring& key) const
{
    const std::wstring below = key + L'\\';
    std::vector<Node> children;
    for (auto node = m_nodes.lower_bound(below); node != m_nodes.end() && node->first.starts_with(below); ++node)
    {
        if (node->first.find(L'\\', below.size()) == std::wstring::npos)
        {
            children.push_back(node->second);
        }
    }
    return children;
}

const FakeFileSystem::Node* FakeFileSystem::Find(const std::wstring& key) const
{
    const auto node = m_nodes.find(key);
    return node == m_nodes.end() ? nullptr : &node->second;
}

const FakeFileSystem::Node* FakeFileSystem::FindOpened(HANDLE handle) const
{
    const auto opened = m_open.find(handle);
    return opened == m_open.end() ? nullptr : Find(opened->second.key);
}

DWORD FakeFileSystem::AbsenceOf(const std::wstring& key) const
{
    return Find(ParentOf(key)) == nullptr ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND;
}

BOOL FakeFileSystem::Fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

HANDLE FakeFileSystem::NextHandle()
{
    m_lastHandle += 4;
    return reinterpret_cast<HANDLE>(m_lastHandle);
}

DWORD FakeFileSystem::Remove(const std::wstring& key)
{
    if (isInUse(m_nodes.at(key).path))
    {
        return ERROR_ACCESS_DENIED;
    }
    if (!ChildrenOf(key).empty())
    {
        return ERROR_DIR_NOT_EMPTY;
    }
    m_nodes.erase(key);
    return ERROR_SUCCESS;
}

HANDLE FakeFileSystem::Open(const std::wstring& path, DWORD access, DWORD disposition, DWORD flags)
{
    const std::wstring key = KeyOf(path);
    const Node* const node = Find(key);
    DWORD error = ERROR_SUCCESS;
    if (node == nullptr)
    {
        error = AbsenceOf(key);
        if (disposition != OPEN_EXISTING && error == ERROR_FILE_NOT_FOUND)
        {
            AddFile(path, {});
            error = ERROR_SUCCESS;
        }
    }
    else if (disposition == CREATE_NEW)
    {
        error = ERROR_FILE_EXISTS;
    }
    else if (node->IsFolder() && (flags & FILE_FLAG_BACKUP_SEMANTICS) == 0)
    {
        error = ERROR_ACCESS_DENIED;
    }
    else if ((node->attributes & FILE_ATTRIBUTE_READONLY) != 0 && (access & (GENERIC_WRITE | FILE_APPEND_DATA)) != 0)
    {
        error = ERROR_ACCESS_DENIED;
    }
    if (error != ERROR_SUCCESS)
    {
        Fail(error);
        return INVALID_HANDLE_VALUE;
    }
    HANDLE handle = NextHandle();
    m_open[handle] = {.key = key, .goesWithHandle = (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0};
    SetLastError(node != nullptr && disposition == OPEN_ALWAYS ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

BOOL FakeFileSystem::Write(HANDLE handle, const void* data, DWORD size, DWORD* written)
{
    const auto node = m_nodes.find(m_open.at(handle).key);
    if (node == m_nodes.end())
    {
        return Fail(ERROR_ACCESS_DENIED);
    }
    const std::string text(static_cast<const char*>(data), size);
    node->second.content += text;
    *written = size;
    onWrite(node->second.path, text);
    return TRUE;
}

void FakeFileSystem::CloseOpened(HANDLE handle)
{
    const auto opened = m_open.extract(handle);
    if (opened.mapped().goesWithHandle && m_nodes.contains(opened.mapped().key))
    {
        Remove(opened.mapped().key);
    }
}

BOOL FakeFileSystem::List(Opened& opened, bool fromStart, void* data, DWORD size) const
{
    if (opened.isListed && !fromStart)
    {
        return Fail(ERROR_NO_MORE_FILES);
    }
    opened.isListed = true;
    std::vector<Node> children = ChildrenOf(opened.key);
    children.insert(children.begin(), {{L".", FILE_ATTRIBUTE_DIRECTORY}, {L"..", FILE_ATTRIBUTE_DIRECTORY}});
    auto* place = static_cast<BYTE*>(data);
    FILE_FULL_DIR_INFO* last = nullptr;
    for (const Node& child : children)
    {
        const std::wstring name = NameOf(child.path);
        const std::size_t needed = (sizeof(FILE_FULL_DIR_INFO) + name.size() * sizeof(wchar_t) + 7) / 8 * 8;
        if (place + needed > static_cast<BYTE*>(data) + size)
        {
            return Fail(ERROR_MORE_DATA);
        }
        last = reinterpret_cast<FILE_FULL_DIR_INFO*>(place);
        *last = {};
        last->NextEntryOffset = static_cast<ULONG>(needed);
        last->FileAttributes = child.attributes;
        last->FileNameLength = static_cast<ULONG>(name.size() * sizeof(wchar_t));
        std::memcpy(static_cast<void*>(last->FileName), name.data(), last->FileNameLength);
        place += needed;
    }
    if (last != nullptr)
    {
        last->NextEntryOffset = 0;
    }
    return TRUE;
}

BOOL FakeFileSystem::Read(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* data, DWORD size)
{
    const Node* const node = FindOpened(handle);
    if (node == nullptr)
    {
        return Fail(ERROR_INVALID_HANDLE);
    }
    if (kind == FileAttributeTagInfo)
    {
        *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(data) = {.FileAttributes = node->attributes, .ReparseTag = 0};
        return TRUE;
    }
    if (kind == FileBasicInfo)
    {
        FILE_BASIC_INFO& info = *static_cast<FILE_BASIC_INFO*>(data);
        info = {};
        info.FileAttributes = node->attributes;
        return TRUE;
    }
    if (kind == FileFullDirectoryInfo || kind == FileFullDirectoryRestartInfo)
    {
        return List(m_open.at(handle), kind == FileFullDirectoryRestartInfo, data, size);
    }
    return Fail(ERROR_INVALID_PARAMETER);
}

BOOL FakeFileSystem::Dispose(HANDLE handle)
{
    const Node* const node = FindOpened(handle);
    if (node == nullptr)
    {
        return Fail(ERROR_INVALID_HANDLE);
    }
    const DWORD error = Remove(m_open.at(handle).key);
    return error == ERROR_SUCCESS || Fail(error);
}

BOOL FakeFileSystem::NextFound(HANDLE handle, WIN32_FIND_DATAW& data)
{
    const auto search = m_searches.find(handle);
    if (search == m_searches.end() || search->second.next == search->second.found.size())
    {
        return Fail(search == m_searches.end() ? ERROR_INVALID_HANDLE : ERROR_NO_MORE_FILES);
    }
    const Node& node = search->second.found[search->second.next++];
    const std::wstring name = NameOf(node.path);
    data = {};
    data.dwFileAttributes = node.attributes;
    data.cFileName[name.copy(data.cFileName, std::size(data.cFileName) - 1)] = L'\0';
    return TRUE;
}

} // namespace Testing
