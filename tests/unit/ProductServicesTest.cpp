#include "Installer/ProductServices.h"

#include "Installer/Logger.h"
#include "support/Calls.h"
#include "support/FailureLog.h"
#include "support/FakeCodePage.h"
#include "support/FakeFolders.h"
#include "support/FakeServiceManager.h"
#include "support/OutOfMemory.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <sentry.h>
#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using Failures = std::vector<FailureLog::Entry>;
using SentryTesting::Breadcrumb;

// The services that the product may have, in the order in which they are stopped.
const std::array<std::wstring, 3> c_names{L"OrvaneAuthService", L"VelmoraUpdaterService", L"Velmora Updater Service"};

const std::string c_errorText = "[ClientHelper] Unexpected error while stopping services: ";

class StopServicesTest : public testing::Test
{
protected:
    StopServicesTest() { sentry_init(sentry_options_new()); }
    ~StopServicesTest() override { SentryTesting::Forget(); }

    void TearDown() override { EXPECT_EQ(manager.OpenHandles(), 0U); }

    // The calls that look for a service which is not there.
    static Calls NotFound(const std::wstring& name)
    {
        return {"open manager 1", "open " + Narrow(name) + " 4", "close manager"};
    }

    static Calls Found(const std::wstring& name)
    {
        return {"open manager 1", "open " + Narrow(name) + " 4", "close " + Narrow(name), "close manager"};
    }

    // The calls that find a service and stop it.
    static Calls Stopped(const std::wstring& name)
    {
        const std::string text = Narrow(name);
        return Found(name) + Calls{"open manager 1",
                                   "open " + text + " 24",
                                   "query " + text + " 0 36",
                                   "control " + text + " 1 1",
                                   "sleep 500",
                                   "query " + text + " 0 36",
                                   "sleep 1000",
                                   "close " + text,
                                   "close manager"};
    }

    // That nothing was logged, in whatever way.
    void ExpectNoLog() const
    {
        EXPECT_EQ(ReadLog(), "");
        EXPECT_EQ(SentryTesting::CurrentRun().breadcrumbs, std::vector<Breadcrumb>());
        EXPECT_EQ(SentryTesting::CurrentRun().events, std::vector<SentryTesting::Event>());
    }

    // That the log has this one error, and that it was not sent.
    void ExpectLoggedError(const std::string& text) const
    {
        EXPECT_EQ(ReadLog(), "|ERROR|:   " + text + "\r\n");
        EXPECT_EQ(SentryTesting::CurrentRun().breadcrumbs, (std::vector<Breadcrumb>{{std::nullopt, "Error:" + text}}));
        EXPECT_EQ(SentryTesting::CurrentRun().events, std::vector<SentryTesting::Event>());
    }

    std::string ReadLog() const { return Exists(logger.LogPath()) ? ReadFileText(logger.LogPath()) : ""; }

    TestFolder root;
    FakeFolders folders{root};
    FailureLog failures;
    VirtualClock clock;
    FakeServiceManager manager{clock};
    Logger logger{RunType::Silent};
};

TEST_F(StopServicesTest, looks_for_three_services_and_needs_none)
{
    EXPECT_EQ(StopServices(logger), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), NotFound(c_names[0]) + NotFound(c_names[1]) + NotFound(c_names[2])));
    EXPECT_EQ(failures.Entries(), Failures());
    ExpectNoLog();
}

TEST_F(StopServicesTest, stops_all_three_in_their_order)
{
    for (const std::wstring& name : c_names)
    {
        manager.Add(name).StopsAfter(1);
    }

    EXPECT_EQ(StopServices(logger), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), Stopped(c_names[0]) + Stopped(c_names[1]) + Stopped(c_names[2])));
    EXPECT_EQ(failures.Entries(), Failures());
    ExpectNoLog();
}

TEST_F(StopServicesTest, stops_the_authorization_service_alone)
{
    manager.Add(c_names[0]).StopsAfter(1);

    EXPECT_EQ(StopServices(logger), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), Stopped(c_names[0]) + NotFound(c_names[1]) + NotFound(c_names[2])));
}

TEST_F(StopServicesTest, stops_the_updater_service_alone)
{
    manager.Add(c_names[1]).StopsAfter(1);

    EXPECT_EQ(StopServices(logger), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), NotFound(c_names[0]) + Stopped(c_names[1]) + NotFound(c_names[2])));
}

TEST_F(StopServicesTest, stops_the_service_with_blanks_in_its_name_alone)
{
    manager.Add(c_names[2]).StopsAfter(1);

    EXPECT_EQ(StopServices(logger), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), NotFound(c_names[0]) + NotFound(c_names[1]) + Stopped(c_names[2])));
}

TEST_F(StopServicesTest, leaves_a_service_alone_that_cannot_be_asked_for_its_status)
{
    manager.Add(c_names[0]);
    manager.FailCall("open OrvaneAuthService 4", ERROR_ACCESS_DENIED);

    EXPECT_EQ(StopServices(logger), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), NotFound(c_names[0]) + NotFound(c_names[1]) + NotFound(c_names[2])));
    ExpectNoLog();
}

TEST_F(StopServicesTest, goes_on_after_services_that_do_not_stop)
{
    for (const std::wstring& name : c_names)
    {
        manager.Add(name);
    }
    manager.FailCall("control OrvaneAuthService 1 1", ERROR_INVALID_SERVICE_CONTROL);
    manager.FailCall("open VelmoraUpdaterService 24", ERROR_ACCESS_DENIED);

    EXPECT_EQ(StopServices(logger), S_OK); // the third one is killed four times and runs on

    EXPECT_EQ(clock.Now(), 40'000U);
    EXPECT_EQ(std::ranges::count(manager.Calls(), "kill 1234 0"), 4);
    EXPECT_EQ(manager.stopRequests.size(), 1U);
    EXPECT_EQ(failures.Entries(), (Failures{{"Service", HRESULT_FROM_WIN32(ERROR_INVALID_SERVICE_CONTROL)},
                                            {"Service", HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)}}));
    ExpectNoLog();
}

TEST_F(StopServicesTest, an_exception_from_any_call_is_logged_and_ends_it_with_every_handle_closed)
{
    const FakeCodePage western(1252);
    for (const std::wstring& name : c_names)
    {
        manager.Add(name);
    }
    std::string throwing;
    manager.onCall = [&](const std::string& call) {
        EXPECT_EQ(call.find("Updater"), std::string::npos);
        if (call == throwing)
        {
            throw std::runtime_error("gr\xFC\xDF dich");
        }
    };
    std::string log;
    std::vector<Breadcrumb> breadcrumbs;
    for (const char* const call :
         {"open manager 1", "open OrvaneAuthService 4", "open OrvaneAuthService 24", "query OrvaneAuthService 0 36",
          "control OrvaneAuthService 1 1", "open process 1234 1", "kill 1234 0"})
    {
        SCOPED_TRACE(call);
        throwing = call;
        log += "|ERROR|:   " + c_errorText + "gr\xC3\xBC\xC3\x9F dich\r\n";
        breadcrumbs.push_back({std::nullopt, "Error:" + c_errorText + "gr\xC3\xBC\xC3\x9F dich"});

        EXPECT_EQ(StopServices(logger), E_UNEXPECTED);

        EXPECT_EQ(manager.OpenHandles(), 0U);
        EXPECT_EQ(ReadLog(), log);
        EXPECT_EQ(SentryTesting::CurrentRun().breadcrumbs, breadcrumbs);
    }
    EXPECT_EQ(SentryTesting::CurrentRun().events, std::vector<SentryTesting::Event>());
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(StopServicesTest, an_exception_leaves_out_the_services_that_follow)
{
    for (const std::wstring& name : c_names)
    {
        manager.Add(name).StopsAfter(1);
    }
    manager.onCall = [](const std::string& call) {
        if (call == "control VelmoraUpdaterService 1 1")
        {
            throw std::logic_error("");
        }
    };

    EXPECT_EQ(StopServices(logger), E_UNEXPECTED);

    const Calls interrupted{"open manager 1",
                            "open VelmoraUpdaterService 24",
                            "query VelmoraUpdaterService 0 36",
                            "control VelmoraUpdaterService 1 1",
                            "close VelmoraUpdaterService",
                            "close manager"};
    EXPECT_TRUE(AreEqual(manager.Calls(), Stopped(c_names[0]) + Found(c_names[1]) + interrupted));
    ExpectLoggedError(c_errorText);
}

TEST_F(StopServicesTest, exceptions_of_other_kinds_pass_with_every_handle_closed)
{
    manager.Add(c_names[0]);
    manager.onCall = [](const std::string& call) {
        if (call == "kill 1234 0")
        {
            throw 42; // NOLINT(misc-throw-by-value-catch-by-reference, hicpp-exception-baseclass)
        }
    };

    EXPECT_THROW(StopServices(logger), int);

    EXPECT_EQ(manager.OpenHandles(), 0U);
    ExpectNoLog();
}

TEST_F(StopServicesTest, does_without_the_line_when_memory_has_run_out)
{
    std::optional<OutOfMemory> outOfMemory;
    manager.onCall = [&](const std::string&) {
        outOfMemory.emplace();
        throw std::bad_alloc();
    };

    const HRESULT result = StopServices(logger);
    outOfMemory.reset();

    EXPECT_EQ(result, E_UNEXPECTED);
    ExpectNoLog();
}

} // namespace
