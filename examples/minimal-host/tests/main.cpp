// Whether the services of Host.cpp keep the promises of platform/.

#include <hosttests/HostTests.h>

int main(int argc, char** argv)
{
    using Qx::HostTests::Feature;
    Qx::HostTests::HostUnderTest host;
    host.startArgument = L"-transcode";
    // What this host has not got. A name less here is a service more, and its tests.
    host.without = {
        Feature::Files,         Feature::FileCopies, Feature::Numbers,     Feature::Unicode,
        Feature::Settings,      Feature::Log,        Feature::DebugOutput, Feature::Commands,
        Feature::Notifications, Feature::Tasks,      Feature::HeldTasks,   Feature::Shutdown,
        Feature::Images,        Feature::Primitives, Feature::Effects,     Feature::ComputeContexts,
        Feature::Images3D,      Feature::Fonts,      Feature::LUTs,        Feature::Formats,
        Feature::Conversions};
    return Qx::HostTests::run(argc, argv, host);
}
