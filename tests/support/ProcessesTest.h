#pragma once

#include "support/Calls.h"
#include "support/FailureLog.h"
#include "support/FakeProcesses.h"
#include "support/FakeWindows.h"
#include "support/ImportTableFake.h"
#include "support/RunLog.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// What the tests of the client and of other processes that have to end share.
namespace Testing
{

// The id of the process that the tests stand for.
inline constexpr DWORD c_self = 7777;

inline const std::string c_differentUser =
    "|WARNING|: [ClientHelper] This process is likely running under a different user account. We cannot close this "
    "without resorting to... undesirable methods. Restart the system to continue.";
inline const std::string c_alreadyClosed =
    "|WARNING|: [ClientHelper] Unable to open process, assuming it has closed at some point since last check...";
inline const std::string c_openFailed = "|ERROR|:   [ClientHelper] Failed to open Velmora process for termination: ";

// The calls of a walk through all processes, of which there are so many after the first one. What is done with one of
// them follows upon the call that brings it.
inline Calls Walk(const std::vector<Calls>& processes)
{
    Calls calls{"snapshot 2 0", "first 568"};
    for (const Calls& process : processes)
    {
        calls = std::move(calls) + "next" + process;
    }
    return std::move(calls) + Calls{"next", "close snapshot"};
}

inline Calls Walk(std::size_t processes)
{
    return Walk(std::vector<Calls>(processes));
}

// A machine whose processes and windows are those of the test; the calls and what else happens stand in one list.
class ProcessesTest : public testing::Test
{
protected:
    ProcessesTest()
    {
        clock.onSleep = [this](DWORD milliseconds) { processes.Note("sleep " + std::to_string(milliseconds)); };
        log.onLine = [this](const std::string& line) { processes.Note("log " + line); };
    }

    // Only now: folders of tests are named after the real process.
    void SetUp() override
    {
        m_self.emplace([] { return c_self; });
    }
    void TearDown() override { EXPECT_EQ(processes.OpenHandles(), 0U); }

    Calls NewCalls() { return processes.NewCalls(); }

    // The calls of some kinds only.
    Calls CallsOf(const std::vector<std::string>& kinds) const
    {
        Calls calls;
        for (const std::string& call : processes.Calls())
        {
            if (std::ranges::any_of(kinds, [&](const std::string& kind) { return call.starts_with(kind); }))
            {
                calls.push_back(call);
            }
        }
        return calls;
    }

    VirtualClock clock;
    FailureLog failures;
    FakeProcesses processes;
    FakeWindows windows{processes};
    RunLog log;

private:
    std::optional<Fake<&GetCurrentProcessId>> m_self;
};

} // namespace Testing
