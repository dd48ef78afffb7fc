#include "host/diagnostics/TestLoggers.h"

#include "platform/Clock.h"
#include "platform/Text.h"

#include <ostream>
#include <utility>

namespace Qx::Host {

void TextTestLogger::logLine(const LightweightString<wchar_t>& text, int)
{
    out_ << toUTF8(text).view() << '\n' << std::flush;
}

TestRecorder::TestRecorder(std::function<void(const TestLine&)> listener)
    : listener_(std::move(listener)), start_(service_get_msecs_precise())
{
}

void TestRecorder::logLine(const LightweightString<wchar_t>& text, int category)
{
    const int test = state_ == State::Testing ? ended_ : TestLine::noTest;
    lines_.push_back(
        {std::string(toUTF8(text).view()), category, test, service_get_msecs_precise() - start_});
    if (listener_) {
        listener_(lines_.back());
    }
}

void TestRecorder::beginTests(int count)
{
    planned_ = count;
    state_ = State::Testing;
}

void TestRecorder::endTests()
{
    state_ = State::After;
}

void TestRecorder::endTest()
{
    ++ended_;
}

void TestLoggerPair::logLine(const LightweightString<wchar_t>& text, int category)
{
    first_.logLine(text, category);
    second_.logLine(text, category);
}

void TestLoggerPair::beginTests(int count)
{
    first_.beginTests(count);
    second_.beginTests(count);
}

void TestLoggerPair::endTests()
{
    first_.endTests();
    second_.endTests();
}

void TestLoggerPair::endTest()
{
    first_.endTest();
    second_.endTest();
}

} // namespace Qx::Host
