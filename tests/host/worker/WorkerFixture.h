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

/// Each test has its own workers and its own folder. At the end no process and no descriptor may be left.
class WorkerTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// The workers. The first call starts them with the current options().
    EffectWorkers& workers();
    EffectWorkersOptions& options() { return options_; }
    void closeWorkers() { workers_.reset(); }

    /// The fault of the workers that are started from now on; see tools/qxfxc/TestAid.h.
    void order(const std::string& text);

    /// Writes a file into the folder; returns its path.
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

/// The text of an effect that returns `value`.
std::string effectText(const std::string& value = "0.5");

/// Waits until the condition holds; only the test's own time limit ends it.
void await(const std::function<bool()>& condition);

/// The number of lines of a text.
std::size_t lineCount(const std::string& text);

} // namespace Qx::WorkerTests
