#pragma once

#include "Installer/Logger.h"
#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/FakeSentry.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <sentry.h>

#include <functional>
#include <string>
#include <vector>

namespace Testing
{

// The log of a run, which a test reads line by line. Its file lies in a folder of its own.
class RunLog
{
public:
    RunLog() { sentry_init(sentry_options_new()); }
    RunLog(const RunLog&) = delete;
    RunLog& operator=(const RunLog&) = delete;

    Installer::Logger& Logger() { return m_logger; }

    // Every line so far with its tag, and "captured " before one that became an event of the crash reporter.
    const std::vector<std::string>& Lines()
    {
        MarkCaptured();
        return m_lines;
    }

    // Is told of every line when it is written.
    std::function<void(const std::string&)> onLine = [](const std::string&) {};

private:
    // A line becomes an event after it was written.
    void MarkCaptured()
    {
        const std::size_t events = Sentry().events.size();
        if (events > m_events)
        {
            m_lines.back().insert(0, "captured ");
        }
        m_events = events;
    }

    std::vector<std::string> m_lines;
    std::size_t m_events = 0;
    TestFolder m_root;
    FakeFolders m_folders{m_root};
    Fake<&WriteConsoleW> m_console = [this](HANDLE, const void* text, DWORD length, LPDWORD, LPVOID) -> BOOL {
        MarkCaptured();
        m_lines.push_back(Narrow({static_cast<const wchar_t*>(text), length - 1})); // less the line feed
        onLine(m_lines.back());
        return TRUE;
    };
    Installer::Logger m_logger{Installer::RunType::Silent};
};

} // namespace Testing
