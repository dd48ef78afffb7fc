#include "tests/system/program/Program.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

// "qxhost diagnose" as a person has it: on the device, with faults, with its files. No test looks at how fast
// something is.

namespace Qx::System {

namespace {

using Json = nlohmann::json;

constexpr int healthy = 0;
constexpr int notHealthy = 1;

class Diagnose : public ProgramTest
{
protected:
    void TearDown() override
    {
        ::unsetenv("QXHOST_DIAGNOSE_TEST");
        ProgramTest::TearDown();
    }

    /// Injects a fault into the measuring process.
    static void injectFault(const std::string& how) { ::setenv("QXHOST_DIAGNOSE_TEST", how.c_str(), 1); }

    /// A quick run of one step.
    Outcome diagnose(const std::string& steps, std::vector<std::string> further = {}) const
    {
        std::vector<std::string> arguments{"diagnose", "--quick", "--only", steps};
        arguments.insert(arguments.end(), further.begin(), further.end());
        return qxhost(arguments);
    }

    static Json parsed(const std::string& text)
    {
        Json json = Json::parse(text, nullptr, false);
        EXPECT_FALSE(json.is_discarded()) << text;
        return json;
    }

    static Json figureOf(const Json& report, const std::string& id)
    {
        for (const Json& figure : report.at("figures")) {
            if (figure.at("id") == id) {
                return figure;
            }
        }
        ADD_FAILURE() << "there is no figure " << id;
        return {};
    }

    static void expectWords(const std::string& text, const std::vector<std::string>& words)
    {
        for (const std::string& word : words) {
            EXPECT_NE(text.find(word), std::string::npos) << word << " is not in: " << text;
        }
    }
};

TEST_F(Diagnose, checks_come_out_right_and_the_verdict_says_so)
{
    const Outcome outcome = diagnose("checks");
    EXPECT_EQ(outcome.exitCode, healthy) << outcome.out << outcome.err;
    expectWords(outcome.out,
                {"Further tests", "Is it right?", "Verdict", "healthy", "1080p25", "not measured"});
    EXPECT_EQ(outcome.err, "") << "a bar is for terminals alone";
}

TEST_F(Diagnose, json_holds_every_figure_and_nothing_else_is_printed)
{
    const Outcome outcome = diagnose("copies,checks,latency,memory", {"--json", "-"});
    EXPECT_EQ(outcome.exitCode, healthy) << outcome.err;
    const Json report = parsed(outcome.out);
    EXPECT_EQ(report.at("format"), "qxhost diagnose");
    EXPECT_EQ(report.at("ending").at("kind"), "complete");
    EXPECT_FALSE(report.at("device").at("name").get<std::string>().empty());
    EXPECT_GE(report.at("machine").at("load").at("average").get<double>(), 0);
    EXPECT_GE(report.at("machine").at("load").at("processors").get<int>(),
              report.at("machine").at("processors").get<int>());
    for (const char* id : {"copy-device-8", "copy-memory-8k", "latency", "memory-peak"}) {
        EXPECT_GT(figureOf(report, id).at("value").get<double>(), 0) << id;
    }
    EXPECT_EQ(figureOf(report, "transfer-8").at("value"), 0);
    EXPECT_EQ(figureOf(report, "transfer-16").at("value"), 0);
    EXPECT_EQ(figureOf(report, "colours").at("value"), 0);
}

TEST_F(Diagnose, a_drawing_rate_is_the_devices_own_time)
{
    const Json report = parsed(diagnose("looks", {"--json", "-"}).out);
    const Json figure = figureOf(report, "effect-8");
    EXPECT_EQ(figure.at("basis"), "device");
    EXPECT_GT(figure.at("yardstick").get<double>(), 0);
    EXPECT_GT(figureOf(report, "lut-33").at("value").get<double>(), 0);
    EXPECT_GT(figureOf(report, "text").at("value").get<double>(), 0);
}

TEST_F(Diagnose, a_device_in_the_hosts_memory_says_that_nothing_is_copied)
{
    const Outcome outcome = diagnose("transfers", {"--json", "-"});
    const Json report = parsed(outcome.out);
    const std::string notes = chosenDevice().at("notes").dump();
    if (!report.at("device").at("software").get<bool>() ||
        notes.find("copied in and out") != std::string::npos) {
        GTEST_SKIP() << "the device works in memory of its own";
    }
    EXPECT_EQ(outcome.exitCode, healthy);
    for (const char* id : {"upload-hd", "download-hd"}) {
        const Json figure = figureOf(report, id);
        EXPECT_TRUE(figure.at("value").is_null());
        EXPECT_FALSE(figure.at("failed").get<bool>());
        EXPECT_EQ(figure.at("note"), "nothing is copied: the device works in the host's memory");
    }
}

TEST_F(Diagnose, an_upload_that_is_refused_is_told)
{
    injectFault("transfers:fail:37");
    const Outcome outcome = diagnose("transfers", {"--json", "-"});
    EXPECT_EQ(outcome.exitCode, notHealthy);
    const Json report = parsed(outcome.out);
    bool refused = false;
    for (const Json& figure : report.at("figures")) {
        refused = refused || figure.at("failed").get<bool>();
        EXPECT_EQ(figure.at("value").is_null(), figure.at("failed").get<bool>()) << figure;
    }
    EXPECT_TRUE(refused);
    expectWords(report.at("verdict").at("faults").dump(), {"refused"});
}

TEST_F(Diagnose, a_device_that_gets_slower_each_frame_is_remarked)
{
    injectFault("latency:slow:10");
    const Outcome outcome = qxhost({"diagnose", "--only", "latency"});
    expectWords(outcome.out, {"got slower all the while", "with remarks"});
    EXPECT_EQ(outcome.exitCode, healthy);
}

TEST_F(Diagnose, a_device_that_hangs_is_told_with_what_it_was_asked_for)
{
    injectFault("transfers:stall:37");
    const Outcome outcome = diagnose("checks,transfers", {"--limit", "2"});
    EXPECT_EQ(outcome.exitCode, notHealthy);
    expectWords(outcome.out, {"Is it right?", "hung: no sign of life for 2 seconds", "37th time",
                              "an image of", "NOT healthy"});
}

TEST_F(Diagnose, a_device_that_computes_for_ever_is_a_hang_too)
{
    injectFault("latency:spin");
    const Outcome outcome = diagnose("latency", {"--limit", "1"});
    EXPECT_EQ(outcome.exitCode, notHealthy);
    expectWords(outcome.out, {"no sign of life for 1 second.", "64 x 64"});
}

TEST_F(Diagnose, a_driver_that_dies_is_told_with_what_it_was_asked_for)
{
    for (const auto& [action, words] : {std::pair("crash", "signal 6 (Aborted)"),
                                        std::pair("kill", "signal 9"), std::pair("exit", "exit code 3")}) {
        injectFault(std::string("transfers:") + action + ":2");
        const Outcome outcome = diagnose("transfers");
        EXPECT_EQ(outcome.exitCode, notHealthy);
        expectWords(outcome.out, {"died", words, "uploading an image of 720 x 576 (for the 2nd time)"});
    }
}

TEST_F(Diagnose, a_lost_device_ends_the_run_and_is_told)
{
    injectFault("latency:lose:5");
    const Outcome outcome = diagnose("latency,memory");
    EXPECT_EQ(outcome.exitCode, notHealthy);
    expectWords(outcome.out, {"it was lost in the step 'latency'", "NOT healthy"});
}

TEST_F(Diagnose, the_suite_in_full_is_interrupted_by_a_hang_and_its_lines_stand_as_they_are)
{
    injectFault("suite:stall:4");
    const Outcome outcome = qxhost({"diagnose", "--only", "suite", "--limit", "2"});
    EXPECT_EQ(outcome.exitCode, notHealthy);
    EXPECT_TRUE(outcome.out.starts_with("Memory : ")) << outcome.out;
    expectWords(outcome.out, {"\nCPUs   : ", "\nAdmin  : ", "\nTesting host to GPU transfer\n",
                              "running the suite: Testing host to GPU transfer"});
}

TEST_F(Diagnose, ctrl_c_leaves_a_partial_report_marked_so)
{
    injectFault("latency:stall");
    Running program({programPath(), "diagnose", "--quick", "--only", "checks,latency", "--json", "part.json"},
                    directory_);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (program.outputSoFar().find("rounded the wrong way") == std::string::npos &&
           std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.exitCode, 130);
    expectWords(outcome.out, {"The run was interrupted", "as far as the run got"});
    const Json report = parsed(read(at("part.json")));
    EXPECT_EQ(report.at("ending").at("kind"), "interrupted");
    EXPECT_EQ(figureOf(report, "colours").at("value"), 0);
}

TEST_F(Diagnose, a_machine_without_a_device_says_so)
{
    const Outcome outcome = diagnose("checks", {"--device", "no such device"});
    EXPECT_EQ(outcome.exitCode, 5);
    expectWords(outcome.out, {"There is no device to measure", "no such device"});
}

TEST_F(Diagnose, what_the_program_lacks_is_not_the_devices_fault)
{
    ::setenv("QX_SHADERS_DIR", directory_.c_str(), 1);
    const Outcome noShaders = diagnose("copies,looks");
    ::unsetenv("QX_SHADERS_DIR");
    EXPECT_EQ(noShaders.exitCode, notHealthy);
    expectWords(noShaders.out,
                {"LUT.fx, cc3.fx: not in " + directory_.string(), "correct the setting shaders_dir",
                 "left out for it: looks", "Copy on the device", "nothing can be said of the device"});
    EXPECT_EQ(noShaders.out.find("refused"), std::string::npos) << noShaders.out;

    ::setenv("QX_EFFECTS_WORKER", "/nowhere/qxfxc", 1);
    ::setenv("QX_CACHE", "0", 1);
    const Outcome noWorker = diagnose("looks,compiling");
    ::unsetenv("QX_CACHE");
    ::unsetenv("QX_EFFECTS_WORKER");
    EXPECT_EQ(noWorker.exitCode, notHealthy);
    expectWords(noWorker.out, {"/nowhere/qxfxc: No such file or directory", "setting effects.worker",
                               "left out for it: looks, compiling", "nothing can be said of the device"});
}

TEST_F(Diagnose, effects_are_compiled_under_the_limits_of_the_settings)
{
    EXPECT_EQ(diagnose("compiling").exitCode, 0); // and what the program itself needs is cached now
    ::setenv("QX_EFFECTS_MEMORY", "1", 1);
    const Outcome narrow = diagnose("compiling");
    ::unsetenv("QX_EFFECTS_MEMORY");
    EXPECT_EQ(narrow.exitCode, notHealthy);
    expectWords(narrow.out, {"Compiling ColourConvert.fx, for the first time", "the effect did not compile"});
}

TEST_F(Diagnose, what_a_killed_one_left_behind_goes_with_the_next)
{
    const auto place = at("tmp");
    const auto left = place / "qxhost-diagnose-killed";
    const auto fresh = place / "qxhost-diagnose-fresh";
    std::filesystem::create_directories(left / "effects");
    std::filesystem::create_directories(fresh);
    std::filesystem::last_write_time(left,
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    ::setenv("TMPDIR", place.c_str(), 1);
    const Outcome outcome = diagnose("memory");
    ::unsetenv("TMPDIR");
    EXPECT_EQ(outcome.exitCode, healthy) << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(left));
    EXPECT_TRUE(std::filesystem::exists(fresh)) << "somebody may be about to use it";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place), {}), 1);
}

// What needs no device: runs that were kept.

class DiagnoseKept : public Diagnose
{
protected:
    /// A run as it was kept, with that rate of whole frames.
    static Json makeRun(double rate)
    {
        const auto figure = [](const char* id, const char* group, const char* unit, Json value) {
            return Json{{"id", id},
                        {"group", group},
                        {"title", std::string("Title ") + id},
                        {"value", value},
                        {"unit", unit},
                        {"better", "higher"},
                        {"basis", "waited"},
                        {"yardstick", 1000},
                        {"yardstickName", "copy on the device"},
                        {"note", value.is_null() ? "why not" : ""},
                        {"failed", false},
                        {"samples", {1, 2, 1, 2, 1, 2, 1, 2, 1}}};
        };
        return {
            {"format", "qxhost diagnose"},
            {"version", 1},
            {"date", "2026-10-01T12:00:00+00:00"},
            {"program", "0.1.0"},
            {"quick", false},
            {"only", Json::array()},
            {"ending", {{"kind", "complete"}, {"reason", ""}, {"doing", ""}, {"said", ""}}},
            {"device", {{"name", "GPU <9>"}, {"type", "discrete GPU"}, {"driver", "5"}, {"software", false}}},
            {"machine", {{"system", "Linux"}, {"processors", 2}, {"memory", 1000}, {"memoryAvailable", 500}}},
            {"suite", {{{"category", 5}, {"text", "Testing shader performance"}}}},
            {"figures",
             {figure("frame-hd", "frames", "frames/s", rate),
              figure("frame-uhd", "frames", "frames/s", nullptr),
              figure("decode-8", "conversions", "frames/s", 321.5),
              figure("upload-hd", "transfers", "GB/s", 4.25), figure("upload-uhd", "transfers", "GB/s", 5.5),
              figure("download-hd", "transfers", "GB/s", 3.125)}}};
    }

    void writeRuns() const
    {
        write("before.json", makeRun(40).dump());
        write("now.json", makeRun(60).dump());
    }

    /// What a browser makes of a page: its document after loading, and what it says on its console.
    Outcome browse(const std::string& page, const std::vector<std::string>& further = {}) const
    {
        std::vector<std::string> command{"chromium",
                                         "--headless",
                                         "--no-sandbox",
                                         "--disable-gpu",
                                         "--disable-dev-shm-usage",
                                         "--user-data-dir=" + at("browser").string(),
                                         "--enable-logging=stderr",
                                         "--virtual-time-budget=2000",
                                         "--dump-dom"};
        command.insert(command.end(), further.begin(), further.end());
        command.push_back("file://" + at(page).string());
        return run(command);
    }
};

TEST_F(DiagnoseKept, a_run_is_shown_again_without_a_device)
{
    writeRuns();
    const Outcome outcome = qxhost({"diagnose", "--from", "now.json"});
    EXPECT_EQ(outcome.exitCode, healthy) << outcome.err;
    expectWords(outcome.out,
                {"Testing shader performance\n", "Title decode-8", "not measured", "up to 1080p60"});
}

TEST_F(DiagnoseKept, a_comparison_shows_the_change_of_every_figure)
{
    writeRuns();
    const Outcome outcome = qxhost({"diagnose", "--from", "now.json", "--compare", "before.json"});
    EXPECT_EQ(outcome.exitCode, healthy) << outcome.err;
    expectWords(outcome.out,
                {"Compared with before", "40.0 frames/s", "60.0 frames/s", "+50 %  better", "+0 %  same"});
}

TEST_F(DiagnoseKept, a_comparison_is_data_too)
{
    writeRuns();
    const Outcome outcome =
        qxhost({"diagnose", "--from", "now.json", "--compare", "before.json", "--json", "-"});
    EXPECT_EQ(outcome.exitCode, healthy) << outcome.err;
    const Json change = parsed(outcome.out).at("comparison").at("changes").at(0);
    EXPECT_EQ(change.at("before"), 40.0);
    EXPECT_EQ(change.at("now"), 60.0);
    EXPECT_EQ(change.at("percent"), 50.0);
    EXPECT_EQ(change.at("meaning"), "better");
    // With the comparison in it, the file is a run all the same.
    EXPECT_EQ(qxhost({"diagnose", "--from", "now.json", "--compare", "before.json", "--json", "both.json"})
                  .exitCode,
              healthy);
    EXPECT_EQ(qxhost({"diagnose", "--from", "both.json"}).exitCode, healthy);
}

TEST_F(DiagnoseKept, a_kept_run_is_found_by_its_name_and_as_the_last)
{
    const Outcome saved = diagnose("latency", {"--save"});
    EXPECT_EQ(saved.exitCode, healthy) << saved.err;
    expectWords(saved.err, {"kept as", ".state/qxhost/diagnose/"});
    const Outcome shown = qxhost({"diagnose", "--from", "last", "--compare", "last"});
    EXPECT_EQ(shown.exitCode, healthy) << shown.err;
    expectWords(shown.out, {"64 x 64", "Compared with 20", "+0 %  same"});
    const Outcome missing = qxhost({"diagnose", "--from", "lost"});
    EXPECT_EQ(missing.exitCode, 3);
    expectWords(missing.err, {"lost: is neither a file nor a kept run", "kept runs, the last first: 20"});
}

TEST_F(DiagnoseKept, a_broken_run_is_named_with_the_place)
{
    writeRuns();
    write("cut.json", makeRun(1).dump(1).substr(0, 300));
    Json wrong = makeRun(1);
    wrong["figures"][2]["value"] = "fast";
    write("wrong.json", wrong.dump());
    const Outcome cut = qxhost({"diagnose", "--from", "now.json", "--compare", "cut.json"});
    EXPECT_EQ(cut.exitCode, 3);
    EXPECT_EQ(cut.out, "");
    expectWords(cut.err, {"cut.json: line ", "column "});
    const Outcome odd = qxhost({"diagnose", "--from", "now.json", "--compare", "wrong.json"});
    EXPECT_EQ(odd.exitCode, 3);
    expectWords(odd.err, {"wrong.json.figures[2].value: is no number"});
    EXPECT_EQ(qxhost({"diagnose", "--from", "."}).exitCode, 3);
    expectWords(qxhost({"diagnose", "--from", "last"}).err, {"last: no run is kept yet", "--save"});
}

TEST_F(DiagnoseKept, a_file_that_cannot_be_written_is_told_and_the_results_still_print)
{
    writeRuns();
    const Outcome outcome = qxhost({"diagnose", "--from", "now.json", "--html", "nowhere/page.html"});
    EXPECT_EQ(outcome.exitCode, 4);
    expectWords(outcome.out, {"Title decode-8", "Verdict"});
    expectWords(outcome.err, {"nowhere"});
}

TEST_F(DiagnoseKept, a_disk_that_is_full_is_told_and_leaves_nothing_half_done)
{
    writeRuns();
    const rlimit before = [] {
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        return limit;
    }();
    rlimit tight = before;
    tight.rlim_cur = 4096; // less than a page has, more than the text
    ::setrlimit(RLIMIT_FSIZE, &tight);
    const Outcome outcome = qxhost({"diagnose", "--from", "now.json", "--html", "page.html"});
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(outcome.exitCode, 4);
    expectWords(outcome.out, {"Verdict"});
    expectWords(outcome.err, {"page.html"});
    EXPECT_EQ(filesBeside({"before.json", "now.json"}), std::vector<std::string>());
}

TEST_F(DiagnoseKept, a_reader_that_goes_away_costs_what_is_printed_alone)
{
    writeRuns();
    const Outcome outcome =
        run({"sh", "-c", R"("$0" diagnose --from now.json --html page.html > /dev/full)", programPath()});
    EXPECT_EQ(outcome.exitCode, 4);
    expectWords(outcome.err, {"page.html: written", "standard output: cannot be written"});
    EXPECT_TRUE(fs::exists(at("page.html")));
}

TEST_F(DiagnoseKept, existing_files_are_not_replaced_without_force)
{
    writeRuns();
    write("page.html", "mine");
    const Outcome refused = qxhost({"diagnose", "--from", "now.json", "--html", "page.html"});
    EXPECT_EQ(refused.exitCode, 4);
    expectWords(refused.err, {"page.html: exists already", "--force"});
    EXPECT_EQ(read(at("page.html")), "mine");
    EXPECT_EQ(qxhost({"diagnose", "--from", "now.json", "--html", "page.html", "--force"}).exitCode, healthy);
    EXPECT_NE(read(at("page.html")), "mine");
}

TEST_F(DiagnoseKept, a_page_is_printed_where_it_is_asked_for)
{
    writeRuns();
    const Outcome outcome = qxhost({"diagnose", "--from", "now.json", "--html", "-"});
    EXPECT_EQ(outcome.exitCode, healthy);
    EXPECT_TRUE(outcome.out.starts_with("<!DOCTYPE html>")) << outcome.out.substr(0, 100);
    EXPECT_TRUE(outcome.out.ends_with("</html>\n"));
    EXPECT_FALSE(std::filesystem::exists(at("-")));
}

TEST_F(DiagnoseKept, the_page_opens_in_a_browser_with_the_runs_figures_in_its_plots)
{
    writeRuns();
    ASSERT_EQ(qxhost({"diagnose", "--from", "now.json", "--compare", "before.json", "--html", "page.html"})
                  .exitCode,
              healthy);
    const Outcome opened = browse("page.html");
    ASSERT_EQ(opened.exitCode, 0) << opened.err;
    EXPECT_EQ(opened.err.find("CONSOLE"), std::string::npos) << opened.err;
    expectWords(opened.out,
                {R"(data-id="decode-8" data-value="321.5")", R"(data-id="upload-hd" data-value="4.25")",
                 R"(data-id="download-hd" data-value="3.125")", R"(data-id="frame-hd" data-value="60")",
                 "GPU &lt;9&gt;", "What changed since before", R"(data-change="50")", "not measured",
                 "</html>"});
    EXPECT_EQ(opened.out.find(R"(data-id="frame-uhd" data-value)"), std::string::npos)
        << "not measured is no bar";
}

TEST_F(DiagnoseKept, the_page_asks_for_nothing_and_refuses_to)
{
    writeRuns();
    ASSERT_EQ(qxhost({"diagnose", "--from", "now.json", "--html", "page.html"}).exitCode, healthy);
    // The same page with an image put in shows that the browser would have told.
    std::string page = read(at("page.html"));
    page.insert(page.find("<main>"), "<img src=\"file:///dev/null\" alt=\"\">");
    write("spoilt.html", page);
    EXPECT_NE(browse("spoilt.html").err.find("CONSOLE"), std::string::npos);
}

} // namespace

} // namespace Qx::System
