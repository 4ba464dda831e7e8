#include "support/end_to_end/ReportAddress.h"

#include "ProductSettings.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/SampleInstallation.h"

#include <stdexcept>
#include <string_view>

namespace Testing
{
namespace
{
constexpr std::string_view c_dsn = VELMORA_CRASH_REPORT_DSN;
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
    std::string bytes = ReadText(program);
    const auto own = bytes.find(c_dsn);
    const auto place = own != std::string::npos ? own : bytes.find(Pad(c_dsnOfNobody));
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
} // namespace Testing
