#include "tests/TemporaryDirectory.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/diagnose/Comparison.h"
#include "tools/qxhost/diagnose/LifeSign.h"
#include "tools/qxhost/diagnose/Messages.h"
#include "tools/qxhost/diagnose/Page.h"
#include "tools/qxhost/diagnose/ReportJson.h"
#include "tools/qxhost/diagnose/SavedRuns.h"
#include "tools/qxhost/diagnose/TextReport.h"
#include "tools/qxhost/diagnose/Verdict.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

// What a report means and looks like, for figures that are given: no device and no clock is in it.

namespace Qx::Diagnosis {

namespace {

using Program::Json;

Figure makeFigure(const std::string& id, const std::string& group, std::optional<double> value,
                  const std::string& unit)
{
    Figure figure;
    figure.id = id;
    figure.group = group;
    figure.title = "Title of " + id;
    figure.value = value;
    figure.unit = unit;
    return figure;
}

/// A run in which everything was measured and nothing is wrong.
Report makeReport()
{
    Report report;
    report.date = "2026-11-21T07:13:01+01:00";
    report.program = "1.2.3";
    report.device = {"Quick GPU 9", "discrete GPU", "driver 5.1", false};
    report.machine = {"Linux 6.1 x86_64", 8, 1ULL << 34U, 1ULL << 33U, std::nullopt};
    report.suite = {{0, "CPUs   : 8"}, {5, "Testing shader performance"}, {0, "812.50fps"}};
    report.figures = {makeFigure("frame-hd", "frames", 90, "frames/s"),
                      makeFigure("frame-uhd", "frames", 31, "frames/s"),
                      makeFigure("upload-hd", "transfers", 4.0, "GB/s"),
                      makeFigure("download-hd", "transfers", 2.0, "GB/s"),
                      makeFigure("decode-8", "conversions", 500, "frames/s"),
                      makeFigure("effect-8", "looks", 500, "frames/s"),
                      makeFigure("encode-8", "conversions", 250, "frames/s"),
                      makeFigure("colours", "checks", 0, "wrong"),
                      makeFigure("rounding", "checks", 0, "wrong")};
    report.figures[4].yardstick = 800;
    report.figures[4].yardstickName = "copy on the device";
    report.figures[4].samples = {2.0, 2.1, 1.9};
    return report;
}

Figure& figureOf(Report& report, const std::string& id)
{
    for (Figure& figure : report.figures) {
        if (figure.id == id) {
            return figure;
        }
    }
    throw std::out_of_range(id);
}

std::string failureOf(const std::string& text)
{
    try {
        static_cast<void>(reportFrom(text, "old.json"));
    } catch (const Program::Failure& failure) {
        EXPECT_EQ(failure.code(), Program::ExitCode::input);
        return failure.what();
    }
    return "no failure";
}

bool holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// Verdict

TEST(Verdict, what_is_well_is_healthy_and_says_how_fast)
{
    const Verdict verdict = judge(makeReport());
    EXPECT_EQ(verdict.health, Health::healthy);
    EXPECT_TRUE(verdict.faults.empty());
    EXPECT_TRUE(verdict.remarks.empty());
    EXPECT_EQ(verdict.headline, "The GPU path is healthy and fast enough for real time up to 1080p60.");
    EXPECT_EQ(verdict.device, "Quick GPU 9 is a real device (discrete GPU).");
}

TEST(Verdict, a_software_device_is_called_one)
{
    Report report = makeReport();
    report.device.software = true;
    const Verdict verdict = judge(report);
    EXPECT_TRUE(holds(verdict.device, "SOFTWARE"));
    EXPECT_TRUE(holds(verdict.headline, "software"));
}

TEST(Verdict, real_time_is_what_whole_frames_reach)
{
    const Verdict verdict = judge(makeReport());
    ASSERT_EQ(verdict.realTime.size(), 3U);
    EXPECT_EQ(answer(verdict.realTime[0]), "yes (90 frames/s, 3.6 times what is needed)");
    EXPECT_EQ(answer(verdict.realTime[1]), "yes (90 frames/s, 1.5 times what is needed)");
    EXPECT_EQ(answer(verdict.realTime[2]), "no (31 frames/s, 0.52 times what is needed)");
    EXPECT_EQ(answer({"x", 60, 61.0}), "barely (61 frames/s, 1.02 times what is needed)");
    EXPECT_EQ(answer({"x", 60, 60.0}), "barely (60 frames/s, 1.00 times what is needed)");
    EXPECT_EQ(answer({"x", 60, std::nullopt}), "not measured");
}

TEST(Verdict, what_takes_most_of_a_frame_limits_it)
{
    // 8 of 11.1 ms are drawn: 2 + 2 + 4; 1.04 ms go up and 2.07 ms down.
    EXPECT_EQ(judge(makeReport()).limit, "Drawing limits it: 8.0 ms of a 1080p frame, 72 % of its work.");
    Report slowReading = makeReport();
    figureOf(slowReading, "download-hd").value = 0.2;
    EXPECT_TRUE(holds(judge(slowReading).limit, "Reading frames back limits it: 20.7 ms"));
    Report idle = makeReport();
    figureOf(idle, "frame-hd").value = 20;
    EXPECT_TRUE(holds(judge(idle).limit, "Neither drawing nor the transfers limit it"));
    Report unknown = makeReport();
    figureOf(unknown, "download-hd").value.reset();
    EXPECT_EQ(judge(unknown).limit, "");
}

TEST(Verdict, transfers_that_copy_nothing_take_none_of_a_frame)
{
    Report report = makeReport();
    for (const char* id : {"upload-hd", "download-hd"}) {
        figureOf(report, id).value.reset();
        figureOf(report, id).note = "nothing is copied: the device works in the host's memory";
    }
    EXPECT_EQ(judge(report).limit, "Drawing limits it: 8.0 ms of a 1080p frame, 100 % of its work.");
}

TEST(Verdict, a_failed_figure_and_a_failed_line_of_the_suite_are_faults)
{
    Report report = makeReport();
    figureOf(report, "upload-hd").value.reset();
    figureOf(report, "upload-hd").failed = true;
    figureOf(report, "upload-hd").note = "the device refused a frame";
    report.suite.push_back({4, "Failed"});
    const Verdict verdict = judge(report);
    EXPECT_EQ(verdict.health, Health::unhealthy);
    EXPECT_EQ(verdict.headline, "The GPU path is NOT healthy: 2 things went wrong.");
    EXPECT_EQ(verdict.faults, (std::vector<std::string>{"Testing shader performance: Failed.",
                                                        "Title of upload-hd: the device refused a frame."}));
}

TEST(Verdict, a_figure_that_is_only_not_measured_is_no_fault)
{
    Report report = makeReport();
    figureOf(report, "frame-uhd").value.reset();
    EXPECT_EQ(judge(report).health, Health::healthy);
}

TEST(Verdict, a_wrong_colour_is_a_fault_and_a_wrong_rounding_a_remark)
{
    Report report = makeReport();
    figureOf(report, "rounding").value = 3;
    EXPECT_EQ(judge(report).health, Health::remarks);
    figureOf(report, "colours").value = 1;
    EXPECT_EQ(judge(report).health, Health::unhealthy);
}

TEST(Verdict, a_rate_that_falls_all_the_while_is_a_remark)
{
    Report report = makeReport();
    figureOf(report, "decode-8").samples = {10, 11, 12, 14, 15, 17, 18, 20, 22, 25, 27, 30};
    const Verdict verdict = judge(report);
    EXPECT_EQ(verdict.health, Health::remarks);
    ASSERT_EQ(verdict.remarks.size(), 1U);
    EXPECT_TRUE(
        holds(verdict.remarks[0], "Title of decode-8 got slower all the while: frames took 2.5 times"))
        << verdict.remarks[0];
}

TEST(Verdict, an_end_before_the_end_is_told_with_what_was_asked_for_last)
{
    Report report = makeReport();
    report.ending = {Ending::Kind::hung, "no sign of life for 30 seconds", "uploading (for the 37th time)",
                     ""};
    EXPECT_EQ(judge(report).health, Health::unhealthy);
    EXPECT_TRUE(holds(judge(report).faults[0], "uploading (for the 37th time)"));
    report.ending.kind = Ending::Kind::died;
    EXPECT_EQ(judge(report).health, Health::unhealthy);
    report.ending.kind = Ending::Kind::interrupted;
    EXPECT_EQ(judge(report).health, Health::remarks);
    EXPECT_TRUE(holds(judge(report).headline, "as far as the run got"));
}

TEST(Verdict, a_part_of_the_steps_says_what_was_not_measured)
{
    Report report = makeReport();
    report.only = {"latency", "copies"};
    report.figures = {makeFigure("latency", "latency", 1, "ms")};
    const Verdict verdict = judge(report);
    EXPECT_EQ(verdict.health, Health::partial);
    EXPECT_EQ(nameOf(verdict.health), "healthy as far as it was measured");
    EXPECT_EQ(verdict.headline, "The GPU path was well in what was measured: copies, latency. Not measured: "
                                "suite, transfers, conversions, looks, frames, streams, compiling, checks, "
                                "memory.");
    figureOf(report, "latency").failed = true;
    EXPECT_EQ(judge(report).health, Health::unhealthy);
}

TEST(Verdict, all_steps_by_their_names_are_a_whole_run)
{
    Report report = makeReport();
    for (const Group& group : groups()) {
        report.only.emplace_back(group.id);
    }
    EXPECT_EQ(judge(report).headline, judge(makeReport()).headline);
    EXPECT_EQ(judge(report).health, Health::healthy);
}

TEST(Verdict, effects_that_are_missing_are_not_the_devices_fault)
{
    Report report = makeReport();
    report.figures = {makeFigure("effects", "checks", std::nullopt, "")};
    report.figures[0].failed = true;
    report.figures[0].note = "cc3.fx: not in /x; install the program again";
    EXPECT_EQ(judge(report).health, Health::unknown);
    EXPECT_EQ(judge(report).headline,
              "Effects to draw with are missing, so nothing can be said of the device.");
    EXPECT_EQ(judge(report).faults.size(), 1U);
    report.figures.push_back(makeFigure("transfer-8", "checks", 3, "wrong"));
    EXPECT_EQ(judge(report).health, Health::unhealthy) << "this one is";
}

TEST(Verdict, nothing_measured_says_nothing)
{
    Report report;
    report.ending.kind = Ending::Kind::interrupted;
    EXPECT_EQ(judge(report).health, Health::unknown);
    EXPECT_EQ(judge(report).limit, "");
    EXPECT_EQ(answer(judge(report).realTime[0]), "not measured");
}

TEST(Verdict, a_machine_that_was_busy_is_told_of_and_no_less_healthy)
{
    Report report = makeReport();
    EXPECT_EQ(judge(report).load, "") << "not known";
    report.machine.load = {3.9, 8};
    EXPECT_EQ(judge(report).load, "");
    report.machine.load = {5.25, 8};
    const Verdict verdict = judge(report);
    EXPECT_EQ(verdict.load, "The machine was busy with other work in the minute before: a load of 5.2 on 8 "
                            "processors. The figures may be lower than it reaches undisturbed.");
    EXPECT_EQ(verdict.health, Health::healthy);
    EXPECT_TRUE(holds(TextReport::end(report, verdict), verdict.load));
    EXPECT_TRUE(holds(pageOf(report, std::nullopt), "<p>" + verdict.load + "</p>"));
    EXPECT_TRUE(holds(pageOf(report, std::nullopt),
                      "<dt>Load</dt><dd>5.2 in the minute before; the machine has 8 processors</dd>"));
    EXPECT_TRUE(holds(pageOf(makeReport(), std::nullopt), "<dt>Load</dt><dd>not known</dd>"));
    const auto remarks = compare(report, makeReport(), "x").remarks;
    ASSERT_EQ(remarks.size(), 1U);
    EXPECT_EQ(remarks[0], "The machine was busy with other work then: a load of 5.2 on 8 processors.");
}

TEST(Slowdown, needs_samples_that_rise_all_the_way_and_by_half)
{
    EXPECT_FALSE(slowdown({}));
    EXPECT_FALSE(slowdown({1, 2, 3, 4, 5, 6, 7, 8})) << "too few";
    EXPECT_FALSE(slowdown({10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 90})) << "one hiccup";
    EXPECT_FALSE(slowdown({10, 20, 10, 20, 10, 20, 10, 20, 10, 20, 10, 20})) << "up and down";
    EXPECT_FALSE(slowdown({10, 10.1, 10.2, 10.3, 10.4, 10.5, 10.6, 10.7, 10.8, 10.9, 11, 11.1}))
        << "by little";
    EXPECT_FALSE(slowdown({28, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6})) << "faster";
    EXPECT_FALSE(slowdown(std::vector<double>(12, 10.0))) << "steady";
    EXPECT_NEAR(slowdown({10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30, 32}).value_or(0), 30.0 / 12.0, 1e-9);
}

// JSON

TEST(ReportJson, comes_back_as_it_was)
{
    Report report = makeReport();
    report.quick = true;
    report.only = {"frames", "checks"};
    report.ending = {Ending::Kind::died, "signal 6", "drawing", "last\nwords"};
    figureOf(report, "frame-uhd").value.reset();
    figureOf(report, "frame-uhd").note = "why not";
    figureOf(report, "decode-8").basis = Basis::device;
    const std::string text = Program::jsonText(toJson(report));
    EXPECT_EQ(Program::jsonText(toJson(reportFrom(text, "a.json"))), text);
    const Json json = Json::parse(text);
    EXPECT_TRUE(json.at("figures").at(1).at("value").is_null()) << "what was not measured is not 0";
    EXPECT_EQ(json.at("verdict").at("health"), "not healthy");
    EXPECT_TRUE(json.at("verdict").at("rates").at(2).at("realTime").is_null());
}

TEST(ReportJson, the_load_comes_back_and_a_run_without_one_still_opens)
{
    Report report = makeReport();
    report.machine.load = {1.25, 4};
    Json json = toJson(report);
    const Report read = reportFrom(json.dump(), "a.json");
    ASSERT_TRUE(read.machine.load);
    EXPECT_EQ(read.machine.load->average, 1.25);
    EXPECT_EQ(read.machine.load->processors, 4);
    json["machine"]["load"]["average"] = "much";
    EXPECT_TRUE(holds(failureOf(json.dump()), "old.json.machine.load.average: is no number"));
    json["machine"].erase("load");
    EXPECT_FALSE(reportFrom(json.dump(), "a.json").machine.load);
}

TEST(ReportJson, what_is_no_json_is_named_with_line_and_column)
{
    const std::string failure = failureOf("{\n  \"format\": \"qxhost diagnose\",\n  oops\n}");
    EXPECT_TRUE(holds(failure, "old.json: line 3, column ")) << failure;
    EXPECT_TRUE(holds(failureOf(""), "old.json: line 1"));
}

TEST(ReportJson, what_is_no_report_is_named_with_the_place)
{
    const Json whole = toJson(makeReport());
    EXPECT_TRUE(holds(failureOf("[]"), "old.json: is no object"));
    EXPECT_TRUE(holds(failureOf("{}"), "old.json: \"format\" is missing"));
    Json other = whole;
    other["format"] = "something else";
    EXPECT_TRUE(holds(failureOf(other.dump()), "old.json.format: is not \"qxhost diagnose\""));
    Json later = whole;
    later["version"] = 2;
    EXPECT_TRUE(holds(failureOf(later.dump()), "another version"));
    Json wrongValue = whole;
    wrongValue["figures"][3]["value"] = "fast";
    EXPECT_TRUE(holds(failureOf(wrongValue.dump()), "old.json.figures[3].value: is no number"));
    Json wrongBasis = whole;
    wrongBasis["figures"][0]["basis"] = "guessed";
    EXPECT_TRUE(holds(failureOf(wrongBasis.dump()), "old.json.figures[0].basis: \"guessed\" is not known"));
    Json negative = whole;
    negative["machine"]["memory"] = -1;
    EXPECT_TRUE(holds(failureOf(negative.dump()), "old.json.machine.memory: is no count"));
}

TEST(ReportJson, a_number_beyond_all_numbers_is_named_with_its_file)
{
    std::string text = Program::jsonText(toJson(makeReport()));
    const std::string mark = "\"value\": ";
    text.insert(text.find(mark) + mark.size(), "1e999, \"was\": ");
    EXPECT_TRUE(holds(failureOf(text), "old.json: line ")) << failureOf(text);
    EXPECT_TRUE(holds(failureOf(text), ": 1e999 is too large for a number")) << failureOf(text);
}

TEST(ReportJson, what_nothing_can_measure_is_named_with_its_field)
{
    const auto expectRefused = [](const std::string& pointer, const Json& value, const std::string& words) {
        Json json = toJson(makeReport());
        json[Json::json_pointer(pointer)] = value;
        EXPECT_TRUE(holds(failureOf(json.dump()), words)) << failureOf(json.dump());
    };
    expectRefused("/figures/0/value", 1e308, "old.json.figures[0].value: 1e+308 is nothing that can be");
    expectRefused("/figures/1/value", -1, "old.json.figures[1].value: -1 is nothing that can be measured");
    expectRefused("/figures/4/yardstick", -0.5, "old.json.figures[4].yardstick: -0.5 is nothing");
    expectRefused("/figures/4/samples/2", 1e300, "old.json.figures[4].samples[2]: 1e+300 is nothing");
    expectRefused("/suite/0/category", 1e20, "old.json.suite[0].category: is no count");
    expectRefused("/machine/processors", 1LL << 40U, "old.json.machine.processors: is no count");
    std::string text = Program::jsonText(toJson(makeReport()));
    text.replace(text.find("90"), 2, "NaN");
    EXPECT_TRUE(holds(failureOf(text), "old.json: line ")) << failureOf(text);
}

TEST(ReportJson, texts_cannot_steer_a_terminal)
{
    Report report = makeReport();
    report.device.name = "GPU\x1b[31m\n";
    report.ending.said = "last\x07\nwords";
    const Report read = reportFrom(Program::jsonText(toJson(report)), "a.json");
    EXPECT_EQ(read.device.name, "GPU\\x1b[31m\\n");
    EXPECT_EQ(read.ending.said, "last\\x07\nwords");
}

TEST(ReportJson, any_value_that_is_missing_or_of_another_kind_is_a_failure_and_no_crash)
{
    const Json flat = toJson(makeReport()).flatten();
    for (const auto& [pointer, value] : flat.items()) {
        if (pointer.starts_with("/verdict")) {
            continue; // not read
        }
        Json broken = toJson(makeReport());
        broken[Json::json_pointer(pointer)] = Json::object({{"a", 1}});
        EXPECT_TRUE(holds(failureOf(broken.dump()), "old.json")) << pointer;
    }
}

TEST(Messages, come_through_the_pipe_as_they_were)
{
    Figure figure = makeFigure("id", "group", 1.5, "ms");
    figure.samples = {1, 2, 3};
    const auto through = [](const Message& message) {
        std::string line = lineOf(message);
        EXPECT_EQ(line.find('\n'), line.size() - 1);
        line.pop_back();
        return messageFrom(line);
    };
    const auto back = through(figure);
    ASSERT_TRUE(back && std::holds_alternative<Figure>(*back));
    EXPECT_EQ(toJson(std::get<Figure>(*back)), toJson(figure));
    const auto line = through(SuiteLine{4, "Failed \xFF\n\"x\""});
    ASSERT_TRUE(line && std::holds_alternative<SuiteLine>(*line));
    EXPECT_EQ(std::get<SuiteLine>(*line).category, 4);
    EXPECT_TRUE(std::get<SuiteLine>(*line).text.starts_with("Failed "));
    Machine machine = makeReport().machine;
    EXPECT_FALSE(std::get<NoDevice>(through(NoDevice{"why", machine}).value()).machine.load);
    machine.load = {2.5, 4};
    const Machine sent = std::get<NoDevice>(through(NoDevice{"why", machine}).value()).machine;
    ASSERT_TRUE(sent.load);
    EXPECT_EQ(sent.load->average, 2.5);
    EXPECT_EQ(sent.load->processors, 4);
    EXPECT_FALSE(messageFrom("no message"));
    EXPECT_FALSE(messageFrom("{}"));
    EXPECT_FALSE(messageFrom(R"({"is": "line", "category": "x", "text": 1})"));
    EXPECT_FALSE(messageFrom(R"({"is": "figure", "figure": {}})"));
}

// Comparison

const Change& changeOf(const Comparison& comparison, const std::string& title)
{
    for (const Change& change : comparison.changes) {
        if (change.title == title) {
            return change;
        }
    }
    throw std::out_of_range(title);
}

TEST(Comparison, says_what_became_better_and_worse_beyond_the_noise)
{
    using Meaning = Change::Meaning;
    Report before = makeReport();
    Report now = makeReport();
    figureOf(now, "frame-hd").value = 135;
    figureOf(now, "frame-uhd").value = 29;
    figureOf(now, "upload-hd").value = 1.0;
    figureOf(before, "rounding").better = Better::lower;
    figureOf(now, "rounding").better = Better::lower;
    figureOf(now, "rounding").value = 2;
    const Comparison comparison = compare(before, now, "june");
    EXPECT_EQ(comparison.name, "june");
    EXPECT_TRUE(comparison.remarks.empty());
    EXPECT_EQ(changeOf(comparison, "Title of frame-hd").meaning, Meaning::better);
    EXPECT_NEAR(changeOf(comparison, "Title of frame-hd").percent.value_or(0), 50, 1e-9);
    EXPECT_EQ(changeOf(comparison, "Title of frame-uhd").meaning, Meaning::same);
    EXPECT_EQ(changeOf(comparison, "Title of upload-hd").meaning, Meaning::worse);
    EXPECT_EQ(changeOf(comparison, "Title of rounding").meaning, Meaning::worse);
    EXPECT_FALSE(changeOf(comparison, "Title of rounding").percent) << "there is no percentage of nothing";
    EXPECT_EQ(changeOf(comparison, "Title of colours").meaning, Meaning::same);
}

TEST(Comparison, a_lower_time_is_better_and_memory_merely_changes)
{
    Report before = makeReport();
    before.figures = {makeFigure("latency", "latency", 2, "ms"),
                      makeFigure("memory-total", "memory", 8, "MiB")};
    before.figures[0].better = Better::lower;
    before.figures[1].better = Better::neither;
    Report now = before;
    now.figures[0].value = 1;
    now.figures[1].value = 16;
    const Comparison comparison = compare(before, now, "x");
    EXPECT_EQ(comparison.changes[0].meaning, Change::Meaning::better);
    EXPECT_EQ(comparison.changes[1].meaning, Change::Meaning::changed);
}

TEST(Comparison, what_one_run_lacks_is_not_measured_and_never_nothing)
{
    Report before = makeReport();
    Report now = makeReport();
    figureOf(now, "frame-hd").value.reset();
    before.figures.erase(before.figures.begin() + 1);
    now.figures.pop_back();
    const Comparison comparison = compare(before, now, "x");
    for (const char* id : {"frame-hd", "frame-uhd", "rounding"}) {
        const std::string title = std::string("Title of ") + id;
        const Change& change = changeOf(comparison, title);
        EXPECT_EQ(change.meaning, Change::Meaning::unknown) << id;
        EXPECT_FALSE(change.percent) << id;
    }
    const std::string text = TextReport::comparison(comparison);
    EXPECT_TRUE(holds(text, "not measured")) << text;
}

TEST(Comparison, leaves_out_what_one_of_the_runs_was_not_asked_for)
{
    Report before = makeReport();
    before.figures.push_back(makeFigure("suite-upload", "suite", 1, "frames/s"));
    Report now = before;
    now.only = {"frames"};
    now.figures = {figureOf(before, "frame-hd")};
    const auto titles = [](const Comparison& comparison) {
        std::vector<std::string> all;
        for (const Change& change : comparison.changes) {
            all.push_back(change.title);
        }
        return all;
    };
    const std::vector<std::string> frames{"Title of frame-hd", "Title of frame-uhd"};
    EXPECT_EQ(titles(compare(before, now, "x")), frames);
    EXPECT_EQ(titles(compare(now, before, "x")), frames);
    now = makeReport();
    now.quick = true;
    EXPECT_EQ(titles(compare(before, now, "x")).size(), makeReport().figures.size()) << "no suite";
}

TEST(Comparison, another_device_or_driver_is_remarked)
{
    Report before = makeReport();
    before.device.driver = "driver 4";
    EXPECT_TRUE(holds(compare(before, makeReport(), "x").remarks.at(0), "driver 4"));
    before.device.name = "Old GPU";
    before.machine.processors = 2;
    before.quick = true;
    EXPECT_EQ(compare(before, makeReport(), "x").remarks.size(), 3U);
}

// Text

TEST(TextReport, has_the_suites_lines_first_and_as_they_stand)
{
    const std::string text = textOf(makeReport());
    EXPECT_TRUE(text.starts_with("CPUs   : 8\nTesting shader performance\n812.50fps\n\nFurther tests\n"))
        << text;
}

TEST(TextReport, shows_a_figure_beside_its_yardstick)
{
    const std::string text = textOf(makeReport());
    EXPECT_TRUE(holds(text, "500 frames/s    62 % of a copy on the device (800)")) << text;
}

TEST(TextReport, what_was_not_measured_says_so_and_why)
{
    Report report = makeReport();
    figureOf(report, "decode-8").value.reset();
    figureOf(report, "decode-8").note = "the cache is off";
    const std::string text = textOf(report);
    EXPECT_TRUE(holds(text, "not measured   the cache is off")) << text;
}

TEST(TextReport, a_rate_of_submission_is_labelled_as_one)
{
    Report report = makeReport();
    figureOf(report, "decode-8").basis = Basis::submitted;
    EXPECT_TRUE(holds(textOf(report), "submission only"));
}

TEST(TextReport, numbers_have_three_digits_that_count)
{
    EXPECT_EQ(digits(0), "0");
    EXPECT_EQ(digits(0.1234), "0.123");
    EXPECT_EQ(digits(1.234), "1.23");
    EXPECT_EQ(digits(12.34), "12.3");
    EXPECT_EQ(digits(1234.5), "1234");
    EXPECT_EQ(quantity(std::nullopt, "ms"), "not measured");
    EXPECT_EQ(signedPercent(12.4), "+12 %");
    EXPECT_EQ(signedPercent(-3.0), "-3 %");
}

// Page

TEST(Page, escapes_what_would_steer_a_browser)
{
    EXPECT_EQ(escaped("<script>&\"'"), "&lt;script&gt;&amp;&quot;&#39;");
    EXPECT_EQ(escaped("gr\xC3\xBC\xC3\x9F"), "gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(escaped("a\xFF"
                      "b\x01\x7F"),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(escaped("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD") << "a surrogate";
    EXPECT_EQ(escaped("\xE2\x82"), "\xEF\xBF\xBD\xEF\xBF\xBD") << "cut off";
}

TEST(Page, no_name_of_a_device_gets_out_of_its_place)
{
    Report report = makeReport();
    const std::string evil = "</title><script>alert(1)</script>\" onload=\"x";
    report.device = {evil, evil, evil, false};
    report.suite = {{5, evil}, {4, evil}};
    report.ending = {Ending::Kind::died, evil, evil, evil};
    for (Figure& figure : report.figures) {
        figure.title = evil;
        figure.note = evil;
        figure.id = figure.id + evil;
    }
    const std::string page = pageOf(report, compare(report, report, evil));
    EXPECT_FALSE(holds(page, "<script"));
    EXPECT_FALSE(holds(page, "\" onload"));
}

TEST(Page, needs_nothing_from_elsewhere)
{
    const std::string page = pageOf(makeReport(), std::nullopt);
    for (const char* part : {"http://", "https://", "src=", "href=", "url(", "@import", "<script"}) {
        EXPECT_FALSE(holds(page, part)) << part;
    }
}

TEST(Page, its_plots_hold_the_runs_figures)
{
    const std::string page = pageOf(makeReport(), std::nullopt);
    EXPECT_TRUE(holds(page, R"(data-id="decode-8" data-value="500")"));
    EXPECT_TRUE(holds(page, R"(data-id="upload-hd" data-value="4")"));
    EXPECT_TRUE(holds(page, R"(data-id="frame-uhd" data-value="31")"));
}

TEST(Page, a_copy_in_memory_is_not_taken_for_a_transfer)
{
    Report report = makeReport();
    EXPECT_FALSE(holds(pageOf(report, std::nullopt), "No transfer was measured"));
    for (const char* id : {"upload-hd", "download-hd"}) {
        figureOf(report, id).value.reset();
        figureOf(report, id).note = nothingCopied;
    }
    report.figures.push_back(makeFigure("copy-memory-hd", "copies", 41, "GB/s"));
    EXPECT_TRUE(holds(pageOf(report, std::nullopt), "No transfer was measured"));
}

TEST(Page, says_what_the_suites_memory_and_rates_mean)
{
    const std::string page = pageOf(makeReport(), std::nullopt);
    EXPECT_TRUE(holds(
        page, "The line Memory gives what is available, then the total without whole multiples of 4 GiB"));
    EXPECT_TRUE(holds(page, "millions of frames a second mean no more than that"));
}

TEST(Page, all_figures_fit_a_phone)
{
    const std::string page = pageOf(makeReport(), std::nullopt);
    EXPECT_TRUE(holds(page, "<section class=\"long figures\">\n<h2>All figures</h2>"));
    const std::size_t narrow = page.find("@media (max-width: 40rem)");
    const std::size_t grid = page.find(".figures tr { display: grid;");
    ASSERT_NE(grid, std::string::npos);
    EXPECT_LT(narrow, grid);
    EXPECT_LT(grid, page.find("@media print"));
}

TEST(Page, an_empty_run_makes_a_page_too)
{
    Report report;
    report.ending.kind = Ending::Kind::interrupted;
    const std::string page = pageOf(report, std::nullopt);
    EXPECT_TRUE(holds(page, "Nothing was measured"));
    EXPECT_TRUE(page.ends_with("</html>\n"));
}

// Names

TEST(SavedRuns, are_named_by_date_and_device)
{
    Report report = makeReport();
    EXPECT_EQ(fileNameOf(report), "2026-11-21T07-13-01_Quick-GPU-9.json");
    report.device.name = "llvmpipe (LLVM 15.0.6, 256 bits)";
    EXPECT_EQ(fileNameOf(report), "2026-11-21T07-13-01_llvmpipe.json");
    report.device.name = "../../etc/passwd";
    EXPECT_EQ(fileNameOf(report), "2026-11-21T07-13-01_etc-passwd.json");
    report.device.name = "";
    EXPECT_EQ(fileNameOf(report), "2026-11-21T07-13-01.json");
}

TEST(SavedRuns, of_one_second_stay_side_by_side)
{
    const Qx::Test::TemporaryDirectory place;
    ::setenv("XDG_STATE_HOME", place.path().c_str(), 1);
    const std::filesystem::path first = saveRun(makeReport());
    const std::filesystem::path second = saveRun(makeReport());
    EXPECT_NE(first, second);
    EXPECT_TRUE(std::filesystem::exists(first));
    EXPECT_EQ(loadRun("last").name, second.stem().string());
    ::unsetenv("XDG_STATE_HOME");
}

TEST(LifeSign, tells_what_was_asked_for_last_and_how_often)
{
    LifeSign life;
    EXPECT_EQ(life.last(), "");
    const std::uint64_t before = life.pulse();
    life.doing("uploading");
    EXPECT_NE(life.pulse(), before);
    EXPECT_EQ(life.last(), "uploading");
    for (int i = 0; i < 37; ++i) {
        life.again();
    }
    EXPECT_EQ(life.last(), "uploading (for the 37th time)");
    life.doing(std::string(1000, 'x'));
    EXPECT_LT(life.last().size(), 300U);
    EXPECT_EQ(ordinal(1), "1st");
    EXPECT_EQ(ordinal(2), "2nd");
    EXPECT_EQ(ordinal(3), "3rd");
    EXPECT_EQ(ordinal(11), "11th");
    EXPECT_EQ(ordinal(112), "112th");
    EXPECT_EQ(ordinal(121), "121st");
}

} // namespace

} // namespace Qx::Diagnosis
