#include "support/ReportAddress.h"

#include "ProductSettings.h"
#include "support/Names.h"
#include "support/Owners.h"

#include <windows.h>

#include <stdexcept>
#include <string_view>

namespace Testing
{

namespace
{

constexpr std::string_view c_dsn = VELMORA_CRASH_REPORT_DSN;

// Leads nowhere.
constexpr std::string_view c_dsnOfNobody = "https://key@nobody.invalid/1";

// The bytes that an address takes in the program's file.
std::string Pad(std::string_view dsn)
{
    std::string bytes(dsn);
    bytes.resize(c_dsn.size(), '\0');
    return bytes;
}

} // namespace

void ReplaceReportAddress(const std::wstring& program, const std::string& dsn)
{
    std::string bytes = ReadBytes(program);
    auto place = bytes.find(c_dsn);
    if (place == std::string::npos)
    {
        place = bytes.find(Pad(c_dsnOfNobody));
    }
    if (place == std::string::npos || bytes.find(c_dsn, place + 1) != std::string::npos || dsn.size() > c_dsn.size())
    {
        throw std::runtime_error("Cannot replace the address for reports in " + ToUtf8(program));
    }
    bytes.replace(place, c_dsn.size(), Pad(dsn));
    WriteBytes(program, bytes);
}

void KeepReportsHere(const std::wstring& program)
{
    if (c_dsn.find(".invalid/") == std::string_view::npos)
    {
        ReplaceReportAddress(program, std::string(c_dsnOfNobody));
    }
}

std::string ReadBytes(const std::wstring& path)
{
    const UniqueHandle file =
        OwnFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER size{};
    GetFileSizeEx(file.get(), &size);
    std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) || read != bytes.size())
    {
        throw std::runtime_error("Cannot read " + ToUtf8(path));
    }
    return bytes;
}

void WriteBytes(const std::wstring& path, const std::string& bytes)
{
    const UniqueHandle file =
        OwnFile(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
    {
        throw std::runtime_error("Cannot write " + ToUtf8(path));
    }
}

} // namespace Testing
