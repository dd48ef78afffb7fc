#include "tests/hosts/check/ReferenceHost.h"

#include "host/Host.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace Qx::HostTests {

namespace {

std::string contentsOfFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

HostUnderTest startReferenceHost(int argc, char** argv, const std::filesystem::path& directory)
{
    const std::filesystem::path debugOutput = directory / "debug-output";
    setenv("XDG_STATE_HOME", directory.c_str(), 1);
    setenv("XDG_CACHE_HOME", directory.c_str(), 0);
    setenv("QX_HOST_TESTS_NUMBER", "7", 1);
    if (std::freopen(debugOutput.c_str(), "w", stderr) == nullptr) {
        std::printf("cannot write %s\n", debugOutput.c_str());
        std::exit(2);
    }
    Host::start({.argc = argc, .argv = argv});

    HostUnderTest host;
    host.readLog = [log = directory / "qxhost" / "qxhost.log"] { return contentsOfFile(log); };
    host.readDebugOutput = [debugOutput] {
        std::fflush(stderr);
        return contentsOfFile(debugOutput);
    };
    host.runCommand = Host::runCommand;
    host.holdBackTasks = Host::holdBackTasks;
    host.shutDown = [](Shutdown::eExitType type) { Host::stop(type); };
    host.setting = HostUnderTest::IntegerSetting{"HostTestsNumber", 7};
    host.startArgument = L"-transcode";
    return host;
}

} // namespace Qx::HostTests
