// Owners of what Windows hands out: each closes its resource when it goes out of scope.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <memory>

namespace Testing
{
struct HandleCloser
{
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};

struct SearchCloser
{
    void operator()(HANDLE search) const noexcept { FindClose(search); }
};

struct KeyCloser
{
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};

struct TaskMemoryFreer
{
    void operator()(wchar_t* text) const noexcept { CoTaskMemFree(text); }
};

struct LocalMemoryFreer
{
    void operator()(void* memory) const noexcept { LocalFree(memory); }
};

struct ComReleaser
{
    void operator()(IUnknown* object) const noexcept { object->Release(); }
};

using UniqueHandle = std::unique_ptr<void, HandleCloser>;
using UniqueSearch = std::unique_ptr<void, SearchCloser>;
using UniqueKey = std::unique_ptr<HKEY__, KeyCloser>;
using UniqueTaskText = std::unique_ptr<wchar_t, TaskMemoryFreer>;
using UniqueLocalMemory = std::unique_ptr<void, LocalMemoryFreer>;
template <typename Interface>
using UniqueCom = std::unique_ptr<Interface, ComReleaser>;

// Owns the handle of a file: an empty owner for INVALID_HANDLE_VALUE.
inline UniqueHandle OwnFile(HANDLE file) noexcept
{
    return UniqueHandle(file == INVALID_HANDLE_VALUE ? nullptr : file);
}
} // namespace Testing
