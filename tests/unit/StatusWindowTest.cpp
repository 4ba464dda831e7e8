#include "Installer/StatusWindow.h"

#include "Installer/StatusWindowThread.h"
#include "support/unit/FakeWindowThread.h"
#include "support/unit/OutOfMemory.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char c_firstPicture[] = "The headline\nof two lines|Getting things ready...|0";

// What the journal reads when a message is left to Windows.
std::string Default(UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
{
    return "DefWindowProcW(" + std::to_string(message) + ", " + std::to_string(wParam) + ", " + std::to_string(lParam) +
           ')';
}

class StatusWindowTest : public testing::Test
{
protected:
    void TearDown() override
    {
        journal.onCall = [](const std::string&) {};
        // Process-wide, and tests share a process.
        if (windowing->WindowExists())
        {
            windowing->Send(c_setStatusText, 0, reinterpret_cast<LPARAM>(L"Getting things ready..."));
            windowing->Send(c_setProgress);
        }
        window.reset();
        EndThread();
        EXPECT_THAT(windowing->LeftBehind(), IsEmpty());
        EXPECT_TRUE(windowing->data.expired());
    }

    // From the beginning.
    void StartAgain()
    {
        TearDown();
        journal = {};
        windowing.emplace(journal);
    }

    void Open() { window.emplace(FakeWindowThread::Module(), L"CLASS", L"Title", L"The headline\nof two lines", 77); }

    // Open, and everything that happens in there is forgotten.
    void OpenQuietly()
    {
        Open();
        ASSERT_EQ(window->State(), StatusWindowState::Running);
        journal.Name(static_cast<IRawElementProviderSimple*>(Root()), "root");
        journal.Take();
    }

    void EndThread()
    {
        if (windowing->thread.IsRunning())
        {
            windowing->EndLoop();
        }
    }

    AccessibleRoot* Root() const { return windowing->data.lock()->accessibilityRoot.get(); }

    static ULONG References(AccessibleRoot& object)
    {
        object.AddRef();
        return object.Release();
    }

    // The calls that the window procedure makes for a message.
    Calls CallsFor(UINT message, WPARAM wParam = 0, LPARAM lParam = 0, LRESULT expected = 4711)
    {
        journal.Take();
        EXPECT_EQ(windowing->Send(message, wParam, lParam), expected);
        return journal.Take();
    }

    // The texts and the bar that a repaint shows: "<headline>|<status>|<width of the bar>".
    std::string Shown()
    {
        const std::regex value("GdipDrawString\\([^\"]*\"([^\"]*)\"|ffa953ff\\), [^,]*, [^,]*, ([^,]*)");
        std::string shown;
        for (const std::string& call : CallsFor(WM_PAINT, 0, 0, 0))
        {
            if (std::smatch match; std::regex_search(call, match, value))
            {
                shown += (shown.empty() ? "" : "|") + match.str(1) + match.str(2);
            }
        }
        return shown;
    }

    // What the window leaves of an area to its client; with and without more than the area.
    std::string ClientArea(WPARAM isMore)
    {
        NCCALCSIZE_PARAMS sizes{};
        sizes.rgrc[0] = {100, 200, 600, 540};
        EXPECT_EQ(CallsFor(WM_NCCALCSIZE, isMore, reinterpret_cast<LPARAM>(&sizes), 0), Calls{});
        return journal.Describe(sizes.rgrc[0]);
    }

    Journal journal;
    std::optional<FakeWindowThread> windowing{std::in_place, journal};
    std::optional<StatusWindow> window;
};

// The window is there, and the journal is empty.
class OpenStatusWindowTest : public StatusWindowTest
{
protected:
    void SetUp() override { OpenQuietly(); }
};

// First of all, while nothing has been changed yet.
TEST_F(StatusWindowTest, Is_set_up_in_this_order_and_running_only_then)
{
    windowing->threadStart = 120;
    journal.onCall = [&](const std::string& call) {
        if (call == "SetForegroundWindow(window)")
        {
            const auto known = windowing->data.lock();
            EXPECT_EQ(known->state, StatusWindowState::Starting);
            EXPECT_EQ(known->window, FakeWindowThread::Window());
            EXPECT_TRUE(known->accessibilityRoot && known->logo);
        }
    };

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(window->Window(), FakeWindowThread::Window());
    EXPECT_EQ(windowing->data.lock()->threadId, 4242U);
    EXPECT_EQ(windowing->clock.Sleeps(), (std::vector<DWORD>{50, 50, 50}));
    EXPECT_EQ(journal.Take(),
              (Calls{
                  "CreateThread()",
                  "SetThreadStackGuarantee(65536)",
                  "SetThreadDescription(\"ui_thread\")",
                  "GdiplusStartup(GDI+ 1)",
                  "LoadIconW(module, #101)",
                  "LoadCursorW(null, #32512)",
                  "RegisterClassExW(0, 0, 0, module, icon, cursor, null, null, \"CLASS\", null)",
                  "GetDesktopWindow()",
                  "GetDC(desktop)",
                  "GetDeviceCaps(desktop dc, 88)",
                  "GetDeviceCaps(desktop dc, 90)",
                  "GetClientRect(desktop)",
                  "CreateWindowExW(0, \"CLASS\", \"Title\", 0x8a0000, 710, 370, 500, 340, null, null, module, null)",
                  "BufferedPaintInit()",
                  "DwmExtendFrameIntoClientArea(window, 0, 0, 0, 0)",
                  "SetWindowPos(window, topmost, 0, 0, 0, 0, 99)",
                  Default(WM_CREATE),
                  "ReleaseDC(desktop, desktop dc)",
                  "SetWindowLongPtrW(window, -21)",
                  "DwmSetWindowAttribute(window, 20, 1)",
                  "FindResourceW(module, #77, \"PNG\")",
                  "LoadResource(module, resource)",
                  "LockResource(loaded)",
                  "SizeofResource(module, resource)",
                  "GlobalAlloc(2, 4)",
                  "GlobalLock(memory)",
                  "CreateStreamOnHGlobal(memory, 1)",
                  "GdipCreateBitmapFromStream(bitmap(logo))",
                  "SetForegroundWindow(window)",
                  "GetMessageW(null, 0, 0)",
              }));
    EXPECT_EQ(Shown(), c_firstPicture);
    // The stream is gone: the bitmap of this GDI+ holds no reference to it.
    EXPECT_THAT(windowing->LeftBehind(), ElementsAre("GDI+ 1", "bitmap(logo)", "1 buffered painting", "1 thread handle",
                                                     "1 window class", "window"));
}

TEST_F(StatusWindowTest, Is_still_found_at_the_last_of_21_looks)
{
    windowing->threadStart = 1050;

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(windowing->clock.Sleeps(), std::vector<DWORD>(21, 50));
}

// Its thread comes a millisecond after the last look.
class LateStatusWindowTest : public StatusWindowTest
{
protected:
    LateStatusWindowTest()
    {
        windowing->threadStart = 1051;
        Open();
        EXPECT_EQ(window->State(), StatusWindowState::Failed);
        EXPECT_EQ(windowing->clock.Sleeps(), std::vector<DWORD>(21, 50));
        journal.Take();
    }
};

TEST_F(LateStatusWindowTest, Is_given_up_and_runs_all_the_same_from_then_on)
{
    window->SetStatusText(L"lost");
    window->SetPhase(2, 0, 10);
    EXPECT_THAT(journal.Take(), IsEmpty());

    Sleep(1);
    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(window->Window(), FakeWindowThread::Window());
    EXPECT_EQ(Shown(), c_firstPicture);
    window->SetStatusText(L"found");
    window->SetProgress(10);
    EXPECT_THAT(Shown(), EndsWith("|found|43.7799988")); // 11 % of 398
}

TEST_F(LateStatusWindowTest, Has_all_that_it_needs_when_its_owner_is_gone)
{
    window.reset();
    EXPECT_EQ(journal.Take(), Calls{"CloseHandle(thread)"});

    Sleep(1);

    EXPECT_TRUE(windowing->WindowExists());
    EXPECT_EQ(Shown(), c_firstPicture);
    EndThread();
    EXPECT_FALSE(windowing->WindowExists());
    EXPECT_EQ(windowing->thread.ExitCode(), 0U);
}

TEST_F(LateStatusWindowTest, May_come_at_the_very_moment_when_its_owner_goes)
{
    journal.onCall = [](const std::string& call) {
        if (call == "CloseHandle(thread)")
        {
            Sleep(1);
        }
    };

    window.reset();

    EXPECT_EQ(journal.All().back(), "DestroyWindow(window)");
    EXPECT_THAT(journal.All(), Not(Contains(c_sentClose)));
    EXPECT_TRUE(windowing->WindowExists()); // it is its thread's: no other one can destroy it
}

TEST_F(StatusWindowTest, Leaves_nothing_behind_and_every_call_harmless_when_it_cannot_be_shown)
{
    const Calls withoutWindow{Default(WM_NCDESTROY), "ReleaseDC(desktop, desktop dc)",
                              "UnregisterClassW(#49443, module)", "GdiplusShutdown(GDI+ 1)"};
    for (const auto& [failure, last] : std::map<std::string, Calls>{
             {"GdiplusStartup", {"GdiplusStartup(GDI+ 1)"}},
             {"RegisterClassExW", {"GdiplusShutdown(GDI+ 1)"}},
             {"CreateWindowExW", withoutWindow},
             {Default(WM_CREATE),
              Calls{Default(WM_CREATE), Default(WM_DESTROY), "BufferedPaintUnInit()"} + withoutWindow}})
    {
        SCOPED_TRACE(failure);
        StartAgain();
        journal.Fail(failure);

        Open();

        EXPECT_EQ(window->State(), StatusWindowState::Failed);
        EXPECT_EQ(window->Window(), nullptr);
        EXPECT_EQ(windowing->clock.Sleeps(), std::vector<DWORD>{50});
        EXPECT_EQ(windowing->thread.ExitCode(), 1U);
        EXPECT_THAT(windowing->LeftBehind(), ElementsAre("1 thread handle"));
        const Calls calls = journal.Take();
        EXPECT_EQ(Calls(calls.end() - std::ssize(last), calls.end()), last);

        window->SetStatusText(L"text");
        window->SetPhase(1, 10, 0);
        window->SetProgress(100);
        EXPECT_THAT(journal.Take(), IsEmpty());
        window->ShowError(L"caption", L"text");
        EXPECT_EQ(journal.Take(), ShownBox(MB_ICONERROR, "caption", "text", "null"));
        window.reset();
        EXPECT_EQ(journal.Take(), Calls{"CloseHandle(thread)"});
    }
}

TEST_F(StatusWindowTest, Does_not_wait_for_a_thread_that_cannot_be_made)
{
    journal.Fail("CreateThread");

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Failed);
    window.reset();
    EXPECT_EQ(journal.Take(), Calls{"CreateThread()"});
    EXPECT_THAT(windowing->clock.Sleeps(), IsEmpty());
}

TEST_F(StatusWindowTest, Leaves_its_logo_out_when_it_cannot_be_had)
{
    for (const char* const failure : {"FindResourceW", "LoadResource", "LockResource", "SizeofResource", "GlobalAlloc",
                                      "GlobalLock", "CreateStreamOnHGlobal", "GdipCreateBitmapFromStream"})
    {
        SCOPED_TRACE(failure);
        StartAgain();
        journal.Fail(failure);

        OpenQuietly();

        const Calls calls = CallsFor(WM_PAINT, 0, 0, 0);
        EXPECT_THAT(calls, Not(Contains(StartsWith("GdipDrawImageRect("))));
        EXPECT_THAT(calls, Contains(StartsWith("GdipDrawString(")));
        EXPECT_THAT(windowing->LeftBehind(), Not(Contains("memory")));
    }
}

TEST_F(StatusWindowTest, Is_in_the_middle_of_the_desktop)
{
    struct
    {
        int dpiX;
        int dpiY;
        RECT desktop;
        const char* expected; // x, y, width, height
    } const cases[] = {
        {120, 120, {0, 0, 1920, 1080}, "648, 328, 625, 425"},
        {192, 192, {0, 0, 3840, 2160}, "1420, 740, 1000, 680"},
        // The lengths are cut off, not rounded: 515.625 and 343.54. So is each half, for itself.
        {99, 97, {0, 0, 1368, 768}, "427, 213, 515, 343"},
        {96, 96, {0, 0, 400, 300}, "-50, -20, 500, 340"},
    };
    for (const auto& test : cases)
    {
        StartAgain();
        windowing->dpiX = test.dpiX;
        windowing->dpiY = test.dpiY;
        windowing->desktopArea = test.desktop;

        Open();

        EXPECT_THAT(journal.Take(), Contains("CreateWindowExW(0, \"CLASS\", \"Title\", 0x8a0000, " +
                                             std::string(test.expected) + ", null, null, module, null)"));
    }
}

TEST_F(StatusWindowTest, Has_the_frame_of_its_style_and_no_caption)
{
    const Calls asked{"AdjustWindowRectEx({0 0 0 0}, 0xc0000, 0, 0)"};
    for (const auto& [style, frameCalls, clientArea] :
         std::vector<std::tuple<std::optional<LONG_PTR>, Calls, std::string>>{
             {std::nullopt, {}, "{101 200 599 539}"}, // as it was asked for: one pixel
             {WS_THICKFRAME | WS_CAPTION | WS_SYSMENU, asked, "{108 200 594 535}"},
             {WS_SYSMENU, {}, "{100 200 600 540}"}})
    {
        StartAgain();
        windowing->style = style;

        Open();

        EXPECT_EQ(journal.CallsOf({"AdjustWindowRectEx"}), frameCalls);
        EXPECT_EQ(ClientArea(TRUE), clientArea);
        EXPECT_EQ(ClientArea(FALSE), clientArea);
    }
}

TEST_F(OpenStatusWindowTest, Gives_its_root_to_UI_Automation)
{
    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, UiaRootObjectId, 815),
              Calls{"UiaReturnRawElementProvider(window, 7, -25, root)"});
    // The same number, widened without its sign.
    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, LPARAM{0xffffffe7}, 815),
              Calls{"UiaReturnRawElementProvider(window, 7, 4294967271, root)"});
    EXPECT_EQ(References(*Root()), 1U); // the window's own
}

TEST_F(OpenStatusWindowTest, Leaves_everything_that_needs_its_object_to_Windows_before_it_has_one)
{
    const LONG_PTR userData = SetWindowLongPtrW(FakeWindowThread::Window(), GWLP_USERDATA, 0);

    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, UiaRootObjectId), Calls{Default(WM_GETOBJECT, 7, -25)});
    EXPECT_EQ(CallsFor(WM_PAINT), Calls{Default(WM_PAINT)});
    EXPECT_EQ(CallsFor(WM_DESTROY), Calls{Default(WM_DESTROY)});
    EXPECT_EQ(CallsFor(WM_NCDESTROY), (Calls{"BufferedPaintUnInit()", Default(WM_NCDESTROY)}));

    BufferedPaintInit();
    SetWindowLongPtrW(FakeWindowThread::Window(), GWLP_USERDATA, userData);
}

TEST_F(OpenStatusWindowTest, Leaves_all_other_messages_to_Windows)
{
    for (const auto& [message, wParam, lParam] :
         std::vector<std::tuple<UINT, WPARAM, LPARAM>>{{WM_GETOBJECT, 7, OBJID_CLIENT},
                                                       {WM_NCCALCSIZE, TRUE, 0},
                                                       {WM_ERASEBKGND, 5, 6},
                                                       {WM_NCHITTEST, 0, 1},
                                                       {WM_USER, 1, 2},
                                                       {WM_USER + 3, 1, 2}})
    {
        EXPECT_EQ(CallsFor(message, wParam, lParam), Calls{Default(message, wParam, lParam)});
    }
}

TEST_F(OpenStatusWindowTest, Shows_a_copy_of_each_text)
{
    std::wstring text = L"Deleting shortcuts...";

    window->SetStatusText(text);
    text.assign(text.size(), L'x');

    EXPECT_EQ(journal.Take(), (Calls{SentText("Deleting shortcuts..."), "InvalidateRect(window, null, 1)",
                                     "DefWindowProcW(1025, 0, \"Deleting shortcuts...\")"}));
    EXPECT_THAT(Shown(), HasSubstr("|Deleting shortcuts...|"));
}

TEST_F(OpenStatusWindowTest, Shows_the_progress_on_the_taskbar_and_in_the_window)
{
    window->SetPhase(3, 0, 50);

    EXPECT_EQ(journal.Take(),
              (Calls{"CoCreateInstance(taskbar list, null, 1)", "ITaskbarList3::SetProgressValue(window, 25, 100)",
                     SentProgress(25), "InvalidateRect(window, null, 1)", Default(c_setProgress, 0, 25),
                     "ITaskbarList3::Release()"}));
    EXPECT_THAT(Shown(), EndsWith("|99.5"));                // of 398
    windowing->Send(c_setProgress, 0, LPARAM{0x700000032}); // of which it takes the lower 32 bits
    EXPECT_THAT(Shown(), EndsWith("|199"));
}

TEST_F(StatusWindowTest, Does_without_an_icon_a_cursor_and_a_taskbar)
{
    for (const char* const function : {"LoadIconW", "LoadCursorW", "CoCreateInstance"})
    {
        journal.Fail(function);
    }
    OpenQuietly();

    window->SetPhase(10, 0, 100);

    EXPECT_EQ(journal.CallsOf({"ITaskbarList3::SetProgressValue", "ITaskbarList3::Release", "SendMessageW"}),
              Calls{SentProgress(100)});
}

TEST_F(OpenStatusWindowTest, Counts_the_percentage_of_a_phase_into_that_of_the_run)
{
    struct
    {
        int phase;
        int percent;
        int expected;
        // What double precision leaves just below a whole number is cut off, as in the last four.
    } const cases[] = {{1, 0, 0},    {1, 9, 0},      {1, 10, 1}, {1, 100, 10}, {2, 0, 10},   {2, 35, 13}, {3, 50, 25},
                       {4, 0, 30},   {5, 99, 49},    {6, 0, 50}, {7, 33, 63},  {9, 100, 90}, {10, 0, 90}, {10, 90, 99},
                       {10, 99, 99}, {10, 100, 100}, {1, 70, 6}, {3, 90, 28},  {6, 60, 55},  {7, 50, 64}};
    for (const auto& test : cases)
    {
        window->SetPhase(test.phase, 1234, test.percent);
        EXPECT_EQ(journal.CallsOf({"SendMessageW", "ITaskbarList3::SetProgressValue"}),
                  (Calls{"ITaskbarList3::SetProgressValue(window, " + std::to_string(test.expected) + ", 100)",
                         SentProgress(test.expected)}))
            << test.phase << ", " << test.percent;
        journal.Take();
    }
}

TEST_F(OpenStatusWindowTest, Stays_in_its_phase_until_the_next)
{
    window->SetProgress(50); // before the first
    window->SetPhase(4, 0, 0);
    window->SetProgress(50);
    window->SetProgress(20);

    EXPECT_EQ(journal.CallsOf({"SendMessageW"}),
              (Calls{SentProgress(0), SentProgress(30), SentProgress(35), SentProgress(32)}));
}

TEST_F(OpenStatusWindowTest, Keeps_its_text_when_memory_runs_out)
{
    window->SetStatusText(L"the one before");
    const std::wstring text(1000, L'x');
    LRESULT result = 0;
    Fake<&DefWindowProcW> defaultProcedure = [](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 12; };
    {
        const OutOfMemory outOfMemory;
        result = windowing->Send(c_setStatusText, 0, reinterpret_cast<LPARAM>(text.c_str()));
    }

    EXPECT_EQ(result, 12);
    EXPECT_THAT(Shown(), HasSubstr("|the one before|"));
}

TEST_F(StatusWindowTest, Has_no_elements_when_memory_runs_out)
{
    std::optional<OutOfMemory> outOfMemory;
    Fake<&DwmSetWindowAttribute> beforeTheRoot = [&](HWND, DWORD, LPCVOID, DWORD) -> HRESULT {
        outOfMemory.emplace();
        return S_OK;
    };
    Fake<&FindResourceW> afterTheRoot = [&](HMODULE, LPCWSTR, LPCWSTR) -> HRSRC {
        outOfMemory.reset();
        return nullptr;
    };

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, UiaRootObjectId), Calls{Default(WM_GETOBJECT, 7, -25)});
    EXPECT_EQ(Shown(), c_firstPicture);
    window.reset();
    EXPECT_THAT(journal.Take(), Not(Contains(StartsWith("UiaReturnRawElementProvider("))));
}

TEST_F(OpenStatusWindowTest, Runs_an_ordinary_message_loop)
{
    windowing->Post(WM_MOUSEMOVE, 1, 2);
    windowing->Post(WM_USER);

    EXPECT_EQ(journal.Take(), (Calls{"TranslateMessage(512)", "DispatchMessageW(512)", Default(WM_MOUSEMOVE, 1, 2),
                                     "GetMessageW(null, 0, 0)", "TranslateMessage(1024)", "DispatchMessageW(1024)",
                                     Default(WM_USER), "GetMessageW(null, 0, 0)"}));
}

TEST_F(StatusWindowTest, Ends_when_there_are_no_more_messages_and_gives_everything_back)
{
    for (const int quitOrFailure : {0, -1})
    {
        StartAgain();
        OpenQuietly();

        windowing->EndLoop(quitOrFailure);

        EXPECT_EQ(windowing->thread.ExitCode(), 0U);
        EXPECT_EQ(journal.Take(),
                  (Calls{"DestroyWindow(window)", "UiaReturnRawElementProvider(window, 0, 0, null)",
                         Default(WM_DESTROY), "BufferedPaintUnInit()", "GdipDisposeImage(bitmap(logo))",
                         Default(WM_NCDESTROY), "UnregisterClassW(#49443, module)", "GdiplusShutdown(GDI+ 1)"}));
        EXPECT_THAT(windowing->LeftBehind(), ElementsAre("1 thread handle"));
        // The window that is gone stays what it was to its owner.
        EXPECT_EQ(window->State(), StatusWindowState::Running);
    }
}

TEST_F(OpenStatusWindowTest, Comes_to_the_front_before_each_message_box)
{
    window->ShowError(L"Failed", L"It\nfailed.");
    window->ShowWarning(L"Warning", L"Careful.");
    window->ShowInfo(L"Done", L"It is done.");

    EXPECT_EQ(journal.Take(), ShownBox(MB_ICONERROR, "Failed", "It\nfailed.") +
                                  ShownBox(MB_ICONWARNING, "Warning", "Careful.") +
                                  ShownBox(MB_ICONINFORMATION, "Done", "It is done."));
}

TEST_F(OpenStatusWindowTest, Shows_message_boxes_after_the_user_has_closed_it)
{
    windowing->Post(WM_CLOSE);
    EXPECT_FALSE(windowing->WindowExists());
    journal.Take();

    EXPECT_EQ(window->Window(), nullptr);
    window->ShowInfo(L"Done", L"It is done.");
    EXPECT_EQ(journal.Take(), ShownBox(MB_ICONINFORMATION, "Done", "It is done.", "null"));
    window->SetStatusText(L"text");
    window->SetPhase(1, 0, 0);
}

TEST_F(OpenStatusWindowTest, Is_closed_when_it_goes)
{
    window.reset();

    EXPECT_EQ(journal.Take(), (Calls{c_sentClose, Default(WM_CLOSE), "UiaReturnRawElementProvider(window, 0, 0, null)",
                                     Default(WM_DESTROY), "BufferedPaintUnInit()", "GdipDisposeImage(bitmap(logo))",
                                     Default(WM_NCDESTROY), "CloseHandle(thread)", "DestroyWindow(window)"}));
    // What is left is its thread's, which waits for messages until the process ends.
    EXPECT_TRUE(windowing->thread.IsRunning());
    EXPECT_THAT(windowing->LeftBehind(), ElementsAre("GDI+ 1", "1 window class"));
}

TEST_F(OpenStatusWindowTest, Tells_UI_Automation_that_it_goes_while_its_root_is_still_there)
{
    windowing->clientsListen = true;
    windowing->Send(WM_PAINT);
    ASSERT_THAT(windowing->LeftBehind(), Contains("elements that UI Automation holds"));
    const auto root = windowing->data.lock()->accessibilityRoot;
    journal.onCall = [&](const std::string& call) {
        EXPECT_TRUE(call != "UiaReturnRawElementProvider(window, 0, 0, null)" || Root() != nullptr);
        EXPECT_TRUE(call != "CloseHandle(thread)" || References(*root) == 1U);
    };

    window.reset();

    // Nobody else holds any of its elements any more.
    EXPECT_EQ(References(*root), 1U);
}

TEST_F(OpenStatusWindowTest, May_go_while_it_tells_of_a_new_text)
{
    windowing->clientsListen = true;
    AccessibleRoot* const root = Root();
    unsigned events = 0;
    journal.onCall = [&](const std::string& call) {
        if (call == "UiaRaiseAutomationEvent(20024)")
        {
            // The message that closes the window comes in while the event is on its way.
            window.reset();
            EXPECT_FALSE(windowing->data.expired()); // the painting still needs it
            EXPECT_EQ(References(*root), 1U);
            ++events;
        }
    };

    EXPECT_EQ(windowing->Send(WM_PAINT), 0);

    EXPECT_EQ(events, 2U);
    EXPECT_FALSE(windowing->WindowExists());
    EXPECT_TRUE(windowing->data.expired());
}

} // namespace
