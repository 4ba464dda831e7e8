#include "Installer/StatusWindow.h"

#include "Installer/StatusWindowThread.h"
#include "support/AfterFirstAccess.h"
#include "support/FakeWindowing.h"
#include "support/OutOfMemory.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Calls = std::vector<std::string>;

class StatusWindowTest : public testing::Test
{
protected:
    void TearDown() override
    {
        // Process-wide, and tests share a process.
        if (windowing.WindowExists())
        {
            Tell(c_setStatusText, reinterpret_cast<LPARAM>(L"Getting things ready..."));
            Tell(c_setProgress, 0);
        }
        window.reset();
        EndThread();
        EXPECT_THAT(windowing.LeftBehind(), IsEmpty());
        EXPECT_TRUE(data.expired());
    }

    // The uninstaller's own window.
    void Open(int logo = 102)
    {
        windowing.onThreadMade = [this](void* argument) {
            data = static_cast<StatusWindowData*>(argument)->heldByWindowThread;
        };
        window.emplace(FakeWindowing::Module(), L"VELMORA_UNINSTALLER", L"Velmora Uninstaller",
                       L"Uninstalling Velmora\nThis may take a few seconds.", logo);
    }

    // Open, and everything that happens in there is forgotten.
    void OpenQuietly()
    {
        Open();
        ASSERT_EQ(window->State(), StatusWindowState::Running);
        windowing.journal.Take();
    }

    void EndThread()
    {
        if (windowing.thread.IsRunning())
        {
            windowing.EndLoop();
        }
    }

    // A message that is not for the journal.
    void Tell(UINT message, LPARAM lParam)
    {
        windowing.Send(message, 0, lParam);
        windowing.journal.Take();
    }

    // The calls that the window procedure makes for a message.
    Calls CallsFor(UINT message, WPARAM wParam = 0, LPARAM lParam = 0, LRESULT expected = 4711)
    {
        windowing.journal.Take();
        EXPECT_EQ(windowing.Send(message, wParam, lParam), expected);
        return windowing.journal.Take();
    }

    // The texts and the bar that a repaint shows: "<headline>|<status>|<width of the bar>".
    std::string Shown()
    {
        std::string shown;
        for (const std::string& call : CallsFor(WM_PAINT, 0, 0, 0))
        {
            if (call.starts_with("GdipDrawString("))
            {
                const auto begin = call.find('"') + 1;
                shown += call.substr(begin, call.find('"', begin) - begin) + '|';
            }
            if (call.starts_with("GdipFillRectangle(") && call.find("ffa953ff") != std::string::npos)
            {
                const auto begin = call.rfind(", ", call.rfind(", ") - 1) + 2;
                shown += call.substr(begin, call.rfind(", ") - begin);
            }
        }
        return shown;
    }

    FakeWindowing windowing;
    std::optional<StatusWindow> window;
    std::weak_ptr<StatusWindowData> data; // what both threads know of it
};

// First of all, while nothing has been changed yet.
TEST_F(StatusWindowTest, shows_its_headline_the_first_text_and_an_empty_bar)
{
    Open();

    EXPECT_EQ(Shown(), "Uninstalling Velmora\nThis may take a few seconds.|Getting things ready...|0");
}

TEST_F(StatusWindowTest, leaves_room_for_a_crash_report_on_the_stack_of_its_thread)
{
    std::vector<ULONG> reserved;
    Fake<&SetThreadStackGuarantee> guarantee = [&](PULONG bytes) -> BOOL {
        EXPECT_TRUE(windowing.thread.IsRunning());
        EXPECT_FALSE(windowing.WindowExists());
        reserved.push_back(*bytes);
        return TRUE;
    };

    Open();

    EXPECT_EQ(reserved, std::vector<ULONG>{65536});
}

TEST_F(StatusWindowTest, is_set_up_in_this_order)
{
    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(window->Window(), FakeWindowing::Window());
    EXPECT_EQ(windowing.journal.Take(),
              (Calls{
                  "CreateThread(null, 0, 0)",
                  "SetThreadDescription(\"ui_thread\")",
                  "GdiplusStartup(GDI+ 1)",
                  "LoadIconW(module, #101)",
                  "LoadCursorW(null, #32512)",
                  "RegisterClassExW(0, 0, 0, module, icon, cursor, null, null, \"VELMORA_UNINSTALLER\", null)",
                  "GetDC(desktop)",
                  "GetDeviceCaps(desktop dc, 88)",
                  "GetDeviceCaps(desktop dc, 90)",
                  "GetClientRect(desktop)",
                  "CreateWindowExW(0, \"VELMORA_UNINSTALLER\", \"Velmora Uninstaller\", 0x8a0000, 710, 370, 500, 340, "
                  "null, null, module, null)",
                  "BufferedPaintInit()",
                  "DwmExtendFrameIntoClientArea(window, 0, 0, 0, 0)",
                  "SetWindowPos(window, topmost, 0, 0, 0, 0, 0x63)",
                  "DefWindowProcW(1, 0, 0)",
                  "ReleaseDC(desktop, desktop dc)",
                  "SetWindowLongPtrW(window, -21)",
                  "DwmSetWindowAttribute(window, 20, 1, 4)",
                  "FindResourceW(module, #102, \"PNG\")",
                  "LoadResource(module, resource)",
                  "SizeofResource(module, resource)",
                  "GlobalAlloc(2, 4)",
                  "CreateStreamOnHGlobal(1, 1)",
                  "GdipCreateBitmapFromStream(bitmap(logo))",
                  "SetForegroundWindow(window)",
                  "GetMessageW(null, 0, 0)",
              }));
}

TEST_F(StatusWindowTest, is_running_only_when_it_has_been_set_up_whole)
{
    const Fake<&SetForegroundWindow> setForeground = [&](HWND) -> BOOL {
        const auto known = data.lock();
        EXPECT_EQ(known->state, StatusWindowState::Starting);
        EXPECT_EQ(known->window, FakeWindowing::Window());
        EXPECT_TRUE(known->accessibilityRoot);
        EXPECT_TRUE(known->logo);
        return TRUE;
    };

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
}

TEST_F(StatusWindowTest, remembers_what_it_was_given_and_its_thread)
{
    Open();

    const auto known = data.lock();
    EXPECT_EQ(known->module, FakeWindowing::Module());
    EXPECT_EQ(known->logoResourceId, 102);
    EXPECT_EQ(known->className, L"VELMORA_UNINSTALLER");
    EXPECT_EQ(known->title, L"Velmora Uninstaller");
    EXPECT_EQ(known->headline, L"Uninstalling Velmora\nThis may take a few seconds.");
    EXPECT_EQ(known->phase, 0);
    EXPECT_EQ(known->phaseCount, 0);
    EXPECT_TRUE(known->thread);
    EXPECT_EQ(known->threadId, 4242U);
    window->SetPhase(3, 99, 0);
    EXPECT_EQ(known->phase, 3);
    EXPECT_EQ(known->phaseCount, 10);
}

TEST_F(StatusWindowTest, looks_after_its_thread_every_50_milliseconds)
{
    windowing.threadStart = 120;

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(windowing.clock.Sleeps(), (std::vector<DWORD>{50, 50, 50}));
}

TEST_F(StatusWindowTest, is_still_found_at_the_last_of_21_looks)
{
    windowing.threadStart = 1050;

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(windowing.clock.Sleeps(), std::vector<DWORD>(21, 50));
}

TEST_F(StatusWindowTest, is_given_up_after_21_looks_and_runs_all_the_same_when_its_thread_comes_later)
{
    windowing.threadStart = 1051;
    Open();
    EXPECT_EQ(window->State(), StatusWindowState::Failed);
    EXPECT_EQ(windowing.clock.Sleeps(), std::vector<DWORD>(21, 50));
    windowing.journal.Take();
    window->SetStatusText(L"lost");
    window->SetPhase(2, 0, 10);
    EXPECT_THAT(windowing.journal.Take(), IsEmpty());

    Sleep(1);
    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(window->Window(), FakeWindowing::Window());
    EXPECT_EQ(Shown(), "Uninstalling Velmora\nThis may take a few seconds.|Getting things ready...|0");
    window->SetStatusText(L"found");
    window->SetProgress(10);
    EXPECT_EQ(Shown(), "Uninstalling Velmora\nThis may take a few seconds.|found|43.7799988"); // 11 % of 398
}

TEST_F(StatusWindowTest, may_be_gone_when_its_thread_comes_later)
{
    windowing.threadStart = 1051;
    Open();
    windowing.journal.Take();
    window.reset();
    EXPECT_EQ(windowing.journal.Take(), Calls{"CloseHandle(thread)"});

    Sleep(1);

    // It has all that it needs.
    EXPECT_TRUE(windowing.WindowExists());
    EXPECT_EQ(Shown(), "Uninstalling Velmora\nThis may take a few seconds.|Getting things ready...|0");
    EndThread();
    EXPECT_FALSE(windowing.WindowExists());
    EXPECT_EQ(windowing.thread.ExitCode(), 0U);
}

struct Failure
{
    const char* function;
    const char* lastCall; // before it is cleaned up
};

class StatusWindowFailureTest : public StatusWindowTest, public testing::WithParamInterface<Failure>
{
};

TEST_P(StatusWindowFailureTest, leaves_nothing_behind_and_every_call_harmless)
{
    windowing.journal.failing = {GetParam().function};

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Failed);
    EXPECT_EQ(window->Window(), nullptr);
    EXPECT_EQ(windowing.clock.Sleeps(), std::vector<DWORD>{50});
    EXPECT_FALSE(windowing.thread.IsRunning());
    EXPECT_EQ(windowing.thread.ExitCode(), 1U);
    EXPECT_THAT(windowing.LeftBehind(), ElementsAre("1 thread handle"));
    EXPECT_THAT(windowing.journal.Calls(), Contains(StartsWith(GetParam().lastCall)));
    EXPECT_THAT(windowing.journal.Take(), Not(Contains(StartsWith("GetMessageW("))));

    window->SetStatusText(L"text");
    window->SetPhase(1, 10, 0);
    window->SetProgress(100);
    EXPECT_THAT(windowing.journal.Take(), IsEmpty());
    window->ShowError(L"caption", L"text");
    window->ShowWarning(L"caption", L"text");
    window->ShowInfo(L"caption", L"text");
    EXPECT_EQ(windowing.journal.CallsOf({"MessageBoxW"}),
              (Calls{"MessageBoxW(null, \"text\", \"caption\", 16)", "MessageBoxW(null, \"text\", \"caption\", 48)",
                     "MessageBoxW(null, \"text\", \"caption\", 64)"}));
    windowing.journal.Take();
    window.reset();
    EXPECT_EQ(windowing.journal.Take(), Calls{"CloseHandle(thread)"});
}

INSTANTIATE_TEST_SUITE_P(Steps, StatusWindowFailureTest,
                         testing::Values(Failure{"GdiplusStartup", "GdiplusStartup("},
                                         Failure{"RegisterClassExW", "RegisterClassExW("},
                                         Failure{"CreateWindowExW", "CreateWindowExW("},
                                         Failure{"WM_CREATE", "DefWindowProcW(1,"}),
                         [](const auto& test) { return std::string(test.param.function); });

TEST_F(StatusWindowTest, gives_back_what_it_had_made_before_a_failure)
{
    windowing.journal.failing = {"RegisterClassExW"};
    Open();
    EXPECT_EQ(windowing.journal.Take().back(), "GdiplusShutdown(GDI+ 1)");
}

TEST_F(StatusWindowTest, gives_its_class_back_before_GDI_plus_when_there_is_no_window)
{
    windowing.journal.failing = {"CreateWindowExW"};

    Open();

    const Calls calls = windowing.journal.Take();
    EXPECT_EQ(Calls(calls.end() - 2, calls.end()),
              (Calls{"UnregisterClassW(#49443, module)", "GdiplusShutdown(GDI+ 1)"}));
}

TEST_F(StatusWindowTest, does_not_wait_for_a_thread_that_cannot_be_made)
{
    windowing.journal.failing = {"CreateThread"};

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Failed);
    EXPECT_THAT(windowing.clock.Sleeps(), IsEmpty());
    EXPECT_EQ(windowing.journal.Take(), Calls{"CreateThread(null, 0, 0)"});
    window.reset();
    EXPECT_THAT(windowing.journal.Take(), IsEmpty());
}

TEST_F(StatusWindowTest, does_without_an_icon_and_a_cursor)
{
    windowing.journal.failing = {"LoadIconW", "LoadCursorW"};

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
}

class StatusWindowLogoTest : public StatusWindowTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(StatusWindowLogoTest, is_left_out_when_it_cannot_be_had)
{
    windowing.journal.failing = {GetParam()};

    Open();

    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_THAT(CallsFor(WM_PAINT, 0, 0, 0),
                AllOf(Not(Contains(StartsWith("GdipDrawImageRect("))), Contains(StartsWith("GdipDrawString("))));
    EXPECT_THAT(windowing.LeftBehind(), Not(Contains("memory")));
}

INSTANTIATE_TEST_SUITE_P(Steps, StatusWindowLogoTest,
                         testing::Values("FindResourceW", "LoadResource", "LockResource", "SizeofResource",
                                         "GlobalAlloc", "GlobalLock", "CreateStreamOnHGlobal",
                                         "GdipCreateBitmapFromStream"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(StatusWindowTest, frees_the_logo_stream_when_nobody_reads_it_any_more)
{
    OpenQuietly();

    // The bitmap of this GDI+ holds no reference to the stream.
    EXPECT_THAT(windowing.LeftBehind(), Not(Contains("memory")));
    EXPECT_THAT(windowing.LeftBehind(), Contains("bitmap(logo)"));
}

TEST_F(StatusWindowTest, loads_the_logo_that_it_was_given)
{
    Open(77);

    EXPECT_THAT(windowing.journal.Take(), Contains("FindResourceW(module, #77, \"PNG\")"));
}

struct Placement
{
    int dpiX;
    int dpiY;
    RECT desktop;
    const char* expected; // x, y, width, height
};

class StatusWindowPlacementTest : public StatusWindowTest, public testing::WithParamInterface<Placement>
{
};

TEST_P(StatusWindowPlacementTest, is_in_the_middle_of_the_desktop)
{
    windowing.dpiX = GetParam().dpiX;
    windowing.dpiY = GetParam().dpiY;
    windowing.desktopArea = GetParam().desktop;

    Open();

    EXPECT_THAT(windowing.journal.Take(),
                Contains(AllOf(StartsWith("CreateWindowExW("), HasSubstr(GetParam().expected))));
}

INSTANTIATE_TEST_SUITE_P(
    Desktops, StatusWindowPlacementTest,
    testing::Values(Placement{96, 96, {0, 0, 1920, 1080}, "0x8a0000, 710, 370, 500, 340, null"},
                    Placement{120, 120, {0, 0, 1920, 1080}, "0x8a0000, 648, 328, 625, 425, null"},
                    Placement{144, 144, {0, 0, 1920, 1080}, "0x8a0000, 585, 285, 750, 510, null"},
                    Placement{192, 192, {0, 0, 3840, 2160}, "0x8a0000, 1420, 740, 1000, 680, null"},
                    // The lengths are cut off, not rounded: 515.625 and 343.54. So is each half, for itself.
                    Placement{99, 97, {0, 0, 1368, 768}, "0x8a0000, 427, 213, 515, 343, null"},
                    Placement{96, 96, {0, 0, 400, 300}, "0x8a0000, -50, -20, 500, 340, null"}));

TEST_F(StatusWindowTest, has_a_frame_of_one_pixel_and_no_caption)
{
    OpenQuietly();
    NCCALCSIZE_PARAMS sizes{};
    sizes.rgrc[0] = {100, 200, 600, 540};

    EXPECT_EQ(CallsFor(WM_NCCALCSIZE, TRUE, reinterpret_cast<LPARAM>(&sizes), 0), Calls{});
    EXPECT_EQ(windowing.journal.Describe(sizes.rgrc[0]), "{101 200 599 539}");

    RECT area{0, 0, 500, 340};
    EXPECT_EQ(CallsFor(WM_NCCALCSIZE, FALSE, reinterpret_cast<LPARAM>(&area), 0), Calls{});
    EXPECT_EQ(windowing.journal.Describe(area), "{1 0 499 339}");
}

TEST_F(StatusWindowTest, leaves_a_size_calculation_without_a_rectangle_to_Windows)
{
    OpenQuietly();

    EXPECT_EQ(CallsFor(WM_NCCALCSIZE, TRUE), Calls{"DefWindowProcW(131, 1, 0)"});
}

TEST_F(StatusWindowTest, has_the_frame_of_a_window_that_can_be_sized_when_it_is_one)
{
    windowing.addedStyle = WS_THICKFRAME | WS_CAPTION;
    Open();
    EXPECT_THAT(windowing.journal.Take(), Contains("AdjustWindowRectEx({0 0 0 0}, 0xe0000, 0, 0)"));
    RECT area{0, 0, 500, 340};

    CallsFor(WM_NCCALCSIZE, TRUE, reinterpret_cast<LPARAM>(&area), 0);

    EXPECT_EQ(windowing.journal.Describe(area), "{8 0 494 335}");
}

TEST_F(StatusWindowTest, has_no_frame_when_its_style_has_none)
{
    OpenQuietly();
    Fake<&GetWindowLongPtrW> getStyle = [](HWND, int index) {
        return index == GWL_STYLE ? LONG_PTR{WS_SYSMENU} : LONG_PTR{0};
    };
    EXPECT_EQ(CallsFor(WM_CREATE, 0, 0, 0),
              (Calls{"BufferedPaintInit()", "DwmExtendFrameIntoClientArea(window, 0, 0, 0, 0)",
                     "SetWindowPos(window, topmost, 0, 0, 0, 0, 0x63)", "DefWindowProcW(1, 0, 0)"}));
    BufferedPaintUnInit();
    RECT area{0, 0, 500, 340};

    CallsFor(WM_NCCALCSIZE, TRUE, reinterpret_cast<LPARAM>(&area), 0);

    EXPECT_EQ(windowing.journal.Describe(area), "{0 0 500 340}");
}

TEST_F(StatusWindowTest, gives_its_root_to_UI_Automation)
{
    OpenQuietly();

    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, UiaRootObjectId, 815), Calls{"UiaReturnRawElementProvider(window, 7, -25)"});
    ASSERT_NE(windowing.givenRoot, nullptr);
    VARIANT name{};
    EXPECT_EQ(windowing.givenRoot->GetPropertyValue(UIA_NamePropertyId, &name), S_OK);
    EXPECT_STREQ(name.bstrVal, L"Velmora Installer");
    SysFreeString(name.bstrVal);
    windowing.givenRoot->AddRef();
    EXPECT_EQ(windowing.givenRoot->Release(), 1U); // the window's own
}

TEST_F(StatusWindowTest, gives_its_root_when_the_number_has_been_widened_without_its_sign)
{
    OpenQuietly();

    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, LPARAM{0xffffffe7}, 815),
              Calls{"UiaReturnRawElementProvider(window, 7, 4294967271)"});
}

TEST_F(StatusWindowTest, leaves_other_objects_to_Windows)
{
    OpenQuietly();

    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, OBJID_CLIENT), Calls{"DefWindowProcW(61, 7, -4)"});
}

TEST_F(StatusWindowTest, leaves_everything_that_needs_its_object_to_Windows_before_it_has_one)
{
    OpenQuietly();
    const LONG_PTR userData = SetWindowLongPtrW(FakeWindowing::Window(), GWLP_USERDATA, 0);

    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, UiaRootObjectId), Calls{"DefWindowProcW(61, 7, -25)"});
    EXPECT_EQ(CallsFor(WM_PAINT), Calls{"DefWindowProcW(15, 0, 0)"});
    EXPECT_EQ(CallsFor(WM_DESTROY), Calls{"DefWindowProcW(2, 0, 0)"});
    EXPECT_EQ(CallsFor(WM_NCDESTROY), (Calls{"BufferedPaintUnInit()", "DefWindowProcW(130, 0, 0)"}));

    BufferedPaintInit();
    SetWindowLongPtrW(FakeWindowing::Window(), GWLP_USERDATA, userData);
}

TEST_F(StatusWindowTest, leaves_all_other_messages_to_Windows)
{
    OpenQuietly();

    EXPECT_EQ(CallsFor(WM_ERASEBKGND, 5, 6), Calls{"DefWindowProcW(20, 5, 6)"});
    EXPECT_EQ(CallsFor(WM_NCHITTEST, 0, 1), Calls{"DefWindowProcW(132, 0, 1)"});
    EXPECT_EQ(CallsFor(WM_USER, 1, 2), Calls{"DefWindowProcW(1024, 1, 2)"});
    EXPECT_EQ(CallsFor(WM_USER + 3, 1, 2), Calls{"DefWindowProcW(1027, 1, 2)"});
    EXPECT_TRUE(windowing.WindowExists());
}

TEST_F(StatusWindowTest, takes_a_copy_of_a_text_and_asks_to_be_painted_whole)
{
    OpenQuietly();
    std::wstring text = L"Deleting shortcuts...";

    EXPECT_EQ(CallsFor(c_setStatusText, 0, reinterpret_cast<LPARAM>(text.c_str())),
              (Calls{"InvalidateRect(window, null, 1)", "DefWindowProcW(1025, 0, text)"}));
    text.assign(text.size(), L'x');

    EXPECT_THAT(Shown(), HasSubstr("|Deleting shortcuts...|"));
}

TEST_F(StatusWindowTest, takes_a_percentage_and_asks_to_be_painted_whole)
{
    OpenQuietly();

    EXPECT_EQ(CallsFor(c_setProgress, 0, 25),
              (Calls{"InvalidateRect(window, null, 1)", "DefWindowProcW(1026, 0, 25)"}));

    EXPECT_THAT(Shown(), EndsWith("|99.5")); // of 398
}

TEST_F(StatusWindowTest, takes_the_lower_32_bits_of_a_percentage)
{
    OpenQuietly();

    Tell(c_setProgress, LPARAM{0x700000032});

    EXPECT_THAT(Shown(), EndsWith("|199"));
}

TEST_F(StatusWindowTest, keeps_its_text_when_memory_runs_out)
{
    OpenQuietly();
    window->SetStatusText(L"the one before");
    const std::wstring text(1000, L'x');
    LRESULT result = 0;
    Fake<&DefWindowProcW> defaultProcedure = [](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 12; };
    {
        const OutOfMemory outOfMemory;
        result = windowing.Send(c_setStatusText, 0, reinterpret_cast<LPARAM>(text.c_str()));
    }

    EXPECT_EQ(result, 12);
    EXPECT_THAT(Shown(), HasSubstr("|the one before|"));
}

TEST_F(StatusWindowTest, has_no_elements_when_memory_runs_out)
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
    EXPECT_EQ(CallsFor(WM_GETOBJECT, 7, UiaRootObjectId), Calls{"DefWindowProcW(61, 7, -25)"});
    EXPECT_EQ(Shown(), "Uninstalling Velmora\nThis may take a few seconds.|Getting things ready...|0");
    window.reset();
    EXPECT_THAT(windowing.journal.Take(), Not(Contains(StartsWith("UiaReturnRawElementProvider("))));
}

TEST_F(StatusWindowTest, runs_an_ordinary_message_loop)
{
    OpenQuietly();

    windowing.Post(WM_MOUSEMOVE, 1, 2);
    windowing.Post(WM_PAINT);

    const Calls calls = windowing.journal.Take();
    EXPECT_EQ(Calls(calls.begin(), calls.begin() + 6),
              (Calls{"TranslateMessage(512)", "DispatchMessageW(512)", "DefWindowProcW(512, 1, 2)",
                     "GetMessageW(null, 0, 0)", "TranslateMessage(15)", "DispatchMessageW(15)"}));
    EXPECT_EQ(calls.back(), "GetMessageW(null, 0, 0)");
}

class StatusWindowLoopTest : public StatusWindowTest, public testing::WithParamInterface<int>
{
};

TEST_P(StatusWindowLoopTest, ends_when_there_are_no_more_messages_and_gives_everything_back)
{
    OpenQuietly();

    windowing.EndLoop(GetParam());

    EXPECT_FALSE(windowing.thread.IsRunning());
    EXPECT_EQ(windowing.thread.ExitCode(), 0U);
    EXPECT_EQ(windowing.journal.Take(),
              (Calls{"DestroyWindow(window)", "UiaReturnRawElementProvider(window, 0, 0, null)",
                     "DefWindowProcW(2, 0, 0)", "BufferedPaintUnInit()", "GdipDisposeImage(bitmap(logo))",
                     "DefWindowProcW(130, 0, 0)", "UnregisterClassW(#49443, module)", "GdiplusShutdown(GDI+ 1)"}));
    EXPECT_THAT(windowing.LeftBehind(), ElementsAre("1 thread handle"));
    // The window that is gone stays what it was to its owner.
    EXPECT_EQ(window->State(), StatusWindowState::Running);
    EXPECT_EQ(window->Window(), nullptr);
    window->SetStatusText(L"text");
    window->SetPhase(1, 0, 0);
}

INSTANTIATE_TEST_SUITE_P(Results, StatusWindowLoopTest, testing::Values(0, -1),
                         [](const auto& test) { return test.param == 0 ? "quit" : "failure"; });

TEST_F(StatusWindowTest, sends_its_texts)
{
    OpenQuietly();

    window->SetStatusText(L"Stopping services...");

    EXPECT_EQ(windowing.journal.Take(), (Calls{"SendMessageW(window, 1025, 0, \"Stopping services...\")",
                                               "InvalidateRect(window, null, 1)", "DefWindowProcW(1025, 0, text)"}));
}

TEST_F(StatusWindowTest, shows_the_progress_on_the_taskbar_and_in_the_window)
{
    OpenQuietly();

    window->SetPhase(3, 0, 50);

    EXPECT_EQ(windowing.journal.Take(),
              (Calls{"CoCreateInstance(1, null, 1, 1)", "ITaskbarList3::SetProgressValue(window, 25, 100)",
                     "SendMessageW(window, 1026, 0, 25)", "InvalidateRect(window, null, 1)",
                     "DefWindowProcW(1026, 0, 25)", "ITaskbarList3::Release()"}));
    EXPECT_EQ(windowing.taskbar.References(), 0U);
}

TEST_F(StatusWindowTest, goes_without_a_taskbar)
{
    OpenQuietly();
    windowing.journal.failing = {"CoCreateInstance"};

    window->SetPhase(10, 0, 100);

    EXPECT_EQ(windowing.journal.CallsOf({"ITaskbarList3::SetProgressValue", "ITaskbarList3::Release", "SendMessageW"}),
              Calls{"SendMessageW(window, 1026, 0, 100)"});
}

TEST_F(StatusWindowTest, counts_the_percentage_of_a_phase_into_that_of_the_run)
{
    OpenQuietly();
    struct
    {
        int phase;
        int percent;
        const char* expected;
    } const cases[] = {
        {1, 0, "0"},
        {1, 9, "0"},
        {1, 10, "1"},
        {1, 100, "10"},
        {2, 0, "10"},
        {2, 35, "13"},
        {3, 50, "25"},
        {4, 0, "30"},
        {5, 99, "49"},
        {6, 0, "50"},
        {7, 33, "63"},
        {9, 100, "90"},
        {10, 0, "90"},
        {10, 90, "99"},
        {10, 99, "99"},
        {10, 100, "100"},
        // What double precision leaves just below a whole number is cut off.
        {1, 70, "6"},
        {3, 90, "28"},
        {6, 60, "55"},
        {7, 50, "64"},
    };
    for (const auto& test : cases)
    {
        window->SetPhase(test.phase, 1234, test.percent);
        const Calls sent = windowing.journal.CallsOf({"SendMessageW", "ITaskbarList3::SetProgressValue"});
        windowing.journal.Take();
        EXPECT_EQ(sent, (Calls{std::string("ITaskbarList3::SetProgressValue(window, ") + test.expected + ", 100)",
                               std::string("SendMessageW(window, 1026, 0, ") + test.expected + ")"}))
            << test.phase << ", " << test.percent;
    }
}

TEST_F(StatusWindowTest, stays_in_its_phase_until_the_next)
{
    OpenQuietly();
    window->SetPhase(4, 0, 0);
    window->SetProgress(50);
    window->SetProgress(20);

    EXPECT_EQ(windowing.journal.CallsOf({"SendMessageW"}),
              (Calls{"SendMessageW(window, 1026, 0, 30)", "SendMessageW(window, 1026, 0, 35)",
                     "SendMessageW(window, 1026, 0, 32)"}));
}

TEST_F(StatusWindowTest, shows_no_progress_before_the_first_phase)
{
    OpenQuietly();

    window->SetProgress(50);

    EXPECT_THAT(windowing.journal.Take(), Contains("SendMessageW(window, 1026, 0, 0)"));
}

TEST_F(StatusWindowTest, comes_to_the_front_before_each_message_box)
{
    OpenQuietly();

    window->ShowError(L"Velmora Uninstaller Failed", L"It\nfailed.");
    window->ShowWarning(L"Velmora", L"Careful.");
    window->ShowInfo(L"Velmora Uninstaller", L"It is done.");

    EXPECT_EQ(windowing.journal.Take(), (Calls{
                                            "SetForegroundWindow(window)",
                                            "MessageBoxW(window, \"It\nfailed.\", \"Velmora Uninstaller Failed\", 16)",
                                            "SetForegroundWindow(window)",
                                            "MessageBoxW(window, \"Careful.\", \"Velmora\", 48)",
                                            "SetForegroundWindow(window)",
                                            "MessageBoxW(window, \"It is done.\", \"Velmora Uninstaller\", 64)",
                                        }));
}

TEST_F(StatusWindowTest, shows_message_boxes_after_the_user_has_closed_it)
{
    OpenQuietly();
    windowing.Post(WM_CLOSE);
    EXPECT_FALSE(windowing.WindowExists());
    windowing.journal.Take();

    EXPECT_EQ(window->Window(), nullptr);
    window->ShowInfo(L"Velmora", L"It is done.");
    window->SetStatusText(L"text");
    window->SetPhase(1, 0, 0);

    EXPECT_EQ(windowing.journal.CallsOf({"MessageBoxW"}), Calls{"MessageBoxW(null, \"It is done.\", \"Velmora\", 64)"});
}

TEST_F(StatusWindowTest, is_closed_when_it_goes)
{
    OpenQuietly();

    window.reset();

    EXPECT_EQ(windowing.journal.Take(),
              (Calls{"SendMessageW(window, 16, 0, 0)", "DefWindowProcW(16, 0, 0)",
                     "UiaReturnRawElementProvider(window, 0, 0, null)", "DefWindowProcW(2, 0, 0)",
                     "BufferedPaintUnInit()", "GdipDisposeImage(bitmap(logo))", "DefWindowProcW(130, 0, 0)",
                     "CloseHandle(thread)", "DestroyWindow(window)"}));
    // What is left is its thread's, which waits for messages until the process ends.
    EXPECT_TRUE(windowing.thread.IsRunning());
    EXPECT_THAT(windowing.LeftBehind(), ElementsAre("GDI+ 1", "1 window class"));
}

TEST_F(StatusWindowTest, tells_UI_Automation_that_it_goes_while_its_root_is_still_there)
{
    OpenQuietly();
    windowing.clientsListen = true;
    windowing.Send(WM_PAINT);
    ASSERT_THAT(windowing.LeftBehind(), Contains("elements that UI Automation holds"));
    const auto root = data.lock()->accessibilityRoot;
    Fake<&UiaReturnRawElementProvider> returnProvider = [&](HWND handle, WPARAM wParam, LPARAM lParam,
                                                            IRawElementProviderSimple* provider) -> LRESULT {
        EXPECT_TRUE(data.lock()->accessibilityRoot);
        return returnProvider.Hidden(handle, wParam, lParam, provider);
    };

    window.reset();

    // Nobody else holds any of its elements any more.
    EXPECT_THAT(windowing.LeftBehind(), Not(Contains("elements that UI Automation holds")));
    root->AddRef();
    EXPECT_EQ(root->Release(), 1U);
}

// Another thread may do anything between two of this one's reads.
TEST_F(StatusWindowTest, may_come_at_the_very_moment_when_it_goes)
{
    windowing.threadStart = 1051;
    Open();
    windowing.journal.Take();
    const auto known = data.lock();
    {
        const AfterFirstAccess comes(*known, [] { Sleep(1); });
        window.reset();
    }

    EXPECT_EQ(known->state, StatusWindowState::Running);
    EXPECT_EQ(windowing.journal.CallsOf({"SendMessageW", "CloseHandle", "DestroyWindow"}),
              (Calls{"CloseHandle(thread)", "DestroyWindow(window)"}));
    EXPECT_TRUE(windowing.WindowExists()); // it is its thread's: no other one can destroy it
}

TEST_F(StatusWindowTest, releases_its_root_when_it_goes_and_leaves_it_to_those_who_still_hold_it)
{
    OpenQuietly();
    windowing.Send(WM_GETOBJECT, 0, UiaRootObjectId);
    IRawElementProviderSimple* const root = windowing.givenRoot;
    root->AddRef();
    std::vector<std::string> order;
    windowing.onThreadHandleClosed = [&] {
        root->AddRef();
        order.push_back("closed with " + std::to_string(root->Release()));
    };
    Fake<&SendMessageW> sendMessage = [&](HWND, UINT message, WPARAM, LPARAM) -> LRESULT {
        windowing.Send(message);
        root->AddRef();
        order.push_back("sent with " + std::to_string(root->Release()));
        return 0;
    };

    window.reset();

    EXPECT_EQ(order, (std::vector<std::string>{"sent with 2", "closed with 1"}));
    IRawElementProviderFragment* fragment = nullptr;
    ASSERT_EQ(root->QueryInterface(__uuidof(IRawElementProviderFragment), reinterpret_cast<void**>(&fragment)), S_OK);
    IRawElementProviderFragment* headline = nullptr;
    EXPECT_EQ(fragment->Navigate(NavigateDirection_FirstChild, &headline), S_OK);
    fragment->Release();
    EXPECT_EQ(root->Release(), 1U);
    UiaRect bounds{};
    EXPECT_EQ(headline->get_BoundingRectangle(&bounds), static_cast<HRESULT>(UIA_E_ELEMENTNOTAVAILABLE));
    EXPECT_EQ(headline->Release(), 0U);
}

TEST_F(StatusWindowTest, may_go_while_it_tells_of_a_new_text)
{
    OpenQuietly();
    windowing.clientsListen = true;
    windowing.onEvent = [&] {
        // The message that closes the window comes in while the event is on its way.
        window.reset();
        EXPECT_FALSE(data.expired()); // the painting still needs it
        windowing.raisedFor.back()->AddRef();
        EXPECT_EQ(windowing.raisedFor.back()->Release(), 1U);
    };

    EXPECT_EQ(windowing.Send(WM_PAINT), 0);

    EXPECT_EQ(windowing.raisedFor.size(), 2U);
    EXPECT_FALSE(windowing.WindowExists());
    EXPECT_TRUE(data.expired());
}

TEST_F(StatusWindowTest, tells_assistive_programs_of_each_new_text_and_of_nothing_else)
{
    OpenQuietly();
    windowing.clientsListen = true;
    const auto events = [&] {
        windowing.Send(WM_PAINT);
        return std::exchange(windowing.raisedFor, {}).size();
    };

    EXPECT_EQ(events(), 2U); // both lines are new
    EXPECT_EQ(events(), 0U);
    window->SetStatusText(L"Stopping services...");
    EXPECT_EQ(events(), 1U);
    EXPECT_EQ(events(), 0U);
    window->SetStatusText(L"Stopping services...");
    EXPECT_EQ(events(), 0U);
    window->SetPhase(2, 0, 0);
    EXPECT_EQ(events(), 0U);
    EXPECT_THAT(windowing.journal.CallsOf({"UiaRaiseAutomationEvent"}), Each("UiaRaiseAutomationEvent(20024)"));
}

TEST_F(StatusWindowTest, loses_nothing_over_a_thousand_paints)
{
    OpenQuietly();
    const auto before = windowing.LeftBehind();
    const auto created = windowing.gdiPlus.Created();

    for (int i = 0; i < 1000; ++i)
    {
        windowing.Send(WM_PAINT);
        windowing.journal.Take();
    }

    EXPECT_EQ(windowing.gdiPlus.Created() - created, 11'000U);
    EXPECT_EQ(windowing.LeftBehind(), before);
}

} // namespace
