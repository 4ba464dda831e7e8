#pragma once

#include "support/unit/FailureLog.h"
#include "support/unit/FakeProcesses.h"
#include "support/unit/FakeTopLevelWindows.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"
#include "support/unit/RunLog.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// What the tests of the client and of other processes that have to end share.
namespace Testing
{

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
    Calls calls{"CreateToolhelp32Snapshot(0x2, 0)", "Process32FirstW(snapshot)"};
    for (const Calls& process : processes)
    {
        calls = std::move(calls) + "Process32NextW(snapshot)" + process;
    }
    return std::move(calls) + Calls{"Process32NextW(snapshot)", "CloseHandle(snapshot)"};
}

inline Calls Walk(std::size_t processes)
{
    return Walk(std::vector<Calls>(processes));
}

// Lines of the log as the journal has them.
inline Calls Logged(const std::vector<std::string>& lines)
{
    Calls calls;
    for (const std::string& line : lines)
    {
        calls.push_back("Log(" + line + ")");
    }
    return calls;
}

// A machine whose processes and windows are those of the test; the pauses and lines of the log stand in its journal.
class ProcessesTest : public testing::Test
{
protected:
    ProcessesTest()
    {
        log.onLine = [this](const std::string& line) { journal.Add("Log", line); };
    }

    Journal journal;
    VirtualClock clock{&journal};
    Handles handles{journal};
    FailureLog failures;
    FakeProcesses processes{journal, handles};
    FakeTopLevelWindows windows{journal};
    RunLog log;
};

} // namespace Testing
