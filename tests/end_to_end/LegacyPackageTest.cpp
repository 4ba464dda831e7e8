// The packaged installation of earlier releases, in every state in which it can be found.
#include "EndToEndTest.h"
#include "StatusWindowLayout.h"
#include "support/Owners.h"
#include "support/Servers.h"
#include "support/Waiting.h"
#include "support/WindowCapture.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace Testing
{
namespace
{
const std::wstring c_family = L"Orvane.Velmora_k4wz81tqm0d3x";
const std::wstring c_package(c_legacyPackage);

constexpr unsigned long c_packageNotFound = 0x80073CF1;
constexpr std::string_view c_packageNotFoundNumber = "-2147009295";
constexpr unsigned long c_packagesInUse = 0x80073D02;
constexpr std::string_view c_packagesInUseNumber = "-2147009278";
constexpr unsigned long c_accessDenied = 0x80070005;
constexpr unsigned long c_cancelled = 0x800704C7;
constexpr std::string_view c_cancelledNumber = "-2147023673";

// How often a removal is tried, and how long the pauses in between are in all.
constexpr int c_attempts = 5;
constexpr std::chrono::seconds c_pauses{20};

using Calls = std::vector<std::wstring>;

const std::wstring c_removal = L"RemovePackageAsync " + c_package + L" 80000";
const std::wstring c_removalForOneUser = L"RemovePackageAsync " + c_package;
const std::wstring c_deprovisioning = L"DeprovisionPackageForAllUsersAsync " + c_family;

std::wstring KeyOf(std::wstring_view list, std::wstring_view name)
{
    return LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\)" + std::wstring(list) + L"\\" + std::wstring(name);
}

std::vector<std::string> Append(std::vector<std::string> lines, const std::vector<std::string>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

std::vector<std::string> Repeat(int times, const std::vector<std::string>& lines)
{
    std::vector<std::string> all;
    for (int i = 0; i < times; ++i)
    {
        all = Append(std::move(all), lines);
    }
    return all;
}

class LegacyPackageTest : public EndToEndTest
{
protected:
    void SetUp() override
    {
        if (!HasServers())
        {
            GTEST_SKIP() << "The package manager of a real Windows cannot be replaced.";
        }
    }

    // Adds a package to the sample's. Returns its folder.
    std::wstring Add(const std::wstring& list, const std::wstring& name, const std::wstring& family,
                     const std::wstring& fullName) const
    {
        const std::wstring key = list + L"\\" + name;
        const std::wstring folder = LR"(D:\Apps\)" + fullName;
        packages.WriteText(key, L"FamilyName", family);
        packages.WriteText(key, L"FullName", fullName);
        packages.WriteText(key, L"InstalledPath", folder);
        return folder;
    }

    // Lets an operation fail.
    void EndWith(const std::wstring& call, unsigned long error) const { packages.WriteNumber(L"Results", call, error); }

    // The declared state, with the sample's package still in that list.
    MachineState DeclaredStateWithPackageIn(std::wstring_view list) const
    {
        MachineState state = DeclaredState();
        state.CopyTree(KeyOf(list, L"Velmora"), Before());
        return state;
    }

    ServerState packages = StateOf(Server::Packages);
};

TEST_F(LegacyPackageTest, A_provisioned_and_installed_package_is_deprovisioned_and_then_removed)
{
    LayDownSample();
    Run();
    ExpectFullSuccess();
    EXPECT_EQ(packages.Calls(), (Calls{L"FindProvisionedPackages", c_deprovisioning, L"FindPackages", c_removal}));
}

TEST_F(LegacyPackageTest, A_package_that_is_only_provisioned_is_deprovisioned)
{
    LayDownSample();
    packages.DeleteKey(LR"(Installed\Velmora)");
    Run();
    ExpectFullSuccess(ExpectedLog().Migrates(MigratorLog().Deprovisions().Lines()));
    EXPECT_EQ(packages.Calls(), (Calls{L"FindProvisionedPackages", c_deprovisioning, L"FindPackages"}));
}

TEST_F(LegacyPackageTest, A_package_that_is_only_installed_is_removed)
{
    LayDownSample();
    packages.DeleteKey(LR"(Provisioned\Velmora)");
    Run();
    ExpectFullSuccess(ExpectedLog().Migrates(MigratorLog().Removes(LegacyPackageFolder()).Lines()));
    EXPECT_EQ(packages.Calls(), (Calls{L"FindProvisionedPackages", L"FindPackages", c_removal}));
}

TEST_F(LegacyPackageTest, Without_a_package_of_ours_nothing_is_asked_for_but_the_lists)
{
    LayDownSample({Group::LegacyPackage});
    Run();
    ExpectFullSuccess(ExpectedLog().FindsNoPackage());
    EXPECT_EQ(packages.Calls(), (Calls{L"FindProvisionedPackages", L"FindPackages"}));
}

TEST_F(LegacyPackageTest, Two_packages_of_the_family_are_both_removed)
{
    LayDownSample();
    const std::wstring folder = Add(L"Installed", L"Velmora for another processor", c_family, L"Orvane.Velmora_arm64");
    Run();
    MachineState state = DeclaredState();
    state.Erase(KeyOf(L"Installed", L"Velmora for another processor"));
    ExpectFullSuccess(
        ExpectedLog().Migrates(MigratorLog().Deprovisions().Removes(LegacyPackageFolder()).Removes(folder).Lines()),
        state);
    EXPECT_EQ(packages.Calls(), (Calls{L"FindProvisionedPackages", c_deprovisioning, L"FindPackages", c_removal,
                                       L"RemovePackageAsync Orvane.Velmora_arm64 80000"}));
}

TEST_F(LegacyPackageTest, A_package_is_found_among_hundreds)
{
    LayDownSample();
    for (int number = 100; number < 400; ++number)
    {
        const std::wstring name = std::to_wstring(number);
        Add(L"Provisioned", name, L"Other_" + name, L"Other_" + name);
        Add(L"Installed", name, L"Other_" + name, L"Other_" + name);
    }
    Run();
    ExpectFullSuccess();
}

TEST_F(LegacyPackageTest, An_operation_that_ends_late_is_waited_for)
{
    LayDownSample();
    packages.WriteNumber({}, L"DelayMilliseconds", 700);
    Run();
    ExpectFullSuccess();
    EXPECT_GE(Result().duration, std::chrono::milliseconds(1400));
}

// Paints over what a window shows on the screen.
void PaintOver(HWND window)
{
    RECT area{};
    GetWindowRect(window, &area);
    HDC screen = GetDC(nullptr);
    FillRect(screen, &area, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    ReleaseDC(nullptr, screen);
}

TEST_F(LegacyPackageTest, The_window_is_painted_while_the_package_manager_works)
{
    constexpr wchar_t c_event[] = L"Velmora.Tests.RemovalMayEnd";
    constexpr int c_progress = 86; // in percent, at this step
    const UniqueHandle mayEnd(CreateEventW(nullptr, TRUE, FALSE, c_event));
    const StatusWindowLayout layout(USER_DEFAULT_SCREEN_DPI);
    bool isLookedAt = false;
    bool isPainted = false;
    RunOptions options{.answers = {AnswerConfirmation(IDYES), FullSuccessMessage()}};
    options.whileRunning = [&](const std::string&) {
        if (isLookedAt || std::ranges::count(packages.Calls(), c_removal) == 0)
        {
            return;
        }
        isLookedAt = true;
        HWND window = FindWindowW(L"VELMORA_UNINSTALLER", nullptr);
        Picture before;
        EXPECT_TRUE(BecomesTrue([&] {
            before = CaptureWindow(window);
            return CheckBar(layout, before, c_progress).empty() && CheckBackground(layout, before).empty();
        }));
        PaintOver(window);
        EXPECT_TRUE(BecomesTrue([&] { return CaptureWindow(window).IsPlain(); }));
        InvalidateRect(window, nullptr, TRUE);
        isPainted = BecomesTrue([&] { return CaptureWindow(window) == before; });
        EXPECT_EQ(packages.Calls().back(), c_removal);
        EXPECT_FALSE(packages.KeysIn(L"Installed").empty()); // it still works
        SetEvent(mayEnd.get());
    };
    LayDownSample();
    packages.WriteText(L"Events", c_removal, c_event);
    Run(L"-g", options);
    EXPECT_TRUE(isPainted);
    ExpectFullSuccess(ExpectedLog().Runs("Gui"));
}

TEST_F(LegacyPackageTest, Operations_that_fail_late_are_waited_for)
{
    LayDownSample();
    packages.WriteNumber({}, L"DelayMilliseconds", 300);
    EndWith(c_deprovisioning, c_packagesInUse);
    EndWith(c_removal, c_packageNotFound);
    Run();
    // At the second attempt there is no package any more.
    ExpectFullSuccess(
        ExpectedLog().Migrates(Append(MigratorLog()
                                          .FailsToDeprovision(c_packagesInUseNumber)
                                          .RemovesForOneUser(LegacyPackageFolder(), c_packageNotFoundNumber)
                                          .Lines(),
                                      MigratorLog().FailsToDeprovision(c_packagesInUseNumber).Lines())),
        DeclaredStateWithPackageIn(L"Provisioned"));
}

TEST_F(LegacyPackageTest, A_package_that_cannot_be_deprovisioned_stays_and_is_tried_once)
{
    LayDownSample();
    EndWith(c_deprovisioning, c_packagesInUse);
    Run();
    ExpectFullSuccess(
        ExpectedLog().Migrates(
            MigratorLog().FailsToDeprovision(c_packagesInUseNumber).Removes(LegacyPackageFolder()).Lines()),
        DeclaredStateWithPackageIn(L"Provisioned"));
    EXPECT_EQ(std::ranges::count(packages.Calls(), c_deprovisioning), 1);
}

TEST_F(LegacyPackageTest, A_package_that_goes_for_the_current_user_alone_is_looked_for_again)
{
    LayDownSample();
    EndWith(c_removal, c_packageNotFound);
    Run();
    ExpectFullSuccess(ExpectedLog().Migrates(
        Append(MigratorLog().Deprovisions().RemovesForOneUser(LegacyPackageFolder(), c_packageNotFoundNumber).Lines(),
               MigratorLog().Lines())));
    EXPECT_EQ(packages.Calls(), (Calls{L"FindProvisionedPackages", c_deprovisioning, L"FindPackages", c_removal,
                                       c_removalForOneUser, L"FindProvisionedPackages", L"FindPackages"}));
    EXPECT_GE(Result().duration, std::chrono::seconds(5));
}

TEST_F(LegacyPackageTest, A_package_that_other_users_keep_is_tried_five_times_and_only_warns)
{
    LayDownSample();
    packages.WriteNumber(LR"(Installed\Velmora)", L"OtherUsers", 1);
    EndWith(c_removal, c_packageNotFound);
    Run();
    const auto lines = MigratorLog().RemovesForOneUser(LegacyPackageFolder(), c_packageNotFoundNumber).Lines();
    ExpectFullSuccess(
        ExpectedLog()
            .Migrates(Append(
                MigratorLog().Deprovisions().RemovesForOneUser(LegacyPackageFolder(), c_packageNotFoundNumber).Lines(),
                Repeat(c_attempts - 1, lines)))
            .Warns(Step::LegacyPackage, c_packageNotFound),
        DeclaredStateWithPackageIn(L"Installed"));
    EXPECT_EQ(std::ranges::count(packages.Calls(), c_removalForOneUser), c_attempts);
    EXPECT_GE(Result().duration, c_pauses);
}

TEST_F(LegacyPackageTest, A_package_that_nobody_can_remove_only_warns_of_the_last_failure)
{
    LayDownSample();
    EndWith(c_removal, c_packageNotFound);
    EndWith(c_removalForOneUser, c_cancelled);
    Run();
    const auto lines =
        MigratorLog().FailsToRemove(LegacyPackageFolder(), c_packageNotFoundNumber, c_cancelledNumber).Lines();
    ExpectFullSuccess(
        ExpectedLog()
            .Migrates(Append(MigratorLog()
                                 .Deprovisions()
                                 .FailsToRemove(LegacyPackageFolder(), c_packageNotFoundNumber, c_cancelledNumber)
                                 .Lines(),
                             Repeat(c_attempts - 1, lines)))
            .Warns(Step::LegacyPackage, c_cancelled),
        DeclaredStateWithPackageIn(L"Installed"));
    EXPECT_GE(Result().duration, c_pauses);
}

TEST_F(LegacyPackageTest, Searches_that_fail_leave_the_packages_and_are_no_failure)
{
    LayDownSample();
    packages.WriteNumber(L"Failures", L"FindProvisionedPackages", c_accessDenied);
    packages.WriteNumber(L"Failures", L"FamilyName " + c_package, c_accessDenied);
    Run();
    MachineState state = DeclaredStateWithPackageIn(L"Provisioned");
    state.CopyTree(KeyOf(L"Installed", L"Velmora"), Before());
    ExpectFullSuccess(ExpectedLog().Migrates(MigratorLog().FailsToSearchProvisioned().FailsToSearchInstalled().Lines()),
                      state);
}

TEST_F(LegacyPackageTest, A_path_that_cannot_be_told_ends_the_search)
{
    LayDownSample();
    packages.WriteNumber(L"Failures", L"InstalledPath " + c_package, c_accessDenied);
    Run();
    // The removal was over by then.
    ExpectFullSuccess(ExpectedLog().Migrates(MigratorLog().Deprovisions().FailsToSearchInstalled().Lines()));
}

TEST_F(LegacyPackageTest, A_machine_without_a_package_manager_is_no_failure)
{
    LayDownSample({Group::LegacyPackage});
    UnregisterServer(Server::Packages);
    Run();
    ExpectFullSuccess(
        ExpectedLog().Migrates(MigratorLog().FailsToSearchProvisioned().FailsToSearchInstalled().Lines()));
    EXPECT_EQ(packages.Calls(), Calls{});
}
} // namespace
} // namespace Testing
