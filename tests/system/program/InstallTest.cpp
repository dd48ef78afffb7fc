#include "tests/system/program/Installation.h"

#include <nlohmann/json.hpp>

#include <map>
#include <regex>

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
    const Outcome described = run({program, "effects", "describe", "qx-vignette.fx", "--json"});
    EXPECT_EQ(nlohmann::json::parse(described.out)["file"],
              (fs::canonical(at("moved")) / "share/qx/shaders/qx-vignette.fx").string());
    const Outcome darkened = run({program, "convert", "clip.mkv", "dark.png", "--effect", "qx-vignette.fx"});
    EXPECT_EQ(darkened.exitCode, 0) << darkened.err;
    EXPECT_NE(decoded("dark.png", "rgb24"), decoded("out.png", "rgb24"));
}

TEST_F(Installation, it_has_every_effect_and_what_effects_include)
{
    const fs::path source = fs::path(QX_SOURCE_FOLDER) / "shaders";
    std::size_t effects = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(source)) {
        if (entry.is_regular_file() && entry.path().extension() != ".md") {
            const fs::path installed =
                at("prefix/share/qx/shaders") / entry.path().lexically_relative(source);
            EXPECT_TRUE(read(installed) == read(entry.path())) << installed;
            effects += entry.path().filename().string().starts_with("qx-") ? 1U : 0U;
        }
    }
    EXPECT_EQ(effects, 17U);
    EXPECT_FALSE(fs::exists(at("prefix/share/qx/shaders/README.md")));
}

TEST_F(Installation, without_its_effects_it_says_where_they_belong)
{
    fs::remove_all(at("prefix/share/qx"));
    const Outcome outcome = run({at("prefix/bin/qxhost").string(), "effects", "list"});
    EXPECT_NE(outcome.err.find((fs::canonical(at("prefix")) / "share/qx/shaders").string()),
              std::string::npos)
        << outcome.err;
}

TEST_F(Installation, the_documentation_for_users_is_installed)
{
    for (const char* page : {"qxhost.md", "effects.md", "settings.md", "images"}) {
        EXPECT_TRUE(fs::exists(at("prefix/share/doc/qxhost") / page)) << page;
    }
    EXPECT_FALSE(fs::exists(at("prefix/share/doc/qxhost/development.md")));
}

TEST_F(Installation, links_of_installed_pages_lead_to_what_is_installed)
{
    const std::regex link(R"(\]\(([\w./-]+\.\w+)(#[^)]*)?\))");
    std::size_t links = 0;
    for (const fs::directory_entry& page : fs::directory_iterator(at("prefix/share/doc/qxhost"))) {
        if (page.path().extension() != ".md") {
            continue;
        }
        const std::string text = read(page.path());
        for (auto each = std::sregex_iterator(text.begin(), text.end(), link); each != std::sregex_iterator();
             ++each) {
            const std::string target = (*each)[1];
            EXPECT_TRUE(fs::exists(page.path().parent_path() / target)) << page.path() << ": " << target;
            ++links;
        }
    }
    EXPECT_GT(links, 50U);
}

TEST_F(Installation, libraries_carry_a_soname)
{
    for (const char* library :
         {"libQxFxResources.so", "libQxHostGPU.so", "libQxHostSurfaces.so", "libQxHost.so"}) {
        const Outcome outcome = run({"readelf", "-d", (libraryFolder() / library).string()});
        EXPECT_NE(outcome.out.find("SONAME"), std::string::npos) << library;
        EXPECT_NE(outcome.out.find(std::string(library) + ".0"), std::string::npos) << outcome.out;
    }
}

TEST_F(Installation, pkg_config_knows_each_library_and_the_effects)
{
    const auto asked = [&](const std::vector<std::string>& arguments) {
        std::vector<std::string> command{"env", "PKG_CONFIG_PATH=" + (libraryFolder() / "pkgconfig").string(),
                                         "pkg-config"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.out;
    };
    const std::map<std::string, std::string> libraries{{"qxfxresources", "-lQxFxResources "},
                                                       {"qxhost", "-lQxHost "},
                                                       {"qxhostgpu", "-lQxHostGPU "},
                                                       {"qxhostsurfaces", "-lQxHostSurfaces "}};
    for (const auto& [package, flag] : libraries) {
        EXPECT_NE(asked({"--libs", package}).find(flag), std::string::npos) << package;
    }
    std::string shaders = asked({"--variable=shadersdir", "qxfxresources"});
    shaders.resize(shaders.find_last_not_of('\n') + 1);
    EXPECT_TRUE(fs::exists(fs::path(shaders) / "ColourConvert.fx")) << shaders;
}

TEST_F(Installation, a_project_of_somebody_else_builds_against_it)
{
    configure("consumer");
    build("consumer");
    const Outcome ran = run({at("consumer/consumer").string()});
    EXPECT_EQ(ran.exitCode, 0) << ran.out << ran.err;
    EXPECT_NE(ran.out.find("copy right"), std::string::npos) << ran.out;
}

TEST_F(Installation, find_package_says_why_it_lacks_a_component)
{
    fs::create_directory(at("wrong"));
    write("wrong/CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\n"
                                  "project(Wrong LANGUAGES CXX)\n"
                                  "find_package(QxFxResources 0.1 REQUIRED COMPONENTS QxHost)\n");
    const Outcome outcome = run({QX_CMAKE, "-S", at("wrong").string(), "-B", at("wrong/build").string(),
                                 "-DCMAKE_PREFIX_PATH=" + at("prefix").string()});
    EXPECT_NE(outcome.exitCode, 0);
    EXPECT_NE(outcome.err.find("There is no component QxHost."), std::string::npos) << outcome.err;
}

} // namespace

} // namespace Qx::System
