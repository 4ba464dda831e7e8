// What a test does to the program that it starts, from within it: supplies what Wine lacks of Windows and the
// uninstaller needs (none of that is used on Windows itself), and ends it in the middle of its work.
#pragma once

#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Wine.h"
#include "support/end_to_end/stand_ins/SharedRecord.h"

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{
// One program's stand-ins:
// - a library, loaded into it before its first instruction and into every process that it starts, which replaces
//   ControlServiceExW in its import table and writes the calls down, ends the process after a given line of its log,
//   and judges all calls of Windows by their contracts;
// - somebody who tells Wine when the process of a service has ended.
class StandIns
{
public:
    // The process is ended when so many lines of the log are written, by it and its copy together; 0: it is not.
    explicit StandIns(int killAfterLines = 0);

    // The environment variable that the program must be started with.
    std::pair<std::wstring, std::wstring> Variable() const;

    // Loads the library into the program, which was started suspended.
    void LoadInto(HANDLE process) const;

    // To be called again and again while the program and what it starts run.
    void Look();

    // The calls so far, in their order. Throws std::runtime_error when a process that was started has no library.
    std::vector<ServiceControl> ServiceControls() const;

    // How many lines are still to be written before the process is ended.
    long LinesLeft() const { return m_record->linesLeft; }

    // The calls that Windows refuses, by their contracts: "function: rule".
    std::vector<std::string> Violations() const;

private:
    struct RunningService
    {
        std::wstring name;
        DWORD processId;
        // Empty when it had ended before.
        UniqueHandle process;
    };

    struct ViewCloser
    {
        void operator()(SharedRecord* view) const noexcept { UnmapViewOfFile(view); }
    };

    std::wstring m_name;
    UniqueHandle m_mapping;
    std::unique_ptr<SharedRecord, ViewCloser> m_record;
    std::vector<RunningService> m_services;
};
} // namespace Testing
