// The recording host under the conformance tests for hosts.

#include "hosttests/HostTests.h"
#include "tests/contract/recording/RecordingHost.h"

int main(int argc, char** argv)
{
    using namespace Qx::HostTests;
    using Qx::Test::host;
    HostUnderTest recording;
    // It has no files, time, threads, pixels or compilers: it answers as a test tells it to.
    recording.without = {Feature::Clock,    Feature::Sleep,     Feature::Files,      Feature::FileCopies,
                         Feature::Numbers,  Feature::Unicode,   Feature::Log,        Feature::DebugOutput,
                         Feature::Tasks,    Feature::HeldTasks, Feature::Shutdown,   Feature::Memory,
                         Feature::Images,   Feature::Effects,   Feature::Primitives, Feature::EffectFiles,
                         Feature::Images3D, Feature::Fonts,     Feature::LUTs,       Feature::Conversions};
    host().settings["Known"] = 42;
    host().programArguments.insert(L"-transcode");
    recording.setting = HostUnderTest::IntegerSetting{"Known", 42};
    recording.startArgument = L"-transcode";
    recording.runCommand = [](const char* name) {
        for (const auto& command : host().commands) {
            if (command.name == name) {
                command.handler();
                return true;
            }
        }
        return false;
    };
    return run(argc, argv, recording);
}
