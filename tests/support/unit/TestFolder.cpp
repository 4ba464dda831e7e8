#include "support/unit/TestFolder.h"

#include "support/common/DirectoryLink.h"
#include "support/common/Text.h"

#include <array>
#include <atomic>
#include <stdexcept>

namespace Testing
{

namespace
{

std::wstring Extended(const std::wstring& path)
{
    return path.starts_with(L"\\\\?\\") ? path : L"\\\\?\\" + path;
}

} // namespace

TestFolder::TestFolder()
{
    static std::atomic<unsigned> s_count = 0;
    std::array<wchar_t, MAX_PATH + 1> temp{};
    // The prefix of the programs that tests run is the folder of the machine itself, not one that a test has replaced.
    GetEnvironmentVariableW(L"TEMP", temp.data(), static_cast<DWORD>(temp.size()));
    // Neither a test that runs beside this one nor what an earlier one has left behind must be in the way.
    LARGE_INTEGER now{};
    QueryPerformanceCounter(&now);
    m_path = std::wstring(temp.data()) + L"\\Velmora.Tests." + std::to_wstring(GetCurrentProcessId()) + L"." +
             std::to_wstring(now.QuadPart) + L"." + std::to_wstring(++s_count) + L"\\";
    if (CreateDirectoryW(m_path.c_str(), nullptr) == FALSE)
    {
        throw std::runtime_error("cannot create " + Narrow(m_path));
    }
}

TestFolder::~TestFolder()
{
    RemoveTestFolder(m_path);
}

std::wstring TestFolder::AddFolder(const std::wstring& name) const
{
    for (auto end = name.find(L'\\'); end != std::wstring::npos; end = name.find(L'\\', end + 1))
    {
        CreateDirectoryW(Extended(m_path + name.substr(0, end)).c_str(), nullptr);
    }
    CreateDirectoryW(Extended(m_path + name).c_str(), nullptr);
    if (!Exists(m_path + name))
    {
        throw std::runtime_error("cannot create " + Narrow(m_path + name));
    }
    return m_path + name;
}

std::wstring TestFolder::AddFile(const std::wstring& name, const std::string& content) const
{
    const auto separator = name.rfind(L'\\');
    if (separator != std::wstring::npos)
    {
        AddFolder(name.substr(0, separator));
    }
    const HANDLE file = CreateFileW(Extended(m_path + name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        throw std::runtime_error("cannot write " + Narrow(m_path + name));
    }
    DWORD written = 0;
    WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr);
    CloseHandle(file);
    return m_path + name;
}

bool Exists(const std::wstring& path)
{
    return GetFileAttributesW(Extended(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string ReadFileText(const std::wstring& path)
{
    const HANDLE file =
        CreateFileW(Extended(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        throw std::runtime_error("cannot read " + Narrow(path));
    }
    std::string content(GetFileSize(file, nullptr), '\0');
    DWORD read = 0;
    ReadFile(file, content.data(), static_cast<DWORD>(content.size()), &read, nullptr);
    CloseHandle(file);
    return content;
}

void RemoveTestFolder(const std::wstring& path)
{
    const std::wstring folder = Extended(path.ends_with(L'\\') ? path : path + L'\\');
    WIN32_FIND_DATAW entry{};
    const HANDLE search = FindFirstFileW((folder + L"*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
    {
        return;
    }
    do
    {
        const std::wstring name = entry.cFileName;
        if (name == L"." || name == L"..")
        {
            continue;
        }
        const bool isLink = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        {
            SetFileAttributesW((folder + name).c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileW((folder + name).c_str());
        }
        else if (isLink)
        {
            RemoveDirectoryLink((folder + name).substr(4));
        }
        else
        {
            RemoveTestFolder(folder + name);
        }
    } while (FindNextFileW(search, &entry) != FALSE);
    FindClose(search);
    RemoveDirectoryW(folder.c_str());
}

} // namespace Testing
