#pragma once

#include "platform/Api.h"
#include "platform/Log.h"

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

/// Where the lines of a diagnostic suite can go.
namespace Qx::Host {

/// Writes the lines as they stand to a terminal, a file or any other stream: in UTF-8, each with a line end
/// and flushed at once, so that what was being tested when a driver took the process down can be read. What
/// the stream makes of it, a full disk say, its own state tells.
class QX_API TextTestLogger final : public LoggerBase
{
public:
    /// The stream must outlive the logger.
    explicit TextTestLogger(std::ostream& out) : out_(out) {}

    void logLine(const LightweightString<wchar_t>& text, int category) override;
    void beginTests(int) override {}
    void endTests() override {}
    void endTest() override {}

private:
    std::ostream& out_;
};

/// A line of a suite with what tells where it belongs.
struct TestLine
{
    static constexpr int noTest = -1;

    std::string text;        ///< UTF-8, without a line end
    int category = 0;        ///< see LoggerBase
    int test = 0;            ///< counted from 0; noTest before the first and after the last
    double milliseconds = 0; ///< since the recorder was made
};

/// Keeps the lines of a suite.
class QX_API TestRecorder final : public LoggerBase
{
public:
    /// `listener`, if any, gets every line when it comes.
    explicit TestRecorder(std::function<void(const TestLine&)> listener = nullptr);

    void logLine(const LightweightString<wchar_t>& text, int category) override;
    void beginTests(int count) override;
    void endTests() override;
    void endTest() override;

    const std::vector<TestLine>& lines() const { return lines_; }
    int planned() const { return planned_; } ///< tests that the suite announced
    int ended() const { return ended_; }     ///< tests that came to their end, also by failing

    /// The suite said that it was through.
    bool isComplete() const { return state_ == State::After; }

private:
    enum class State
    {
        Before,
        Testing,
        After
    };

    std::function<void(const TestLine&)> listener_;
    const double start_;
    std::vector<TestLine> lines_;
    int planned_ = 0;
    int ended_ = 0;
    State state_ = State::Before;
};

/// Passes everything on to two loggers, to the first one first. Both must outlive it.
class QX_API TestLoggerPair final : public LoggerBase
{
public:
    TestLoggerPair(LoggerBase& first, LoggerBase& second) : first_(first), second_(second) {}

    void logLine(const LightweightString<wchar_t>& text, int category) override;
    void beginTests(int count) override;
    void endTests() override;
    void endTest() override;

private:
    LoggerBase& first_;
    LoggerBase& second_;
};

} // namespace Qx::Host
