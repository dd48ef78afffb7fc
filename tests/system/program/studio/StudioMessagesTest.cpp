// What the studio says, and what it does where a file is missing or another than was meant.

#include "tests/system/program/studio/StudioTest.h"

#include <algorithm>

namespace Qx::System {

namespace {

class StudioMessages : public StudioTest
{
protected:
    static bool holds(const std::string& text, const std::string& part)
    {
        return text.find(part) != std::string::npos;
    }

    static Json first(Browser& browser)
    {
        return browser.state([](const Json& state) { return !state["chain"].empty(); })["chain"][0];
    }
};

} // namespace

TEST_F(StudioMessages, say_what_is_guessed)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25:duration=0.2", "-c:v", "mpeg4", "-pix_fmt",
            "yuv420p", "untagged.avi"});
    start({"untagged.avi"});
    {
        Browser browser = window();
        const Json clip = browser.state([](const Json&) { return true; })["clip"];
        EXPECT_EQ(clip["matrixGuessed"], true);
        EXPECT_EQ(clip["matrix"], "bt601");
    }
    const std::string said = program_->errorSoFar();
    EXPECT_TRUE(holds(said, "untagged.avi: has no tag for its matrix")) << said;
    EXPECT_TRUE(holds(said, "assuming BT.601")) << said;
    stop();
    makeClip();
    start({"clip.mp4"});
    Browser browser = window();
    EXPECT_EQ(browser.state([](const Json&) { return true; })["clip"]["matrixGuessed"], false);
    EXPECT_FALSE(holds(program_->errorSoFar(), "assuming")) << program_->errorSoFar();
    stop();
}

TEST_F(StudioMessages, refuse_a_clip_in_place_of_an_effect)
{
    makeClip();
    makeClip("other.mp4");
    const Outcome missing = qxhost({"studio", "clip.mp4", "missing.fx"});
    const Outcome outcome = qxhost({"studio", "clip.mp4", "other.mp4"});
    EXPECT_EQ(outcome.exitCode, missing.exitCode);
    EXPECT_EQ(outcome.exitCode, 6);
    EXPECT_TRUE(holds(outcome.err, "other.mp4: is no effect and no LUT; expected")) << outcome.err;
    EXPECT_EQ(outcome.out, "");
}

TEST_F(StudioMessages, say_that_a_clip_is_empty_as_conversions_do)
{
    write("empty.mov", "");
    write("dim.fx", dimming());
    const Outcome studio = qxhost({"studio", "empty.mov", "dim.fx"});
    EXPECT_EQ(studio.exitCode, 3) << studio.err;
    EXPECT_EQ(studio.err, "qxhost: cannot read \"empty.mov\": the file is empty\n");
    const Outcome converted = qxhost({"convert", "empty.mov", "result.mov"});
    EXPECT_EQ(converted.exitCode, studio.exitCode);
    EXPECT_EQ(converted.err, studio.err);
}

TEST_F(StudioMessages, name_the_ports_that_there_are)
{
    makeClip();
    for (const char* port : {"99999", "-1", "http", "80x", ""}) {
        const Outcome outcome = qxhost({"studio", "clip.mp4", std::string("--port=") + port});
        EXPECT_EQ(outcome.exitCode, 2) << port;
        EXPECT_TRUE(holds(outcome.err, "--port")) << outcome.err;
        EXPECT_TRUE(*port == '\0' || holds(outcome.err, "expected 0 to 65535")) << outcome.err;
    }
}

TEST_F(StudioMessages, name_the_length_that_names_of_looks_have)
{
    makeClip();
    start({"clip.mp4"});
    Browser browser = window();
    const std::string name = std::string(300, 'a') + ".look.toml";
    const std::string text = browser.ask({{"do", "save"}, {"file", name}}).value("text", "");
    EXPECT_TRUE(holds(text, "too long")) << text;
    EXPECT_FALSE(holds(text, "leads out")) << text;
    const std::string longest = std::string(190, 'a') + ".look.toml";
    EXPECT_EQ(browser.ask({{"do", "save"}, {"file", longest}})["is"], "answer");
    EXPECT_TRUE(fs::exists(at(longest)));
    stop();
}

TEST_F(StudioMessages, name_the_look_whose_file_is_missing)
{
    makeClip();
    write("gone.look.toml", "look = 1\n[[step]]\nlut = \"nowhere.cube\"\n");
    write("off.look.toml", "look = 1\n[[step]]\neffect = \"nowhere.fx\"\non = false\n");
    write("second.look.toml", "look = 1\n[[step]]\neffect = \"qx-dissolve.fx\"\n");
    start({"clip.mp4"});
    Browser browser = window();
    const auto errorOf = [&](const std::string& file) {
        const Json answer = browser.ask({{"do", "open"}, {"file", file}});
        EXPECT_EQ(answer["is"], "answer") << answer.dump();
        const Json state =
            browser.state([&](const Json& each) { return each["look"] == file && !each["chain"].empty(); });
        return state["chain"][0]["error"];
    };
    const Json gone = errorOf("gone.look.toml");
    ASSERT_TRUE(gone.is_object()) << gone.dump();
    EXPECT_TRUE(holds(gone["text"], "gone.look.toml")) << gone.dump();
    EXPECT_TRUE(holds(gone["text"], "nowhere.cube")) << gone.dump();
    EXPECT_EQ(errorOf("off.look.toml"), nullptr); // as in a conversion
    const Json second = errorOf("second.look.toml");
    ASSERT_TRUE(second.is_object()) << second.dump();
    EXPECT_FALSE(holds(second["text"], "--texture")) << second.dump();
    EXPECT_TRUE(holds(second["text"], "texture = { To = ")) << second.dump();
    stop();
}

TEST_F(StudioMessages, say_that_an_effects_file_is_gone_and_write_it_again)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    const std::string file = at("dim.fx").string();
    const Json read = browser.ask({{"do", "read"}, {"file", file}});
    ASSERT_EQ(read["is"], "answer") << read.dump();
    fs::remove(file);
    const Json state = browser.state([](const Json& each) { return each["chain"][0]["error"].is_object(); });
    const std::string text = state["chain"][0]["error"]["text"];
    EXPECT_TRUE(holds(text, file + ": there is no such file")) << text;
    EXPECT_FALSE(holds(text, "cc3")) << text; // nor any other of the catalogue
    const Json written =
        browser.ask({{"do", "write"}, {"file", file}, {"text", dimming("0.5")}, {"digest", read["digest"]}});
    ASSERT_EQ(written["is"], "answer") << written.dump();
    EXPECT_EQ(ProgramTest::read(at("dim.fx")), dimming("0.5"));
    browser.state([](const Json& each) { return each["chain"][0]["error"].is_null(); });
    stop();
}

TEST_F(StudioMessages, say_why_an_effect_cannot_be_added)
{
    makeClip();
    start({"clip.mp4"});
    Browser browser = window();
    browser.send({{"do", "catalogue"}});
    Json list = browser.message("catalogue");
    while (std::any_of(list["effects"].begin(), list["effects"].end(),
                       [](const Json& each) { return each["ok"].is_null(); })) {
        list = browser.message("catalogue");
    }
    bool isFound = false;
    for (const Json& each : list["effects"]) {
        EXPECT_EQ(each["ok"], each["reason"] == "") << each.dump();
        if (each["name"] == "qx-dissolve.fx") {
            isFound = true;
            EXPECT_TRUE(holds(each["reason"], "second picture: texture = { To = ")) << each.dump();
            EXPECT_FALSE(holds(each["reason"], "--texture")) << each.dump();
        }
    }
    EXPECT_TRUE(isFound);
    stop();
}

} // namespace Qx::System
