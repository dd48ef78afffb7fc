#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace Qx::Bench {

/// Prints as usual, and keeps the medians of repeated benchmarks for a page of documentation.
class MarkdownReport : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override;

    /// Writes the page's sections of absolute figures; false when the file cannot be written.
    bool write(const std::string& path) const;

private:
    struct Row
    {
        std::string name;
        double time = 0;
        std::string unit;
        double framesPerSecond = 0; ///< 0 for what is not counted in frames
        double bytes = 0;           ///< that a pass writes; 0: it is more than one pass
    };

    std::vector<Row> rows_;
};

} // namespace Qx::Bench
