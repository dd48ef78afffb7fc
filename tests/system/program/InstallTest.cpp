#include "tests/system/program/Installation.h"

#include <nlohmann/json.hpp>

namespace Qx::System {

namespace {

TEST_F(Installation, it_converts_and_may_be_moved)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "1", "-pix_fmt", "yuv422p", "-c:v", "ffv1",
            "clip.mkv"});
    fs::rename(at("prefix"), at("moved"));
    const std::string program = at("moved/bin/qxhost").string();
    const Outcome outcome = run({program, "convert", "clip.mkv", "out.png"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(decoded("out.png", "rgb24").size(), 64U * 48U * 3U);
    // The effects are the installation's own, not those of the build.
    const Outcome effects = run({program, "effects", "list", "--json"});
    for (const auto& effect : nlohmann::json::parse(effects.out)) {
        EXPECT_TRUE(effect["directory"].get<std::string>().starts_with(fs::canonical(at("moved")).string()))
            << effect;
    }
}

TEST_F(Installation, libraries_carry_a_soname)
{
    for (const char* library : {"libQxFxResources.so", "libQxHost.so"}) {
        const Outcome outcome = run({"readelf", "-d", (libraryFolder() / library).string()});
        EXPECT_NE(outcome.out.find("SONAME"), std::string::npos) << library;
        EXPECT_NE(outcome.out.find(std::string(library) + ".0"), std::string::npos) << outcome.out;
    }
}

TEST_F(Installation, a_project_of_somebody_else_builds_against_it)
{
    configure("consumer");
    build("consumer");
    const Outcome ran = run({at("consumer/consumer").string()});
    EXPECT_EQ(ran.exitCode, 0) << ran.out << ran.err;
    EXPECT_NE(ran.out.find("copy right"), std::string::npos) << ran.out;
}

} // namespace

} // namespace Qx::System
