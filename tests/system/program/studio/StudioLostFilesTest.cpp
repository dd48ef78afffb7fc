// The studio with clips whose files are lost while it plays.

#include "tests/system/program/studio/StudioTest.h"

namespace Qx::System {

namespace {

class StudioLostFiles : public StudioTest
{
protected:
    static constexpr int pictures = 12;

    static std::string nameOf(int number)
    {
        const std::string digits = std::to_string(number);
        return "p_" + std::string(4 - digits.size(), '0') + digits + ".png";
    }

    /// Grey pictures, from number 1 on, that are lighter from each to the next. Their content cannot be
    /// compressed much, so that a part of a file is a part of the picture.
    void makePictures()
    {
        ffmpeg({"-f", "lavfi", "-i", "color=black:size=96x64:rate=25", "-vf",
                "format=rgb24,geq=r=40+8*N:g=40+8*N:b=40+8*N+mod(X*X*7+Y*Y*13+X*Y\\,97)", "-frames:v",
                std::to_string(pictures), "p_%04d.png"});
    }

    /// Red of the frame that is at that place, from 0 on.
    static int redOf(int frame) { return 40 + 8 * frame; }

    static Json red(Browser& browser)
    {
        const Json answer = browser.ask({{"do", "probe"}, {"x", 10}, {"y", 10}});
        return answer["is"] == "answer" ? answer["before"]["rgb8"][0] : answer["text"];
    }

    Browser playing(const std::string& clip)
    {
        start({clip});
        Browser browser = window();
        browser.send({{"do", "view"}, {"width", 96}, {"height", 64}});
        browser.ask({{"do", "play"}});
        return browser;
    }

    static bool isSaid(const Json& state, const std::string& text)
    {
        return problemOf(state).find(text) != std::string::npos;
    }

    void cut(const std::string& name, double part) const
    {
        fs::resize_file(at(name),
                        static_cast<std::uintmax_t>(static_cast<double>(fs::file_size(at(name))) * part));
    }

    /// Waits for two passes over a place of the clip.
    static void expectItPlays(Browser& browser)
    {
        browser.state([](const Json& state) { return state["playing"] == true && problemOf(state).empty(); });
        browser.picture([](const Json& header) { return header["frame"] > 8; });
        browser.picture([](const Json& header) { return header["frame"] < 3; });
        browser.picture([](const Json& header) { return header["frame"] > 8; });
    }
};

} // namespace

TEST_F(StudioLostFiles, pictures_that_are_gone_are_named_until_they_return)
{
    makePictures();
    Browser browser = playing("p_%04d.png");
    fs::rename(at(nameOf(5)), at("kept"));
    fs::rename(at(nameOf(7)), at("kept7"));
    const Json state = browser.state([](const Json& each) { return isSaid(each, "(and 1 more picture)"); });
    EXPECT_TRUE(isSaid(state, nameOf(5) + ": is gone")) << problemOf(state);
    EXPECT_TRUE(isSaid(state, "put them back as they were, and the studio goes on")) << problemOf(state);
    fs::rename(at("kept7"), at(nameOf(7)));
    browser.state([](const Json& each) {
        return isSaid(each, nameOf(5) + ": is gone; put it back as it was, and the studio goes on");
    });
    fs::rename(at("kept"), at(nameOf(5)));
    expectItPlays(browser);
    stop();
}

TEST_F(StudioLostFiles, the_last_good_picture_stays_and_it_plays_on_when_a_picture_returns)
{
    makePictures();
    Browser browser = playing("p_%04d.png");
    browser.picture([](const Json& header) { return header["frame"] > 1; });
    fs::rename(at(nameOf(5)), at("kept"));
    // What is in memory is let go of, since another picture has been written.
    fs::copy_file(at(nameOf(9)), at("next"));
    fs::rename(at("next"), at(nameOf(9)));
    browser.state(
        [](const Json& each) { return each["playing"] == false && isSaid(each, nameOf(5) + ": is gone"); });
    const SentPicture last = [&] {
        browser.send({{"do", "view"}, {"width", 48}, {"height", 32}});
        return browser.picture([](const Json& header) { return header["width"] == 48; });
    }();
    EXPECT_NE(last.header["frame"], 4);
    EXPECT_FALSE(last.jpeg.empty());
    fs::rename(at("kept"), at(nameOf(5)));
    expectItPlays(browser);
    browser.ask({{"do", "pause"}});
    for (const int frame : {11, 4, 0}) {
        browser.ask({{"do", "seek"}, {"frame", frame}});
        EXPECT_EQ(red(browser), redOf(frame)) << frame;
    }
    stop();
}

TEST_F(StudioLostFiles, who_pauses_meanwhile_finds_it_paused)
{
    makePictures();
    Browser browser = playing("p_%04d.png");
    fs::rename(at(nameOf(1)), at("kept"));
    fs::copy_file(at(nameOf(9)), at("next"));
    fs::rename(at("next"), at(nameOf(9)));
    browser.state(
        [](const Json& each) { return each["playing"] == false && isSaid(each, nameOf(1) + ": is gone"); });
    browser.ask({{"do", "pause"}});
    browser.ask({{"do", "seek"}, {"frame", 0}});
    fs::rename(at("kept"), at(nameOf(1)));
    const Json state = browser.state([](const Json& each) { return problemOf(each).empty(); });
    EXPECT_EQ(state["playing"], false);
    EXPECT_EQ(red(browser), redOf(0));
    EXPECT_EQ(browser.lastState()["playing"], false);
    stop();
}

TEST_F(StudioLostFiles, pictures_that_are_cut_short_or_empty_or_folders_are_named)
{
    makePictures();
    Browser browser = playing("p_%04d.png");
    fs::copy_file(at(nameOf(6)), at("kept"));
    const auto putBack = [&] {
        fs::remove(at(nameOf(6)));
        fs::copy_file(at("kept"), at(nameOf(6)));
        expectItPlays(browser);
    };
    cut(nameOf(6), 0.4);
    const Json state = browser.state([](const Json& each) { return !problemOf(each).empty(); });
    EXPECT_TRUE(isSaid(state, nameOf(6) + ": is damaged or cut short; write it again")) << problemOf(state);
    EXPECT_EQ(state["playing"], false);
    putBack();
    fs::resize_file(at(nameOf(6)), 0);
    browser.state([](const Json& each) { return isSaid(each, nameOf(6) + ": is empty; put it back"); });
    putBack();
    fs::remove(at(nameOf(6)));
    fs::create_directory(at(nameOf(6)));
    browser.state([](const Json& each) { return isSaid(each, nameOf(6) + ": is no file any more"); });
    putBack();
    stop();
}

TEST_F(StudioLostFiles, a_clip_that_is_gone_or_cut_short_is_named_until_it_is_back)
{
    for (const std::string name : {"clip.mp4", "clip.mkv"}) {
        makeClip(name);
        Browser browser = playing(name);
        fs::rename(at(name), at("kept"));
        browser.state([&](const Json& each) {
            return isSaid(each, name + ": is gone; put it back as it was, and the studio goes on");
        });
        fs::rename(at("kept"), at(name));
        expectItPlays(browser);
        fs::copy_file(at(name), at("kept"));
        cut(name, 0.6);
        const Json cutShort = browser.state(
            [](const Json& each) { return each["playing"] == false && !problemOf(each).empty(); });
        EXPECT_TRUE(isSaid(cutShort, name)) << problemOf(cutShort);
        fs::rename(at("kept"), at(name));
        expectItPlays(browser);
        browser.ask({{"do", "pause"}});
        browser.ask({{"do", "seek"}, {"frame", 24}});
        EXPECT_EQ(browser.state([](const Json& each) { return each["frame"] == 24; })["problems"],
                  Json::array());
        stop();
    }
}

} // namespace Qx::System
