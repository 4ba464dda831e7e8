#include "Reports.h"

#include "ProductSettings.h"
#include "Table.h"
#include "support/common/IngestionServer.h"

#include <sentry.h>

#include <optional>
#include <string>
#include <vector>

namespace Benchmarks
{
namespace
{
constexpr int c_rounds = 21;

void Measure(const std::string& what, const std::string& dsn, bool hasEvent, int rounds = c_rounds)
{
    std::vector<double> start;
    std::vector<double> close;
    for (int round = 0; round < rounds; ++round)
    {
        start.push_back(Time([&] {
                            sentry_options_t* const options = sentry_options_new();
                            sentry_options_set_dsn(options, dsn.c_str());
                            sentry_options_set_database_path(options, "C:\\Benchmark.Reports");
                            sentry_options_set_release(options, "benchmark@1.0");
                            sentry_init(options);
                        }).count());
        if (hasEvent)
        {
            sentry_capture_event(sentry_value_new_message_event(SENTRY_LEVEL_ERROR, "benchmark", "text"));
        }
        close.push_back(Time([] { sentry_close(); }).count());
    }
    PrintFigure("Crash reporting starts: " + what, Median(start), "ms");
    PrintFigure("Crash reporting closes: " + what, Median(close), "ms");
}
} // namespace

void MeasureReports()
{
    const Testing::IngestionServer server;
    const Testing::IngestionServer silent(
        [](std::size_t) { return Testing::IngestionAnswer{.text = "", .staysSilent = true}; });
    Measure("an address that leads nowhere, an event", VELMORA_CRASH_REPORT_DSN, true);
    Measure("a server, nothing to send", server.Dsn(), false);
    Measure("a server, an event", server.Dsn(), true);
    Measure("nobody listens, an event", Testing::DsnOfNobody(), true);
    Measure("a server that says nothing, an event", silent.Dsn(), true, 3);
}
} // namespace Benchmarks
