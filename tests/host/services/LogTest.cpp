#include "platform/Log.h"
#include "host/log/HostLog.h"
#include "platform/Messages.h"
#include "platform/OS.h"
#include "tests/host/services/Support.h"

#include <algorithm>
#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qx::Host::Test;

namespace {

template <class Act>
std::string logged(Act&& act)
{
    const std::size_t before = contentsOf(logFile()).size();
    act();
    return contentsOf(logFile()).substr(before);
}

template <class Act>
std::string shown(Act&& act)
{
    testing::internal::CaptureStderr();
    act();
    return testing::internal::GetCapturedStderr();
}

std::size_t count(const std::string& text, const std::string& what)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++found;
    }
    return found;
}

} // namespace

TEST(Log, LinesHaveTheTimeAndTheProcess)
{
    const std::string text = logged([] { Log("number five\n"); });
    std::string shape = text;
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    std::replace_if(shape.begin(), shape.begin() + static_cast<std::ptrdiff_t>(shape.find('[')), isDigit,
                    '#');
    EXPECT_EQ(shape, "####-##-## ##:##:##.### [" + std::to_string(::getpid()) + "] number five\n") << text;
}

TEST(Log, PiecesOfALineAreOneLine)
{
    const std::string text = logged([] {
        Log("one, ");
        Log("two\nthree");
        Log("\n");
    });
    EXPECT_EQ(count(text, "\n"), 2U);
    EXPECT_NE(text.find("] one, two\n"), std::string::npos) << text;
    EXPECT_NE(text.find("] three\n"), std::string::npos) << text;
}

TEST(Log, OnlyTheLogOrOnlyTheDebugOutputOrBoth)
{
    std::string file;
    EXPECT_EQ(shown([&] { file = logged([] { Log("quiet\n"); }); }), "");
    EXPECT_EQ(count(file, "quiet"), 1U);
    EXPECT_EQ(shown([&] { file = logged([] { vexo_printf("%s without a line end", "debug"); }); }),
              "debug without a line end");
    EXPECT_EQ(file, "");
    EXPECT_EQ(shown([&] { file = logged([] { LogBoth("both\n"); }); }), "both\n");
    EXPECT_EQ(count(file, "both"), 1U);
}

TEST(Log, DebugOutputCanBeSwitchedOff)
{
    Qx::Host::HostLog::instance().setDebugOutput(false);
    std::string file;
    EXPECT_EQ(shown([&] {
                  file = logged([] {
                      vexo_printf("debug\n");
                      LogBoth("both\n");
                  });
              }),
              "");
    Qx::Host::HostLog::instance().setDebugOutput(true);
    EXPECT_EQ(count(file, "both"), 1U);
}

TEST(Log, TextIsNoFormatForAnybodyElse)
{
    EXPECT_EQ(shown([] { LogBoth("%s\n", "{} %d {0:x}"); }), "{} %d {0:x}\n");
}

TEST(Log, LongTextsAreWhole)
{
    const std::string text(100000, 'x');
    EXPECT_EQ(shown([&] { vexo_printf("%s", text.c_str()); }), text);
}

TEST(Log, ADecimalCommaLocaleChangesNothing)
{
    const DecimalComma comma;
    EXPECT_EQ(shown([] { vexo_printf("%.2f", 1.5); }), "1.50");
    char text[16];
    std::snprintf(text, sizeof text, "%.2f", 1.5);
    EXPECT_STREQ(text, "1,50") << "the program keeps its locale";
}

TEST(Log, LinesOfManyThreadsStayWhole)
{
    const std::string text = logged([] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([] {
                for (int j = 0; j < 100; ++j) {
                    Log("a line of one of four threads\n");
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    EXPECT_EQ(count(text, "] a line of one of four threads\n"), 400U);
}

TEST(Messages, AreKeptForAHostThatPrintsThemItself)
{
    Qx::Host::HostLog& log = Qx::Host::HostLog::instance();
    log.takeComplaints();
    log.setDebugOutput(false);
    const std::string text = shown([] {
        OS().messages().showMessage(L"Effects", L"No .fx files found", iMessageService::OkButton,
                                    iMessageService::Warning);
    });
    log.setDebugOutput(true);
    EXPECT_EQ(text, "");
    EXPECT_EQ(log.takeComplaints(), std::vector<std::string>{"Effects: warning: No .fx files found"});
}

TEST(Messages, AreShownAndLogged)
{
    std::string file;
    const std::string text = shown([&] {
        file = logged([] {
            OS().messages().showMessage(L"Effects", L"No .fx files found in \u00fc",
                                        iMessageService::OkButton, iMessageService::Warning);
        });
    });
    EXPECT_EQ(text, "Effects: warning: No .fx files found in \xC3\xBC\n");
    EXPECT_NE(file.find("No .fx files found in \xC3\xBC"), std::string::npos);
    EXPECT_EQ(shown([] {
                  OS().messages().showMessage({}, {}, iMessageService::OkButton,
                                              iMessageService::Information);
              }),
              "\n");
    EXPECT_FALSE(OS().messages().effectsCaption().empty());
}
