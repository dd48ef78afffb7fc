// What the program keeps between runs, and the commands that look after it.

#include "tests/system/program/Program.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace Qx::System {

namespace {

constexpr const char* effectText = R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; };
float4 halve(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(S, uv) * 0.5; }
technique Half { pass P0 { PixelShader = compile ps_3_0 halve(); } }
)";

class Caches : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        fs::create_directory(at(".cache"));
        write("halve.fx", effectText);
    }

    nlohmann::json info(const std::string& variable = "QX_NOTHING=") const
    {
        const Outcome outcome = with(variable, {"info", "--json"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return nlohmann::json::parse(outcome.out);
    }

    Outcome with(const std::string& variable, std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"/usr/bin/env", variable, programPath(), "effects", "cache"});
        return run(arguments);
    }

    Outcome check(const std::string& variable = "QX_NOTHING=") const
    {
        return run({"/usr/bin/env", variable, programPath(), "effects", "check", "halve.fx"});
    }
};

TEST_F(Caches, an_effect_that_was_checked_is_kept_and_cleared)
{
    EXPECT_EQ(info()["effects"]["count"], 0);
    EXPECT_TRUE(info()["enabled"]);
    const Outcome first = check();
    EXPECT_EQ(first.exitCode, 0) << first.err;
    const nlohmann::json kept = info();
    EXPECT_EQ(kept["effects"]["count"], 1);
    EXPECT_GT(kept["effects"]["bytes"], 0);
    EXPECT_TRUE(fs::is_directory(kept["directory"].get<std::string>()));
    const Outcome second = check();
    EXPECT_EQ(second.out, first.out);
    EXPECT_EQ(info()["effects"]["count"], 1);
    const Outcome cleared = qxhost({"effects", "cache", "clear", "--json"});
    EXPECT_EQ(cleared.exitCode, 0) << cleared.err;
    EXPECT_EQ(nlohmann::json::parse(cleared.out)["removedBytes"],
              kept["effects"]["bytes"].get<int>() + kept["pipelines"]["bytes"].get<int>());
    EXPECT_EQ(info()["effects"]["count"], 0);
    EXPECT_EQ(info()["pipelines"]["count"], 0);
    EXPECT_EQ(qxhost({"effects", "cache", "clear"}).exitCode, 0);
}

TEST_F(Caches, a_terminal_is_told_what_a_first_run_waits_for)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "1", "-c:v", "ffv1", "clip.mkv"});
    write(".cache/qxhost", "a file where the directory should be");
    const Outcome first = run({"env", "TERM=xterm", "MESA_SHADER_CACHE_DISABLE=true", "script", "-qec",
                               programPath() + " convert clip.mkv a.png", "/dev/null"});
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_NE(
        first.out.find("waiting for the first picture; the effects are compiled for this device in each "
                       "run, because they cannot be kept in " +
                       at(".cache/qxhost").string() + ": Not a directory"),
        std::string::npos)
        << first.out;
}

TEST_F(Caches, the_table_says_where_and_how_much)
{
    const Outcome outcome = qxhost({"effects", "cache", "info"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    for (const char* word : {".cache/qxhost", "in use", "effects", "pipelines", "262144 KiB"}) {
        EXPECT_NE(outcome.out.find(word), std::string::npos) << word << " is not in: " << outcome.out;
    }
}

TEST_F(Caches, one_setting_turns_everything_off)
{
    for (const char* off : {"QX_CACHE=0", "QX_CACHE=off", "QX_CACHE_MIB=0"}) {
        EXPECT_EQ(check(off).exitCode, 0) << off;
        EXPECT_FALSE(info(off)["enabled"]) << off;
        EXPECT_FALSE(fs::exists(at(".cache/qxhost"))) << off;
    }
    fs::create_directories(at(".config/qxhost"));
    write(".config/qxhost/settings.toml", "cache_mib = 3\n");
    EXPECT_EQ(info()["limitBytes"], 3 << 20);
    write(".config/qxhost/settings.toml", "cache = false\n");
    EXPECT_EQ(check().exitCode, 0);
    EXPECT_FALSE(fs::exists(at(".cache/qxhost")));
}

TEST_F(Caches, a_cache_that_cannot_be_had_changes_no_result_and_is_one_line_in_the_log)
{
    fs::remove(at(".cache"));
    write(".cache", "a file where the directory should be");
    const Outcome outcome = check();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.out.find("error"), std::string::npos) << outcome.out;
    std::ifstream log(at(".state/qxhost/qxhost.log"));
    int lines = 0;
    for (std::string line; std::getline(log, line);) {
        lines += line.find("The cache in") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(lines, 1);
    EXPECT_EQ(info()["effects"]["count"], 0);
    const Outcome clear = qxhost({"effects", "cache", "clear"});
    EXPECT_EQ(clear.exitCode, 4);
    EXPECT_NE(clear.err.find(".cache/qxhost"), std::string::npos) << clear.err;
}

TEST_F(Caches, one_that_is_refused_is_called_not_used)
{
    const auto problem = [this] { return info()["problem"].get<std::string>(); };
    EXPECT_EQ(problem(), "");
    write(".cache/qxhost", "a file where the directory should be");
    EXPECT_EQ(problem(), "Not a directory; check the path, of which a part is a file");
    const Outcome outcome = qxhost({"effects", "cache", "info"});
    EXPECT_NE(outcome.out.find("not used: Not a directory"), std::string::npos) << outcome.out;
    fs::remove(at(".cache/qxhost"));
    fs::create_directory(at(".cache/qxhost"));
    EXPECT_EQ(problem(), "");
    fs::permissions(at(".cache/qxhost"), fs::perms::all);
    EXPECT_EQ(problem(), "it belongs to another user, or others may write to it");
}

TEST_F(Caches, a_full_disk_under_them_and_the_drivers_ends_nothing)
{
    const auto onDisk = [&](const std::string& command) {
        // Root needs no user namespace, which a changed root directory forbids.
        return run({"unshare", ::geteuid() == 0 ? "-m" : "-rm", "sh", "-c",
                    "mount -t tmpfs -o size=300k none .cache && "
                    "if head -c 1000000 /dev/zero 2>/dev/null > .cache/rest; then exit 1; fi; " +
                        command});
    };
    if (onDisk("true").exitCode != 0) {
        GTEST_SKIP() << "this machine lets no test mount a file system of its own";
    }
    // Compiles and draws in the worker and then in this program, as a conversion does.
    const Outcome outcome = onDisk(programPath() + " effects check halve.fx");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err << outcome.out;
    EXPECT_EQ(outcome.out.find("error"), std::string::npos) << outcome.out;
}

TEST_F(Caches, clearing_empties_the_drivers_too)
{
    EXPECT_EQ(check().exitCode, 0);
    EXPECT_TRUE(fs::exists(at(".cache/qxhost/driver")));
    EXPECT_EQ(qxhost({"effects", "cache", "clear"}).exitCode, 0);
    EXPECT_FALSE(fs::exists(at(".cache/qxhost/driver/mesa_shader_cache/index")));
}

TEST_F(Caches, a_run_compiles_only_the_effects_that_it_uses)
{
    fs::create_directory(at("shaders"));
    for (const char* name : {"ColourConvert", "null", "one", "two", "three", "four"}) {
        write("shaders/" + std::string(name) + ".fx", effectText);
    }
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "1", "photo.png"});
    const Outcome outcome = run({"/usr/bin/env", "QX_SHADERS_DIR=" + at("shaders").string(), programPath(),
                                 "convert", "photo.png", "out.png", "--effect", "two.fx"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    // Beside it, those that every conversion loads.
    const int used = info()["effects"]["count"];
    EXPECT_GE(used, 1);
    EXPECT_LE(used, 3);
}

TEST_F(Caches, two_programs_fill_one_cache)
{
    fs::create_directory(at("shaders"));
    for (const char* name : {"shaders/one.fx", "shaders/two.fx", "shaders/three.fx", "shaders/four.fx"}) {
        write(name, effectText);
    }
    const std::vector<std::string> list{"/usr/bin/env", "QX_SHADERS_DIR=" + at("shaders").string(),
                                        programPath(), "effects", "list"};
    Running first(list, at(""));
    Running second(list, at(""));
    const Outcome one = first.wait();
    const Outcome two = second.wait();
    EXPECT_EQ(one.exitCode, 0) << one.err;
    EXPECT_EQ(two.exitCode, 0) << two.err;
    EXPECT_EQ(one.out.find("broken"), std::string::npos) << one.out;
    EXPECT_NE(one.out.find("four.fx"), std::string::npos) << one.out;
    EXPECT_EQ(info()["effects"]["count"], 4);
}

} // namespace

} // namespace Qx::System
