#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/studio/picture/Pixels.h"
#include "tools/qxhost/studio/server/Guard.h"
#include "tools/qxhost/studio/server/PageFiles.h"
#include "tools/qxhost/studio/session/Editor.h"
#include "tools/qxhost/studio/session/Message.h"
#include "tools/qxhost/studio/session/Playback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>

namespace Qx::Program::Studio {

namespace {

using std::chrono::milliseconds;

TEST(StudioGuard, makes_tokens_that_differ)
{
    std::set<std::string> tokens;
    for (int i = 0; i < 100; ++i) {
        const std::string token = makeToken();
        EXPECT_TRUE(isToken(token)) << token;
        tokens.insert(token);
    }
    EXPECT_EQ(tokens.size(), 100U);
    EXPECT_FALSE(isToken(std::string(63, 'a')));
    EXPECT_FALSE(isToken(std::string(64, 'A')));
}

TEST(StudioGuard, finds_the_path_behind_the_token)
{
    const std::string token(64, '7');
    EXPECT_TRUE(pathBehind("/" + token + "/", token).allowed);
    EXPECT_EQ(pathBehind("/" + token + "/a/b.js?x=1", token).path, "a/b.js");
    EXPECT_FALSE(pathBehind("/" + token, token).allowed);
    EXPECT_FALSE(pathBehind("/" + token + "x", token).allowed);
    EXPECT_FALSE(pathBehind("x" + token + "/", token).allowed);
    EXPECT_FALSE(pathBehind("", token).allowed);
}

TEST(StudioGuard, replaces_percent_escapes)
{
    EXPECT_EQ(unescaped("a%20b%2F%41"), "a b/A");
    EXPECT_EQ(unescaped("a%2"), "");
    EXPECT_EQ(unescaped("%zz"), "");
    EXPECT_EQ(unescaped("%"), "");
}

TEST(StudioGuard, knows_its_own_names)
{
    EXPECT_TRUE(isAllowedHost("studio.local:8000", {"studio.local"}));
    EXPECT_TRUE(isAllowedHost("STUDIO.local", {"studio.local"}));
    EXPECT_FALSE(isAllowedHost("studio.local.example.com", {"studio.local"}));
    EXPECT_FALSE(isAllowedHost("10.0.0.1", {}));
    EXPECT_TRUE(isAllowedHost("10.0.0.1", {}, true));
    EXPECT_TRUE(isAllowedHost("[fe80::1]:80", {}, true));
    EXPECT_FALSE(isAllowedHost("example.com", {}, true));
    EXPECT_TRUE(isOwnOrigin("http://localhost:80", "LOCALHOST:80"));
    EXPECT_FALSE(isOwnOrigin("http://localhost:80", "localhost:81"));
    EXPECT_FALSE(isOwnOrigin("ftp://localhost:80", "localhost:80"));
    EXPECT_FALSE(isOwnOrigin("", ""));
}

TEST(StudioPage, has_its_files_and_no_others)
{
    const PageFiles files{std::filesystem::path()};
    EXPECT_TRUE(files.find("").has_value());
    EXPECT_TRUE(files.find("index.html").has_value());
    EXPECT_FALSE(files.find("none.html").has_value());
    const PageFiles own{std::filesystem::path("/etc")};
    EXPECT_TRUE(own.find("passwd").has_value()); // its folder is what the user says
    EXPECT_FALSE(own.find("../etc/passwd").has_value());
    EXPECT_FALSE(own.find(".pwd.lock").has_value());
    EXPECT_FALSE(own.find("a/../passwd").has_value());
    EXPECT_FALSE(own.find("//etc/passwd").has_value());
}

TEST(StudioPlayback, leaves_out_frames_that_come_too_late)
{
    const Playback::Clock::time_point begin{};
    Playback playback(25, 100);
    playback.play(begin);
    EXPECT_FALSE(playback.advance(begin + milliseconds(39)));
    EXPECT_TRUE(playback.advance(begin + milliseconds(40)));
    EXPECT_EQ(playback.frame(), 1);
    EXPECT_TRUE(playback.advance(begin + milliseconds(200)));
    EXPECT_EQ(playback.frame(), 5);
    // A machine that is much slower plays slower.
    EXPECT_TRUE(playback.advance(begin + milliseconds(2000)));
    EXPECT_EQ(playback.frame(), 13);
    EXPECT_FALSE(playback.advance(begin + milliseconds(2039)));
}

TEST(StudioPlayback, stays_in_its_range)
{
    const Playback::Clock::time_point begin{};
    Playback playback(25, 100);
    playback.setRange(10, 12);
    playback.play(begin);
    EXPECT_EQ(playback.frame(), 10);
    EXPECT_TRUE(playback.advance(begin + milliseconds(81)));
    EXPECT_EQ(playback.frame(), 12);
    EXPECT_TRUE(playback.advance(begin + milliseconds(121)));
    EXPECT_EQ(playback.frame(), 10);
    playback.setLoop(false);
    EXPECT_TRUE(playback.advance(begin + milliseconds(400)));
    EXPECT_EQ(playback.frame(), 12);
    EXPECT_FALSE(playback.advance(begin + milliseconds(500)));
    EXPECT_FALSE(playback.isPlaying());
    playback.seek(5000, begin);
    EXPECT_EQ(playback.frame(), 99);
    playback.setCount(50);
    EXPECT_EQ(playback.frame(), 49);
}

Look lookOf(int steps)
{
    Look look;
    for (int i = 0; i < steps; ++i) {
        LookLink link;
        link.file = std::to_string(i);
        look.links.push_back(link);
    }
    return look;
}

TEST(StudioEditor, takes_a_gesture_as_one_step)
{
    Editor editor;
    editor.start(lookOf(1));
    EXPECT_FALSE(editor.canUndo());
    EXPECT_FALSE(editor.isChanged());
    const std::uint64_t id = editor.look().links[0].id;
    const auto name = [&](const std::string& text, const std::string& gesture) {
        return editor.change([&](Look& look) { look.link(id)->technique = text; }, gesture);
    };
    EXPECT_TRUE(name("a", "drag"));
    EXPECT_TRUE(name("b", "drag"));
    EXPECT_FALSE(name("b", "drag"));
    editor.endGesture();
    EXPECT_TRUE(name("c", "drag"));
    EXPECT_TRUE(editor.isChanged());
    EXPECT_TRUE(editor.undo());
    EXPECT_EQ(editor.look().links[0].technique, "b");
    EXPECT_TRUE(editor.undo());
    EXPECT_EQ(editor.look().links[0].technique, "");
    EXPECT_FALSE(editor.isChanged());
    EXPECT_FALSE(editor.undo());
    EXPECT_TRUE(editor.redo());
    EXPECT_EQ(editor.look().links[0].technique, "b");
    EXPECT_TRUE(name("d", ""));
    EXPECT_FALSE(editor.redo()); // another way has been taken
}

TEST(StudioEditor, keeps_a_limited_number_of_steps)
{
    Editor editor;
    editor.start(lookOf(1));
    for (int i = 0; i < 600; ++i) {
        editor.change([&](Look& look) { look.about = std::to_string(i); });
    }
    std::size_t steps = 0;
    while (editor.undo()) {
        ++steps;
    }
    EXPECT_EQ(steps, Editor::mostSteps);
}

TEST(StudioMessage, reads_fields_with_their_limits)
{
    const Message message = Message::parse(R"({"id":7,"a":3,"b":1.5,"c":"x","d":[1,true,2.5],"e":null})");
    EXPECT_EQ(message.id(), 7);
    EXPECT_EQ(message.integer("a", 0, 3), 3);
    EXPECT_THROW(static_cast<void>(message.integer("a", 0, 2)), Failure);
    EXPECT_THROW(static_cast<void>(message.integer("b", 0, 9)), Failure);
    EXPECT_THROW(static_cast<void>(message.integer("none", 0, 9)), Failure);
    EXPECT_EQ(message.number("b", 0, 2), 1.5);
    EXPECT_EQ(message.numbers("d", 3), (std::vector<float>{1, 1, 2.5F}));
    EXPECT_THROW(static_cast<void>(message.numbers("d", 2)), Failure);
    EXPECT_THROW(static_cast<void>(message.text("c", 0)), Failure);
    EXPECT_FALSE(message.has("e"));
    EXPECT_THROW(static_cast<void>(Message::parse(std::string(1000, '['))), Failure);
    EXPECT_THROW(static_cast<void>(Message::parse("{\"a\":1} x")), Failure);
}

TEST(StudioPixels, averages_what_it_reduces)
{
    Pixels whole{5, 2, {}};
    for (const int code : {0, 10, 20, 30, 99, 1, 11, 21, 31, 99}) {
        whole.bytes.insert(whole.bytes.end(), 4, static_cast<std::uint8_t>(code));
    }
    const Pixels half = reduced(whole.view(), 2);
    EXPECT_EQ(half.width, 2);
    EXPECT_EQ(half.height, 1);
    EXPECT_EQ(half.bytes, (std::vector<std::uint8_t>{6, 6, 6, 6, 26, 26, 26, 26})); // 5.5 and 25.5
    EXPECT_EQ(reduced(whole.view(), 1).bytes, whole.bytes);
}

TEST(StudioPixels, shows_differences_around_grey)
{
    Pixels one{2, 1, {255, 10, 20, 30, 255, 200, 0, 255}};
    Pixels other{2, 1, {255, 11, 20, 28, 255, 0, 255, 255}};
    const Pixels difference = differenceOf(one.view(), other.view(), 10);
    EXPECT_EQ(difference.bytes, (std::vector<std::uint8_t>{255, 118, 128, 148, 255, 255, 0, 128}));
}

} // namespace

} // namespace Qx::Program::Studio
