#include "host/diagnostics/TestLoggers.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

using namespace Qx::Host;

namespace {

/// A suite of two tests, as far as a logger sees it.
void runSuite(LoggerBase& log)
{
    log.logLine(L"Memory : 1 GiB / 2 GiB", 0);
    log.beginTests(2);
    log.logLine(L"Testing one", 5);
    log.logLine(L"12.50fps", 0);
    log.endTest();
    log.logLine(L"Testing two", 5);
    log.logLine(L"Failed", 4);
    log.endTest();
    log.endTests();
    log.logLine(L"Tests complete", 5);
}

std::string described(const TestLine& line)
{
    return line.text + "/" + std::to_string(line.category) + "/" + std::to_string(line.test);
}

/// Counts how often it was made to write out.
class FlushCounter : public std::stringbuf
{
public:
    int flushes = 0;

protected:
    int sync() override
    {
        ++flushes;
        return 0;
    }
};

} // namespace

TEST(TextTestLogger, WritesTheLinesAsTheyStand)
{
    std::ostringstream out;
    TextTestLogger log(out);
    runSuite(log);
    EXPECT_EQ(out.str(),
              "Memory : 1 GiB / 2 GiB\nTesting one\n12.50fps\nTesting two\nFailed\nTests complete\n");
}

TEST(TextTestLogger, WritesUTF8AndEmptyLines)
{
    std::ostringstream out;
    TextTestLogger log(out);
    log.logLine(L"\u00fc  ", 0);
    log.logLine({}, 0);
    EXPECT_EQ(out.str(), "\xC3\xBC  \n\n");
}

TEST(TextTestLogger, EveryLineIsOutAtOnce)
{
    FlushCounter buffer;
    std::ostream out(&buffer);
    TextTestLogger log(out);
    log.logLine(L"one", 0);
    EXPECT_EQ(buffer.flushes, 1);
    log.logLine(L"two", 0);
    EXPECT_EQ(buffer.flushes, 2);
}

TEST(TextTestLogger, AStreamThatFailsKeepsItToItself)
{
    std::ostringstream out;
    out.setstate(std::ios::badbit);
    TextTestLogger log(out);
    runSuite(log);
    EXPECT_TRUE(out.bad());
}

TEST(TestRecorder, KnowsTheTestOfEachLine)
{
    TestRecorder recorder;
    EXPECT_EQ(recorder.planned(), 0);
    EXPECT_FALSE(recorder.isComplete());
    runSuite(recorder);
    std::vector<std::string> lines;
    for (const TestLine& line : recorder.lines()) {
        lines.push_back(described(line));
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{"Memory : 1 GiB / 2 GiB/0/-1", "Testing one/5/0", "12.50fps/0/0",
                                        "Testing two/5/1", "Failed/4/1", "Tests complete/5/-1"}));
    EXPECT_EQ(recorder.planned(), 2);
    EXPECT_EQ(recorder.ended(), 2);
    EXPECT_TRUE(recorder.isComplete());
}

TEST(TestRecorder, OfASuiteThatStoppedInTheMiddleIsNotComplete)
{
    TestRecorder recorder;
    recorder.beginTests(5);
    recorder.logLine(L"Testing one", 5);
    recorder.endTest();
    recorder.logLine(L"Testing two", 5);
    EXPECT_EQ(recorder.planned(), 5);
    EXPECT_EQ(recorder.ended(), 1);
    EXPECT_FALSE(recorder.isComplete());
}

TEST(TestRecorder, TellsItsListenerEachLineWhenItComes)
{
    std::vector<std::string> heard;
    TestRecorder recorder([&heard](const TestLine& line) { heard.push_back(described(line)); });
    recorder.beginTests(1);
    recorder.logLine(L"Testing one", 5);
    EXPECT_EQ(heard, std::vector<std::string>{"Testing one/5/0"});
}

TEST(TestRecorder, TimeOfLinesNeverGoesBack)
{
    TestRecorder recorder;
    runSuite(recorder);
    double last = 0;
    for (const TestLine& line : recorder.lines()) {
        EXPECT_GE(line.milliseconds, last);
        last = line.milliseconds;
    }
}

TEST(TestLoggerPair, PassesEverythingOnToBoth)
{
    std::ostringstream out;
    TextTestLogger text(out);
    TestRecorder recorder;
    TestLoggerPair both(text, recorder);
    runSuite(both);
    EXPECT_EQ(out.str().size(), std::string("Memory : 1 GiB / 2 GiB\nTesting one\n12.50fps\nTesting two\n"
                                            "Failed\nTests complete\n")
                                    .size());
    EXPECT_EQ(recorder.lines().size(), 6U);
    EXPECT_EQ(recorder.planned(), 2);
    EXPECT_EQ(recorder.ended(), 2);
    EXPECT_TRUE(recorder.isComplete());
}
