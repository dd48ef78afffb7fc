// The studio in locales that write numbers and letters in their own ways.

#include "tests/system/program/studio/StudioTest.h"

#include <clocale>
#include <cstdlib>

namespace Qx::System {

namespace {

class StudioLocales : public StudioTest
{
protected:
    ~StudioLocales() override
    {
        ::unsetenv("LOCPATH");
        ::unsetenv("LC_ALL");
    }

    /// What comes of the same work.
    struct Result
    {
        Json parameters;
        Json codes;
        Json keyed;
        Json scopes;
        std::string look;
        std::string cube;
    };

    static Json value(Browser& browser, const std::string& name)
    {
        for (const Json& each : browser.lastState()["chain"][0]["parameters"]) {
            if (each["name"] == name) {
                return each["values"];
            }
        }
        return {};
    }

    Json ask(Browser& browser, const Json& message)
    {
        Json answer = browser.ask(message);
        EXPECT_EQ(answer["is"], "answer") << answer.dump();
        return answer;
    }

    Result work()
    {
        Result result;
        fs::create_directory(at("looks"));
        start({"clip.mp4", "h\u00f6he.fx", "--looks", "looks"});
        Browser browser = window();
        const Json link =
            browser.state([](const Json& state) { return !state["chain"].empty(); })["chain"][0]["id"];
        const auto set = [&](double amount) {
            ask(browser, {{"do", "set"}, {"link", link}, {"name", "amount"}, {"values", {amount}}});
        };
        set(0.625);
        browser.state([&](const Json&) { return value(browser, "amount") == Json({0.625}); });
        const Json& parameter = browser.lastState()["chain"][0]["parameters"][0];
        EXPECT_EQ(parameter["maximum"][0], 2);
        result.parameters = browser.lastState()["chain"][0]["parameters"];
        result.codes = ask(browser, {{"do", "probe"}, {"x", 101}, {"y", 57}})["after"];
        ask(browser, {{"do", "scopes"}, {"kinds", {"waveform", "vectorscope", "histogram"}}});
        result.scopes = browser.message("scopes");
        result.cube =
            (ask(browser, {{"do", "export"}, {"file", "a.cube"}, {"size", 17}}), read(at("looks/a.cube")));
        ask(browser, {{"do", "key"}, {"link", link}, {"name", "amount"}, {"frame", 0}, {"values", {0.625}}});
        ask(browser, {{"do", "seek"}, {"frame", 12}});
        ask(browser, {{"do", "key"}, {"link", link}, {"name", "amount"}, {"frame", 12}, {"values", {1.375}}});
        ask(browser, {{"do", "seek"}, {"frame", 5}});
        result.keyed = ask(browser, {{"do", "probe"}, {"x", 101}, {"y", 57}})["after"];
        ask(browser, {{"do", "save"}, {"file", "\u0131I.look.toml"}});
        result.look = read(at("looks/\u0131I.look.toml"));
        // It is read as it was written.
        ask(browser, {{"do", "open"}, {"file", "\u0131I.look.toml"}});
        EXPECT_EQ(ask(browser, {{"do", "probe"}, {"x", 101}, {"y", 57}})["after"], result.keyed);
        stop();
        fs::remove_all(at("looks"));
        return result;
    }
};

} // namespace

TEST_F(StudioLocales, give_the_same_values_looks_and_tables)
{
    makeClip();
    write("h\u00f6he.fx", dimming());
    ::setenv("LC_ALL", "C", 1);
    const Result expected = work();
    EXPECT_NE(expected.look.find("0.625"), std::string::npos) << expected.look;
    EXPECT_NE(expected.look.find("1.375"), std::string::npos) << expected.look;
    EXPECT_NE(expected.look.find("h\\u00F6he.fx"), std::string::npos) << expected.look;
    EXPECT_NE(expected.cube.find("\n0.6249943 0.6249943 0.6249943\n"), std::string::npos)
        << expected.cube.substr(expected.cube.size() - 100);
    ::setenv("LOCPATH", QX_TEST_LOCALES, 1);
    for (const char* const locale : {"de_DE.UTF-8", "tr_TR.UTF-8"}) {
        SCOPED_TRACE(locale);
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr) << "is it in " QX_TEST_LOCALES "?";
        ASSERT_STREQ(std::localeconv()->decimal_point, ",");
        std::setlocale(LC_ALL, "C");
        ::setenv("LC_ALL", locale, 1);
        const Result found = work();
        EXPECT_EQ(found.parameters, expected.parameters);
        EXPECT_EQ(found.codes, expected.codes);
        EXPECT_EQ(found.keyed, expected.keyed);
        EXPECT_EQ(found.scopes, expected.scopes);
        EXPECT_EQ(found.look, expected.look);
        EXPECT_EQ(found.cube, expected.cube);
    }
}

} // namespace Qx::System
