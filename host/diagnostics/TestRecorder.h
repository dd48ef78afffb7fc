#pragma once

#include "platform/Api.h"
#include "platform/Log.h"

#include <functional>
#include <string>
#include <vector>

namespace Qx::Host {

/// A line of a diagnostic suite, with its category and test.
struct TestLine
{
    static constexpr int noTest = -1; ///< `test` of a line outside all tests

    std::string text; ///< UTF-8, without a line end
    int category = 0; ///< see LoggerBase
    int test = 0;     ///< counted from 0; noTest before the first and after the last
};

/// Keeps the lines of a suite.
class QX_API TestRecorder final : public LoggerBase
{
public:
    /// `listener`, if any, receives every line as it arrives.
    explicit TestRecorder(std::function<void(const TestLine&)> listener = nullptr);

    void logLine(const LightweightString<wchar_t>& text, int category) override;
    void beginTests(int) override { test_ = 0; }
    void endTests() override { test_ = TestLine::noTest; }
    void endTest() override { ++test_; }

    const std::vector<TestLine>& lines() const { return lines_; } ///< all lines so far, in order

private:
    std::function<void(const TestLine&)> listener_;
    std::vector<TestLine> lines_;
    int test_ = TestLine::noTest;
};

} // namespace Qx::Host
