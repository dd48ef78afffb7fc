#pragma once

#include <hosttests/Services.h>
#include <platform/Api.h>
#include <platform/Shutdown.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>

/// The conformance tests for hosts: whether a host keeps the promises of `platform/`. Link
/// QxFxResources::HostTests to a program that is the host's process, and call run() from its main().
namespace Qx::HostTests {

/// What a host may do without. The promises of a feature are tested unless HostUnderTest::without names it.
enum class Feature
{
    Clock,           ///< a clock of real time
    Sleep,           ///< sleeps that last
    Files,           ///< listDirectory() and getDirectoryContents() list directories of the system
    FileCopies,      ///< copyFile()
    Numbers,         ///< numbers and byte counts as text, for reports
    Unicode,         ///< texts beyond ASCII
    Settings,        ///< config_int() finds settings; see HostUnderTest::setting
    StartArguments,  ///< see HostUnderTest::startArgument
    Log,             ///< see HostUnderTest::readLog
    DebugOutput,     ///< see HostUnderTest::readDebugOutput
    Commands,        ///< see HostUnderTest::runCommand
    Notifications,   ///< listeners are called
    Tasks,           ///< queued tasks are run
    HeldTasks,       ///< see HostUnderTest::holdBackTasks
    Shutdown,        ///< see HostUnderTest::shutDown
    Memory,          ///< the machine's memory is known
    Images,          ///< GPU and host images have pixels, which are uploaded and downloaded
    Primitives,      ///< renderers draw rectangles
    Effects,         ///< effect files in the dialect of docs/effects.md are compiled and drawn
    EffectFiles,     ///< a file that does not exist, or is not an effect, is refused
    ComputeContexts, ///< createComputeContext() returns one; if not, it must return an empty pointer
    Images3D,        ///< 3D tables in host memory and on the GPU
    Fonts,           ///< createFont()
    LUTs,            ///< CubeLUT reads .cube files
    Formats,         ///< surfaces of formats beside ARGB of 8 bits
    Conversions,     ///< ImageConverter
};

/// A host, as its tests need to know it. What platform/ has no function for is a function here; a feature
/// that needs one fails without it, unless `without` names the feature. All members are used by run() alone.
struct HostUnderTest
{
    /// The services. Null: those of the process. Must outlive run().
    Services* services = nullptr;

    /// What the host has not got.
    std::set<Feature> without;

    /// An existing directory in which the tests make files of theirs, and where the host's file service finds
    /// them. Empty: a new directory in the system's directory for temporary files, which run() removes.
    std::filesystem::path directory;

    /// How long a call that must not block may take before it counts as blocked.
    std::chrono::milliseconds patience{20'000};

    /// Returns everything that the host's log has received so far, in UTF-8. Lines may have prefixes.
    std::function<std::string()> readLog;

    /// Returns everything that the host's debug output has received so far, in UTF-8.
    std::function<std::string()> readDebugOutput;

    /// Invokes the host's command of that name on the calling thread. Returns false if there is none.
    std::function<bool(const char* name)> runCommand;

    /// Asks the host's background tasks to wait, or no longer.
    std::function<void(bool hold)> holdBackTasks;

    /// Shuts the host down. Called by the last tests, once.
    std::function<void(Shutdown::eExitType)> shutDown;

    /// A setting and its value.
    struct IntegerSetting
    {
        std::string name; ///< as config_int() takes it
        int value = 0;    ///< as config_int() returns it
    };
    /// A setting that is set, and to what.
    std::optional<IntegerSetting> setting;

    /// An argument that the program was started with.
    std::wstring startArgument;

    /// The typeface of the tests of fonts. It need not exist if the host replaces typefaces.
    std::wstring typeface = L"sans";
};

/// Runs the tests and prints a line for each promise, in GoogleTest's form. Call it once, from main(), before
/// the library is used; start the host first if it needs that. The last tests shut the host down.
///
/// Understands GoogleTest's arguments: --gtest_list_tests, --gtest_filter=Locks.*, --gtest_output=xml:FILE.
/// Tests are named SERVICE.PROMISE and run in a fixed order in one process. A promise of a feature that the
/// host has not got is reported as skipped.
///
/// Returns 0 if every promise that was tested is kept, 1 if one is not, and 2 for an argument that is not
/// known or a filter that no name matches. If a call of the host did not return within `patience`, ends the
/// process with exit code 1 after the last test, because a thread still waits inside the host.
QX_LOCAL int run(int argc, char** argv, const HostUnderTest& host);

} // namespace Qx::HostTests
