#include "Installer/Migrator.h"

#include "Installer/Logger.h"
#include "support/DirectoryLink.h"
#include "support/FakeCodePage.h"
#include "support/FakeFolders.h"
#include "support/FakePackageManager.h"
#include "support/OutOfMemory.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <sentry.h>
#include <sentry_testing.h>
#include <tlhelp32.h>

#include <gmock/gmock.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using namespace std::string_literals;
using testing::_;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using winrt::Windows::Foundation::AsyncStatus;
using Ending = FakePackageManager::Ending;

// Wide and narrow, as packages have them and as lists of calls do.
#define FAMILY "Orvane.Velmora_k4wz81tqm0d3x"
constexpr wchar_t c_family[] = L"Orvane.Velmora_k4wz81tqm0d3x";

constexpr HRESULT c_packagesInUse = static_cast<HRESULT>(0x80073D02);   // -2147009278
constexpr HRESULT c_packageNotFound = static_cast<HRESULT>(0x80073CF1); // -2147009295

// The calls and log lines that are in nearly every list.
constexpr char c_activate[] = "activate Windows.Management.Deployment.PackageManager";
constexpr char c_deprovision[] = "DeprovisionPackageForAllUsersAsync " FAMILY;
constexpr char c_searchingProvisioned[] = "|INFO|:    [Migrator] Searching for provisioned Velmora legacy packages...";
constexpr char c_searchingInstalled[] = "|INFO|:    [Migrator] Searching for installed Velmora legacy packages...";
constexpr char c_deprovisioned[] =
    "|INFO|:    [Migrator] Deprovisioned Velmora Package to prevent future auto-installs...";
constexpr char c_removed[] = "|INFO|:    [Migrator] Successfully removed legacy Velmora installation!";
constexpr char c_forOneUser[] = "|INFO|:    [Migrator] Attempting to remove for single user only...";
constexpr char c_deprovisioningFailed[] = "|ERROR|:   [Migrator] Failed to deprovisioned Velmora Package: ";
constexpr char c_removalFailed[] = "|ERROR|:   [Migrator] Failed to remove legacy Velmora installation: ";
constexpr char c_provisionedSearchFailed[] =
    "|ERROR|:   [Migrator] Failed to search for provisioned Velmora legacy packages: ";
constexpr char c_installedSearchFailed[] =
    "|ERROR|:   [Migrator] Failed to search for installed Velmora legacy packages: ";

std::string Preparing(const std::string& path)
{
    return "|INFO|:    [Migrator] Preparing to remove legacy Velmora installation at: " + path;
}

PackageDescription Velmora(const std::wstring& fullName)
{
    return {c_family, fullName, L"C:\\Apps\\" + fullName};
}

PackageDescription Other(const std::wstring& familyName)
{
    return {familyName, L"full name of " + familyName, L"C:\\Apps\\Other"};
}

// Everything that happens comes into one list: calls, the migrator's log lines, and "stop client".
class MigratorTest : public testing::Test
{
protected:
    MigratorTest() { sentry_init(sentry_options_new()); }

    ~MigratorTest() override
    {
        EXPECT_EQ(openSnapshots, 0);
        EXPECT_FALSE(Exists(folders.ProgramFilesX64() + L"\\OrvaneAuthService")) << "this goes in every case";
        EXPECT_TRUE(Exists(folders.ProgramFilesX64() + L"\\OrvaneAuthService2"));
        EXPECT_TRUE(Exists(folders.ProgramFiles() + L"\\OrvaneAuthService\\other.exe"));
        SentryTesting::Forget();
    }

    void SetUp() override
    {
        root.AddFile(L"Program Files X64\\OrvaneAuthService\\bin\\service.exe");
        root.AddFile(L"Program Files X64\\OrvaneAuthService2\\service.exe");
        root.AddFile(L"Program Files\\OrvaneAuthService\\other.exe");
    }

    // The messages of the events that are sent.
    static std::vector<std::string> Captured()
    {
        std::vector<std::string> messages;
        for (const SentryTesting::Event& event : SentryTesting::CurrentRun().events)
        {
            EXPECT_EQ(event.level, SENTRY_LEVEL_ERROR);
            messages.push_back(event.message);
        }
        return messages;
    }

    HRESULT Run() { return RemoveLegacyPackage(logger); }

    std::vector<std::string> happened;
    TestFolder root;
    FakeFolders folders{root};
    FakePackageManager packages{happened};
    Fake<&WriteConsoleW> console = [this](HANDLE, const void* text, DWORD length, LPDWORD, LPVOID) -> BOOL {
        std::string line = Narrow({static_cast<const wchar_t*>(text), length});
        // Those of other parts are not looked at here.
        if (line.find("[Migrator]") != std::string::npos)
        {
            line.pop_back(); // the line feed
            happened.push_back(line);
        }
        return TRUE;
    };
    Logger logger{RunType::Silent};

    // Stopping the client begins with a look at the processes: there are none.
    int openSnapshots = 0;
    bool snapshotFails = false;
    Fake<&CreateToolhelp32Snapshot> snapshot = [this](DWORD, DWORD) -> HANDLE {
        happened.emplace_back("stop client");
        if (snapshotFails)
        {
            SetLastError(ERROR_PARTIAL_COPY);
            return INVALID_HANDLE_VALUE;
        }
        ++openSnapshots;
        return reinterpret_cast<HANDLE>(this);
    };
    Fake<&Process32FirstW> firstProcess = [](HANDLE, PROCESSENTRY32W*) { return FALSE; };
    Fake<&CloseHandle> close = [this](HANDLE handle) -> BOOL {
        if (handle == reinterpret_cast<HANDLE>(this))
        {
            --openSnapshots;
            return TRUE;
        }
        return decltype(close)::Real(handle);
    };
    Fake<&Sleep> sleep = [](DWORD) { ADD_FAILURE() << "there is one attempt, and no pause"; };
};

TEST_F(MigratorTest, has_nothing_to_do_on_a_machine_without_packages)
{
    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages",
                                      c_searchingInstalled, "FindPackages"));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, leaves_the_packages_of_other_families)
{
    for (const wchar_t* const family :
         {L"Orvane.velmora_k4wz81tqm0d3x", L"ORVANE.VELMORA_K4WZ81TQM0D3X", L"Orvane.Velmora_k4wz81tqm0d3X",
          L"Orvane.Velmora_k4wz81tqm0d3", L"Orvane.Velmora_k4wz81tqm0d", L"Orvane.Velmora_k4wz81tqm0d3xx",
          L"xOrvane.Velmora_k4wz81tqm0d3x", L"Orvane.Velmora_k4wz81tqm0d3x ", L"Orvane.Velmora", L"",
          L"Microsoft.Sample_8wekyb3d8bbwe"})
    {
        packages.provisioned.push_back(Other(family));
        packages.installed.push_back(Other(family));
    }
    packages.installed.push_back(Other(std::wstring(c_family) + L'\0'));
    packages.installed.push_back({L"x", c_family, c_family});

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages",
                                      c_searchingInstalled, "FindPackages"));
}

TEST_F(MigratorTest, finds_its_packages_among_hundreds)
{
    for (int i = 0; i < 300; ++i)
    {
        packages.provisioned.push_back(Other(L"Other_" + std::to_wstring(i)));
        packages.installed.push_back(Other(L"Other_" + std::to_wstring(i)));
    }
    packages.provisioned.insert(packages.provisioned.begin() + 150, Velmora(L"V1"));
    packages.provisioned.push_back(Velmora(L"V1"));
    packages.installed.insert(packages.installed.begin(), Velmora(L"V1"));
    packages.installed.push_back(Velmora(L"V2"));

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", //
                                      c_deprovision, "wait", c_deprovisioned,                        //
                                      c_deprovision, "wait", c_deprovisioned,                        //
                                      c_searchingInstalled, "FindPackages",                          //
                                      "stop client", "FullName V1", "RemovePackageAsync V1 80000", "wait",
                                      "InstalledPath V1", Preparing("C:\\Apps\\V1"), c_removed, //
                                      "stop client", "FullName V2", "RemovePackageAsync V2 80000", "wait",
                                      "InstalledPath V2", Preparing("C:\\Apps\\V2"), c_removed));
}

TEST_F(MigratorTest, deprovisions_first_and_removes_then)
{
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1")};

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", c_deprovision,
                                      "wait", c_deprovisioned, c_searchingInstalled, "FindPackages", "stop client",
                                      "FullName V1", "RemovePackageAsync V1 80000", "wait", "InstalledPath V1",
                                      Preparing("C:\\Apps\\V1"), c_removed));
    EXPECT_THAT(Captured(), IsEmpty());
}

// When an operation ends makes no difference.
class MigratorEndingTest : public MigratorTest, public testing::WithParamInterface<Ending>
{
protected:
    void SetUp() override
    {
        MigratorTest::SetUp();
        packages.ending = GetParam();
        packages.provisioned = {Velmora(L"P1")};
        packages.installed = {Velmora(L"V1")};
    }
};
INSTANTIATE_TEST_SUITE_P(Operations, MigratorEndingTest,
                         testing::Values(Ending::AtOnce, Ending::WhileWaitedFor, Ending::OnAnotherThread),
                         [](const testing::TestParamInfo<Ending>& ending) {
                             switch (ending.param)
                             {
                             case Ending::AtOnce:
                                 return "end_at_once"s;
                             case Ending::WhileWaitedFor:
                                 return "end_while_they_are_waited_for"s;
                             case Ending::OnAnotherThread:
                                 return "end_on_another_thread"s;
                             }
                             return ""s;
                         });

TEST_P(MigratorEndingTest, waits_for_operations_that_complete)
{
    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", c_deprovision,
                                      "wait", c_deprovisioned, c_searchingInstalled, "FindPackages", "stop client",
                                      "FullName V1", "RemovePackageAsync V1 80000", "wait", "InstalledPath V1",
                                      Preparing("C:\\Apps\\V1"), c_removed));
}

TEST_P(MigratorEndingTest, waits_for_operations_that_fail)
{
    packages.End(c_deprovision, {AsyncStatus::Error, E_FAIL});
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Error, c_packageNotFound});
    packages.End("RemovePackageAsync V1", {AsyncStatus::Canceled, c_packagesInUse});

    EXPECT_EQ(Run(), c_packagesInUse);

    EXPECT_THAT(happened,
                ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", c_deprovision, "wait",
                            c_deprovisioningFailed + "-2147467259"s, c_searchingInstalled, "FindPackages",
                            "stop client", "FullName V1", "RemovePackageAsync V1 80000", "wait", "InstalledPath V1",
                            Preparing("C:\\Apps\\V1"), c_removalFailed + "-2147009295"s, c_forOneUser,
                            "RemovePackageAsync V1", "wait", c_removalFailed + "-2147009278"s));
}

TEST_F(MigratorTest, sends_a_failed_deprovisioning_but_does_not_fail)
{
    packages.provisioned = {Velmora(L"P1"), Other(L"Other_1"), Velmora(L"P2")};
    packages.End(c_deprovision, {AsyncStatus::Error, c_packageNotFound});

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", c_deprovision,
                                      "wait", c_deprovisioningFailed + "-2147009295"s, c_deprovision, "wait",
                                      c_deprovisioningFailed + "-2147009295"s, c_searchingInstalled, "FindPackages"));
    EXPECT_THAT(Captured(), ElementsAre("[Migrator] Failed to deprovisioned Velmora Package: -2147009295",
                                        "[Migrator] Failed to deprovisioned Velmora Package: -2147009295"));
}

TEST_F(MigratorTest, takes_no_status_but_completed_for_success)
{
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1")};
    packages.End(c_deprovision, {AsyncStatus::Canceled, S_OK});
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Canceled, S_FALSE});
    packages.End("RemovePackageAsync V1", {AsyncStatus::Started, S_OK});

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, Contains(c_deprovisioningFailed + "0"s));
    EXPECT_THAT(happened, Contains(c_removalFailed + "1"s));
    EXPECT_THAT(happened, Contains(c_removalFailed + "0"s));
    EXPECT_THAT(happened, Not(Contains(c_removed)));
}

TEST_F(MigratorTest, does_not_look_at_the_error_code_of_an_operation_that_completed)
{
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1")};
    packages.End(c_deprovision, {AsyncStatus::Completed, E_FAIL});
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Completed, E_FAIL});
    packages.Fail("ErrorCode", E_UNEXPECTED);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, Contains(c_deprovisioned));
    EXPECT_THAT(happened, Contains(c_removed));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, still_fails_when_a_package_could_be_removed_for_the_current_user_only)
{
    packages.installed = {Velmora(L"V1")};
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Error, c_packageNotFound});

    EXPECT_EQ(Run(), c_packageNotFound);

    EXPECT_THAT(happened,
                ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", c_searchingInstalled,
                            "FindPackages", "stop client", "FullName V1", "RemovePackageAsync V1 80000", "wait",
                            "InstalledPath V1", Preparing("C:\\Apps\\V1"), c_removalFailed + "-2147009295"s,
                            c_forOneUser, "RemovePackageAsync V1", "wait", c_removed));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, sends_only_the_second_failure_when_both_removals_fail)
{
    packages.installed = {Velmora(L"V1")};
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Error, c_packageNotFound});
    packages.End("RemovePackageAsync V1", {AsyncStatus::Error, c_packagesInUse});

    EXPECT_EQ(Run(), c_packagesInUse);

    EXPECT_THAT(Captured(), ElementsAre("[Migrator] Failed to remove legacy Velmora installation: -2147009278"));
    EXPECT_THAT(SentryTesting::CurrentRun().breadcrumbs,
                Contains(SentryTesting::Breadcrumb{
                    std::nullopt, "Error:[Migrator] Failed to remove legacy Velmora installation: -2147009295"}));
}

TEST_F(MigratorTest, returns_the_failure_of_the_last_removal_that_failed)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2"), Other(L"Other_1"), Velmora(L"V3"), Velmora(L"V4")};
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Error, E_FAIL});
    packages.End("RemovePackageAsync V1", {AsyncStatus::Error, E_ACCESSDENIED});
    packages.End("RemovePackageAsync V3 80000", {AsyncStatus::Error, c_packageNotFound});

    EXPECT_EQ(Run(), c_packageNotFound);

    EXPECT_THAT(happened,
                ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", c_searchingInstalled,
                            "FindPackages", //
                            "stop client", "FullName V1", "RemovePackageAsync V1 80000", "wait", "InstalledPath V1",
                            Preparing("C:\\Apps\\V1"), c_removalFailed + "-2147467259"s, c_forOneUser,
                            "RemovePackageAsync V1", "wait", c_removalFailed + "-2147024891"s, //
                            "stop client", "FullName V2", "RemovePackageAsync V2 80000", "wait", "InstalledPath V2",
                            Preparing("C:\\Apps\\V2"), c_removed, //
                            "stop client", "FullName V3", "RemovePackageAsync V3 80000", "wait", "InstalledPath V3",
                            Preparing("C:\\Apps\\V3"), c_removalFailed + "-2147009295"s, c_forOneUser,
                            "RemovePackageAsync V3", "wait", c_removed, //
                            "stop client", "FullName V4", "RemovePackageAsync V4 80000", "wait", "InstalledPath V4",
                            Preparing("C:\\Apps\\V4"), c_removed));
}

TEST_F(MigratorTest, begins_every_call_with_an_empty_result)
{
    packages.installed = {Velmora(L"V1")};
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Error, E_FAIL});
    EXPECT_EQ(Run(), E_FAIL);
    packages.installed.clear();

    EXPECT_EQ(Run(), S_OK);
}

TEST_F(MigratorTest, logs_the_path_as_it_is)
{
    packages.installed = {{c_family, L"V1", L""}, {c_family, L"V2", L"\\\\?\\D:\\Windows Apps\\Velmora 1.0\\"}};

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, Contains(Preparing("")));
    EXPECT_THAT(happened, Contains(Preparing("\\\\?\\D:\\Windows Apps\\Velmora 1.0\\")));
}

TEST_F(MigratorTest, does_not_look_at_whether_the_client_was_stopped)
{
    packages.installed = {Velmora(L"V1")};
    snapshotFails = true;

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, Contains("stop client"));
    EXPECT_THAT(happened, Contains("RemovePackageAsync V1 80000"));
    EXPECT_THAT(happened, Contains(c_removed));
}

TEST_F(MigratorTest, goes_on_after_the_walk_when_stopping_the_client_throws)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    Fake<&Process32FirstW> throws = [](HANDLE, PROCESSENTRY32W*) -> BOOL { throw 42; };

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened,
                ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", c_searchingInstalled,
                            "FindPackages", "stop client", c_installedSearchFailed + "Unknown Error"s));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, reports_success_where_the_class_is_not_registered)
{
    UseRegisteredClassesOnly();
    packages.installed = {Velmora(L"V1")};
    packages.Fail("activate", REGDB_E_CLASSNOTREG, 2);
    Fake<&LoadLibraryExW> load = [](LPCWSTR name, HANDLE, DWORD) -> HMODULE {
        ADD_FAILURE() << Narrow(name) << " is looked for";
        return nullptr;
    };

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, ElementsAre(c_searchingProvisioned, c_activate, c_provisionedSearchFailed + "Unknown Error"s,
                                      c_searchingInstalled, c_activate, c_installedSearchFailed + "Unknown Error"s));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, tries_again_to_make_the_package_manager_for_the_second_search)
{
    packages.installed = {Velmora(L"V1")};
    packages.Fail("ActivateInstance", E_OUTOFMEMORY);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, ElementsAre(c_searchingProvisioned, c_activate, c_provisionedSearchFailed + "std::bad_alloc"s,
                                      c_searchingInstalled, c_activate, "FindPackages", "stop client", "FullName V1",
                                      "RemovePackageAsync V1 80000", "wait", "InstalledPath V1",
                                      Preparing("C:\\Apps\\V1"), c_removed));
}

// A call that fails: an exception of C++/WinRT's own, which is not a standard one, or a standard one.
struct Thrown
{
    HRESULT code;
    const char* text;
    bool isStandard;
};
constexpr Thrown c_thrown[] = {{E_ACCESSDENIED, "Unknown Error", false},
                               {HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), "Unknown Error", false},
                               {E_OUTOFMEMORY, "std::bad_alloc", true}};

class MigratorFailureTest : public MigratorTest,
                            public testing::WithParamInterface<std::tuple<const char*, const Thrown*>>
{
protected:
    static std::string Call() { return std::get<0>(GetParam()); }
    static const Thrown& Exception() { return *std::get<1>(GetParam()); }
    static std::string Text() { return Exception().text; }

    // The log lines alone.
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        for (const std::string& entry : happened)
        {
            if (entry.starts_with('|'))
            {
                lines.push_back(entry);
            }
        }
        return lines;
    }
};

std::string NameOfFailure(const testing::TestParamInfo<std::tuple<const char*, const Thrown*>>& info)
{
    std::string name = std::get<0>(info.param) + "_"s + Hex(static_cast<std::uint32_t>(std::get<1>(info.param)->code));
    for (char& character : name)
    {
        character = std::isalnum(static_cast<unsigned char>(character)) ? character : '_';
    }
    return name;
}

// The points of the first search.
class ProvisionedSearchTest : public MigratorFailureTest
{
};
INSTANTIATE_TEST_SUITE_P(FailingAt, ProvisionedSearchTest,
                         testing::Combine(testing::Values("FindProvisionedPackages", "Size", "GetAt 0", "Id P1",
                                                          "FamilyName P1", c_deprovision, "Completed", "Status",
                                                          "ErrorCode"),
                                          testing::Values(&c_thrown[0], &c_thrown[1], &c_thrown[2])),
                         NameOfFailure);

TEST_P(ProvisionedSearchTest, ends_the_walk_and_goes_on_with_the_installed_packages)
{
    packages.provisioned = {Velmora(L"P1"), Velmora(L"P2")};
    packages.installed = {Velmora(L"V1")};
    packages.End(c_deprovision, {AsyncStatus::Error, E_FAIL});
    packages.Fail(Call(), Exception().code);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(Lines(), ElementsAre(c_searchingProvisioned, c_provisionedSearchFailed + Text(), c_searchingInstalled,
                                     Preparing("C:\\Apps\\V1"), c_removed));
    EXPECT_EQ(std::count(happened.begin(), happened.end(), c_activate), 1);
    EXPECT_THAT(Captured(), IsEmpty());
}

// The points of the second search that lie outside the removal of a package.
class InstalledSearchTest : public MigratorFailureTest
{
};
INSTANTIATE_TEST_SUITE_P(FailingAt, InstalledSearchTest,
                         testing::Combine(testing::Values("FindPackages", "First", "HasCurrent 0", "Current 0", "Id V1",
                                                          "FamilyName V1", "FullName V1"),
                                          testing::Values(&c_thrown[0], &c_thrown[1], &c_thrown[2])),
                         NameOfFailure);

TEST_P(InstalledSearchTest, ends_the_walk)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    packages.Fail(Call(), Exception().code);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(Lines(), ElementsAre(c_searchingProvisioned, c_searchingInstalled, c_installedSearchFailed + Text()));
    EXPECT_THAT(happened, Not(Contains(StartsWith("RemovePackageAsync"))));
    EXPECT_THAT(Captured(), IsEmpty());
}

class InstalledWalkTest : public MigratorFailureTest
{
};
INSTANTIATE_TEST_SUITE_P(FailingAt, InstalledWalkTest,
                         testing::Combine(testing::Values("MoveNext 0", "Current 1", "Id V2", "FamilyName V2",
                                                          "FullName V2"),
                                          testing::Values(&c_thrown[0], &c_thrown[1], &c_thrown[2])),
                         NameOfFailure);

TEST_P(InstalledWalkTest, keeps_the_result_of_the_packages_before)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2"), Velmora(L"V3")};
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Error, c_packageNotFound});
    packages.Fail(Call(), Exception().code);

    EXPECT_EQ(Run(), c_packageNotFound);

    EXPECT_THAT(Lines(), ElementsAre(c_searchingProvisioned, c_searchingInstalled, Preparing("C:\\Apps\\V1"),
                                     c_removalFailed + "-2147009295"s, c_forOneUser, c_removed,
                                     c_installedSearchFailed + Text()));
    EXPECT_THAT(Captured(), IsEmpty());
}

// The points of a removal for all users. The package is one of two.
class RemovalTest : public MigratorFailureTest
{
protected:
    // A standard exception ends this package's removal, any other one the walk.
    std::vector<std::string> LinesAfter(std::vector<std::string> lines) const
    {
        if (Exception().isStandard)
        {
            lines.push_back(c_removalFailed + Text());
            lines.push_back(Preparing("C:\\Apps\\V2"));
            lines.emplace_back(c_removed);
        }
        else
        {
            lines.push_back(c_installedSearchFailed + Text());
        }
        return lines;
    }
};
INSTANTIATE_TEST_SUITE_P(FailingAt, RemovalTest,
                         testing::Combine(testing::Values("RemovePackageAsync V1 80000", "Completed", "Status",
                                                          "ErrorCode", "InstalledPath V1"),
                                          testing::Values(&c_thrown[0], &c_thrown[1], &c_thrown[2])),
                         NameOfFailure);

TEST_P(RemovalTest, goes_on_with_the_next_package_after_a_standard_exception_only)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Error, c_packageNotFound});
    packages.Fail(Call(), Exception().code);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_EQ(Lines(), LinesAfter({c_searchingProvisioned, c_searchingInstalled}));
    EXPECT_THAT(happened, Not(Contains("RemovePackageAsync V1")));
    EXPECT_THAT(Captured(), IsEmpty());
}

// The points of a removal for the current user, which comes second.
class SecondRemovalTest : public RemovalTest
{
protected:
    // Lets something fail when the second removal has begun.
    Fake<&WriteConsoleW> atSecondRemoval = [this](HANDLE, const void* text, DWORD length, LPDWORD, LPVOID) -> BOOL {
        std::string line = Narrow({static_cast<const wchar_t*>(text), length});
        line.pop_back();
        happened.push_back(line);
        if (line == c_forOneUser)
        {
            packages.Fail(Call(), Exception().code);
        }
        return TRUE;
    };
};
INSTANTIATE_TEST_SUITE_P(FailingAt, SecondRemovalTest,
                         testing::Combine(testing::Values("RemovePackageAsync V1", "Completed", "Status", "ErrorCode"),
                                          testing::Values(&c_thrown[0], &c_thrown[1], &c_thrown[2])),
                         NameOfFailure);

TEST_P(SecondRemovalTest, keeps_the_failure_of_the_first)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    packages.End("RemovePackageAsync V1 80000", {AsyncStatus::Error, c_packageNotFound});
    packages.End("RemovePackageAsync V1", {AsyncStatus::Error, c_packagesInUse});

    EXPECT_EQ(Run(), c_packageNotFound);

    EXPECT_EQ(Lines(), LinesAfter({c_searchingProvisioned, c_searchingInstalled, Preparing("C:\\Apps\\V1"),
                                   c_removalFailed + "-2147009295"s, c_forOneUser}));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, logs_the_text_of_a_standard_exception)
{
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    packages.eventError = ERROR_NO_SYSTEM_RESOURCES;

    EXPECT_EQ(Run(), S_OK);

    const auto failure = [](const char* line) { return AllOf(StartsWith(line), HasSubstr("800705AA")); };
    EXPECT_THAT(happened,
                ElementsAre(c_searchingProvisioned, c_activate, "FindProvisionedPackages", c_deprovision,
                            failure(c_provisionedSearchFailed), c_searchingInstalled, "FindPackages", "stop client",
                            "FullName V1", "RemovePackageAsync V1 80000", failure(c_removalFailed), "stop client",
                            "FullName V2", "RemovePackageAsync V2 80000", failure(c_removalFailed)));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, logs_the_text_of_a_standard_exception_in_the_code_page_of_the_system)
{
    const FakeCodePage western(1252);
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1")};
    const Fake<&CreateEventExW> create = [](LPSECURITY_ATTRIBUTES, LPCWSTR, DWORD, DWORD) -> HANDLE {
        throw std::runtime_error("no luck \x80\r\n");
    };

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, Contains(c_provisionedSearchFailed + "no luck ?"s)); // not ASCII
    EXPECT_THAT(happened, Contains(c_removalFailed + "no luck ?"s));
}

TEST_F(MigratorTest, waits_with_an_event_that_stays_signaled)
{
    std::vector<std::pair<DWORD, DWORD>> made;
    packages.installed = {Velmora(L"V1")};
    Fake<&CreateEventExW> create = [&](LPSECURITY_ATTRIBUTES, LPCWSTR, DWORD flags, DWORD access) {
        made.emplace_back(flags, access);
        return packages.MakeEvent(flags, access);
    };

    Run();

    EXPECT_EQ(made, (decltype(made){{CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS}}));
}

TEST_F(MigratorTest, deletes_the_folder_of_the_service_after_the_packages)
{
    std::vector<std::string> named;
    packages.installed = {Velmora(L"V1")};
    Fake<&GetFullPathNameW> fullPath = [&](LPCWSTR path, DWORD size, LPWSTR buffer, LPWSTR* part) {
        named.push_back(Narrow(path));
        EXPECT_EQ(happened.back(), c_removed);
        return decltype(fullPath)::Real(path, size, buffer, part);
    };

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(named, ElementsAre(Narrow(folders.ProgramFilesX64()) + "\\OrvaneAuthService//"));
}

TEST_F(MigratorTest, has_no_folder_to_delete)
{
    RemoveTestFolder(folders.ProgramFilesX64() + L"\\OrvaneAuthService");

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(happened, testing::SizeIs(5));
}

TEST_F(MigratorTest, says_nothing_of_a_folder_that_cannot_be_deleted)
{
    const std::wstring readOnly = root.AddFile(L"Program Files X64\\OrvaneAuthService\\a.txt");
    SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_TRUE(Exists(readOnly));
    EXPECT_FALSE(Exists(folders.ProgramFilesX64() + L"\\OrvaneAuthService\\bin"));
    EXPECT_THAT(happened, testing::SizeIs(5));
    SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_NORMAL);
    RemoveTestFolder(folders.ProgramFilesX64() + L"\\OrvaneAuthService");
}

TEST_F(MigratorTest, does_not_follow_a_link_in_the_place_of_the_folder)
{
    const std::wstring folder = folders.ProgramFilesX64() + L"\\OrvaneAuthService";
    RemoveTestFolder(folder);
    root.AddFile(L"target\\precious.txt");
    ASSERT_TRUE(CreateDirectoryLink(folder, root / L"target"));

    EXPECT_EQ(Run(), S_OK);

    EXPECT_TRUE(Exists(root / L"target\\precious.txt"));
    RemoveTestFolder(folder);
}

TEST_F(MigratorTest, nothing_is_thrown_when_memory_runs_out)
{
    HRESULT result = S_OK;
    {
        const OutOfMemory outOfMemory;
        result = Run();
    }
    EXPECT_EQ(result, E_OUTOFMEMORY);

    EXPECT_EQ(Run(), S_OK);
}

} // namespace
