// The removal of the packaged installation of earlier releases reaches a package manager through the Windows Runtime.
// What it does in each case, the unit tests show.
#include "EndToEndTest.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Servers.h"
#include "support/end_to_end/StatusWindowLayout.h"
#include "support/end_to_end/Waiting.h"
#include "support/end_to_end/WindowCapture.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace Testing
{
namespace
{
using Calls = std::vector<std::wstring>;

const std::wstring c_removalForOneUser = L"RemovePackageAsync " + std::wstring(c_legacyPackage);
const std::wstring c_removal = c_removalForOneUser + L" 80000";
const std::wstring c_deprovisioning = L"DeprovisionPackageForAllUsersAsync Orvane.Velmora_k4wz81tqm0d3x";

class LegacyPackageTest : public EndToEndTest
{
protected:
    void SetUp() override
    {
        if (!HasServers())
        {
            GTEST_SKIP() << "The package manager of a real Windows cannot be replaced.";
        }
        LayDownSample();
    }

    ServerState packages = StateOf(Server::Packages);
};

TEST_F(LegacyPackageTest, A_provisioned_and_installed_package_is_deprovisioned_and_then_removed)
{
    Run();
    ExpectFullSuccess();
    EXPECT_EQ(packages.Calls(), (Calls{L"FindProvisionedPackages", c_deprovisioning, L"FindPackages", c_removal}));
}

TEST_F(LegacyPackageTest, A_package_that_goes_for_the_current_user_alone_is_looked_for_again)
{
    packages.WriteNumber(L"Results", c_removal, 0x80073CF1);
    Run();
    ExpectFullSuccess(ExpectedLog().Migrates(
        Join({MigratorLog().Deprovisions().RemovesForOneUser(LegacyPackageFolder(), "-2147009295").Lines(),
              MigratorLog().Lines()})));
    EXPECT_EQ(packages.Calls(), (Calls{L"FindProvisionedPackages", c_deprovisioning, L"FindPackages", c_removal,
                                       c_removalForOneUser, L"FindProvisionedPackages", L"FindPackages"}));
}

TEST_F(LegacyPackageTest, A_machine_without_a_package_manager_is_no_failure)
{
    UnregisterServer(Server::Packages);
    Run();
    MachineState state = DeclaredState();
    state.CopyTree(LR"(HKLM\SOFTWARE\Velmora.Testing\Packages)", Before());
    ExpectFullSuccess(ExpectedLog().Migrates(MigratorLog().FailsToSearch().Lines()), state);
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
            return CheckBar(layout, before, RowOf(Step::UserFolders).progress).empty() &&
                   CheckBackground(layout, before).empty();
        }));
        PaintOver(window);
        EXPECT_TRUE(BecomesTrue([&] { return CaptureWindow(window).IsPlain(); }));
        InvalidateRect(window, nullptr, TRUE);
        isPainted = BecomesTrue([&] { return CaptureWindow(window) == before; });
        EXPECT_EQ(packages.Calls().back(), c_removal);
        EXPECT_FALSE(packages.KeysIn(L"Installed").empty()); // it still works
        SetEvent(mayEnd.get());
    };
    packages.WriteText(L"Events", c_removal, c_event);
    Run(L"-g", options);
    EXPECT_TRUE(isPainted);
    ExpectFullSuccess(ExpectedLog().Runs("Gui"));
}
} // namespace
} // namespace Testing
