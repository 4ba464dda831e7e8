#include "Installer/Migrator.h"

#include "support/common/DirectoryLink.h"
#include "support/unit/FakeCodePage.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/FakePackageManager.h"
#include "support/unit/FakeSentry.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/ProcessesTest.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <tlhelp32.h>

#include <gmock/gmock.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using winrt::Windows::Foundation::AsyncStatus;
using Ending = FakePackageManager::Ending;

// Wide and narrow, as packages have them and as the journal does.
#define FAMILY "Orvane.Velmora_k4wz81tqm0d3x"
constexpr wchar_t c_family[] = L"Orvane.Velmora_k4wz81tqm0d3x";

constexpr HRESULT c_packagesInUse = static_cast<HRESULT>(0x80073D02);   // -2147009278
constexpr HRESULT c_packageNotFound = static_cast<HRESULT>(0x80073CF1); // -2147009295

std::string Info(const std::string& text)
{
    return "Log(|INFO|:    [Migrator] " + text + ")";
}

std::string Error(const std::string& text)
{
    return "Log(|ERROR|:   [Migrator] " + text + ")";
}

std::string ProvisionedSearchFailed(const std::string& reason)
{
    return Error("Failed to search for provisioned Velmora legacy packages: " + reason);
}

std::string InstalledSearchFailed(const std::string& reason)
{
    return Error("Failed to search for installed Velmora legacy packages: " + reason);
}

std::string DeprovisioningFailed(const std::string& reason)
{
    return Error("Failed to deprovisioned Velmora Package: " + reason);
}

std::string RemovalFailed(const std::string& reason)
{
    return Error("Failed to remove legacy Velmora installation: " + reason);
}

std::string Preparing(const std::string& path)
{
    return Info("Preparing to remove legacy Velmora installation at: " + path);
}

const std::string c_searchingProvisioned = Info("Searching for provisioned Velmora legacy packages...");
const std::string c_searchingInstalled = Info("Searching for installed Velmora legacy packages...");
const std::string c_deprovisioned = Info("Deprovisioned Velmora Package to prevent future auto-installs...");
const std::string c_removed = Info("Successfully removed legacy Velmora installation!");
const std::string c_forOneUser = Info("Attempting to remove for single user only...");

constexpr char c_activate[] = "RoGetActivationFactory(\"Windows.Management.Deployment.PackageManager\")";
constexpr char c_deprovision[] = "DeprovisionPackageForAllUsersAsync(\"" FAMILY "\")";
constexpr char c_wait[] = "WaitForSingleObjectEx(event, 0xffffffff, 0)";
constexpr char c_lookForClient[] = "CreateToolhelp32Snapshot(0x2, 0)"; // StopRunningClient begins with it

std::string Remove(const std::string& name)
{
    return "RemovePackageAsync(\"" + name + "\", 0x80000)";
}

std::string RemoveForOneUser(const std::string& name)
{
    return "RemovePackageAsync(\"" + name + "\")";
}

// What happens, in pieces.
const Calls c_searchProvisioned{c_searchingProvisioned, c_activate, "FindProvisionedPackages()"};
const Calls c_searchInstalled{c_searchingInstalled, "FindPackages()"};

Calls Deprovision(const std::string& outcome)
{
    return {c_deprovision, c_wait, outcome};
}

Calls Removal(const std::string& name, const std::string& outcome)
{
    return {c_lookForClient, "FullName(" + name + ")",      Remove(name),
            c_wait,          "InstalledPath(" + name + ")", Preparing("C:\\Apps\\" + name),
            outcome};
}

Calls SecondRemoval(const std::string& name, const std::string& outcome)
{
    return {c_forOneUser, RemoveForOneUser(name), c_wait, outcome};
}

PackageDescription Velmora(const std::wstring& fullName)
{
    return {c_family, fullName, L"C:\\Apps\\" + fullName};
}

PackageDescription Other(const std::wstring& familyName)
{
    return {familyName, L"full name of " + familyName, L"C:\\Apps\\Other"};
}

// A call that fails: an exception of C++/WinRT's own, which is not a standard one, or a standard one.
struct Thrown
{
    HRESULT code;
    std::string text;
    bool isStandard;
};
const Thrown c_thrown[] = {{E_ACCESSDENIED, "Unknown Error", false},
                           {HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), "Unknown Error", false},
                           {E_OUTOFMEMORY, "std::bad_alloc", true}};

// A machine without processes. There is one attempt, and no pause.
class MigratorTest : public ProcessesTest
{
protected:
    MigratorTest()
    {
        log.onLine = [this](const std::string& line) {
            // Those of other parts are not looked at here.
            if (line.find("[Migrator]") != std::string::npos)
            {
                journal.Add("Log", line);
            }
        };
        root.AddFile(L"Program Files X64\\OrvaneAuthService\\bin\\service.exe");
        root.AddFile(L"Program Files X64\\OrvaneAuthService2\\service.exe");
        root.AddFile(L"Program Files\\OrvaneAuthService\\other.exe");
    }

    ~MigratorTest() override
    {
        EXPECT_FALSE(Exists(serviceFolder)) << "this goes in every case";
        EXPECT_TRUE(Exists(folders.ProgramFilesX64() + L"\\OrvaneAuthService2"));
        EXPECT_TRUE(Exists(folders.ProgramFiles() + L"\\OrvaneAuthService\\other.exe"));
        EXPECT_THAT(clock.Sleeps(), IsEmpty());
    }

    // The messages of the events that are sent.
    static std::vector<std::string> Captured()
    {
        std::vector<std::string> messages;
        for (const SentryEvent& event : Sentry().events)
        {
            EXPECT_EQ(event.level, SENTRY_LEVEL_ERROR);
            messages.push_back(event.message);
        }
        return messages;
    }

    // What the package manager is asked to do, with the log lines and the stopping of the client.
    Calls Happened() const
    {
        return journal.CallsOf({"RoGetActivationFactory", "FindProvisionedPackages",
                                "DeprovisionPackageForAllUsersAsync", "FindPackages", "FullName", "RemovePackageAsync",
                                "InstalledPath", "WaitForSingleObjectEx", "CreateToolhelp32Snapshot", "Log"});
    }
    Calls Lines() const { return journal.CallsOf({"Log"}); }

    HRESULT Run() { return RemoveLegacyPackage(log.Logger()); }

    // Checks what comes of each of these calls when it fails, in each of the ways that there are.
    void ForEachFailure(const Calls& calls, const std::function<void(const std::string&, const Thrown&)>& check)
    {
        for (const std::string& call : calls)
        {
            for (const Thrown& thrown : c_thrown)
            {
                SCOPED_TRACE(call + ": " + Hex(static_cast<std::uint32_t>(thrown.code)));
                journal.Take();
                check(call, thrown);
                EXPECT_THAT(Captured(), IsEmpty());
            }
        }
    }

    // What follows a removal that throws: a standard exception ends this package's removal, any other one the walk.
    static Calls AfterThrowing(const Thrown& thrown)
    {
        return thrown.isStandard ? Calls{RemovalFailed(thrown.text), Preparing("C:\\Apps\\V2"), c_removed}
                                 : Calls{InstalledSearchFailed(thrown.text)};
    }

    TestFolder root;
    FakeFolders folders{root};
    std::wstring serviceFolder = folders.ProgramFilesX64() + L"\\OrvaneAuthService";
    FakePackageManager packages{journal};
};

TEST_F(MigratorTest, Leaves_the_packages_of_other_families)
{
    EXPECT_EQ(Run(), S_OK);
    EXPECT_EQ(Happened(), c_searchProvisioned + c_searchInstalled);

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
    journal.Take();

    EXPECT_EQ(Run(), S_OK);

    EXPECT_EQ(Happened(), c_searchProvisioned + c_searchInstalled);
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, Deprovisions_first_and_removes_then_whatever_lies_between)
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
    // Nobody looks at the error code of an operation that completed.
    packages.End(c_deprovision, {AsyncStatus::Completed, E_FAIL});
    packages.End(Remove("V1"), {AsyncStatus::Completed, E_FAIL});

    EXPECT_EQ(Run(), S_OK);

    EXPECT_EQ(Happened(), c_searchProvisioned + 2 * Deprovision(c_deprovisioned) + c_searchInstalled +
                              Removal("V1", c_removed) + Removal("V2", c_removed));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, Waits_for_operations_whenever_they_end_and_whatever_comes_of_them)
{
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1")};
    for (const Ending ending : {Ending::AtOnce, Ending::WhileWaitedFor, Ending::OnAnotherThread})
    {
        packages.ending = ending;
        packages.End(c_deprovision, {});
        packages.End(Remove("V1"), {});
        journal.Take();

        EXPECT_EQ(Run(), S_OK);

        EXPECT_EQ(Happened(),
                  c_searchProvisioned + Deprovision(c_deprovisioned) + c_searchInstalled + Removal("V1", c_removed));

        packages.End(c_deprovision, {AsyncStatus::Error, E_FAIL});
        packages.End(Remove("V1"), {AsyncStatus::Error, c_packageNotFound});
        packages.End(RemoveForOneUser("V1"), {AsyncStatus::Canceled, c_packagesInUse});
        journal.Take();

        EXPECT_EQ(Run(), c_packagesInUse);

        EXPECT_EQ(Happened(), c_searchProvisioned + Deprovision(DeprovisioningFailed("-2147467259")) +
                                  c_searchInstalled + Removal("V1", RemovalFailed("-2147009295")) +
                                  SecondRemoval("V1", RemovalFailed("-2147009278")));
    }
    static_assert(CREATE_EVENT_MANUAL_RESET == 1 && EVENT_ALL_ACCESS == 0x1f0003);
    EXPECT_EQ(journal.CallsOf({"CreateEventExW"}), 3 * Calls{"CreateEventExW(null, null, 0x1, 0x1f0003)"});
}

TEST_F(MigratorTest, Sends_a_failed_deprovisioning_but_does_not_fail)
{
    packages.provisioned = {Velmora(L"P1"), Other(L"Other_1"), Velmora(L"P2")};
    packages.End(c_deprovision, {AsyncStatus::Error, c_packageNotFound});

    EXPECT_EQ(Run(), S_OK);

    EXPECT_EQ(Happened(),
              c_searchProvisioned + 2 * Deprovision(DeprovisioningFailed("-2147009295")) + c_searchInstalled);
    EXPECT_THAT(Captured(), ElementsAre("[Migrator] Failed to deprovisioned Velmora Package: -2147009295",
                                        "[Migrator] Failed to deprovisioned Velmora Package: -2147009295"));
}

TEST_F(MigratorTest, Takes_no_status_but_completed_for_success)
{
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1")};
    packages.End(c_deprovision, {AsyncStatus::Canceled, S_OK});
    packages.End(Remove("V1"), {AsyncStatus::Canceled, S_FALSE});
    packages.End(RemoveForOneUser("V1"), {AsyncStatus::Started, S_OK});

    EXPECT_EQ(Run(), S_OK);

    EXPECT_EQ(Happened(), c_searchProvisioned + Deprovision(DeprovisioningFailed("0")) + c_searchInstalled +
                              Removal("V1", RemovalFailed("1")) + SecondRemoval("V1", RemovalFailed("0")));
}

// A package that could be removed for the current user only has failed, too. Only the second failure of one is sent.
TEST_F(MigratorTest, Returns_the_failure_of_the_last_removal_that_failed)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2"), Other(L"Other_1"), Velmora(L"V3"), Velmora(L"V4")};
    packages.End(Remove("V1"), {AsyncStatus::Error, E_FAIL});
    packages.End(RemoveForOneUser("V1"), {AsyncStatus::Error, E_ACCESSDENIED});
    packages.End(Remove("V3"), {AsyncStatus::Error, c_packageNotFound});

    EXPECT_EQ(Run(), c_packageNotFound);

    EXPECT_EQ(Happened(), c_searchProvisioned + c_searchInstalled + Removal("V1", RemovalFailed("-2147467259")) +
                              SecondRemoval("V1", RemovalFailed("-2147024891")) + Removal("V2", c_removed) +
                              Removal("V3", RemovalFailed("-2147009295")) + SecondRemoval("V3", c_removed) +
                              Removal("V4", c_removed));
    EXPECT_THAT(Captured(), ElementsAre("[Migrator] Failed to remove legacy Velmora installation: -2147024891"));
    EXPECT_THAT(Sentry().breadcrumbs,
                Contains(Breadcrumb{std::nullopt,
                                    "Error:[Migrator] Failed to remove legacy Velmora installation: -2147467259"}));

    // The next run begins anew.
    packages.installed.clear();
    EXPECT_EQ(Run(), S_OK);
}

TEST_F(MigratorTest, Logs_the_path_as_it_is)
{
    packages.installed = {{c_family, L"V1", L""}, {c_family, L"V2", L"\\\\?\\D:\\Windows Apps\\Velmora 1.0\\"}};

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(Lines(), Contains(Preparing("")));
    EXPECT_THAT(Lines(), Contains(Preparing("\\\\?\\D:\\Windows Apps\\Velmora 1.0\\")));
}

TEST_F(MigratorTest, Does_not_look_at_whether_the_client_was_stopped)
{
    packages.installed = {Velmora(L"V1")};
    journal.Fail("CreateToolhelp32Snapshot", ERROR_PARTIAL_COPY);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_EQ(Happened(), c_searchProvisioned + c_searchInstalled + Removal("V1", c_removed));
}

TEST_F(MigratorTest, Goes_on_after_the_walk_when_stopping_the_client_throws)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    Fake<&Process32FirstW> throws = [](HANDLE, PROCESSENTRY32W*) -> BOOL { throw 42; };

    EXPECT_EQ(Run(), S_OK);

    EXPECT_EQ(Happened(),
              c_searchProvisioned + c_searchInstalled + c_lookForClient + InstalledSearchFailed("Unknown Error"));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, Reports_success_where_the_class_is_not_registered)
{
    UseRegisteredClassesOnly();
    packages.installed = {Velmora(L"V1")};
    journal.Fail("RoGetActivationFactory", REGDB_E_CLASSNOTREG, 2);
    Fake<&LoadLibraryExW> load = [](LPCWSTR name, HANDLE, DWORD) -> HMODULE {
        ADD_FAILURE() << Narrow(name) << " is looked for";
        return nullptr;
    };

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(Happened(), ElementsAre(c_searchingProvisioned, c_activate, ProvisionedSearchFailed("Unknown Error"),
                                        c_searchingInstalled, c_activate, InstalledSearchFailed("Unknown Error")));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, Tries_again_to_make_the_package_manager_for_the_second_search)
{
    packages.installed = {Velmora(L"V1")};
    journal.Fail("ActivateInstance", E_OUTOFMEMORY, 1);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_EQ(Happened(), (Calls{c_searchingProvisioned, c_activate, ProvisionedSearchFailed("std::bad_alloc"),
                                 c_searchingInstalled, c_activate, "FindPackages()"} +
                           Removal("V1", c_removed)));
}

TEST_F(MigratorTest, Goes_on_with_the_installed_packages_when_the_search_for_provisioned_ones_fails)
{
    packages.provisioned = {Velmora(L"P1"), Velmora(L"P2")};
    packages.installed = {Velmora(L"V1")};
    packages.End(c_deprovision, {AsyncStatus::Error, E_FAIL});
    ForEachFailure({"FindProvisionedPackages()", "Size()", "GetAt(0)", "Id(P1)", "FamilyName(P1)", c_deprovision,
                    "Completed()", "Status()", "ErrorCode()"},
                   [this](const std::string& call, const Thrown& thrown) {
                       journal.Fail(call, thrown.code, 1);

                       EXPECT_EQ(Run(), S_OK);

                       EXPECT_THAT(Lines(), ElementsAre(c_searchingProvisioned, ProvisionedSearchFailed(thrown.text),
                                                        c_searchingInstalled, Preparing("C:\\Apps\\V1"), c_removed));
                       EXPECT_THAT(journal.CallsOf({"RoGetActivationFactory"}), ElementsAre(c_activate));
                   });
}

TEST_F(MigratorTest, Removes_nothing_when_the_search_for_installed_packages_fails)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    ForEachFailure(
        {"FindPackages()", "First()", "HasCurrent(0)", "Current(0)", "Id(V1)", "FamilyName(V1)", "FullName(V1)"},
        [this](const std::string& call, const Thrown& thrown) {
            journal.Fail(call, thrown.code, 1);

            EXPECT_EQ(Run(), S_OK);

            EXPECT_THAT(Lines(),
                        ElementsAre(c_searchingProvisioned, c_searchingInstalled, InstalledSearchFailed(thrown.text)));
            EXPECT_THAT(journal.CallsOf({"RemovePackageAsync"}), IsEmpty());
        });
}

TEST_F(MigratorTest, Keeps_the_result_of_the_packages_before_when_the_walk_ends)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2"), Velmora(L"V3")};
    packages.End(Remove("V1"), {AsyncStatus::Error, c_packageNotFound});
    ForEachFailure({"MoveNext(0)", "Current(1)", "Id(V2)", "FamilyName(V2)", "FullName(V2)"},
                   [this](const std::string& call, const Thrown& thrown) {
                       journal.Fail(call, thrown.code, 1);

                       EXPECT_EQ(Run(), c_packageNotFound);

                       EXPECT_THAT(Lines(), ElementsAre(c_searchingProvisioned, c_searchingInstalled,
                                                        Preparing("C:\\Apps\\V1"), RemovalFailed("-2147009295"),
                                                        c_forOneUser, c_removed, InstalledSearchFailed(thrown.text)));
                   });
}

TEST_F(MigratorTest, Goes_on_with_the_next_package_after_a_standard_exception_only)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    packages.End(Remove("V1"), {AsyncStatus::Error, c_packageNotFound});
    ForEachFailure({Remove("V1"), "Completed()", "Status()", "ErrorCode()", "InstalledPath(V1)"},
                   [this](const std::string& call, const Thrown& thrown) {
                       journal.Fail(call, thrown.code, 1);

                       EXPECT_EQ(Run(), S_OK);

                       EXPECT_EQ(Lines(),
                                 (Calls{c_searchingProvisioned, c_searchingInstalled} + AfterThrowing(thrown)));
                       EXPECT_THAT(Happened(), Not(Contains(RemoveForOneUser("V1"))));
                   });
}

TEST_F(MigratorTest, Keeps_the_failure_of_the_first_removal_when_the_second_throws)
{
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    packages.End(Remove("V1"), {AsyncStatus::Error, c_packageNotFound});
    packages.End(RemoveForOneUser("V1"), {AsyncStatus::Error, c_packagesInUse});
    ForEachFailure({RemoveForOneUser("V1"), "Completed()", "Status()", "ErrorCode()"}, [this](const std::string& call,
                                                                                              const Thrown& thrown) {
        journal.onCall = [&](const std::string& entry) {
            if (entry == c_forOneUser)
            {
                journal.Fail(call, thrown.code, 1);
            }
        };

        EXPECT_EQ(Run(), c_packageNotFound);

        EXPECT_EQ(Lines(), (Calls{c_searchingProvisioned, c_searchingInstalled, Preparing("C:\\Apps\\V1"),
                                  RemovalFailed("-2147009295"), c_forOneUser} +
                            AfterThrowing(thrown)));
    });
}

TEST_F(MigratorTest, Logs_the_text_of_a_standard_exception)
{
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1"), Velmora(L"V2")};
    journal.Fail("CreateEventExW", ERROR_NO_SYSTEM_RESOURCES);

    EXPECT_EQ(Run(), S_OK);

    const auto hasCode = testing::HasSubstr("800705AA");
    EXPECT_THAT(Lines(), ElementsAre(c_searchingProvisioned, hasCode, c_searchingInstalled, hasCode, hasCode));
    EXPECT_THAT(journal.CallsOf({"RemovePackageAsync"}), ElementsAre(Remove("V1"), Remove("V2")));
    EXPECT_THAT(Captured(), IsEmpty());
}

TEST_F(MigratorTest, Logs_the_text_of_a_standard_exception_in_the_code_page_of_the_system)
{
    const FakeCodePage western(1252);
    packages.provisioned = {Velmora(L"P1")};
    packages.installed = {Velmora(L"V1")};
    const Fake<&CreateEventExW> create = [](LPSECURITY_ATTRIBUTES, LPCWSTR, DWORD, DWORD) -> HANDLE {
        throw std::runtime_error("no luck \x80\r\n");
    };

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(Lines(), Contains(ProvisionedSearchFailed("no luck ?"))); // not ASCII
    EXPECT_THAT(Lines(), Contains(RemovalFailed("no luck ?")));
}

TEST_F(MigratorTest, Deletes_the_folder_of_the_service_after_the_packages)
{
    std::vector<std::string> named;
    packages.installed = {Velmora(L"V1")};
    Fake<&GetFullPathNameW> fullPath = [&](LPCWSTR path, DWORD size, LPWSTR buffer, LPWSTR* part) {
        named.push_back(Narrow(path));
        EXPECT_EQ(Lines().back(), c_removed);
        return decltype(fullPath)::Real(path, size, buffer, part);
    };

    EXPECT_EQ(Run(), S_OK);

    EXPECT_THAT(named, ElementsAre(Narrow(serviceFolder) + "//"));
}

TEST_F(MigratorTest, Says_nothing_of_a_folder_that_cannot_be_deleted)
{
    const std::wstring readOnly = root.AddFile(L"Program Files X64\\OrvaneAuthService\\a.txt");
    SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(Run(), S_OK);

    EXPECT_TRUE(Exists(readOnly));
    EXPECT_FALSE(Exists(serviceFolder + L"\\bin"));
    EXPECT_EQ(Happened(), c_searchProvisioned + c_searchInstalled);
    RemoveTestFolder(serviceFolder);
}

TEST_F(MigratorTest, Does_not_follow_a_link_in_the_place_of_the_folder)
{
    RemoveTestFolder(serviceFolder);
    root.AddFile(L"target\\precious.txt");
    ASSERT_TRUE(CreateDirectoryLink(serviceFolder, root / L"target"));

    EXPECT_EQ(Run(), S_OK);

    EXPECT_TRUE(Exists(root / L"target\\precious.txt"));
    RemoveTestFolder(serviceFolder);
}

TEST_F(MigratorTest, Nothing_is_thrown_when_memory_runs_out)
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
