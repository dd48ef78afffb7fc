#include "tests/system/program/Installation.h"

namespace Qx::System {

namespace {

/// The examples of an installation, built against it as their readers build them.
class Examples : public Installation
{
protected:
    Outcome builtByCMake(const std::string& name) const
    {
        configure(name, {}, examples());
        build(name);
        return run({at(name + "/" + name).string()});
    }

    /// Compiles a program of one source with the flags that pkg-config gives.
    Outcome builtByPkgConfig(const std::string& source, const std::string& packages) const
    {
        const std::string folder = libraryFolder().string();
        const Outcome built =
            run({"sh", "-c",
                 "g++ -std=c++20 " + source + " -o program $(PKG_CONFIG_PATH=" + folder +
                     "/pkgconfig pkg-config --cflags --libs " + packages + ") -Wl,-rpath," + folder});
        EXPECT_EQ(built.exitCode, 0) << built.err;
        return run({at("program").string()});
    }
};

TEST_F(Examples, a_frame_in_memory_becomes_rgb)
{
    const Outcome outcome = builtByCMake("convert-frame");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    // (180 - 16) / 219 of 255 is 190.96.
    EXPECT_EQ(outcome.out, "1920 x 1080, first pixel 255 191 191 191\n");
}

TEST_F(Examples, without_a_device_it_says_why_no_frame_is_converted)
{
    builtByCMake("convert-frame");
    const Outcome outcome = run({"env", "VK_DRIVER_FILES=/nowhere", "VK_ICD_FILENAMES=/nowhere",
                                 at("convert-frame/convert-frame").string()});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.err.find("the frame could not be converted: no Vulkan driver was found; install "),
              std::string::npos)
        << outcome.err;
}

TEST_F(Examples, a_host_of_its_own_draws_a_technique)
{
    const Outcome outcome = builtByCMake("minimal-host");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("1 effect, first pixel 0 245 235 225\n"), std::string::npos) << outcome.out;
    const Outcome libraries = run({"ldd", at("minimal-host/minimal-host").string()});
    EXPECT_EQ(libraries.out.find("libQxHost"), std::string::npos) << libraries.out;
    EXPECT_NE(libraries.out.find("libQxFxResources"), std::string::npos) << libraries.out;
}

#ifdef QX_HOST_TESTS
TEST_F(Examples, a_host_of_its_own_passes_the_conformance_tests)
{
    builtByCMake("minimal-host");
    const Outcome outcome = run({at("minimal-host/minimal-host-tests").string()});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    EXPECT_NE(outcome.out.find("[       OK ] Locks.AreReEntrant"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("[  SKIPPED ] Fonts.Draw"), std::string::npos) << outcome.out;
}
#endif

TEST_F(Examples, a_host_with_services_of_its_own_draws_with_ours)
{
    const Outcome outcome = builtByCMake("own-services");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("1 effect, first pixel 0 245 235 225\n"), std::string::npos) << outcome.out;
    const std::string log = read(at("application.log"));
    EXPECT_NE(log.find("application: "), std::string::npos) << log;
    EXPECT_NE(log.find(" blocks came from the application's allocator"), std::string::npos) << log;
    EXPECT_EQ(log.find("application: 0 blocks"), std::string::npos) << log;
    const Outcome libraries = run({"ldd", at("own-services/own-services").string()});
    EXPECT_EQ(libraries.out.find("libQxHost.so"), std::string::npos) << libraries.out;
    EXPECT_NE(libraries.out.find("libQxHostGPU.so"), std::string::npos) << libraries.out;
}

TEST_F(Examples, they_build_with_the_flags_of_pkg_config)
{
    const std::string folder = examples().string() + "/";
    EXPECT_EQ(builtByPkgConfig(folder + "convert-frame/main.cpp", "qxfxresources qxhost").out,
              "1920 x 1080, first pixel 255 191 191 191\n");
    const Outcome host = builtByPkgConfig("-rdynamic " + folder + "minimal-host/*.cpp", "qxfxresources");
    EXPECT_NE(host.out.find("first pixel 0 245 235 225\n"), std::string::npos) << host.out << host.err;
}

} // namespace

} // namespace Qx::System
