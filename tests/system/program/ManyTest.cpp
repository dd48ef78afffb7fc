// Many inputs in one run of "qxhost convert".

#include "tests/system/program/Program.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <thread>

namespace Qx::System {

namespace {

class Many : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        fs::create_directory(at("out"));
        makeClip("a.mov", "3");
        makeClip("b.mov", "5");
    }

    void makeClip(const std::string& name, const std::string& frames) const
    {
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25", "-frames:v", frames, "-pix_fmt",
                "yuvj422p", "-c:v", "mjpeg", name});
    }

    std::string framesOf(const std::string& file) const { return probe(file, "nb_read_frames"); }

    std::vector<std::string> outputs() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(at("out"))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

using Names = std::vector<std::string>;

TEST_F(Many, every_input_is_converted_as_it_would_be_alone)
{
    const Outcome outcome =
        qxhost({"convert", "a.mov", "b.mov", "--to", "out/{name}.mkv", "--jobs", "2", "--frames", "9",
                "--frames", "4", "--effect", "cc3.fx", "--set", "gain=1.2"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outputs(), (Names{"a.mkv", "b.mkv"}));
    EXPECT_EQ(framesOf("out/a.mkv"), "nb_read_frames=3\n");
    EXPECT_EQ(framesOf("out/b.mkv"), "nb_read_frames=4\n");
    EXPECT_NE(outcome.err.find("2 of 2 files are converted"), std::string::npos) << outcome.err;
    EXPECT_EQ(
        qxhost({"convert", "b.mov", "alone.mkv", "--frames", "4", "--effect", "cc3.fx", "--set", "gain=1.2"})
            .exitCode,
        0);
    EXPECT_EQ(decoded("out/b.mkv", "rgb24"), decoded("alone.mkv", "rgb24"));
}

TEST_F(Many, one_that_fails_leaves_the_others_alone)
{
    write("noise.mov", std::string(5000, 'x'));
    const Outcome outcome =
        qxhost({"convert", "a.mov", "noise.mov", "absent.mov", "b.mov", "--to", "out/{name}.mkv", "--json"});
    EXPECT_EQ(outcome.exitCode, 3) << outcome.err;
    EXPECT_EQ(outputs(), (Names{"a.mkv", "b.mkv"}));
    for (const char* words : {"2 of 4 files are converted", "failed: noise.mov (exit code 3)",
                              "failed: absent.mov (exit code 3)", "absent.mov\": there is no such file"}) {
        EXPECT_NE(outcome.err.find(words), std::string::npos) << words << " is not in\n" << outcome.err;
    }
    const auto json = nlohmann::json::parse(outcome.out, nullptr, false);
    ASSERT_FALSE(json.is_discarded()) << outcome.out;
    EXPECT_EQ(json["converted"], 2);
    EXPECT_EQ(json["failed"], 2);
    EXPECT_EQ(json["exitCode"], 3);
    ASSERT_EQ(json["results"].size(), 4U);
    EXPECT_EQ(json["results"][0]["report"]["frames"], 3);
    EXPECT_EQ(json["results"][1]["exitCode"], 3);
    EXPECT_EQ(json["results"][2]["report"]["error"]["exitCode"], 3);
    EXPECT_EQ(json["results"][3]["output"], "out/b.mkv");
}

TEST_F(Many, failures_of_different_kinds_have_the_general_code)
{
    write("out/a.mkv", "precious");
    const Outcome outcome =
        qxhost({"convert", "a.mov", "absent.mov", "b.mov", "--to", "out/{name}.mkv", "--quiet"});
    EXPECT_EQ(outcome.exitCode, 1) << outcome.err;
    EXPECT_EQ(read(at("out/a.mkv")), "precious") << "only --force replaces it";
    EXPECT_NE(outcome.err.find("failed: a.mov (exit code 4)"), std::string::npos) << outcome.err;
    EXPECT_EQ(framesOf("out/b.mkv"), "nb_read_frames=5\n");
    EXPECT_EQ(outcome.err.find("are converted"), std::string::npos) << "quiet";
    EXPECT_EQ(qxhost({"convert", "a.mov", "--to", "out/{name}.mkv", "--force"}).exitCode, 0);
    EXPECT_EQ(framesOf("out/a.mkv"), "nb_read_frames=3\n");
}

TEST_F(Many, outputs_that_collide_are_refused_before_anything_is_converted)
{
    fs::create_directory(at("day2"));
    fs::copy_file(at("a.mov"), at("day2/a.mov"));
    const auto expectRefusal = [&](std::vector<std::string> arguments, int exitCode, const Names& words) {
        arguments.insert(arguments.begin(), "convert");
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
        for (const std::string& word : words) {
            EXPECT_NE(outcome.err.find(word), std::string::npos) << word << " is not in " << outcome.err;
        }
        EXPECT_EQ(outputs(), Names());
    };
    expectRefusal({"b.mov", "a.mov", "day2/a.mov", "--to", "out/{name}.mkv"}, 2,
                  {"a.mov and day2/a.mov would both be written to out/a.mkv"});
    expectRefusal({"a.mov", "b.mov", "--to", "out/same.mkv"}, 2, {"a.mov and b.mov would both"});
    expectRefusal({"a.mov", "b.mov", "--to", "./{name}.mov", "--force"}, 4, {"a.mov, which is an input"});
    expectRefusal({"a.mov", "b.mov", "--to", "absent/{name}.mkv"}, 4, {"absent is no directory"});
    expectRefusal({"a.mov", "b.mov", "--to", "out/{clip}.mkv"}, 2,
                  {"there is no field {clip}", "{name} and {folder}"});
    expectRefusal({"a.mov", "b.mov", "out/c.mkv"}, 2, {"unexpected argument \"out/c.mkv\"", "--to NAME"});
    expectRefusal({"a.mov", "out/c.mkv", "--jobs", "2"}, 2, {"--jobs", "add --to NAME"});
    expectRefusal({"--to", "out/{name}.mkv"}, 2, {"INPUT is missing"});
    EXPECT_EQ(qxhost({"convert", "a.mov", "day2/a.mov", "--to", "{folder}/{name}_{{x}}.mkv"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(at("a_{x}.mkv")) && fs::exists(at("day2/a_{x}.mkv")));
}

TEST_F(Many, an_interruption_ends_them_all_and_leaves_nothing_half_done)
{
    makeClip("long.mov", "5000");
    Running running({programPath(), "convert", "long.mov", "a.mov", "b.mov", "--to", "out/{name}.mkv"},
                    directory_);
    for (int i = 0; i < 600 && outputs().empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // until there is a part
    }
    running.signal(SIGINT);
    const Outcome outcome = running.wait();
    EXPECT_EQ(outcome.exitCode, 130) << outcome.err;
    EXPECT_EQ(outputs(), Names());
}

} // namespace

} // namespace Qx::System
