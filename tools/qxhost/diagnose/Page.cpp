#include "tools/qxhost/diagnose/Page.h"

#include "tools/qxhost/diagnose/PageStyle.h"
#include "tools/qxhost/diagnose/Plots.h"
#include "tools/qxhost/diagnose/TextReport.h"
#include "tools/qxhost/diagnose/Verdict.h"

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>

namespace Qx::Diagnosis {

namespace {

/// Bytes of the UTF-8 sequence at the start of the text (The Unicode Standard, table 3-7); 0 when it is none.
std::size_t sequenceLength(std::string_view text)
{
    const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const auto within = [&](std::size_t i, unsigned low, unsigned high) {
        return at(i) >= low && at(i) <= high;
    };
    const unsigned lead = at(0);
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return within(1, 0x80, 0xBF) ? 2 : 0;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        const bool second = within(1, lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF);
        return second && within(2, 0x80, 0xBF) ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const bool second = within(1, lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF);
        return second && within(2, 0x80, 0xBF) && within(3, 0x80, 0xBF) ? 4 : 0;
    }
    return 0;
}

std::string_view entityOf(char c)
{
    switch (c) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\'':
        return "&#39;";
    default:
        return "";
    }
}

std::string section(const std::string& heading, const std::string& explanation, const std::string& content,
                    const char* style = "")
{
    if (content.empty()) {
        return {};
    }
    const std::string small =
        explanation.empty() ? "" : fmt::format("<p><small>{}</small></p>\n", explanation);
    return fmt::format("<section{}>\n<h2>{}</h2>\n{}{}</section>\n", style, heading, small, content);
}

std::vector<const Figure*> figuresOf(const Report& report, std::string_view group)
{
    std::vector<const Figure*> figures;
    for (const Figure& figure : report.figures) {
        if (figure.group == group) {
            figures.push_back(&figure);
        }
    }
    return figures;
}

std::string tile(const RealTime& rate)
{
    const std::string text = answer(rate);
    const std::size_t bracket = text.find(" (");
    const std::string word = text.substr(0, bracket);
    const std::string rest =
        bracket == std::string::npos ? "" : text.substr(bracket + 2, text.size() - bracket - 3);
    return fmt::format(
        R"(<div class="tile" data-rate="{}">{} in real time<b class="{}">{}</b><small>{}</small></div>)"
        "\n",
        escaped(rate.name), escaped(rate.name), rate.reached ? word : "unmeasured", word, escaped(rest));
}

std::string verdictSection(const Report& report, const Verdict& verdict)
{
    const char* style = verdict.health == Health::healthy     ? "healthy"
                        : verdict.health == Health::partial   ? "healthy"
                        : verdict.health == Health::remarks   ? "remarks"
                        : verdict.health == Health::unhealthy ? "unhealthy"
                                                              : "unknown";
    std::string text =
        fmt::format("<section class=\"verdict {}\">\n<h2>{}</h2>\n<p>", style, escaped(verdict.headline));
    if (!report.device.name.empty()) {
        text += report.device.software ? "<span class=\"pill\">software device</span>"
                                       : "<span class=\"pill real\">real device</span>";
    }
    text += escaped(verdict.device) + "</p>\n";
    if (!verdict.limit.empty()) {
        text += fmt::format("<p>{}</p>\n", escaped(verdict.limit));
    }
    if (!verdict.load.empty()) {
        text += fmt::format("<p>{}</p>\n", escaped(verdict.load));
    }
    std::string items;
    for (const std::string& fault : verdict.faults) {
        items += fmt::format("<li class=\"fault\">{}</li>\n", escaped(fault));
    }
    for (const std::string& remark : verdict.remarks) {
        items += fmt::format("<li>{}</li>\n", escaped(remark));
    }
    text += items.empty() ? "" : "<ul>\n" + items + "</ul>\n";
    text += "<div class=\"tiles\">\n";
    for (const RealTime& rate : verdict.realTime) {
        text += tile(rate);
    }
    text += "</div>\n";
    if (!report.ending.said.empty()) {
        text += "<p>The measuring process's last words:</p><pre>" + escaped(report.ending.said) + "</pre>\n";
    }
    return text + "</section>\n";
}

std::string changeTable(const Comparison& comparison)
{
    std::string text =
        "<div class=\"scroll\"><table>\n<thead><tr><th>Figure</th><th class=\"n\">Then</th><th class=\"n\">"
        "Now</th><th class=\"n\">Change</th><th></th></tr></thead>\n<tbody>\n";
    for (const Change& change : comparison.changes) {
        text +=
            fmt::format("<tr><td>{}</td><td class=\"n\">{}</td><td class=\"n\">{}</td><td class=\"n\">{}</td>"
                        "<td>{}</td></tr>\n",
                        escaped(change.title), escaped(quantity(change.before, change.unit)),
                        escaped(quantity(change.now, change.unit)), signedPercent(change.percent),
                        nameOf(change.meaning));
    }
    return text + "</tbody></table></div>\n";
}

std::string comparisonSection(const Comparison& comparison)
{
    const auto same =
        std::count_if(comparison.changes.begin(), comparison.changes.end(),
                      [](const Change& change) { return change.meaning == Change::Meaning::same; });
    std::string content;
    for (const std::string& remark : comparison.remarks) {
        content += fmt::format("<p>{}</p>\n", escaped(remark));
    }
    content += changePlot(comparison);
    content += fmt::format(
        "<p>{} of {} figures are the same, within the {:.0f} % that two runs differ by anyhow.</p>\n", same,
        comparison.changes.size(), noise);
    return section("What changed since " + escaped(comparison.name),
                   fmt::format("The earlier run: {}, {}. To the right: better.", escaped(comparison.date),
                               escaped(comparison.device)),
                   content, " id=\"comparison\"");
}

std::string suiteSection(const Report& report)
{
    std::string lines;
    for (const SuiteLine& line : report.suite) {
        lines += escaped(line.text) + "\n";
    }
    if (lines.empty()) {
        return {};
    }
    return section(
        "The suite",
        "Its lines as they stand. Its rates are rates of submission: how fast orders are taken, "
        "not how fast the device draws; it may fall behind, and millions of frames a second mean no "
        "more than that. The line Memory gives what is available, then the total without whole "
        "multiples of 4 GiB; \"The machine\" below has the total.",
        "<pre>" + lines + "</pre>\n");
}

std::string checksSection(const Report& report)
{
    std::string items;
    for (const Figure* figure : figuresOf(report, "checks")) {
        const bool wrong = figure->failed || figure->value.value_or(0) > 0;
        const char* style = !figure->value && !figure->failed ? "unmeasured"
                            : !wrong                          ? "right"
                            : figure->id == "rounding"        ? "remark"
                                                              : "wrong";
        items += fmt::format(
            R"(<li class="{}" data-id="{}"{}>{}: {}{}</li>)"
            "\n",
            style, escaped(figure->id),
            figure->value ? fmt::format(" data-value=\"{}\"", *figure->value) : "", escaped(figure->title),
            figure->value ? fmt::format("{:.0f}", *figure->value) : std::string("not measured"),
            figure->note.empty() ? "" : "; " + escaped(figure->note));
    }
    return section("Is it right?", "What the device makes of known frames, colours and levels.",
                   items.empty() ? "" : "<ul class=\"checks\">\n" + items + "</ul>\n");
}

std::string figureRow(const Figure& figure)
{
    return fmt::format("<tr><td>{}</td><td class=\"n\">{}</td><td class=\"n\">{}</td><td>{}</td></tr>\n",
                       escaped(figure.title), escaped(quantity(figure.value, figure.unit)),
                       figure.yardstick ? escaped(quantity(figure.yardstick, figure.unit)) : "",
                       escaped(figure.note.empty() ? std::string(describe(figure.basis))
                               : figure.value ? fmt::format("{}; {}", describe(figure.basis), figure.note)
                                              : figure.note));
}

std::string tableSection(const Report& report)
{
    std::string rows;
    for (const Group& group : groups()) {
        const std::vector<const Figure*> figures = figuresOf(report, group.id);
        if (!figures.empty()) {
            rows += fmt::format("<tr class=\"group\"><th colspan=\"4\" scope=\"rowgroup\">{}</th></tr>\n",
                                escaped(group.title));
        }
        for (const Figure* figure : figures) {
            rows += figureRow(*figure);
        }
    }
    return section(
        "All figures",
        "\"A copy makes\" is what copying the same bytes, and nothing else, makes on this machine "
        "in the same run.",
        rows.empty()
            ? ""
            : "<div class=\"scroll\"><table>\n<thead><tr><th scope=\"col\">Figure</th><th scope=\"col\" "
              "class=\"n\">Value</th><th scope=\"col\" class=\"n\">A copy makes</th><th scope=\"col\">How "
              "it was measured</th></tr></thead>\n<tbody>\n" +
                  rows + "</tbody></table></div>\n",
        " class=\"long figures\"");
}

std::string machineSection(const Report& report)
{
    constexpr double gibibyte = 1024.0 * 1024 * 1024;
    const auto entry = [](const char* name, const std::string& value) {
        return fmt::format("<dt>{}</dt><dd>{}</dd>\n", name, escaped(value.empty() ? "not known" : value));
    };
    return "<section>\n<h2>The machine</h2>\n<dl>\n" + entry("Device", report.device.name) +
           entry("Kind", report.device.type) + entry("Driver", report.device.driver) +
           entry("System", report.machine.system) +
           entry("Processors", std::to_string(report.machine.processors)) +
           entry("Load", report.machine.load
                             ? fmt::format("{:.1f} in the minute before; the machine has {} processors",
                                           report.machine.load->average, report.machine.load->processors)
                             : "") +
           entry("Memory", fmt::format("{:.1f} GiB, {:.1f} of it available at the start",
                                       static_cast<double>(report.machine.memory) / gibibyte,
                                       static_cast<double>(report.machine.memoryAvailable) / gibibyte)) +
           entry("Run", fmt::format("{}, {}", report.date, report.quick ? "quick" : "thorough")) +
           entry("Program", "qxhost " + report.program) + "</dl>\n</section>\n";
}

std::string plotSections(const Report& report)
{
    const std::string marks = "A mark on a bar is what a plain copy of the same bytes makes on this machine "
                              "(none where that is far off), and the "
                              "percentage is of that.";
    const std::string courses = coursePlots(report);
    const std::vector<const Figure*> transfers = figuresOf(report, "transfers");
    const bool anyCopied = std::any_of(transfers.begin(), transfers.end(),
                                       [](const Figure* figure) { return figure->value.has_value(); });
    return section(
               "Moving frames",
               anyCopied
                   ? "Gigabytes a second to the device and back, for frames of 8 bits a component."
                   : "No transfer was measured; the line is a copy within the host's memory, in gigabytes a "
                     "second. A device that works in the host's memory, as software devices do, copies "
                     "nothing to itself.",
               transferPlot(report)) +
           section("Conversions", "Frames of 1920 x 1080 a second on the device. " + marks,
                   barPlot(figuresOf(report, "conversions"))) +
           section("Looks and text", "Frames of 1920 x 1080 a second on the device. " + marks,
                   barPlot(figuresOf(report, "looks"))) +
           section(
               "Whole frames",
               "Frames a second from memory to the device, through two conversions and an effect, and back.",
               barPlot(figuresOf(report, "frames"))) +
           section("Several streams at once", "Whole frames of 1920 x 1080 a second, all streams together.",
                   barPlot(figuresOf(report, "streams"))) +
           section("Compiling effects", "Milliseconds until an effect can draw; less is better.",
                   barPlot(figuresOf(report, "compiling"))) +
           section("How steady it is", "Milliseconds a frame in the course of each measurement, from zero.",
                   courses.empty() ? "" : "<div class=\"courses\">\n" + courses + "</div>\n",
                   " class=\"long\"");
}

} // namespace

std::string escaped(std::string_view text)
{
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::string result;
    while (!text.empty()) {
        const char c = text.front();
        const std::size_t length = sequenceLength(text);
        const bool control = length == 1 && ((c >= 0 && c < ' ' && c != '\n' && c != '\t') || c == '\x7F');
        if (length == 0 || control) {
            result += replacement;
        } else if (const std::string_view entity = entityOf(c); !entity.empty()) {
            result += entity;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

std::string pageOf(const Report& report, const std::optional<Comparison>& comparison)
{
    const Verdict verdict = judge(report);
    const std::string device = report.device.name.empty() ? "no device" : report.device.name;
    std::string page =
        fmt::format("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                    // Nothing is fetched and nothing runs, whatever names the figures carry.
                    "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
                    "'unsafe-inline'\">\n"
                    "<title>GPU diagnosis: {}</title>\n<style>{}</style>\n</head>\n<body>\n<main>\n"
                    "<h1>GPU diagnosis &middot; {} &middot; <time datetime=\"{}\">{}</time></h1>\n",
                    escaped(device), pageStyle, escaped(device), escaped(report.date),
                    escaped(report.date.substr(0, 10) + " " +
                            (report.date.size() > 16 ? report.date.substr(11, 5) : "")));
    page += verdictSection(report, verdict);
    if (comparison) {
        page += comparisonSection(*comparison);
    }
    page += checksSection(report) + plotSections(report) + suiteSection(report) + tableSection(report);
    if (comparison) {
        page += section("All changes since " + escaped(comparison->name), "", changeTable(*comparison),
                        " class=\"long\"");
    }
    page += machineSection(report);
    return page + "</main>\n</body>\n</html>\n";
}

} // namespace Qx::Diagnosis
