#include "ExpectedLog.h"

#include "support/Names.h"
#include "support/SampleInstallation.h"

#include <algorithm>
#include <array>

namespace Testing
{
namespace
{
constexpr std::string_view c_info = "|INFO|:    ";
constexpr std::string_view c_warning = "|WARNING|: ";
constexpr std::string_view c_error = "|ERROR|:   ";

struct StepRow
{
    Step step;
    // Empty for a step that is not announced.
    std::string_view shown;
    std::string_view failure;
};

constexpr std::array<StepRow, 10> c_steps{{
    {Step::DesktopShortcut, "Deleting desktop shortcut...", "Unable to delete desktop shortcut."},
    {Step::StartMenuShortcut, "Deleting start menu shortcut...", "Unable to delete start menu shortcut."},
    {Step::MachinePath, "Removing from path...", "Unable to remove from path."},
    {Step::StartupEntry, "Removing startup entry...", "Unable to remove startup entry."},
    {Step::Registration, "Deregistering application from system...", "Unable to deregister application from system."},
    {Step::UninstallEntry, "Removing uninstall entry...", "Unable to remove uninstall entry."},
    {Step::InstallFolder, "Deleting installation folder...", "Unable to delete installation folder"},
    {Step::AuthServiceProgramFolder, "Deleting OrvaneAuthService folders...",
     "Unable to delete PF OrvaneAuthService folder"},
    {Step::AuthServiceDataFolder, "", "Unable to delete PD OrvaneAuthService folder"},
    {Step::UpdaterFolder, "Deleting VelmoraUpdater folder...", "Unable to delete VelmoraUpdater folder"},
}};

std::string Info(std::string_view message)
{
    return std::string(c_info) + std::string(message);
}
} // namespace

ExpectedLog::ExpectedLog()
{
    FindsRecord(InstallFolder() + L"\\");
}

ExpectedLog& ExpectedLog::FindsRecord(std::wstring_view location, std::string_view version)
{
    m_record = {
        Info("Found Velmora install entry at '" + ToUtf8(location) + "', version " + std::string(version) + ".")};
    return *this;
}

ExpectedLog& ExpectedLog::FindsNoRecord()
{
    m_record = {
        Info("Did not find previous Velmora install entry. Will continue with assuming default install location."),
        Info("No previous Velmora install directory found, using default.")};
    return *this;
}

ExpectedLog& ExpectedLog::LeavesOut(Step step)
{
    m_leftOut.insert(step);
    return *this;
}

ExpectedLog& ExpectedLog::Fails(Step step, unsigned long result, std::wstring_view folder)
{
    m_failures.push_back({step, true, result, std::wstring(folder)});
    return *this;
}

ExpectedLog& ExpectedLog::Warns(Step step, unsigned long result, std::wstring_view folder)
{
    m_failures.push_back({step, false, result, std::wstring(folder)});
    return *this;
}

std::vector<std::string> ExpectedLog::Lines() const
{
    std::vector<std::string> lines{Info("Running the Velmora uninstaller (<pid>)..."),
                                   Info("Requested run type of Silent")};
    lines.insert(lines.end(), m_record.begin(), m_record.end());
    lines.push_back(Info("Velmora will leave user directories as-is."));
    for (const StepRow& row : c_steps)
    {
        if (!row.shown.empty() && !m_leftOut.contains(row.step))
        {
            lines.push_back(Info(row.shown));
        }
        for (const Failure& failure : m_failures)
        {
            if (failure.step == row.step)
            {
                lines.push_back(std::string(failure.isError ? c_error : c_warning) + std::string(row.failure) +
                                (failure.folder.empty() ? "" : " (" + ToUtf8(failure.folder) + ")") +
                                " Reason: " + SystemText(failure.result));
            }
        }
    }
    lines.push_back(Info("Uninstall Complete!"));
    if (std::ranges::any_of(m_failures, &Failure::isError))
    {
        lines.push_back(std::string(c_error) +
                        "Velmora did not fully uninstall. Please check the logs for more information.");
    }
    return lines;
}
} // namespace Testing
