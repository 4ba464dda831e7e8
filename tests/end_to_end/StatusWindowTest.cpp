// The status window as it stands on the screen, and as assistive programs see it.
#include "AutomationElement.h"
#include "EndToEndTest.h"
#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Dialogs.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/Servers.h"
#include "support/end_to_end/StatusWindowLayout.h"
#include "support/end_to_end/Waiting.h"
#include "support/end_to_end/WindowCapture.h"

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

namespace Testing
{
namespace
{
constexpr wchar_t c_class[] = L"VELMORA_UNINSTALLER";
constexpr UINT c_setProgress = WM_USER + 2;

// Programs that start from now on have a screen of that resolution; this thread sees every pixel of it.
class Screen
{
public:
    explicit Screen(int dotsPerInch) : m_before(SetThreadDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE))
    {
        Set(static_cast<DWORD>(dotsPerInch));
    }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen()
    {
        Set(USER_DEFAULT_SCREEN_DPI);
        SetThreadDpiAwarenessContext(m_before);
    }

private:
    static void Set(DWORD dotsPerInch)
    {
        HKEY opened = nullptr;
        RegCreateKeyW(HKEY_CURRENT_USER, LR"(Control Panel\Desktop)", &opened);
        const UniqueKey key(opened);
        RegSetValueExW(opened, L"LogPixels", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dotsPerInch),
                       sizeof(dotsPerInch));
        // Wine sets its fonts up for the resolution with the next program that has windows, whatever it does: better
        // now than while a test looks at the registry.
        RunProgram(BuiltFile(L"Velmora.Sample.Client.exe"), L"", {.hasStandIns = false});
    }

    DPI_AWARENESS_CONTEXT m_before;
};

// UI Automation asks for COM.
class Com
{
public:
    Com() { CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
    Com(const Com&) = delete;
    Com& operator=(const Com&) = delete;
    ~Com() { CoUninitialize(); }
};

HWND FindStatusWindow()
{
    HWND window = FindWindowW(c_class, nullptr);
    return window != nullptr && IsWindowVisible(window) ? window : nullptr;
}

void Move(HWND window, int x, int y)
{
    SetWindowPos(window, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

// What assistive programs find: the names of the window and of the lines in it.
std::vector<std::wstring> NamesIn(HWND window)
{
    std::vector<std::wstring> names;
    const auto root = AutomationElement::Of(window);
    for (auto element = root; element;
         element = element->Go(names.size() == 1 ? NavigateDirection_FirstChild : NavigateDirection_NextSibling))
    {
        names.push_back(element->Name());
    }
    return names;
}

// A picture of the window when nothing covers it and its progress is what it is to be, or when there is no hope of it.
Picture CaptureAtProgress(HWND window, const StatusWindowLayout& layout, int percent)
{
    Picture picture;
    BecomesTrue([&] {
        picture = CaptureWindow(window);
        return CheckBar(layout, picture, percent).empty() && CheckBackground(layout, picture).empty();
    });
    return picture;
}

// For people to look at: pictures/<name>.png in the build folder.
void Keep(const Picture& picture, const std::string& name)
{
    const std::wstring folder = BuiltFile(L"pictures");
    CreateDirectoryW(folder.c_str(), nullptr);
    picture.SaveAsPng(folder + L"\\" + std::wstring(name.begin(), name.end()) + L".png");
}

// Everything that stands in the window except for the bar, measured.
void ExpectLook(const StatusWindowLayout& layout, const Picture& picture)
{
    EXPECT_EQ(CheckBackground(layout, picture), "");
    const auto middle = static_cast<double>(layout.ClientWidth()) / 2;
    const auto isCentred = [&](const RECT& ink) { return std::abs((ink.left + ink.right) / 2.0 - middle) <= 2; };

    const RECT headline = InkWithin(layout.headline, picture);
    EXPECT_TRUE(isCentred(headline));
    EXPECT_TRUE(HasColour(layout.headline, picture, c_headlineColour));
    // Two lines, and nothing cut off.
    EXPECT_GT(headline.bottom - headline.top, static_cast<LONG>(layout.headline.height / 2));
    EXPECT_GT(headline.top, static_cast<LONG>(layout.headline.top));
    EXPECT_LT(headline.bottom, static_cast<LONG>(layout.headline.top + layout.headline.height));

    const RECT status = InkWithin(layout.status, picture);
    EXPECT_TRUE(isCentred(status));
    EXPECT_TRUE(HasColour(layout.status, picture, c_statusColour));
    EXPECT_FALSE(HasColour(layout.status, picture, c_headlineColour));

    // The logo without the headline's rows.
    const Box logo{layout.logo.left, layout.logo.top, layout.logo.width, layout.headline.top - layout.logo.top};
    EXPECT_TRUE(isCentred(InkWithin(logo, picture)));
    EXPECT_TRUE(HasColour(logo, picture, c_progressColour));
}

class StatusWindowTest : public EndToEndTest
{
protected:
    StatusWindowTest() { LayDownSample(); }
};

class ResolutionTest : public StatusWindowTest, public ::testing::WithParamInterface<int>
{
protected:
    // The window owns the dialog, which goes out of the way, and shows the text and the progress.
    void ExpectWindow(HWND dialog, const wchar_t* status, int percent, const std::string& pictureName) const
    {
        HWND window = FindStatusWindow();
        EXPECT_EQ(GetWindow(dialog, GW_OWNER), window);
        Move(dialog, GetSystemMetrics(SM_CXSCREEN) - 4, GetSystemMetrics(SM_CYSCREEN) - 4);
        EXPECT_EQ(GetWindowLongW(window, GWL_EXSTYLE) & WS_EX_TOPMOST, WS_EX_TOPMOST);
        constexpr DWORD c_style = WS_BORDER | WS_SYSMENU | WS_MINIMIZEBOX | WS_VISIBLE;
        EXPECT_EQ(static_cast<DWORD>(GetWindowLongW(window, GWL_STYLE)) & c_style, c_style);
        const std::vector<std::wstring> names{L"Velmora Installer",
                                              L"Uninstalling Velmora\nThis may take a few seconds.", status};
        EXPECT_TRUE(BecomesTrue([&] { return NamesIn(window) == names; }));
        ExpectProgress(window, percent, pictureName);
    }

    void ExpectProgress(HWND window, int percent, const std::string& pictureName) const
    {
        if (HasFailure())
        {
            return; // to wait for every picture that does not come takes longer than a test may
        }
        const Picture picture = CaptureAtProgress(window, layout, percent);
        EXPECT_EQ(CheckBar(layout, picture, percent), "") << percent << " %";
        ExpectLook(layout, picture);
        Keep(picture, std::to_string(GetParam()) + "-dpi-" + pictureName);
    }

    Com com;
    Screen screen{GetParam()};
    StatusWindowLayout layout{GetParam()};
};

TEST_P(ResolutionTest, Stands_in_the_middle_of_the_screen_from_the_question_to_the_result)
{
    const auto atQuestion = [&](HWND question) {
        ExpectWindow(question, L"Getting things ready...", 0, "asking");
        HWND window = FindStatusWindow();
        RECT place{};
        GetWindowRect(window, &place);
        const RECT expected = layout.WindowOn(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
        EXPECT_TRUE(EqualRect(&place, &expected))
            << place.left << ' ' << place.top << ' ' << place.right << ' ' << place.bottom;
        for (const int percent : {1, 25, 50, 99})
        {
            SendMessageW(window, c_setProgress, 0, percent); // as the uninstaller's own thread does it
            ExpectProgress(window, percent, std::to_string(percent) + "-percent");
        }
        // Over the screen's edge and back: a part of it is lost and painted again.
        Move(window, -300, -200);
        Move(window, place.left, place.top);
        ExpectProgress(window, 99, "moved");
        EXPECT_TRUE(AnswerDialog(AnswerConfirmation(IDYES)));
    };
    const auto atResult = [&](HWND result) {
        ExpectWindow(result, L"Uninstall Complete!", 100, "complete");
        Move(result, 0, 0);
        std::optional<std::wstring> message;
        EXPECT_TRUE(
            BecomesTrue([&] { return (message = ReadAndCloseMessageBox(L"Velmora Uninstalled")).has_value(); }));
        EXPECT_EQ(message, FullSuccessMessage().message);
    };
    bool isAsked = false;
    bool isTold = false;
    RunOptions options;
    options.whileRunning = [&](const std::string&) {
        if (HWND question = FindDialog(L"Velmora"); question != nullptr && !isAsked)
        {
            isAsked = true;
            atQuestion(question);
        }
        if (HWND result = FindDialog(L"Velmora Uninstalled"); result != nullptr && !isTold)
        {
            isTold = true;
            atResult(result);
        }
    };
    Run(L"-g", options);
    EXPECT_TRUE(isAsked && isTold);
    ExpectFullSuccess(ExpectedLog().Runs("Gui"));
}

INSTANTIATE_TEST_SUITE_P(DotsPerInch, ResolutionTest, ::testing::Values(96, 120, 144, 192));

// Paints over what a window shows on the screen.
void PaintOver(HWND window)
{
    RECT area{};
    GetWindowRect(window, &area);
    HDC screen = GetDC(nullptr);
    FillRect(screen, &area, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    ReleaseDC(nullptr, screen);
}

TEST_F(StatusWindowTest, Is_painted_while_the_package_manager_works)
{
    if (!HasServers())
    {
        GTEST_SKIP() << "The package manager of a real Windows cannot be replaced.";
    }
    constexpr wchar_t c_event[] = L"Velmora.Tests.RemovalMayEnd";
    const UniqueHandle mayEnd(CreateEventW(nullptr, TRUE, FALSE, c_event));
    const ServerState packages = StateOf(Server::Packages);
    const StatusWindowLayout layout(USER_DEFAULT_SCREEN_DPI);
    bool isLookedAt = false;
    bool isPainted = false;
    RunOptions options{.answers = {AnswerConfirmation(IDYES), FullSuccessMessage()}};
    options.whileRunning = [&](const std::string&) {
        if (isLookedAt || std::ranges::count(packages.Calls(), c_packageRemoval) == 0)
        {
            return;
        }
        isLookedAt = true;
        HWND window = FindStatusWindow();
        const int percent = RowOf(Step::UserFolders).progress;
        const Picture before = CaptureAtProgress(window, layout, percent);
        EXPECT_EQ(CheckBar(layout, before, percent), "");
        PaintOver(window);
        EXPECT_TRUE(BecomesTrue([&] { return CaptureWindow(window).IsPlain(); }));
        InvalidateRect(window, nullptr, TRUE);
        isPainted = BecomesTrue([&] { return CaptureWindow(window) == before; });
        EXPECT_EQ(packages.Calls().back(), c_packageRemoval);
        EXPECT_FALSE(packages.KeysIn(L"Installed").empty()); // it still works
        SetEvent(mayEnd.get());
    };
    packages.WriteText(L"Events", c_packageRemoval, c_event);
    Run(L"-g", options);
    EXPECT_TRUE(isPainted);
    ExpectFullSuccess(ExpectedLog().Runs("Gui"));
}
} // namespace
} // namespace Testing
