// A program that opens logs, with NOTE FILE on its command line: it writes down in NOTE which file it was given, the
// security identifier of its user, and whether it runs elevated, a line each.
#include "support/end_to_end/Identity.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/product/Product.h"
#include "support/end_to_end/product/Start.h"

#include <windows.h>

#include <array>
#include <string>

namespace Testing
{
namespace
{
bool Write(const wchar_t* path, const std::wstring& text)
{
    std::array<char, 4096> bytes{};
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, nullptr);
    const UniqueHandle file =
        OwnFile(CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr));
    DWORD written = 0;
    return WriteFile(file.get(), bytes.data(), static_cast<DWORD>(size), &written, nullptr);
}
} // namespace
} // namespace Testing

// The program's entry point.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    using namespace Testing;
    const auto arguments = Arguments();
    if (arguments.size() != 2)
    {
        return static_cast<int>(c_wronglyStarted);
    }
    const HANDLE token = GetCurrentProcessToken();
    const std::wstring text =
        arguments[1] + (L'\n' + UserOf(token)) + L'\n' + (IsElevated(token) ? L"elevated" : L"not elevated") + L'\n';
    return Write(arguments[0], text) ? 0 : 1;
}
