#include "Installer/ProductServices.h"

#include "support/unit/FakeCodePage.h"
#include "support/unit/FakeServiceManager.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/ProcessesTest.h"

#include <windows.h>

#include <gtest/gtest.h>

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
using Lines = std::vector<std::string>;

// The services that the product may have, in the order in which they are stopped.
const Lines c_names{"OrvaneAuthService", "VelmoraUpdaterService", "Velmora Updater Service"};

std::string Open(const std::string& name, const std::string& access)
{
    return "OpenServiceW(manager, \"" + name + "\", " + access + ")";
}

std::string Control(const std::string& name)
{
    return "ControlServiceExW(" + name + ", 1, 0x40050003, \"Stopping to perform install/uninstall.\")";
}

// The calls that look for a service, and stop it then.
Calls Stopped(const std::string& name)
{
    return {Open(name, "0x4"), Open(name, "0x24"), Control(name)};
}

class StopServicesTest : public ProcessesTest
{
protected:
    FakeService& Add(const std::string& name) { return manager.Add({name.begin(), name.end()}); }

    Calls Asked() const { return journal.CallsOf({"OpenServiceW", "ControlServiceExW"}); }

    FakeServiceManager manager{journal, handles, processes, clock};
};

TEST_F(StopServicesTest, Stops_all_three_in_their_order)
{
    for (const std::string& name : c_names)
    {
        Add(name).StopsAfter(1);
    }

    EXPECT_EQ(StopServices(log.Logger()), S_OK);

    EXPECT_EQ(Asked(), Stopped(c_names[0]) + Stopped(c_names[1]) + Stopped(c_names[2]));
    EXPECT_EQ(failures.Entries(), Failures());
    EXPECT_EQ(log.Lines(), Lines());
}

TEST_F(StopServicesTest, Stops_each_alone_and_no_other)
{
    for (const std::string& present : c_names + "Spooler")
    {
        FakeServiceManager others{journal, handles, processes, clock};
        others.Add({present.begin(), present.end()}).StopsAfter(1);
        Calls calls;
        for (const std::string& name : c_names)
        {
            calls = calls + (name == present ? Stopped(name) : Calls{Open(name, "0x4")});
        }

        EXPECT_EQ(StopServices(log.Logger()), S_OK);

        EXPECT_EQ(Asked(), calls) << present;
        journal.Take();
    }
    EXPECT_EQ(failures.Entries(), Failures());
    EXPECT_EQ(log.Lines(), Lines());
}

TEST_F(StopServicesTest, Goes_on_after_services_that_do_not_stop)
{
    for (const std::string& name : c_names)
    {
        Add(name);
    }
    journal.Fail(Control(c_names[0]), ERROR_INVALID_SERVICE_CONTROL);
    journal.Fail(Open(c_names[1], "0x24"), ERROR_ACCESS_DENIED);

    EXPECT_EQ(StopServices(log.Logger()), S_OK); // the third one is killed four times and runs on

    EXPECT_EQ(journal.CallsOf({"TerminateProcess"}), 4 * Calls{"TerminateProcess(1236, 0)"});
    EXPECT_EQ(failures.Entries(), (Failures{{"Service", HRESULT_FROM_WIN32(ERROR_INVALID_SERVICE_CONTROL)},
                                            {"Service", HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)}}));
    EXPECT_EQ(log.Lines(), Lines());
}

TEST_F(StopServicesTest, An_exception_from_any_call_is_logged_and_ends_it_with_every_handle_closed)
{
    const FakeCodePage western(1252);
    Add(c_names[0]);
    std::string throwing;
    journal.onCall = [&](const std::string& call) {
        if (call.starts_with(throwing))
        {
            throw std::runtime_error("gr\xFC\xDF dich");
        }
    };
    Lines lines;
    for (const std::string& call :
         Calls{"OpenSCManagerW", Open(c_names[0], "0x4"), Open(c_names[0], "0x24"), "QueryServiceStatusEx",
               "ControlServiceExW", "OpenProcess", "TerminateProcess"})
    {
        SCOPED_TRACE(call);
        throwing = call;
        // Not ASCII.
        lines.emplace_back("|ERROR|:   [ClientHelper] Unexpected error while stopping services: gr?? dich");

        EXPECT_EQ(StopServices(log.Logger()), E_UNEXPECTED);

        EXPECT_EQ(handles.AllOpen(), Calls());
        EXPECT_EQ(log.Lines(), lines);
    }
    EXPECT_EQ(journal.CallsOf({Open(c_names[1], "0x4")}), Calls()) << "the next service is not looked for";
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(StopServicesTest, Exceptions_of_other_kinds_pass)
{
    Add(c_names[0]);
    journal.onCall = [](const std::string& call) {
        if (call == "TerminateProcess(1234, 0)")
        {
            throw 42; // NOLINT(misc-throw-by-value-catch-by-reference, hicpp-exception-baseclass)
        }
    };

    EXPECT_THROW(StopServices(log.Logger()), int);

    EXPECT_EQ(log.Lines(), Lines());
}

TEST_F(StopServicesTest, Does_without_the_line_when_memory_has_run_out)
{
    std::optional<OutOfMemory> outOfMemory;
    journal.onCall = [&](const std::string&) {
        outOfMemory.emplace();
        throw std::bad_alloc();
    };

    const HRESULT result = StopServices(log.Logger());
    outOfMemory.reset();

    EXPECT_EQ(result, E_UNEXPECTED);
    EXPECT_EQ(log.Lines(), Lines());
}

} // namespace
