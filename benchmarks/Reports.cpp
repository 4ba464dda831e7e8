#include "Reports.h"

#include "ProductSettings.h"
#include "Runs.h"
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

// Both in comparison with an empty program's whole run.
void Measure(const std::string& what, const std::string& dsn, bool hasEvent, double wantedToClose,
             int rounds = c_rounds)
{
    constexpr char c_reference[] = "an empty program's whole run";
    std::vector<double> empty;
    std::vector<double> start;
    std::vector<double> close;
    for (int round = 0; round < rounds; ++round)
    {
        empty.push_back(TimeEmptyProgram());
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
    PrintRow("Crash reporting starts: " + what, Median(start), "ms", c_reference, Median(empty), 0.5);
    PrintRow("Crash reporting closes: " + what, Median(close), "ms", c_reference, Median(empty), wantedToClose);
}
} // namespace

void MeasureReports()
{
    const Testing::IngestionServer server;
    const Testing::IngestionServer silent(
        [](std::size_t) { return Testing::IngestionAnswer{.text = "", .staysSilent = true}; });
    Measure("an address that leads nowhere, an event", VELMORA_CRASH_REPORT_DSN, true, 10);
    Measure("a server, nothing to send", server.Dsn(), false, 0.5);
    Measure("a server, an event", server.Dsn(), true, 5);
    Measure("nobody listens, an event", Testing::DsnOfNobody(), true, 5);
    Measure("a server that says nothing, an event", silent.Dsn(), true, 200, 3); // the time that it is given
}
} // namespace Benchmarks
