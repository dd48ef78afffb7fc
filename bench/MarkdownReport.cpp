#include "bench/MarkdownReport.h"

#include "bench/Fixture.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <string_view>

namespace Qx::Bench {

void MarkdownReport::ReportRuns(const std::vector<Run>& runs)
{
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median" || run.error_occurred) {
            continue;
        }
        const auto fps = run.counters.find("fps");
        rows_.push_back({run.run_name.function_name, run.GetAdjustedRealTime(),
                         benchmark::GetTimeUnitString(run.time_unit),
                         fps != run.counters.end() ? fps->second.value : 0.0});
    }
}

bool MarkdownReport::write(const std::string& path, const std::string& catalogue) const
{
    // Frames are compared with the device's own copy of as many bytes: the least that a pass could cost.
    const auto copyRate = [this](std::string_view name) {
        const std::string_view bits = name.find(", 16 bits") != std::string_view::npos ? "16" : "8";
        const auto row = std::find_if(rows_.begin(), rows_.end(), [bits](const Row& r) {
            return r.name == fmt::format("copy on the device, {} bits", bits);
        });
        return row != rows_.end() ? row->framesPerSecond : 0.0;
    };

    std::vector<Row> sorted = rows_; // they ran in random order
    std::sort(sorted.begin(), sorted.end(), [](const Row& a, const Row& b) { return a.name < b.name; });

    std::ofstream page(path);
    page << "# Performance\n\n"
            "Written by `scripts/performance`. Medians of one run, at 1920 x 1080. Compare figures of one "
            "run only.\n\n"
         << "Device: " << deviceName() << "\n\n"
         << "## Frames\n\n| work | frames a second | of a copy on the device |\n|---|---:|---:|\n";
    for (const Row& row : sorted) {
        if (row.framesPerSecond > 0) {
            const double copy = copyRate(row.name);
            page << fmt::format("| {} | {:.0f} | {} |\n", row.name, row.framesPerSecond,
                                copy > 0 ? fmt::format("{:.2f}", row.framesPerSecond / copy)
                                         : "not measured");
        }
    }
    page << "\n## Other costs\n\n| work | time |\n|---|---:|\n";
    for (const Row& row : sorted) {
        if (row.framesPerSecond == 0) {
            page << fmt::format("| {} | {:.3g} {} |\n", row.name, row.time, row.unit);
        }
    }
    page << "\n## Starting with a catalogue of effects\n\n"
            "Each start is a process of its own. The first one finds all caches empty, the driver's too.\n\n"
         << catalogue;
    page.flush();
    return page.good();
}

} // namespace Qx::Bench
