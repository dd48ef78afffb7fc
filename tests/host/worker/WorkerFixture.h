#pragma once

#include "host/effects/worker/EffectWorkers.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Qx::WorkerTests {

using namespace Host;
using namespace Host::Worker;

/// Workers of its own for each test, in a folder of its own. At the end no process and no descriptor is left.
class WorkerTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// The workers, started with the first call as options() stands then.
    EffectWorkers& workers();
    EffectWorkersOptions& options() { return options_; }
    void closeWorkers() { workers_.reset(); }

    /// What workers that are started from now on do wrong; see the worker's test aid.
    void order(const std::string& text);

    /// Writes a file of the folder; its path.
    std::filesystem::path write(const std::string& name, const std::string& text);

    CompileRequest request(const std::filesystem::path& file) const;
    EffectCompilation compile(const std::filesystem::path& file) { return workers().compile(request(file)); }

    const std::filesystem::path& folder() const { return folder_; }
    std::vector<std::string> log();

private:
    std::filesystem::path folder_;
    EffectWorkersOptions options_;
    std::unique_ptr<EffectWorkers> workers_;
    std::size_t descriptors_ = 0;
    std::mutex logMutex_;
    std::vector<std::string> log_;
};

/// An effect that returns that colour component everywhere.
std::string effectText(const std::string& value = "0.5");

/// Waits for what must come; the test's own time limit is the only one.
void await(const std::function<bool()>& condition);

/// Lines of a text.
std::size_t lineCount(const std::string& text);

} // namespace Qx::WorkerTests
