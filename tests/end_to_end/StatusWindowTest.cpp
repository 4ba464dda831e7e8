// The status window as it stands on the screen, and as assistive programs see it.
#include "EndToEndTest.h"
#include "StatusWindowLayout.h"
#include "support/AutomationElement.h"
#include "support/BuiltFiles.h"
#include "support/Dialogs.h"
#include "support/MachineState.h"
#include "support/Names.h"
#include "support/Owners.h"
#include "support/SampleInstallation.h"
#include "support/Waiting.h"
#include "support/WindowCapture.h"
#include "support/Wine.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <iostream>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Testing
{
namespace
{
constexpr wchar_t c_class[] = L"VELMORA_UNINSTALLER";
constexpr wchar_t c_headline[] = L"Uninstalling Velmora\nThis may take a few seconds.";
constexpr wchar_t c_firstStatus[] = L"Getting things ready...";
constexpr wchar_t c_lastStatus[] = L"Uninstall Complete!";
constexpr int c_usualLogo = 102;
constexpr UINT c_setProgress = WM_USER + 2;
constexpr long c_windowType = 50032;
constexpr long c_textType = 50020;

// Starts the program that shows a status window on its own.
UniqueHandle Start(const std::wstring& arguments)
{
    const std::wstring program = BuiltFile(L"Velmora.Sample.Window.exe");
    std::wstring commandLine = L"window " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS, nullptr,
                        L"C:\\", &startup, &started))
    {
        ThrowWindowsError("Cannot start " + ToUtf8(program), GetLastError());
    }
    CloseHandle(started.hThread);
    return UniqueHandle(started.hProcess);
}

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
        // Wine sets its fonts up for the resolution with the next program that starts, whatever that does: better now
        // than while a test looks at the registry.
        const UniqueHandle any = Start(L"");
        WaitForSingleObject(any.get(), INFINITE);
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

std::wstring StatusTextOf(HWND window)
{
    const auto root = AutomationElement::Of(window);
    const auto status = root ? root->Go(Direction::LastChild) : std::nullopt;
    return status ? status->Name() : L"(there is none)";
}

// A picture of the window when its progress is what it is to be, or when there is no hope of it.
Picture CaptureAtProgress(HWND window, const StatusWindowLayout& layout, int percent)
{
    Picture picture;
    BecomesTrue([&] {
        picture = CaptureWindow(window);
        return CheckBar(layout, picture, percent).empty();
    });
    return picture;
}

// The same when nothing covers the window any more.
Picture CaptureUncovered(HWND window, const StatusWindowLayout& layout, int percent)
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

// The status window with texts of the test's choice. The thread that opened it stands still.
class SampleWindow
{
public:
    explicit SampleWindow(const std::wstring& status, const std::wstring& headline = c_headline, int logo = c_usualLogo)
        : m_end(CreateEventW(nullptr, TRUE, FALSE, c_eventName)),
          m_process(
              Start(std::wstring(c_eventName) + L" \"" + headline + L"\" \"" + status + L"\" " + std::to_wstring(logo)))
    {
        if (!BecomesTrue([&] { return (m_window = FindStatusWindow()) != nullptr; }) ||
            !BecomesTrue([&] { return StatusTextOf(m_window) == status; }))
        {
            SetEvent(m_end.get());
            throw std::runtime_error("The window does not come.");
        }
    }
    SampleWindow(const SampleWindow&) = delete;
    SampleWindow& operator=(const SampleWindow&) = delete;
    ~SampleWindow()
    {
        SetEvent(m_end.get());
        DWORD code = 0;
        EXPECT_EQ(WaitForSingleObject(m_process.get(), 10'000), DWORD{WAIT_OBJECT_0});
        GetExitCodeProcess(m_process.get(), &code);
        EXPECT_EQ(code, 0U);
    }

    HWND Window() const { return m_window; }

    // As the uninstaller's own thread does it.
    void SetProgress(int percent) const { SendMessageW(m_window, c_setProgress, 0, percent); }

    // A picture with everything that has been set, at the start of the progress. Every frame is a whole one, so one
    // that shows a progress shows what was set before it too.
    Picture Capture(const StatusWindowLayout& layout) const
    {
        SetProgress(1);
        CaptureAtProgress(m_window, layout, 1);
        SetProgress(0);
        return CaptureAtProgress(m_window, layout, 0);
    }

private:
    static constexpr wchar_t c_eventName[] = L"Velmora.Tests.EndOfWindow";

    UniqueHandle m_end;
    UniqueHandle m_process;
    HWND m_window = nullptr;
};

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

class StatusWindowTest : public ::testing::Test
{
protected:
    Com com;
};

class ResolutionTest : public StatusWindowTest, public ::testing::WithParamInterface<int>
{
protected:
    Screen screen{GetParam()};
    StatusWindowLayout layout{GetParam()};
};

TEST_P(ResolutionTest, The_bar_is_as_wide_as_the_progress)
{
    const SampleWindow window(L"Deleting desktop shortcut...");
    for (const int percent : {0, 1, 25, 50, 99, 100})
    {
        window.SetProgress(percent);
        const Picture picture = CaptureAtProgress(window.Window(), layout, percent);
        EXPECT_EQ(CheckBar(layout, picture, percent), "") << percent << " %";
        ExpectLook(layout, picture);
        Keep(picture, std::to_string(GetParam()) + "-dpi-" + std::to_string(percent) + "-percent");
    }
}

TEST_P(ResolutionTest, Another_logo_moves_the_headline_down)
{
    const SampleWindow window(L"Deleting desktop shortcut...", L"One line", 103);
    const Picture picture = window.Capture(layout);
    const float scale = static_cast<float>(GetParam()) / 96.0F;
    StatusWindowLayout lower = layout;
    lower.headline.top = 190 * scale;
    EXPECT_EQ(CheckBackground(lower, picture), "");
    // No logo, and the line in the middle of its box.
    EXPECT_EQ(InkWithin({layout.logo.left, layout.logo.top, layout.logo.width, 135 * scale}, picture).right, 0);
    const RECT line = InkWithin(lower.headline, picture);
    EXPECT_NEAR((line.top + line.bottom) / 2.0, static_cast<double>((190 + 25) * scale), 4.0);
    EXPECT_LT(line.bottom - line.top, static_cast<LONG>(25 * scale));
}

INSTANTIATE_TEST_SUITE_P(DotsPerInch, ResolutionTest, ::testing::Values(96, 120, 144, 192));

struct NamedText
{
    const char* name;
    std::wstring text;
    bool hasOneLine = true;
};

void PrintTo(const NamedText& text, std::ostream* stream)
{
    *stream << text.name;
}

class StatusTextTest : public StatusWindowTest, public ::testing::WithParamInterface<NamedText>
{
};

TEST_P(StatusTextTest, Stays_in_its_place)
{
    const Screen screen(96);
    const StatusWindowLayout layout(96);
    const SampleWindow window(GetParam().text);
    const Picture picture = window.Capture(layout);
    EXPECT_EQ(CheckBar(layout, picture, 0), "");
    StatusWindowLayout expected = layout;
    if (GetParam().hasOneLine)
    {
        EXPECT_EQ(InkWithin(layout.status, picture).right == 0, GetParam().text.empty());
    }
    else
    {
        // Windows cuts off what does not fit. Wine draws it, between the headline and the bar.
        expected.status.top = layout.headline.top + layout.headline.height;
        expected.status.height = layout.track.top - expected.status.top;
    }
    EXPECT_EQ(CheckBackground(expected, picture), "");
    EXPECT_FALSE(HasColour(expected.status, picture, c_headlineColour));
    Keep(picture, std::string("text-") + GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    Text, StatusTextTest,
    ::testing::Values(NamedText{"empty", L""}, NamedText{"one_letter", L"i"},
                      NamedText{"long", L"Deleting " + std::wstring(60, L'W') + L" from " + std::wstring(60, L'M'),
                                false},
                      NamedText{"very_long", std::wstring(5'000, L'W'), false},
                      NamedText{"two_lines", L"first\nsecond", false},
                      NamedText{"cyrillic", L"Удаление ярлыка с рабочего стола…"},
                      NamedText{"cjk", L"正在删除桌面快捷方式…デスクトップ 바로가기"},
                      NamedText{"right_to_left", L"מחיקת קיצור הדרך… حذف الاختصار"},
                      NamedText{"emoji", L"Done \U0001F600 \U0001F469\u200D\U0001F4BB"}),
    [](const auto& text) { return std::string(text.param.name); });

TEST_F(StatusWindowTest, Every_frame_is_a_whole_one)
{
    const Screen screen(96);
    const StatusWindowLayout layout(96);
    const SampleWindow window(L"Deleting installation folder...");
    const Picture first = CaptureAtProgress(window.Window(), layout, 0);
    const auto withoutBar = [&](const Picture& picture) {
        for (int y = 0; y < picture.Height(); ++y)
        {
            for (int x = 0; x < picture.Width(); ++x)
            {
                if (!layout.track.Touches(x, y) && picture.At(x, y) != first.At(x, y))
                {
                    return false;
                }
            }
        }
        return true;
    };
    int shown = 0;
    for (int sent = 1; sent <= 100; ++sent)
    {
        window.SetProgress(sent);
        const Picture picture = CaptureWindow(window.Window());
        ASSERT_TRUE(withoutBar(picture)) << "at " << sent;
        // Which one it is may be late, but not by going back.
        while (shown < sent && !CheckBar(layout, picture, shown).empty())
        {
            ++shown;
        }
        ASSERT_EQ(CheckBar(layout, picture, shown), "") << "after " << sent;
    }
}

TEST_F(StatusWindowTest, A_busy_program_does_not_keep_it_from_being_moved_minimised_and_painted)
{
    const Screen screen(96);
    const StatusWindowLayout layout(96);
    const SampleWindow window(L"Deleting installation folder...");
    HWND handle = window.Window();
    const Picture before = window.Capture(layout);
    ASSERT_FALSE(before.IsPlain());
    const auto isBack = [&] { return CaptureWindow(handle) == before; };
    const auto move = [&](int x, int y) {
        SetWindowPos(handle, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    };

    move(10, 20);
    EXPECT_TRUE(BecomesTrue(isBack));
    // Over the screen's edge and back: a part of it is lost and painted again.
    move(-300, -200);
    EXPECT_TRUE(BecomesTrue([&] {
        POINT corner{};
        ClientToScreen(handle, &corner);
        const Picture shown = CaptureWindow(GetDesktopWindow());
        for (int y = std::max<int>(0, -corner.y); y < before.Height(); ++y)
        {
            for (int x = std::max<int>(0, -corner.x); x < before.Width(); ++x)
            {
                if (shown.At(corner.x + x, corner.y + y) != before.At(x, y))
                {
                    return false;
                }
            }
        }
        return corner.x < 0 && corner.y < 0;
    }));
    move(100, 100);
    EXPECT_TRUE(BecomesTrue(isBack));

    PostMessageW(handle, WM_SYSCOMMAND, SC_MINIMIZE, 0);
    EXPECT_TRUE(BecomesTrue([&] { return IsIconic(handle) != FALSE; }));
    PostMessageW(handle, WM_SYSCOMMAND, SC_RESTORE, 0);
    EXPECT_TRUE(BecomesTrue([&] { return !IsIconic(handle) && CaptureWindow(handle) == before; }));
}

TEST_F(StatusWindowTest, Assistive_programs_find_two_lines_of_text_in_it)
{
    using Bounds = std::array<double, 4>;
    const Screen screen(96);
    const StatusWindowLayout layout(96);
    const SampleWindow window(L"Deleting desktop shortcut...");
    RECT place{};
    GetWindowRect(window.Window(), &place);
    const auto at = [&](const Box& box) {
        return Bounds{place.left + static_cast<double>(box.left), place.top + static_cast<double>(box.top),
                      static_cast<double>(box.width), static_cast<double>(box.height)};
    };

    const auto root = AutomationElement::Of(window.Window());
    ASSERT_TRUE(root);
    EXPECT_EQ(root->Name(), L"Velmora Installer");
    EXPECT_EQ(root->AutomationId(), L"Velmora_Installer");
    EXPECT_EQ(root->ControlType(), c_windowType);

    const auto headline = root->Go(Direction::FirstChild);
    ASSERT_TRUE(headline);
    EXPECT_EQ(headline->Name(), c_headline);
    EXPECT_EQ(headline->ControlType(), c_textType);
    EXPECT_EQ(headline->AutomationId(), L"");
    EXPECT_FALSE(headline->Go(Direction::PreviousSibling));
    EXPECT_FALSE(headline->Go(Direction::FirstChild));
    EXPECT_FALSE(headline->Go(Direction::LastChild));

    const auto status = headline->Go(Direction::NextSibling);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->Name(), L"Deleting desktop shortcut...");
    EXPECT_EQ(status->ControlType(), c_textType);
    EXPECT_FALSE(status->Go(Direction::NextSibling));

    const auto last = root->Go(Direction::LastChild);
    ASSERT_TRUE(last);
    EXPECT_EQ(last->Name(), L"Deleting desktop shortcut...");
    const auto back = status->Go(Direction::PreviousSibling);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->Name(), c_headline);
    const auto parent = status->Go(Direction::Parent);
    ASSERT_TRUE(parent);
    EXPECT_EQ(parent->AutomationId(), L"Velmora_Installer");

    // Not every Wine passes rectangles on.
    if (root->Bounds() != Bounds{})
    {
        EXPECT_EQ(root->Bounds(), at({0, 0, static_cast<float>(layout.width), static_cast<float>(layout.height)}));
        EXPECT_EQ(headline->Bounds(), at(layout.headline));
        EXPECT_EQ(status->Bounds(), at(layout.status));
    }
}

TEST_F(StatusWindowTest, What_an_assistive_program_still_holds_outlives_the_window)
{
    const Screen screen(96);
    std::optional<AutomationElement> status;
    {
        const SampleWindow window(L"Deleting desktop shortcut...");
        status = AutomationElement::Of(window.Window())->Go(Direction::LastChild);
        ASSERT_TRUE(status);
        // The program goes on without its window.
        SendMessageW(window.Window(), WM_CLOSE, 0, 0);
        EXPECT_TRUE(BecomesTrue([] { return FindStatusWindow() == nullptr; }));
        EXPECT_EQ(status->Name(), L"Deleting desktop shortcut...");
        EXPECT_EQ(status->Bounds(), (std::array<double, 4>{}));
    }
}

// Starts a window and ends it again. Returns after how many milliseconds the point on the screen had the colour.
double MeasureFirstFrame(const std::wstring& arguments, POINT point, std::uint32_t colour)
{
    constexpr wchar_t c_eventName[] = L"Velmora.Tests.EndOfMeasuredWindow";
    const UniqueHandle end(CreateEventW(nullptr, TRUE, FALSE, c_eventName));
    HDC dc = GetDC(nullptr);
    const COLORREF wanted = RGB(colour >> 16 & 0xFF, colour >> 8 & 0xFF, colour & 0xFF);
    const auto start = std::chrono::steady_clock::now();
    const UniqueHandle process = Start(std::wstring(c_eventName) + arguments);
    while (GetPixel(dc, point.x, point.y) != wanted && std::chrono::steady_clock::now() - start < c_patience)
    {
        Sleep(1);
    }
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    ReleaseDC(nullptr, dc);
    SetEvent(end.get());
    WaitForSingleObject(process.get(), INFINITE);
    return taken.count();
}

TEST_F(StatusWindowTest, Is_painted_as_soon_as_it_is_there)
{
    constexpr int c_rounds = 5;
    const Screen screen(96);
    const StatusWindowLayout layout(96);
    const RECT place = layout.WindowOn(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
    const POINT bar{place.left + 100, place.top + static_cast<LONG>(layout.track.top) + 2};
    double empty = 0;
    double status = 0;
    for (int round = 0; round < c_rounds; ++round)
    {
        empty += MeasureFirstFrame(L"", bar, 0x008000) / c_rounds;
        status += MeasureFirstFrame(L" headline status 102", bar, c_trackColour) / c_rounds;
    }
    std::cout << "From the start of the process to the first frame: " << std::lround(status)
              << " ms; of an empty window: " << std::lround(empty) << " ms\n";
    // How fast is for people to read; that it comes at all is told by the colours.
    const std::chrono::duration<double, std::milli> patience = c_patience;
    EXPECT_LT(status, patience.count());
}

TEST_F(StatusWindowTest, Is_repainted_at_every_new_progress)
{
    constexpr int c_rounds = 200;
    const Screen screen(96);
    const SampleWindow window(L"Deleting installation folder...");
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < c_rounds; ++round)
    {
        window.SetProgress(round % 100);
        UpdateWindow(window.Window());
        ASSERT_FALSE(GetUpdateRect(window.Window(), nullptr, FALSE));
    }
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    std::cout << "A new progress and its repaint: " << taken.count() / c_rounds << " ms\n";
}

// The uninstaller itself, with a user who looks at its window before every answer.
class UninstallerWindowTest : public EndToEndTest, public ::testing::WithParamInterface<int>
{
protected:
    // Out of the way, so that nothing covers the window.
    static void MoveAway(HWND dialog)
    {
        SetWindowPos(dialog, nullptr, GetSystemMetrics(SM_CXSCREEN) - 4, GetSystemMetrics(SM_CYSCREEN) - 4, 0, 0,
                     SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    static void MoveBack(HWND dialog)
    {
        SetWindowPos(dialog, nullptr, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    }

    Com com;
};

TEST_P(UninstallerWindowTest, Stands_in_the_middle_of_the_screen_from_the_question_to_the_result)
{
    const Screen screen(GetParam());
    const StatusWindowLayout layout(GetParam());
    bool isAsked = false;
    bool isTold = false;
    RunOptions options;
    options.whileRunning = [&](const std::string&) {
        HWND question = isAsked ? nullptr : FindDialog(L"Velmora");
        HWND result = isTold ? nullptr : FindDialog(L"Velmora Uninstalled");
        HWND window = FindStatusWindow();
        if (question != nullptr)
        {
            isAsked = true;
            EXPECT_EQ(GetWindow(question, GW_OWNER), window);
            MoveAway(question);
            RECT place{};
            GetWindowRect(window, &place);
            const RECT expected = layout.WindowOn(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
            EXPECT_TRUE(EqualRect(&place, &expected))
                << place.left << ' ' << place.top << ' ' << place.right << ' ' << place.bottom;
            EXPECT_EQ(GetWindowLongW(window, GWL_EXSTYLE) & WS_EX_TOPMOST, WS_EX_TOPMOST);
            EXPECT_EQ(GetWindowLongW(window, GWL_STYLE) & (WS_BORDER | WS_SYSMENU | WS_MINIMIZEBOX | WS_VISIBLE),
                      static_cast<LONG>(WS_BORDER | WS_SYSMENU | WS_MINIMIZEBOX | WS_VISIBLE));
            EXPECT_EQ(StatusTextOf(window), c_firstStatus);
            const Picture picture = CaptureUncovered(window, layout, 0);
            EXPECT_EQ(CheckBar(layout, picture, 0), "");
            ExpectLook(layout, picture);
            Keep(picture, std::to_string(GetParam()) + "-dpi-asking");
            EXPECT_TRUE(AnswerDialog(AnswerConfirmation(IDYES)));
        }
        else if (result != nullptr)
        {
            isTold = true;
            EXPECT_EQ(GetWindow(result, GW_OWNER), window);
            MoveAway(result);
            EXPECT_TRUE(BecomesTrue([&] { return StatusTextOf(window) == c_lastStatus; }));
            const Picture picture = CaptureUncovered(window, layout, 100);
            EXPECT_EQ(CheckBar(layout, picture, 100), "");
            ExpectLook(layout, picture);
            Keep(picture, std::to_string(GetParam()) + "-dpi-complete");
            MoveBack(result);
            std::optional<MessageBoxText> message;
            EXPECT_TRUE(BecomesTrue([&] {
                message = ReadAndCloseMessageBox(L"Velmora Uninstalled");
                return message.has_value();
            }));
            EXPECT_EQ(message, FullSuccessMessage().message);
        }
    };
    LayDownSample();
    Run(L"-g", options);
    EXPECT_TRUE(isAsked);
    EXPECT_TRUE(isTold);
    ExpectFullSuccess(ExpectedLog().Runs("Gui"));
}

INSTANTIATE_TEST_SUITE_P(DotsPerInch, UninstallerWindowTest, ::testing::Values(96, 120, 144, 192));

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

class NoWindowTest : public EndToEndTest
{
};

TEST_F(NoWindowTest, A_window_that_cannot_be_made_makes_the_run_a_verbose_one_with_message_boxes)
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
