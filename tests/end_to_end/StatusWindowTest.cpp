// The status window as it stands on the screen, and as assistive programs see it.
#include "AutomationElement.h"
#include "EndToEndTest.h"
#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Dialogs.h"
#include "support/end_to_end/MachineState.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/StatusWindowLayout.h"
#include "support/end_to_end/Waiting.h"
#include "support/end_to_end/WindowCapture.h"
#include "support/end_to_end/Wine.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Testing
{
namespace
{
constexpr wchar_t c_class[] = L"VELMORA_UNINSTALLER";
constexpr UINT c_setProgress = WM_USER + 2;
constexpr long c_windowType = 50032;
constexpr long c_textType = 50020;

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

std::wstring StatusTextOf(HWND window)
{
    const auto root = AutomationElement::Of(window);
    const auto status = root ? root->Go(NavigateDirection_LastChild) : std::nullopt;
    return status ? status->Name() : L"(there is none)";
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

// The uninstaller, with a user who looks at its window before every answer.
class StatusWindowTest : public EndToEndTest
{
protected:
    // A run with a window; what is done when a dialog comes includes its answer.
    void RunLooking(const std::function<void(HWND)>& atQuestion, const std::function<void(HWND)>& atResult = {})
    {
        std::map<std::wstring, std::function<void(HWND)>> coming{{L"Velmora", atQuestion}};
        if (atResult)
        {
            coming.emplace(L"Velmora Uninstalled", atResult);
        }
        RunOptions options;
        options.whileRunning = [&](const std::string&) {
            std::erase_if(coming, [](const auto& one) {
                HWND dialog = FindDialog(one.first);
                if (dialog != nullptr)
                {
                    one.second(dialog);
                }
                return dialog != nullptr;
            });
        };
        LayDownSample();
        Run(L"-g", options);
        EXPECT_TRUE(coming.empty());
    }

    Com com;
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
        EXPECT_TRUE(BecomesTrue([&] { return StatusTextOf(window) == status; }));
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
        std::optional<MessageBoxText> message;
        EXPECT_TRUE(
            BecomesTrue([&] { return (message = ReadAndCloseMessageBox(L"Velmora Uninstalled")).has_value(); }));
        EXPECT_EQ(message, FullSuccessMessage().message);
    };
    RunLooking(atQuestion, atResult);
    ExpectFullSuccess(ExpectedLog().Runs("Gui"));
}

INSTANTIATE_TEST_SUITE_P(DotsPerInch, ResolutionTest, ::testing::Values(96, 120, 144, 192));

TEST_F(StatusWindowTest, Assistive_programs_find_two_lines_of_text_in_it)
{
    using Bounds = std::array<double, 4>;
    const Screen screen(96);
    const auto expectLine = [](const std::optional<AutomationElement>& line, const wchar_t* text,
                               const Bounds& bounds) {
        ASSERT_TRUE(line);
        EXPECT_EQ(line->Name(), text);
        EXPECT_EQ(line->ControlType(), c_textType);
        EXPECT_EQ(line->AutomationId(), L"");
        EXPECT_FALSE(line->Go(NavigateDirection_FirstChild));
        EXPECT_EQ(line->Bounds(), bounds);
    };
    RunLooking([&](HWND) {
        HWND window = FindStatusWindow();
        const auto root = AutomationElement::Of(window);
        ASSERT_TRUE(root);
        EXPECT_EQ(root->Name(), L"Velmora Installer");
        EXPECT_EQ(root->AutomationId(), L"Velmora_Installer");
        EXPECT_EQ(root->ControlType(), c_windowType);
        RECT place{};
        GetWindowRect(window, &place);
        const auto at = [&](const Box& box) {
            // Not every Wine passes rectangles on.
            return root->Bounds() == Bounds{} ? Bounds{}
                                              : Bounds{static_cast<double>(place.left) + static_cast<double>(box.left),
                                                       static_cast<double>(place.top) + static_cast<double>(box.top),
                                                       static_cast<double>(box.width), static_cast<double>(box.height)};
        };
        const StatusWindowLayout layout(96);
        EXPECT_EQ(root->Bounds(), at({0, 0, static_cast<float>(layout.width), static_cast<float>(layout.height)}));

        constexpr wchar_t c_headline[] = L"Uninstalling Velmora\nThis may take a few seconds.";
        constexpr wchar_t c_status[] = L"Getting things ready...";
        const auto headline = root->Go(NavigateDirection_FirstChild);
        ASSERT_NO_FATAL_FAILURE(expectLine(headline, c_headline, at(layout.headline)));
        const auto status = headline->Go(NavigateDirection_NextSibling);
        ASSERT_NO_FATAL_FAILURE(expectLine(status, c_status, at(layout.status)));
        EXPECT_FALSE(headline->Go(NavigateDirection_PreviousSibling));
        EXPECT_FALSE(status->Go(NavigateDirection_NextSibling));
        expectLine(root->Go(NavigateDirection_LastChild), c_status, at(layout.status));
        expectLine(status->Go(NavigateDirection_PreviousSibling), c_headline, at(layout.headline));
        const auto parent = status->Go(NavigateDirection_Parent);
        ASSERT_TRUE(parent);
        EXPECT_EQ(parent->AutomationId(), L"Velmora_Installer");
        EXPECT_TRUE(AnswerDialog(AnswerConfirmation(IDNO)));
    });
    ExpectEnd(c_fullSuccess, CancelledLog("Gui"), CancelledState(), false);
}

// While it lives, GDI+ does not start in the uninstaller, and so no status window can be made. Wine only: Windows would
// not let its own files be exchanged.
class BrokenGdiPlus
{
public:
    BrokenGdiPlus()
    {
        if (!MoveFileW(c_library, c_kept) ||
            !CopyFileW(BuiltFile(L"Velmora.Sample.NoGdiPlus.dll").c_str(), c_library, TRUE))
        {
            ThrowWindowsError("GDI+ cannot be exchanged", GetLastError());
        }
        WriteValue(c_overrides, L"gdiplus", REG_SZ, TextValue(REG_SZ, L"native").data);
    }
    BrokenGdiPlus(const BrokenGdiPlus&) = delete;
    BrokenGdiPlus& operator=(const BrokenGdiPlus&) = delete;
    ~BrokenGdiPlus()
    {
        RemoveValue(c_overrides, L"gdiplus");
        DeleteFileW(c_library);
        MoveFileW(c_kept, c_library);
    }

private:
    static constexpr wchar_t c_library[] = LR"(C:\windows\system32\gdiplus.dll)";
    static constexpr wchar_t c_kept[] = LR"(C:\windows\system32\gdiplus.kept)";
    static constexpr wchar_t c_overrides[] = LR"(HKCU\Software\Wine\AppDefaults\Velmora.Uninstaller.exe\DllOverrides)";
};

TEST_F(StatusWindowTest, That_cannot_be_made_makes_the_run_a_verbose_one_with_message_boxes)
{
    if (!IsWine())
    {
        GTEST_SKIP() << "Windows' own GDI+ cannot be replaced.";
    }
    const BrokenGdiPlus broken;
    std::vector<std::wstring> owned;
    RunOptions options{.answers = {AnswerConfirmation(IDYES), FullSuccessMessage()}, .hasConsole = true};
    options.whileRunning = [&](const std::string&) {
        EXPECT_EQ(FindWindowW(c_class, nullptr), nullptr);
        for (const DialogAnswer& answer : options.answers)
        {
            HWND dialog = FindDialog(answer.title);
            if (dialog != nullptr && GetWindow(dialog, GW_OWNER) != nullptr)
            {
                owned.push_back(answer.title);
            }
        }
    };
    LayDownSample();
    Run(L"--gui", options);

    EXPECT_TRUE(owned.empty());
    std::vector<std::string> log = ExpectedLog().Runs("Verbose").Lines();
    log.insert(log.begin() + 2, "|WARNING|: Failed to create the uninstaller window, running in verbose mode.");
    ExpectEnd(c_fullSuccess, log, DeclaredState(), false);
    EXPECT_FALSE(Result().console.empty());
}
} // namespace
} // namespace Testing
