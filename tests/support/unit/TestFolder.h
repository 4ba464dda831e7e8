#pragma once

#include <windows.h>

#include <string>

namespace Testing
{

// A folder of a test's own in the temporary folder, which goes with everything in it when the test ends: read-only
// files too, links as links.
class TestFolder
{
public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    // The folder, ending in a backslash, and a path below it.
    const std::wstring& Path() const { return m_path; }
    std::wstring operator/(const std::wstring& name) const { return m_path + name; }

    // Makes a folder below it, with all parents, or a file with that content. Returns its full path.
    std::wstring AddFolder(const std::wstring& name) const;
    std::wstring AddFile(const std::wstring& name, const std::string& content = "content") const;

private:
    std::wstring m_path;
};

// Whether anything of that name is there.
bool Exists(const std::wstring& path);

// The bytes of a file; throws std::runtime_error when it cannot be read.
std::string ReadFileText(const std::wstring& path);

// Removes a folder and everything in it, with links as links. For the clean-up after a test.
void RemoveTestFolder(const std::wstring& path);

} // namespace Testing
