// The sample product as a program: lays the sample installation down, shows what is left of it, removes it, and runs
// the uninstaller while showing its log.
#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Identity.h"
#include "support/end_to_end/MachineState.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/RunProgram.h"
#include "support/end_to_end/RunningProduct.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/Servers.h"
#include "support/end_to_end/sample/Recorder.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Testing
{
namespace
{
constexpr int c_failed = 1;
constexpr int c_wrongUse = 64;

constexpr std::string_view c_help = R"(Velmora.Sample.exe: a sample installation of Velmora to uninstall

  install --yes              lays the sample installation down, with bystanders that must survive; what is there under
                             their names is overwritten, and "remove" deletes it
  show                       what of it is there
  remove                     removes everything that install makes, bystanders too
  uninstall [--running] [--recorded] PROGRAM ARGS...
                             runs the uninstaller, shows its log as it is written, returns its exit code;
                             with --running the product's services and client, and a program from its folder, run then;
                             with --recorded its dialogs are answered with yes, and every picture that the screen shows
                             is put into pictures\run beside this program
)";

void Print(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

std::string Padded(std::string text, std::size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

// The place of an item for a person.
std::string PlaceOf(const SampleItem& item)
{
    return ToUtf8(item.pathEntry.empty() ? item.path : L"PATH: " + item.pathEntry);
}

std::string SizeOf(const SampleItem& item)
{
    const bool isFolder = item.pathEntry.empty() && !item.path.starts_with(L"HK") && !item.path.ends_with(L".lnk");
    if (!isFolder || !IsThere(item))
    {
        return {};
    }
    const TreeSize size = MeasureTree(item.path);
    return " (" + std::to_string(size.files) + (size.files == 1 ? " file, " : " files, ") +
           std::to_string((size.bytes + 1023) / 1024) + " KB)";
}

// Prints the items of a group that are there, or those that are not.
void ShowGroup(std::string_view name, Fate fate, const std::vector<SampleItem>& items, bool isThere = true)
{
    std::string lines;
    for (const SampleItem& item : items)
    {
        if (item.fate == fate && IsThere(item) == isThere)
        {
            lines += "    " + Padded(item.what, 52) + "  " + PlaceOf(item) + SizeOf(item) + "\n";
        }
    }
    if (!lines.empty())
    {
        Print("  " + std::string(name) + "\n" + lines);
    }
}

void Show()
{
    const std::vector<SampleItem> items = SampleItems();
    const auto count = [&](std::string_view what, bool isBystander) {
        const auto isOfGroup = [&](const SampleItem& item) { return (item.fate == Fate::Stays) == isBystander; };
        const auto all = std::ranges::count_if(items, isOfGroup);
        const auto there =
            std::ranges::count_if(items, [&](const SampleItem& item) { return isOfGroup(item) && IsThere(item); });
        Print(std::string(what) + ": " + std::to_string(there) + " of " + std::to_string(all) + " are there.\n");
        return there;
    };
    count("Velmora's own", false);
    ShowGroup("the product", Fate::Removed, items);
    ShowGroup("kept with the user's settings", Fate::RemovedWithSettings, items);
    if (count("Bystanders, which no uninstall may touch", true) > 0)
    {
        ShowGroup("missing bystanders", Fate::Stays, items, false);
    }
}

std::wstring FullPath(const wchar_t* path)
{
    std::wstring full(32'768, L'\0');
    full.resize(GetFullPathNameW(path, static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full;
}

// The product as it runs: its services and its client obey, and a program was started from its folder.
class RunningParts
{
public:
    RunningParts()
    {
        m_auth.Start();
        m_updater.Start();
        Print("Running:\n");
        for (const auto& [name, process] : All())
        {
            Print("  " + Padded(name, 24) + "  process " + std::to_string(process->Id()) + "\n");
        }
    }

    ~RunningParts()
    {
        // What cannot be taken away is told rather than thrown.
        for (const std::string& line : TakeLeftOver())
        {
            Print(line + "\n");
        }
    }
    RunningParts(const RunningParts&) = delete;
    RunningParts& operator=(const RunningParts&) = delete;

    void Show() const
    {
        Print("What was running:\n");
        for (const auto& [name, process] : All())
        {
            const auto code = process->ExitCode();
            Print("  " + Padded(name, 24) +
                  (!code                      ? "  still runs\n"
                   : *code == c_endedByItself ? "  ended by itself when it was asked to\n"
                                              : "  was ended\n"));
        }
        for (const SampleService* const service : {&m_auth, &m_updater})
        {
            if (service->IsInstalled())
            {
                Print("  " + ToUtf8(service->Name()) + " is still installed.\n");
            }
        }
    }

private:
    std::vector<std::pair<std::string, const ProductProcess*>> All() const
    {
        return {{"OrvaneAuthService", &m_auth.Process()},
                {"VelmoraUpdaterService", &m_updater.Process()},
                {"Velmora.exe", &m_client.Process()},
                {"Helper.exe", &m_helper.Process()}};
    }

    SampleService m_auth{c_authService, ServiceMode::Obeys};
    SampleService m_updater{c_updaterService, ServiceMode::TakesThreeSeconds};
    SampleClient m_client{InstallFolder() + LR"(\current\Velmora.exe)", ClientMode::Closes};
    SampleProgram m_helper{InstallFolder() + LR"(\current\Helper.exe)"};
};

// `uninstall` with what follows it.
int Uninstall(std::span<wchar_t* const> rest)
{
    bool isRecorded = false;
    bool isRunning = false;
    for (; !rest.empty() && std::wstring_view(rest.front()).starts_with(L"--"); rest = rest.subspan(1))
    {
        isRunning = isRunning || std::wstring_view(rest.front()) == L"--running";
        isRecorded = isRecorded || std::wstring_view(rest.front()) == L"--recorded";
    }
    if (rest.empty())
    {
        Print(c_help);
        return c_wrongUse;
    }
    std::optional<RunningParts> running;
    if (isRunning)
    {
        running.emplace();
    }
    std::wstring commandLine;
    for (const wchar_t* argument : rest.subspan(1))
    {
        commandLine += (commandLine.empty() ? L"" : L" ") + std::wstring(argument);
    }
    // The run types: all but these two show a console, and what is no switch shows the help there.
    const std::wstring_view first = rest.size() > 1 ? rest[1] : L"-g";
    const bool isGuiOrSilent = first == L"-s" || first == L"--silent" || first == L"-g" || first == L"--gui";
    const bool isHelp = !isGuiOrSilent && first != L"-v" && first != L"--verbose";
    std::size_t printed = 0;
    const auto print = [&](const std::string& log) {
        for (auto end = log.find('\n', printed); end != std::string::npos; end = log.find('\n', printed))
        {
            Print("  " + ReplaceAll(log.substr(printed, end - printed), "\r", "") + "\n");
            printed = end + 1;
        }
    };
    Recorder recorder;
    RunOptions options{
        .hasShortLog = isHelp, .hasConsole = isRecorded && !isGuiOrSilent, .limit = std::chrono::hours(1)};
    options.whileRunning = [&](const std::string& log) {
        print(log);
        if (isRecorded)
        {
            recorder.Look();
        }
    };
    const RunResult result = RunProgram(FullPath(rest.front()), commandLine, options);
    print(result.log);
    if (!result.logPath.empty())
    {
        const bool kept = GetFileAttributesW(result.logPath.c_str()) != INVALID_FILE_ATTRIBUTES;
        Print(kept ? "The log was kept: " + ToUtf8(result.logPath) + "\n"
                   : "The log was deleted by the uninstaller.\n");
    }
    if (running)
    {
        running->Show();
    }
    if (isRecorded)
    {
        const std::size_t count = recorder.Save(BuiltFile(L"pictures\\run"));
        Print(count == 0 ? "Nothing was to be seen on the screen.\n"
                         : std::to_string(count) + " pictures of the screen: pictures\\run, beside this program\n");
    }
    Print("Exit code: " + std::to_string(result.exitCode) + "\n");
    return static_cast<int>(result.exitCode);
}

int Run(std::span<wchar_t* const> arguments)
{
    const std::wstring_view command = arguments.empty() ? std::wstring_view{} : arguments.front();
    const bool isAgreed = arguments.size() > 1 && std::wstring_view(arguments[1]) == L"--yes";
    if ((command != L"install" || !isAgreed) && command != L"show" && command != L"remove" && command != L"uninstall")
    {
        Print(c_help);
        return command.empty() || command == L"--help" || command == L"-h" ? 0 : c_wrongUse;
    }
    if (!IsElevated(GetCurrentProcessToken()))
    {
        Print("Please start this program as an administrator: it works on what is installed for all users.\n");
        return c_failed;
    }
    if (command == L"uninstall")
    {
        return Uninstall(arguments.subspan(1));
    }
    if (command == L"install")
    {
        RegisterServers();
        LayDownSample();
    }
    else if (command == L"remove")
    {
        RemoveSample();
    }
    else
    {
        Show();
    }
    return 0;
}
} // namespace
} // namespace Testing

// The program's entry point.
int wmain(int count, wchar_t** arguments)
{
    SetConsoleOutputCP(CP_UTF8);
    Testing::ElevateUnderWine();
    try
    {
        return Testing::Run(std::span<wchar_t* const>(arguments, static_cast<std::size_t>(count)).subspan(1));
    }
    catch (const std::exception& exception)
    {
        std::fprintf(stderr, "%s\n", exception.what());
        return Testing::c_failed;
    }
}
