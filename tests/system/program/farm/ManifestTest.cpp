// What a job is made of must stay what it was, and stay in its folder: else it is refused by name, and no
// piece runs.

#include "tests/system/program/farm/FarmTest.h"

#include <fstream>
#include <functional>

namespace Qx::System {

namespace {

class Manifest : public FarmTest
{
protected:
    void SetUp() override
    {
        FarmTest::SetUp();
        makeClip("clip.mov");
        write("film.cube", "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n");
        fs::create_directory(at("look"));
        write("look/gain.fxh", "static const float gain = 0.5;\n");
        write("look/look.fx", "#include \"gain.fxh\"\n"
                              "texture Input; sampler s = sampler_state { Texture = <Input>; };\n"
                              "texture N; sampler n = sampler_state { Texture = <N>; };\n"
                              "float4 f(float2 uv : TEXCOORD0) : COLOR { return tex2D(s, uv) * gain + "
                              "tex2D(n, uv) * 0.1; }\n"
                              "technique T { pass { PixelShader = compile ps_3_0 f(); } }\n");
        ffmpeg({"-f", "lavfi", "-i", "color=red:size=8x8", "-frames:v", "1", "noise.png"});
        makeJob({"--segments", "2", "--effect", "look/look.fx", "--texture", "N=noise.png", "--lut",
                 "film.cube", "--burn-in", "{frame}"});
    }

    std::string manifest() const { return read(at("film.job/job.json")); }

    /// The path in the job's folder of the file that ends so.
    std::string held(const std::string& end) const
    {
        const auto job = nlohmann::json::parse(manifest());
        for (const auto& file : job["files"]) {
            if (file["path"].get<std::string>().ends_with(end)) {
                return file["path"];
            }
        }
        ADD_FAILURE() << end << " is not held";
        return {};
    }

    /// No command goes on, and each says why.
    void expectRefusal(const Words& parts) const
    {
        for (const Words& command :
             {Words{"farm", "run-piece", "film.job", "0"}, Words{"farm", "run", "film.job"}}) {
            const Outcome outcome = qxhost(command);
            EXPECT_EQ(outcome.exitCode, 3) << outcome.err;
            for (const std::string& part : parts) {
                EXPECT_NE(outcome.err.find(part), std::string::npos) << part << " is not in " << outcome.err;
            }
        }
        EXPECT_TRUE(fs::is_empty(at("film.job/pieces")) ||
                    fs::exists(at("film.job/pieces/0000.failed.json")));
        EXPECT_FALSE(fs::exists(at("film.job/pieces/0000.json")));
    }

    void expectRefusalOf(const std::function<void(nlohmann::json&)>& change, const Words& parts) const
    {
        const std::string before = manifest();
        auto job = nlohmann::json::parse(before);
        change(job);
        write("film.job/job.json", job.dump());
        expectRefusal(parts);
        write("film.job/job.json", before);
    }
};

TEST_F(Manifest, a_file_that_has_changed_is_named)
{
    struct Case
    {
        std::string end;
        std::string kind;
    };
    for (const Case& each : {Case{"clip.mov", "input"}, Case{"look.fx", "effect"}, Case{"gain.fxh", "effect"},
                             Case{"film.cube", "LUT"}, Case{"noise.png", "texture"}, Case{".ttf", "font"}}) {
        SCOPED_TRACE(each.end);
        const fs::path file = at("film.job/" + held(each.end));
        const std::string before = read(file);
        std::string changed = before;
        changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
        std::ofstream(file, std::ios::binary) << changed;
        expectRefusal(
            {"the " + each.kind + " \"" + held(each.end) + "\"", "has changed", "qxhost farm make"});
        EXPECT_EQ(qxhost({"farm", "verify", "film.job"}).exitCode, 3);
        std::ofstream(file, std::ios::binary) << before + "x";
        expectRefusal({"the " + each.kind + " \"" + held(each.end) + "\"", "has changed"});
        fs::rename(fs::weakly_canonical(file), at("away"));
        expectRefusal({"the " + each.kind + " \"" + held(each.end) + "\"", "is missing"});
        std::ofstream(fs::weakly_canonical(file), std::ios::binary) << before;
        fs::remove(at("away"));
    }
    EXPECT_EQ(qxhost({"farm", "run", "film.job"}).exitCode, 0) << "all is as it was";
}

TEST_F(Manifest, a_large_input_is_read_again_only_if_it_may_have_changed)
{
    fs::remove_all(at("film.job"));
    ffmpeg({"-i", "clip.mov", "-an", "-vf", "scale=640:480", "-c:v", "rawvideo", "-pix_fmt", "uyvy422",
            "large.mov"});
    ASSERT_GT(fs::file_size(at("large.mov")), 17U << 20U);
    fs::rename(at("large.mov"), at("clip.mov"));
    makeJob({"--segments", "2", "--frames", "4"});
    EXPECT_EQ(qxhost({"farm", "run-piece", "film.job", "0", "--quiet"}).exitCode, 0);
    ASSERT_TRUE(fs::exists(at("film.job/stamps.json")));
    fs::last_write_time(at("clip.mov"), fs::file_time_type::clock::now());
    EXPECT_EQ(qxhost({"farm", "run-piece", "film.job", "1", "--quiet"}).exitCode, 0)
        << "touched, but the same";
    std::fstream file(at("clip.mov"), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(1 << 20);
    file << "changed";
    file.close();
    const Outcome changed = qxhost({"farm", "join", "film.job"});
    EXPECT_EQ(changed.exitCode, 3) << changed.err;
    EXPECT_NE(changed.err.find("the input \"inputs/clip.mov\""), std::string::npos) << changed.err;
}

TEST_F(Manifest, another_version_and_a_malformed_one_are_refused)
{
    expectRefusalOf([](auto& job) { job["version"] = 2; },
                    {"has version 2 of manifests", "qxhost farm make"});
    expectRefusalOf([](auto& job) { job["version"] = "new"; }, {"has version \"new\""});
    expectRefusalOf([](auto& job) { job["format"] = "other"; }, {"is no manifest of a job"});
    expectRefusalOf([](auto& job) { job["program"] = "9.9.9"; },
                    {"was made by qxhost \"9.9.9\"", "every machine"});
    expectRefusalOf([](auto& job) { job.erase("pieces"); }, {"is malformed", "pieces"});
    expectRefusalOf([](auto& job) { job["pieces"][1]["frames"] = "many"; },
                    {"is malformed: \"frames\" is missing, or is not what it should be"});
    expectRefusalOf([](auto& job) { job["pieces"][0].erase("end"); }, {"is malformed: \"end\""});
    expectRefusalOf([](auto& job) { job["files"] = 1; }, {"is malformed: \"files\""});
    expectRefusalOf([](auto& job) { job["pieces"][1]["first"] = 7; },
                    {"piece 1 does not follow the one before it"});
    expectRefusalOf([](auto& job) { job["pieces"][1]["begin"] = 7; }, {"piece 1 does not follow"});
    expectRefusalOf([](auto& job) { job["pieces"] = nlohmann::json::array(); }, {"its pieces have 0 frames"});
    expectRefusalOf([](auto& job) { job["pieces"][0]["frames"] = INT64_MAX; }, {"piece 0 does not follow"});
    expectRefusalOf([](auto& job) { job["frameBytes"] = -1; }, {"frames cannot have -1 bytes"});
    expectRefusalOf([](auto& job) { job["frames"] = 51; }, {"its pieces have 50 frames, the job 51"});
    expectRefusalOf([](auto& job) { job["arguments"].push_back("--absent=1"); },
                    {"its arguments cannot be used"});
    const std::string before = manifest();
    for (const std::string& text : {before.substr(0, before.size() / 2), std::string("[]"),
                                    std::string("null"), std::string(), std::string("\xff\xfe")}) {
        write("film.job/job.json", text);
        expectRefusal({"film.job/job.json"});
    }
    fs::remove(at("film.job/job.json"));
    expectRefusal({"film.job", "cannot be read"});
    ASSERT_EQ(run({"mkfifo", "film.job/job.json"}).exitCode, 0);
    expectRefusal({"film.job", "cannot be read"});
}

TEST_F(Manifest, a_path_that_leaves_the_folder_is_refused)
{
    const std::string leaves = "leaves the job's folder";
    expectRefusalOf([](auto& job) { job["input"] = "../clip.mov"; }, {"the input \"../clip.mov\"", leaves});
    expectRefusalOf([](auto& job) { job["input"] = "/etc/passwd"; }, {"the input \"/etc/passwd\"", leaves});
    expectRefusalOf([](auto& job) { job["output"] = "../graded.mov"; },
                    {"the output \"../graded.mov\"", leaves});
    expectRefusalOf([](auto& job) { job["output"] = "/tmp/graded.mov"; }, {"the output", leaves});
    expectRefusalOf([](auto& job) { job["output"] = ""; }, {"the output", leaves});
    expectRefusalOf([](auto& job) { job["files"][1]["path"] = "assets/../../x.fx"; },
                    {"assets/../../x.fx", leaves});
    expectRefusalOf([](auto& job) { job["arguments"][1] = "--effect=/tmp/x.fx"; },
                    {"--effect=/tmp/x.fx", leaves});
    expectRefusalOf([](auto& job) { job["arguments"][1] = "--effect={job}/../x.fx"; }, {"--effect", leaves});
    expectRefusalOf([](auto& job) { job["arguments"].push_back("--lut=x.cube"); }, {"--lut=x.cube", leaves});
    expectRefusalOf([](auto& job) { job["arguments"].push_back("--lut={job}/job.json"); },
                    {"--lut={job}/job.json is not among its files"});
    expectRefusalOf([](auto& job) { job["arguments"].push_back("/etc/passwd"); }, {"is no option"});
    for (const char* argument : {"--before=signalstats,metadata=print:file=pwned.txt", "--after=hflip",
                                 "--preset=/etc/passwd", "--ocio=/etc/passwd", "--segments=2"}) {
        expectRefusalOf([&](auto& job) { job["arguments"].push_back(argument); },
                        {argument + std::string(" may not be in a job")});
    }
    EXPECT_FALSE(fs::exists(at("pwned.txt")));
    const std::string lut = held("film.cube");
    fs::rename(at("film.job/" + lut), at("outside.cube"));
    fs::create_symlink(at("outside.cube"), at("film.job/" + lut));
    expectRefusal({"the LUT \"" + lut + "\"", leaves});
}

TEST_F(Manifest, includes_come_along_and_the_original_no_longer_counts)
{
    write("look/gain.fxh", "static const float gain = 0.1;\n");
    write("film.cube", "LUT_1D_SIZE 2\n1 1 1\n0 0 0\n");
    EXPECT_EQ(qxhost({"farm", "run", "film.job"}).exitCode, 0);
    fs::remove(at("look/gain.fxh"));
    EXPECT_EQ(qxhost({"farm", "verify", "film.job"}).exitCode, 0);
    write("look/gain.fxh", "static const float gain = 0.5;\n");
    write("film.cube", "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n");
    convert("clip.mov", "one.mov",
            {"--effect", "look/look.fx", "--texture", "N=noise.png", "--lut", "film.cube", "--burn-in",
             "{frame}"});
    EXPECT_EQ(packets("film.job/graded.mov"), packets("one.mov"));
}

} // namespace

} // namespace Qx::System
