#include "host/settings/Settings.h"
#include "host/log/HostLog.h"
#include "host/settings/Directories.h"
#include "platform/Settings.h"
#include "tests/host/services/Support.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

using namespace Qx::Host::Test;
using Qx::Host::environmentVariable;
using Qx::Host::Settings;

TEST(Settings, TheFileIsReadByTable)
{
    const TemporaryDirectory directory;
    const Settings settings(directory.write("s.toml", "device = \"soft\"\nzero = 0\n"
                                                      "[log]\nstderr = true\nfile = false\n"
                                                      "[a.b]\nc = -5\n"));
    EXPECT_TRUE(settings.fileProblem().empty());
    EXPECT_EQ(settings.text("device"), "soft");
    EXPECT_EQ(settings.integer("a.b.c"), -5);
    EXPECT_EQ(settings.flag("log.stderr"), true);
    EXPECT_EQ(settings.flag("log.file"), false);
    EXPECT_EQ(settings.integer("log.stderr"), 1);
    EXPECT_EQ(settings.flag("zero"), false);
    EXPECT_FALSE(settings.integer("missing"));
}

TEST(Settings, AMissingFileIsEmpty)
{
    const TemporaryDirectory directory;
    const Settings settings((directory / "none.toml").string());
    EXPECT_TRUE(settings.fileProblem().empty());
    EXPECT_FALSE(settings.text("device"));
}

TEST(Settings, ABrokenFileIsOneMessageWithItsLineAndEverySettingHasItsDefault)
{
    const TemporaryDirectory directory;
    const auto file = directory.write("s.toml", "good = 1\n\nbad = = 2\n");
    const Settings settings(file);
    EXPECT_EQ(settings.fileProblem().find(file.string() + ":3:"), 0U) << settings.fileProblem();
    EXPECT_EQ(settings.fileProblem().find('\n'), std::string::npos);
    EXPECT_FALSE(settings.integer("good"));
}

TEST(Settings, HeadersWithoutANameAreProblems)
{
    for (const char* header :
         {"[.a]", "[a..b]", "[a.]", "[]", "[[.a]]", "[", "[.", "= 1", ".a = 1", "a. = 1"}) {
        const Settings settings("settings.toml", std::string("good = 1\n") + header + "\n");
        EXPECT_EQ(settings.fileProblem().find("settings.toml:2:"), 0U) << header << settings.fileProblem();
    }
}

TEST(Settings, AKeyOfManyPartsIsAProblemAndNoOverflow)
{
    std::string key = "a";
    for (int i = 0; i < 200000; ++i) {
        key += ".a";
    }
    for (const std::string& text : {key + " = 1\n", "[" + key + "]\n", "x = { " + key + " = 1 }\n"}) {
        const Settings settings("settings.toml", text);
        EXPECT_EQ(settings.fileProblem(),
                  "settings.toml:1:1: the file has more than 4096 dots, which may nest its tables too deep; "
                  "every setting has its default");
    }
}

TEST(Settings, AFileThatIsNoFileIsAProblem)
{
    const TemporaryDirectory directory;
    const Settings settings(directory.path());
    EXPECT_NE(settings.fileProblem().find(directory.path().string()), std::string::npos);
}

TEST(Settings, VariablesAreNamedAfterKeys)
{
    EXPECT_EQ(environmentVariable("device"), "QX_DEVICE");
    EXPECT_EQ(environmentVariable("log.stderr"), "QX_LOG_STDERR");
    EXPECT_EQ(environmentVariable("shaders_dir"), "QX_SHADERS_DIR");
    EXPECT_EQ(environmentVariable("some-key"), "QX_SOME_KEY");
    EXPECT_EQ(environmentVariable("HTTPServerPort2Use"), "QX_HTTP_SERVER_PORT2_USE");
    EXPECT_EQ(environmentVariable("ForceUnscaledYCrCbColourConversion"),
              "QX_FORCE_UNSCALED_Y_CR_CB_COLOUR_CONVERSION");
}

TEST(Settings, TheEnvironmentGoesBeforeTheFile)
{
    const TemporaryDirectory directory;
    const Settings settings(directory.write("s.toml", "number = 1\nswitch = false\nname = \"file\"\n"));
    const Variable number("QX_NUMBER", "-42");
    const Variable onOff("QX_SWITCH", "yes");
    const Variable name("QX_NAME", "environment");
    EXPECT_EQ(settings.integer("number"), -42);
    EXPECT_EQ(settings.flag("switch"), true);
    EXPECT_EQ(settings.text("name"), "environment");
}

TEST(Settings, ValuesOfTheWrongKindAreReportedOnceAndIgnored)
{
    const TemporaryDirectory directory;
    const auto file = directory.write("s.toml", "\nwrongKind = \"many\"\nlist = [1]\n");
    const Settings settings(file);
    const Variable variable("QX_WRONG_VARIABLE", "12 monkeys");
    const std::size_t before = contentsOf(logFile()).size();
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(settings.integer("wrongKind"));
        EXPECT_FALSE(settings.text("list"));
        EXPECT_FALSE(settings.integer("wrong_variable"));
    }
    const std::string log = contentsOf(logFile()).substr(before);
    const std::size_t first = log.find(file.string() + ":2: wrongKind is ignored");
    ASSERT_NE(first, std::string::npos) << log;
    EXPECT_EQ(log.find("wrongKind", first + file.string().size() + 6), std::string::npos);
    EXPECT_NE(log.find(file.string() + ":3: list"), std::string::npos);
    EXPECT_NE(log.find("QX_WRONG_VARIABLE=12 monkeys is ignored"), std::string::npos);
}

TEST(Settings, NumbersOutOfRangeAreReportedByNameAndIgnored)
{
    const TemporaryDirectory directory;
    const auto file = directory.write(
        "s.toml", "cache_mib = -2\n[effects]\nseconds = 3601\nworkers = 1024\nmemory = false\n");
    const Settings settings(file);
    const Variable cache("QX_CACHE_MIB", "-1");
    const Variable seconds("QX_EFFECTS_SECONDS", "-5");
    const std::size_t before = contentsOf(logFile()).size();
    EXPECT_FALSE(settings.integer("cache_mib"));
    EXPECT_FALSE(settings.integer("effects.seconds"));
    EXPECT_FALSE(settings.integer("effects.memory"));
    EXPECT_EQ(settings.integer("effects.workers"), 1024);
    const std::string log = contentsOf(logFile()).substr(before);
    for (const std::string& line :
         {std::string("QX_CACHE_MIB=-1 is ignored: it must be a whole number from 0 to 1048576"),
          std::string("QX_EFFECTS_SECONDS=-5 is ignored: it must be a whole number from 1 to 3600"),
          file.string() + ":1: cache_mib is ignored", file.string() + ":3: effects.seconds is ignored",
          file.string() + ":5: effects.memory is ignored"}) {
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
    }
}

TEST(Settings, UnknownKeysAndWrongTypesAreComplainedOfOnceWithTheirLines)
{
    const TemporaryDirectory directory;
    const auto file =
        directory.write("s.toml", "devise = \"x\"\ntiming_lines = \"often\"\n[log]\nfiel = true\n");
    const Settings settings(file);
    Qx::Host::HostLog& log = Qx::Host::HostLog::instance();
    log.takeComplaints();
    log.setDebugOutput(false);
    settings.reportMistakes();
    settings.reportMistakes();
    log.setDebugOutput(true);
    std::vector<std::string> complaints = log.takeComplaints();
    std::sort(complaints.begin(), complaints.end());
    EXPECT_EQ(complaints, (std::vector<std::string>{
                              file.string() + ":1: there is no setting devise; it is ignored",
                              file.string() + ":2: timing_lines is ignored: it must be true or false",
                              file.string() + ":4: there is no setting log.fiel; it is ignored",
                          }));
}

TEST(Settings, ConfigIntTakesFileThenEnvironmentThenDefault)
{
    EXPECT_EQ(config_int("FromFile", 3), 12);
    EXPECT_EQ(config_int("NotThere", 3), 3);
    EXPECT_EQ(config_int("NotANumber", 4), 4);
    EXPECT_EQ(config_int(nullptr, 5), 5);
    EXPECT_EQ(config_int("", 6), 6);
    const Variable variable("QX_OVERRIDDEN", "2");
    EXPECT_EQ(config_int("Overridden", 3), 2);
    const Variable tooLarge("QX_TOO_LARGE", "99999999999");
    EXPECT_EQ(config_int("TooLarge", 7), 7);
}

TEST(Settings, NumbersAreReadTheSameWithADecimalComma)
{
    const DecimalComma comma;
    const TemporaryDirectory directory;
    const Settings settings(directory.write("s.toml", "ratio = 1.5\nnumber = 1_234_567\n"));
    EXPECT_TRUE(settings.fileProblem().empty()) << settings.fileProblem();
    EXPECT_EQ(settings.integer("number"), 1234567);
}

TEST(Directories, FollowTheXDGVariables)
{
    const Variable data("XDG_DATA_HOME", "/some/data");
    EXPECT_EQ(Qx::Host::userDataDirectory(), "/some/data/qxhost");
    EXPECT_EQ(getFXTemplatesDirectory(iSettings::User), L"/some/data/qxhost/templates/");
    EXPECT_EQ(getLUTDirectory(iSettings::User), L"/some/data/qxhost/luts/");
    const Variable home("HOME", "/some/home");
    const Variable relative("XDG_DATA_HOME", "not/absolute");
    EXPECT_EQ(Qx::Host::userDataDirectory(), "/some/home/.local/share/qxhost");
}

TEST(Directories, TheShippedEffectsAreFoundInABuildThatIsNotInstalled)
{
    const std::string directory = narrow(getShadersDir());
    ASSERT_FALSE(directory.empty());
    EXPECT_EQ(directory.back(), '/');
    EXPECT_TRUE(std::filesystem::is_directory(directory)) << directory;
}

TEST(Directories, AVariableChoosesTheShippedEffects)
{
    const Variable variable("QX_SHADERS_DIR", "/elsewhere");
    EXPECT_EQ(getShadersDir(), L"/elsewhere/");
    const Variable withSeparator("QX_LUTS_DIR", "/luts/");
    EXPECT_EQ(getLUTDirectory(iSettings::User), L"/luts/");
}
