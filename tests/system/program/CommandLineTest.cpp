#include "tests/system/program/Program.h"

#include <algorithm>
#include <sstream>

namespace Qx::System {

namespace {

class CommandLine : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        // None of these may need a device: without any driver they work all the same.
        ::setenv("VK_ICD_FILENAMES", "/nonexistent.json", 1);
        ::setenv("VK_DRIVER_FILES", "/nonexistent.json", 1);
    }

    void TearDown() override
    {
        ::unsetenv("VK_ICD_FILENAMES");
        ::unsetenv("VK_DRIVER_FILES");
        ProgramTest::TearDown();
    }

    /// A wrong command line: exit code 2, nothing on standard output, one line that has all these words in
    /// it.
    void expectUsageError(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& words) const
    {
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(outcome.err.starts_with("qxhost: ")) << outcome.err;
        EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
        EXPECT_NE(outcome.err.find("--help"), std::string::npos) << outcome.err;
        for (const std::string& word : words) {
            EXPECT_NE(outcome.err.find(word), std::string::npos) << word << " is not in: " << outcome.err;
        }
    }

    /// The same for what a value is wrong about, whose message says itself where to look.
    void expectFailedUsage(const std::vector<std::string>& arguments,
                           const std::vector<std::string>& words) const
    {
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_NE(outcome.err.find("qxhost formats"), std::string::npos) << outcome.err;
        for (const std::string& word : words) {
            EXPECT_NE(outcome.err.find(word), std::string::npos) << word << " is not in: " << outcome.err;
        }
    }

    void expectHelp(const std::vector<std::string>& arguments, const std::vector<std::string>& words) const
    {
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.err, "");
        for (const std::string& word : words) {
            EXPECT_NE(outcome.out.find(word), std::string::npos) << word << " is not in: " << outcome.out;
        }
    }
};

TEST_F(CommandLine, without_a_command_it_shows_its_commands_as_a_usage_error)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"effects"}, {"effects", "cache"}}) {
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_NE(outcome.err.find("Usage: qxhost"), std::string::npos) << outcome.err;
        EXPECT_NE(outcome.err.find("Commands:"), std::string::npos) << outcome.err;
    }
}

TEST_F(CommandLine, every_command_has_help)
{
    expectHelp({"--help"}, {"Usage: qxhost", "convert"});
    expectHelp({"help"}, {"Usage: qxhost", "convert"});
    expectHelp({"convert", "--help"},
               {"Usage: qxhost convert INPUT OUTPUT", "--matrix", "'qxhost convert --help-all'"});
    expectHelp({"convert", "--help-all"}, {"Usage: qxhost convert INPUT OUTPUT", "Exit codes", "130"});
    expectHelp({"help", "convert"}, {"Usage: qxhost convert INPUT OUTPUT"});
    expectHelp({"convert", "a", "b", "-h"}, {"Usage: qxhost convert INPUT OUTPUT"});
    expectHelp({"effects", "--help"}, {"list", "check"});
    expectHelp({"effects", "check", "--help"}, {"Usage: qxhost effects check FILE..."});
    expectHelp({"effects", "describe", "--help"}, {"Usage: qxhost effects describe FILE", "--json"});
    expectHelp({"effects", "list", "--help"}, {"--json"});
    expectHelp({"effects", "cache", "--help"}, {"info", "clear"});
    expectHelp({"effects", "cache", "clear", "--help"}, {"--json"});
    expectHelp({"devices", "--help"}, {"--json"});
    expectHelp({"fields", "--help"}, {"Usage: qxhost fields INPUT OUTPUT", "--order"});
    expectHelp({"thumbnail", "--help"}, {"Usage: qxhost thumbnail INPUT OUTPUT", "--size WxH", "--stretch"});
    expectHelp({"black", "--help"}, {"Usage: qxhost black OUTPUT", "--transparent"});
    expectHelp({"formats", "--help"}, {"--markdown"});
    expectHelp({"diagnose", "--help"},
               {"--quick", "--html FILE", "--compare RUN", "transfers", "Exit codes", "130"});
}

TEST_F(CommandLine, commands_stand_in_order_and_without_the_hidden_one)
{
    const auto expectOrder = [&](const std::vector<std::string>& group,
                                 const std::vector<std::string>& names) {
        std::vector<std::string> arguments = group;
        arguments.emplace_back("--help");
        const std::string help = qxhost(arguments).out;
        std::size_t last = help.find("Commands:");
        ASSERT_NE(last, std::string::npos) << help;
        for (const std::string& name : names) {
            const std::size_t at = help.find("\n  " + name + " ", last);
            ASSERT_NE(at, std::string::npos) << name << " is not after its predecessor in: " << help;
            last = at;
        }
    };
    expectOrder(
        {}, {"convert", "fields", "thumbnail", "black", "effects", "formats", "lut", "devices", "diagnose"});
    expectOrder({"effects"}, {"list", "check", "watch", "describe", "cache"});
    expectOrder({"effects", "cache"}, {"info", "clear"});
    expectOrder({"lut"}, {"list", "install", "info", "preview"});
    EXPECT_EQ(qxhost({"--help"}).out.find("diagnose-measure"), std::string::npos);
    EXPECT_EQ(qxhost({"diagnose-measur"}).err.find("did you mean"), std::string::npos);
}

TEST_F(CommandLine, the_version_is_one_line)
{
    const Outcome outcome = qxhost({"--version"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.out.find("qxhost "), 0U);
    EXPECT_EQ(outcome.out.find('\n'), outcome.out.size() - 1);
}

TEST_F(CommandLine, a_mistyped_command_is_suggested)
{
    expectUsageError({"convrt", "a.mov", "b.mov"}, {"\"convrt\"", "did you mean convert?"});
    expectUsageError({"effects", "lsit"}, {"\"lsit\"", "did you mean list?"});
    expectUsageError({"effects", "cache", "claer"}, {"\"claer\"", "did you mean clear?"});
    expectUsageError({"xyzzy"}, {"\"xyzzy\""});
}

TEST_F(CommandLine, a_mistyped_option_is_suggested)
{
    expectUsageError({"convert", "a.mov", "b.mov", "--forse"}, {"--forse", "did you mean --force?"});
    expectUsageError({"convert", "--outputrange=full", "a.mov", "b.mov"}, {"did you mean --output-range?"});
    expectUsageError({"--versoin"}, {"did you mean --version?"});
    expectUsageError({"devices", "--jsn"}, {"did you mean --json?"});
}

TEST_F(CommandLine, a_wish_for_another_size_is_answered_with_the_command_that_has_one)
{
    expectUsageError({"convert", "a.mov", "b.mov", "--scale=10x10"}, {"unknown option --scale; --resize"});
    expectUsageError(
        {"fields", "a.mov", "b.mov", "--resize", "10x10"},
        {"unknown option --resize; 'qxhost convert --resize' changes the size, and 'qxhost thumbnail'"});
}

TEST_F(CommandLine, help_for_converting_fits_a_screen_and_a_half)
{
    const std::string usual = qxhost({"convert", "--help"}).out;
    EXPECT_LE(std::count(usual.begin(), usual.end(), '\n'), 39);
    const std::string all = qxhost({"convert", "--help-all"}).out;
    for (const std::string option : {"--effect", "--lut", "--resize", "--start", "--profile", "--audio-codec",
                                     "--to", "--force", "--json", "--help-all"}) {
        EXPECT_NE(usual.find("\n  " + option), std::string::npos) << option;
        EXPECT_NE(all.find("\n  " + option), std::string::npos) << option;
    }
    for (const std::string option :
         {"--technique", "--raw", "--output-row-bytes", "--video-option", "--font"}) {
        EXPECT_EQ(usual.find("\n  " + option + " "), std::string::npos) << option;
        EXPECT_NE(all.find("\n  " + option + " "), std::string::npos) << option;
    }
    EXPECT_NE(all.find("Exit codes: 0 done"), std::string::npos);
    // Every line of the short help is in the long one, but for the last, which names the long one.
    const std::size_t last = usual.rfind('\n', usual.size() - 2) + 1;
    EXPECT_NE(usual.find("--help-all", last), std::string::npos) << usual;
    std::istringstream lines(usual.substr(0, last));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_NE(all.find(line + "\n"), std::string::npos) << line;
        EXPECT_LE(line.size(), 100U) << line;
    }
}

TEST_F(CommandLine, what_may_be_left_out_is_shown_in_brackets)
{
    EXPECT_NE(qxhost({"effects", "watch", "--help"}).out.find("effects watch [FILE] [OPTIONS]"),
              std::string::npos);
    EXPECT_NE(qxhost({"effects", "check", "--help"}).out.find("effects check FILE... [OPTIONS]"),
              std::string::npos);
}

TEST_F(CommandLine, missing_and_superfluous_arguments_are_named)
{
    expectUsageError({"convert"}, {"INPUT is missing", "qxhost convert --help"});
    expectUsageError({"convert", "a.mov"}, {"OUTPUT is missing"});
    expectUsageError({"convert", "a.mov", "b.mov", "c.mov"}, {"\"c.mov\"", "unexpected argument"});
    expectUsageError({"effects", "check"}, {"FILE is missing"});
    expectUsageError({"effects", "describe"}, {"FILE is missing"});
    expectUsageError({"effects", "describe", "a.fx", "b.fx"}, {"\"b.fx\"", "unexpected argument"});
    expectUsageError({"effects", "cache", "info", "all"}, {"\"all\"", "unexpected argument"});
    expectUsageError({"devices", "all"}, {"\"all\"", "unexpected argument"});
    expectUsageError({"devices", "formats"}, {"\"formats\"", "unexpected argument"});
    expectUsageError({"formats", "convert", "a.mov", "b.mov"}, {"\"convert\"", "unexpected argument"});
    expectUsageError({"convert", "a.mov", "b.mov", "--matrix"}, {"--matrix"});
}

TEST_F(CommandLine, wrong_values_are_answered_with_the_right_ones)
{
    expectUsageError({"convert", "a", "b", "--matrix", "bt470"},
                     {"--matrix", "invalid value \"bt470\": expected bt601, bt709 or bt2020"});
    expectUsageError({"convert", "a", "b", "--range", "tv"},
                     {"--range", "invalid value \"tv\": expected video or full"});
    expectUsageError({"convert", "a", "b", "--filter", "lanczos"}, {"point, catmullrom or mitchell"});
    expectUsageError({"convert", "a", "b", "--depth", "10"}, {"--depth", "8 or 16"});
    expectUsageError({"convert", "a", "b", "--frames", "0"}, {"--frames", "\"0\""});
    expectUsageError({"convert", "a", "b", "--frames", "many"}, {"--frames", "\"many\""});
    expectUsageError({"convert", "a", "b", "--start", "-1"}, {"--start", "\"-1\""});
    expectUsageError({"convert", "a", "b", "--frames", "99999999999999999999"},
                     {"--frames", "\"99999999999999999999\" is too large"});
    expectUsageError({"convert", "a", "b", "--start", "-99999999999999999999"},
                     {"--start", "expected a whole number, 0 or more"});
}

TEST_F(CommandLine, options_that_contradict_each_other_are_refused)
{
    expectUsageError({"convert", "in.mov", "out.mov", "--audio-codec", "aac", "--no-audio"},
                     {"--audio-codec aac encodes what --no-audio leaves out"});
    expectUsageError({"formats", "--json", "--markdown"}, {"--json and --markdown print different things"});
}

TEST_F(CommandLine, a_look_that_is_given_as_a_lut_is_answered_with_the_option_for_looks)
{
    expectUsageError({"convert", "in.mov", "out.mov", "--lut", "warm.look.toml"},
                     {"which is no LUT; give --look warm.look.toml"});
}

TEST_F(CommandLine, frames_are_picked_in_one_way)
{
    for (const char* word : {"1:60", "1:2:3:4:5", "5sec", "1.5", "-3s", "1:-2", "1.5:30", ":30", "5.s",
                             "1:30s", "1e3s", "s", "ms", "99999999999s"}) {
        expectUsageError({"convert", "a", "b", "--start", word},
                         {"--start", "\"" + std::string(word) + "\"", "00:01:02.5 or 12.5s"});
    }
    expectUsageError({"convert", "a", "b", "--start", "10:00:05:00"}, {"time codes are for --in and --out"});
    expectUsageError({"convert", "a", "b", "--duration", "50"}, {"--duration", "a time, such as 00:01:02.5"});
    expectUsageError({"convert", "a", "b", "--duration", "0s"}, {"--duration", "more than nothing"});
    expectUsageError({"convert", "a", "b", "--in", "00:01:02.5"},
                     {"--in", "a time code, such as 10:00:05:00"});
    expectUsageError({"convert", "a", "b", "--start", "3", "--in", "10:00:00:00"},
                     {"--start and --in both say where to begin; give one of them"});
    expectUsageError({"convert", "a", "b", "--frames", "3", "--out", "10:00:00:00"},
                     {"--frames and --out both say where to end"});
    expectUsageError({"fields", "a", "b", "--frames", "3", "--duration", "3s"},
                     {"--frames and --duration both say where to end"});
    expectUsageError({"convert", "a", "b", "--duration", "3s", "--out", "10:00:00:00"},
                     {"--duration and --out both say where to end"});
    expectUsageError({"thumbnail", "a", "b.png", "--size", "8x8", "--start", "3", "--in", "10:00:00:00"},
                     {"--start and --in"});
    expectUsageError({"thumbnail", "a", "b.png", "--size", "8x8", "--out", "10:00:00:00"},
                     {"unknown option --out"});
}

TEST_F(CommandLine, pixel_formats_sizes_and_rates_are_checked)
{
    expectFailedUsage({"convert", "a", "b.raw", "--format", "uyvi"}, {"--format", "\"uyvi\"", "mean uyvy?"});
    expectFailedUsage({"convert", "a", "b.raw", "--format", "uyvy:10"},
                      {"--format", "uyvy", "\"10\"", "8 or 16"});
    expectUsageError({"convert", "a", "b.uyvy", "--format", "v210"}, {"--format v210", "b.uyvy", ".v210"});
    expectUsageError({"convert", "a", "b.mov", "--format", "v210", "--codec", "v210"},
                     {"--codec", "--format"});
    expectUsageError({"convert", "a", "b", "--size", "1920"}, {"--size", "\"1920\"", "1920x1080"});
    expectUsageError({"convert", "a", "b", "--size", "0x5"}, {"--size", "\"0x5\""});
    for (const char* size : {"4294967296x1", "1x4294967296", "99999999999999999999x99999999999999999999"}) {
        expectUsageError({"convert", "a", "b", "--size", size},
                         {"--size", std::string("\"") + size + "\" is too large",
                          "the largest picture is 32768 x 32768 pixels"});
    }
    expectUsageError({"convert", "a", "b", "--size", "4294967296x1z"}, {"expected WIDTHxHEIGHT"});
    EXPECT_EQ(qxhost({"black", "b.png", "--size", "99999x1"}).err,
              "qxhost: --size 99999x1: the largest picture is 32768 x 32768 pixels\n");
    EXPECT_EQ(qxhost({"convert", "a.uyvy", "b", "--size", "99999x1"}).err,
              "qxhost: --size 99999x1: the largest picture that is read is 32768 each way\n");
    expectUsageError({"convert", "a", "b", "--fps", "0"}, {"--fps", "\"0\"", "30000/1001"});
    expectUsageError({"convert", "a", "b", "--row-bytes", "0"},
                     {"--row-bytes", "invalid value \"0\": expected a whole number, 1 or more"});
    expectUsageError({"convert", "a", "b", "--row-bytes", "1e3"},
                     {"--row-bytes", "invalid value \"1e3\": expected a whole number"});
    expectUsageError({"fields", "a", "b", "--no-audio"}, {"unknown option --no-audio"});
    expectUsageError({"thumbnail", "a", "b.png"}, {"--size is missing", "320x180"});
    expectUsageError({"black", "b.png"}, {"--size is missing"});
    expectUsageError({"fields", "a", "b", "--order", "odd"}, {"--order", "top or bottom"});
}

TEST_F(CommandLine, the_page_about_formats_is_what_the_program_prints)
{
    const Outcome page = qxhost({"formats", "--markdown"});
    EXPECT_EQ(page.exitCode, 0);
    EXPECT_EQ(page.out, read(fs::path(QX_SOURCE_FOLDER) / "docs/formats.md"))
        << "make it anew: qxhost formats --markdown > docs/formats.md";
}

TEST_F(CommandLine, formats_are_listed_for_people_and_for_programs)
{
    const Outcome table = qxhost({"formats"});
    EXPECT_EQ(table.exitCode, 0);
    for (const char* word : {"yuy2", "uyvy", "yvyu", "vyuy", "yv12", "m101", "v210", "y216", "argb", "24bg",
                             "b48r", "b64a", "argb10", "mov avi nut mkv"}) {
        EXPECT_NE(table.out.find(word), std::string::npos) << word;
    }
    const Outcome json = qxhost({"formats", "--json"});
    EXPECT_EQ(json.exitCode, 0);
    for (const char* word : {"\"characters\": \"v210\"", "\"code\": 808530550", "\"blockBytes\": 40"}) {
        EXPECT_NE(json.out.find(word), std::string::npos) << word;
    }
}

TEST_F(CommandLine, effect_options_need_an_effect_and_make_sense)
{
    expectUsageError({"convert", "a", "b", "--technique", "T"}, {"--technique T", "before any --effect"});
    expectUsageError({"convert", "a", "b", "--set", "x=1", "--effect", "cc3.fx"},
                     {"--set x=1", "before any"});
    expectUsageError({"convert", "a", "b", "--effect", ""}, {"--effect", "name"});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--set", "gain"},
                     {"--set gain", "NAME=VALUE"});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--set", "=1"}, {"NAME=VALUE"});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--set", " =1"}, {"NAME=VALUE"});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--set", "gain= "},
                     {"--set gain= : invalid value \"\": expected a number"});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--set", "gain= bright"}, {"\"bright\""});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--set", "gain=bright"}, {"\"bright\""});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--set", "gain=1,,2"},
                     {"--set gain=1,,2: invalid value \"\": expected a number"});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--set", "gain=nan"}, {"\"nan\""});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--technique", "A", "--technique", "B"},
                     {"e.fx", "two techniques"});
    expectUsageError({"convert", "a", "b", "--texture", "Noise=n.png"},
                     {"--texture Noise=n.png", "before any --effect"});
    expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--texture", "Noise"},
                     {"--texture Noise", "NAME=FILE"});
    expectUsageError({"convert", "a", "b", "--lut", "l.cube", "--texture", "Noise=n.png"},
                     {"belongs to an --effect", "follows --lut l.cube"});
    for (const char* const date :
         {"2026-02-29", "2026-11-22T24:00", "tomorrow", "2026-11-22T18:30:15Z", ""}) {
        expectUsageError({"convert", "a", "b", "--effect", "e.fx", "--date", date},
                         {"--date", "expected a date, 2026-11-22, or one with a time, 2026-11-22T18:30:15"});
    }
    expectUsageError({"effects", "watch", "e.fx", "--date", "2026-11-22"}, {"--date applies to a picture"});
    expectUsageError({"effects", "watch", "e.fx", "--texture", "Noise=n.png"},
                     {"--technique, --set and --texture apply to a picture"});
}

TEST_F(CommandLine, closed_standard_output_is_a_failure_to_write)
{
    for (const char* output : {" --help > /dev/full", " --help >&-"}) {
        const Outcome outcome = run({"sh", "-c", programPath() + output});
        EXPECT_EQ(outcome.exitCode, 4);
        EXPECT_NE(outcome.err.find("standard output"), std::string::npos) << outcome.err;
    }
}

TEST_F(CommandLine, diagnosing_takes_known_steps_and_measures_or_shows)
{
    expectUsageError({"diagnose", "--only", "transfers,speed"}, {"speed"});
    expectUsageError({"diagnose", "--from", "last", "--quick"}, {"--from", "--quick"});
    expectUsageError({"diagnose", "--limit", "0"}, {"--limit"});
    expectUsageError({"diagnose", "--limit", "nan"}, {"--limit"});
    expectUsageError({"diagnose", "--from", ""}, {"--from is empty"});
    expectUsageError({"diagnose", "--html", ""}, {"--html is empty"});
    expectUsageError({"diagnose", "--html", "-", "--json", "-"}, {"--html -", "--json -", "standard output"});
    expectUsageError({"diagnose", "report.html"}, {"report.html"});
    expectUsageError({"diagnose-measure", "3"}, {"diagnose-measure"});
}

TEST_F(CommandLine, what_encoders_take_is_checked_before_anything_is_opened)
{
    for (const auto& [options, part] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--bitrate", "fast"}, "bits a second, such as 20M"},
             {{"--bitrate", "0"}, "bits a second, such as 20M"},
             {{"--quality", "101"}, "a number from 0 to 100"},
             {{"--video-option", "preset"}, "NAME=VALUE"},
             {{"--quality", "50", "--bitrate", "1M"}, "both say how large"},
             {{"--format", "v210", "--profile", "hq"}, "cannot be combined with --format"}}) {
        std::vector<std::string> arguments{"convert", "none.mov", "out.mov"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        expectUsageError(arguments, {part});
    }
    for (const auto& [options, part] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--profile", "hqq"}, "no profile \"hqq\""},
             {{"--codec", "prores_kss"}, "no video encoder \"prores_kss\"; near it are prores_ks"},
             {{"--video-option", "vendr=x"}, "no option \"vendr\"; near it are vendor"},
             {{"--audio-codec", "acc"}, "no audio encoder \"acc\""},
             {{"--audio-codec", "aac", "--audio-option", "aac_code=fast"}, "near it are aac_coder"}}) {
        std::vector<std::string> arguments{"convert", "none.mov", "out.mov"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 4) << outcome.err;
        EXPECT_NE(outcome.err.find(part), std::string::npos) << outcome.err << "\nlacks " << part;
    }
}

TEST_F(CommandLine, burned_in_text_is_checked_before_anything_is_opened)
{
    const auto refused = [&](std::vector<std::string> options, const std::vector<std::string>& words) {
        options.insert(options.begin(), {"convert", "none.mov", "out.png"});
        const Outcome outcome = qxhost(options);
        EXPECT_EQ(outcome.exitCode, 2) << outcome.err;
        for (const std::string& word : words) {
            EXPECT_NE(outcome.err.find(word), std::string::npos) << word << " is not in: " << outcome.err;
        }
    };
    refused({"--burn-in", "{clp}"},
            {"no field {clp}", "did you mean clip?", "{timecode}, {frame}, {clip}, {source} and {date}"});
    refused({"--burn-in", "{clip"}, {"\"{clip\" has no closing brace"});
    refused({"--burn-in", ""}, {"--burn-in is empty"});
    refused({"--burn-in", "a", "--burn-in", "b"},
            {"--burn-in \"a\" and \"b\" would be drawn over each other", "another --position"});
    refused({"--burn-in", "a", "--burn-in", "b", "--position", "top", "--burn-in", "c", "--position", "Top"},
            {"--burn-in \"b\" and \"c\" would be drawn over each other"});
    refused({"--burn-in", "\xC3("}, {"not UTF-8"});
    refused({"--burn-in", "x", "--font", "\xFF"}, {"--font", "not valid UTF-8"});
    refused({"--burn-in", "x", "--font", ""}, {"--font is empty"});
    refused({"--font", "DejaVu Sans"}, {"--font: there is no text", "--burn-in"});
    refused({"--position", "top"}, {"--position: there is no text"});
    refused({"--burn-in", "x", "--position", "botom"},
            {"invalid value \"botom\" (did you mean bottom?)", "expected top-left"});
    refused({"--burn-in", "x", "--position", "1,2,3"}, {"invalid value \"1,2,3\"", "or X,Y in pixels"});
    refused({"--burn-in", "x", "--position", "1,99999999999"}, {"invalid value \"1,99999999999\""});
    refused({"--burn-in", "x", "--font-size", "0"}, {"from 1 to 2048"});
    refused({"--burn-in", "x", "--font-size", "12.5"}, {"a whole number of pixels"});
    expectHelp({"convert", "--help-all"},
               {"--burn-in TEXT", "{timecode}, {frame}, {clip}, {source} and {date}", "--position PLACE"});
}

} // namespace

} // namespace Qx::System
