#include "host/diagnostics/TestRecorder.h"

#include <gtest/gtest.h>
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

} // namespace

TEST(TestRecorder, KnowsTheTestOfEachLine)
{
    TestRecorder recorder;
    runSuite(recorder);
    std::vector<std::string> lines;
    for (const TestLine& line : recorder.lines()) {
        lines.push_back(described(line));
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{"Memory : 1 GiB / 2 GiB/0/-1", "Testing one/5/0", "12.50fps/0/0",
                                        "Testing two/5/1", "Failed/4/1", "Tests complete/5/-1"}));
}

TEST(TestRecorder, KeepsLinesInUTF8AndEmptyOnes)
{
    TestRecorder recorder;
    recorder.logLine(L"\u00fc  ", 0);
    recorder.logLine({}, 0);
    ASSERT_EQ(recorder.lines().size(), 2U);
    EXPECT_EQ(recorder.lines()[0].text, "\xC3\xBC  ");
    EXPECT_EQ(recorder.lines()[1].text, "");
}

TEST(TestRecorder, TellsItsListenerEachLineWhenItComes)
{
    std::vector<std::string> heard;
    TestRecorder recorder([&heard](const TestLine& line) { heard.push_back(described(line)); });
    recorder.beginTests(1);
    recorder.logLine(L"Testing one", 5);
    EXPECT_EQ(heard, std::vector<std::string>{"Testing one/5/0"});
}
