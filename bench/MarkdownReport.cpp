#include "bench/MarkdownReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <string_view>

namespace Qx::Bench {

void MarkdownReport::ReportRuns(const std::vector<Run>& runs)
{
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median") {
            continue;
        }
        const auto counter = [&run](const char* name) {
            const auto found = run.counters.find(name);
            return found != run.counters.end() ? found->second.value : 0.0;
        };
        rows_.push_back({run.run_name.function_name, run.GetAdjustedRealTime(),
                         benchmark::GetTimeUnitString(run.time_unit), counter("fps"), counter("bytes")});
    }
}

bool MarkdownReport::write(const std::string& path) const
{
    // A pass is compared with the device's own copy of as many bytes, which is its lower bound; more than one
    // pass is compared with the copy of an RGB frame of its depth.
    const auto copyRate = [this](const Row& of) {
        const bool deep = of.name.find(", 16 bits") != std::string::npos;
        const std::string_view frame = deep ? "copy on the device, 16 bits" : "copy on the device, 8 bits";
        const auto row = std::find_if(rows_.begin(), rows_.end(), [&](const Row& r) {
            return of.bytes > 0 ? r.bytes == of.bytes && r.name.starts_with("copy on the device")
                                : r.name == frame;
        });
        return row != rows_.end() ? row->framesPerSecond : 0.0;
    };

    std::vector<Row> sorted = rows_; // they ran in random order
    std::sort(sorted.begin(), sorted.end(), [](const Row& a, const Row& b) { return a.name < b.name; });

    std::ofstream page(path);
    page << "## Frames\n\nMedians of five repetitions.\n\n"
            "| work | frames a second | of a copy of as many bytes |\n|---|---:|---:|\n";
    for (const Row& row : sorted) {
        if (row.framesPerSecond > 0) {
            const double copy = copyRate(row);
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
    page.flush();
    return page.good();
}

} // namespace Qx::Bench
