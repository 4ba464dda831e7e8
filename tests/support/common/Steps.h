// The removal as the tests know it, written down independently of the program: what each step says, what it removes,
// how often it tries and what its failure means. Logs, sample installations and machines in memory follow from it.
#pragma once

#include <iosfwd>
#include <string_view>
#include <vector>

namespace Testing
{

// What the lines of a log begin with.
inline constexpr std::string_view c_infoTag = "|INFO|:    ";
inline constexpr std::string_view c_warningTag = "|WARNING|: ";
inline constexpr std::string_view c_errorTag = "|ERROR|:   ";

// What a run says before, between and after its steps.
inline constexpr std::string_view c_settingsGo = "Velmora will attempt to delete user data directories.";
inline constexpr std::string_view c_settingsStay = "Velmora will leave user directories as-is.";
inline constexpr std::string_view c_stopping = "Stopping Velmora...";
inline constexpr std::string_view c_complete = "Uninstall Complete!";
inline constexpr std::string_view c_notComplete =
    "Velmora did not fully uninstall. Please check the logs for more information.";

// Whatever goes wrong while the user's folders are looked for; the reason follows.
inline constexpr std::string_view c_userCleanUpFailed =
    "|WARNING|: Something went wrong while trying to clean up user files: ";

// In their order.
enum class Step
{
    DesktopShortcut,
    StartMenuShortcut,
    UpdaterService,
    AuthService,
    MachinePath,
    FirewallRule,
    StartupEntry,
    Registration,
    UninstallEntry,
    InstallFolder,
    AuthServiceProgramFolder,
    AuthServiceDataFolder,
    UpdaterFolder,
    UserFolders, // finds the user, whose folders are the two steps that follow
    VelmoraUserFolder,
    TessalineUserFolder,
    LegacyPackage
};

// Something on the machine that is the product's.
struct ProductPart
{
    enum class Kind
    {
        Shortcut,
        Folder, // with everything in it
        Key,    // below HKEY_LOCAL_MACHINE, with everything in it
        Value,  // of such a key, which stays
        PathEntry,
        Service,
        FirewallRule,
        ProvisionedPackage,
        InstalledPackage
    };

    Kind kind;
    std::wstring_view place;       // a path, the text of an entry, a name, the family of a package
    std::string_view what;         // for a person
    std::wstring_view valueName{}; // of a value
    bool isSetting = false;        // goes only with the user's settings
};

// In texts and paths "<ProgramFiles>", "<LocalAppData>" and the like stand for the folders of a machine, "<Folder>" for
// the installation folder as the run has found it, with a backslash at its end.
struct StepRow
{
    Step step;
    std::string_view name;      // words joined by "_"
    int progress = -1;          // of the window from here on, in percent; -1: as before
    std::string_view shown{};   // logged and shown before the step; of the user's folders only logged; may be empty
    std::string_view failure{}; // the line of a failure, as far as " Reason: "
    bool makesPartial = false;  // a failure makes the result a partial one, or only warns
    int pauses = 0;             // when every attempt fails
    bool isOnlyWithSettings = false;
    std::string_view otherFailure{}; // what other lines that tell of something left have in them
    std::vector<ProductPart> parts{};
};

const std::vector<StepRow>& Steps();
const StepRow& RowOf(Step step);

// For the names of tests.
void PrintTo(Step step, std::ostream* stream);

} // namespace Testing
