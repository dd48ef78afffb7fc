#include "tests/contract/recording/RecordingHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

// Loading and unloading the library. These tests are not linked to it.

using namespace Qx::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/// Each test loads the library itself; CTest gives it its own process.
class LibraryLoad : public testing::Test
{
protected:
    void load()
    {
        library_ = dlopen(QX_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library_, nullptr) << dlerror();
    }

    void unload()
    {
        ASSERT_EQ(dlclose(library_), 0);
        library_ = nullptr;
        ASSERT_EQ(dlopen(QX_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library stays loaded";
    }

    void TearDown() override
    {
        if (library_ != nullptr) {
            unload();
        }
        host().reset();
    }

    static std::string toggled()
    {
        host().journal.clear();
        host().commands.at(0).handler();
        return host().journal.lines().at(0);
    }

private:
    void* library_ = nullptr;
};

} // namespace

TEST_F(LibraryLoad, ReadsTheSettingAndThenRegistersTheCommandAndDoesNothingElse)
{
    load();
    EXPECT_THAT(
        host().journal.lines(),
        ElementsAre("config_int(\"ForceUnscaledYCrCbColourConversion\", 0)",
                    "CommandRegistrar(\"_Toggle ForceUnscaledYCrCb\", \"\"/999999, \"\"/999999, 2, 0/0)"));
}

TEST_F(LibraryLoad, SwitchStartsOffWithoutTheSettingAndAtZero)
{
    load();
    EXPECT_EQ(toggled(), "LogBoth(\"cfgForceUnscaledYCrCb is now ON\\n\")");
    EXPECT_EQ(toggled(), "LogBoth(\"cfgForceUnscaledYCrCb is now OFF\\n\")");
    unload();
    host().settings["ForceUnscaledYCrCbColourConversion"] = 0;
    load();
    EXPECT_EQ(toggled(), "LogBoth(\"cfgForceUnscaledYCrCb is now ON\\n\")");
}

TEST_F(LibraryLoad, AnySettingButZeroStartsTheSwitchOn)
{
    for (const int value : {5, 1, -1, 0x7FFFFFFF}) {
        host().settings["ForceUnscaledYCrCbColourConversion"] = value;
        load();
        EXPECT_EQ(toggled(), "LogBoth(\"cfgForceUnscaledYCrCb is now OFF\\n\")") << value;
        unload();
    }
}

TEST_F(LibraryLoad, SettingIsReadOnceALoad)
{
    load();
    toggled();
    toggled();
    EXPECT_EQ(host().journal.count("config_int"), 0U);
}

TEST_F(LibraryLoad, CommandStaysRegisteredForTheLifeOfTheLibrary)
{
    EXPECT_THAT(host().commands, IsEmpty());
    load();
    ASSERT_THAT(host().commands, SizeIs(1));
    EXPECT_EQ(host().commands[0].name, "_Toggle ForceUnscaledYCrCb");
    host().journal.clear();
    unload();
    EXPECT_THAT(host().commands, IsEmpty());
    EXPECT_THAT(host().journal.lines(), ElementsAre("~CommandRegistrar(\"_Toggle ForceUnscaledYCrCb\")"));
}

TEST_F(LibraryLoad, LeavesNoBlocksBehind)
{
    const std::size_t before = host().allocator.liveBlocks();
    load();
    toggled();
    unload();
    EXPECT_EQ(host().allocator.liveBlocks(), before);
}
