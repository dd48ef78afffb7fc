#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace Qx::Bench {

/// Prints as usual, and collects the medians of repeated benchmarks for a documentation page.
class MarkdownReport : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override;

    /// Writes the page's sections of absolute figures. Returns false if the file cannot be written.
    bool write(const std::string& path) const;

private:
    struct Row
    {
        std::string name;
        double time = 0;
        std::string unit;
        double framesPerSecond = 0; ///< 0 if not counted in frames
        double bytes = 0;           ///< written by a pass; 0 for more than one pass
    };

    std::vector<Row> rows_;
};

} // namespace Qx::Bench
