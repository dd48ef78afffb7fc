#include "tools/qxhost/diagnose/TextReport.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <string_view>

namespace Qx::Diagnosis {

namespace {

constexpr double hundred = 100;

std::string_view titleOf(std::string_view group)
{
    const auto found =
        std::find_if(groups().begin(), groups().end(), [&](const Group& each) { return each.id == group; });
    return found != groups().end() ? found->title : group;
}

/// What stands beside a figure.
std::string beside(const Figure& figure)
{
    std::string text;
    if (figure.value && figure.yardstick && *figure.yardstick > 0) {
        text = fmt::format("{:3.0f} % of a {} ({})", hundred * *figure.value / *figure.yardstick,
                           figure.yardstickName, digits(*figure.yardstick));
    }
    if (figure.basis == Basis::submitted) {
        text += text.empty() ? "submission only" : "; submission only";
    }
    if (!figure.note.empty()) {
        text += (text.empty() ? "" : "; ") + figure.note;
    }
    return text;
}

std::string sentences(std::string_view heading, const std::vector<std::string>& all)
{
    std::string text;
    for (const std::string& sentence : all) {
        text += fmt::format("  {:<10} {}\n", heading, sentence);
    }
    return text;
}

} // namespace

std::string digits(double value)
{
    const double size = std::abs(value);
    const int decimals = size < 0.0005 || size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : 3;
    return fmt::format("{:.{}f}", value, decimals);
}

std::string quantity(const std::optional<double>& value, const std::string& unit)
{
    return value ? digits(*value) + (unit.empty() ? "" : " " + unit) : "not measured";
}

std::string signedPercent(const std::optional<double>& percent)
{
    return percent ? fmt::format("{:+.0f} %", *percent) : "";
}

std::string TextReport::line(const SuiteLine& line)
{
    return line.text + "\n";
}

std::string TextReport::figure(const Figure& figure)
{
    std::string text;
    if (!begun_) {
        begun_ = true;
        text = "\nFurther tests\n=============\n";
    }
    if (figure.group != group_) {
        group_ = figure.group;
        text += fmt::format("\n{}\n", titleOf(group_));
    }
    text += fmt::format("  {:<56} {:>17}   {}", figure.title, quantity(figure.value, figure.unit),
                        beside(figure));
    text.erase(text.find_last_not_of(' ') + 1);
    return text + "\n";
}

std::string TextReport::end(const Report& report, const Verdict& verdict)
{
    std::string text = "\nVerdict\n=======\n\n" + verdict.headline + "\n\n";
    text += fmt::format("  {:<10} {}\n", "Device", verdict.device);
    if (!report.device.driver.empty()) {
        text += fmt::format("  {:<10} {}\n", "Driver", report.device.driver);
    }
    text += fmt::format("  {:<10} {}\n", "Health", nameOf(verdict.health));
    text += sentences("Fault", verdict.faults);
    text += sentences("Remark", verdict.remarks);
    for (const RealTime& rate : verdict.realTime) {
        text += fmt::format("  {:<10} real time: {}\n", rate.name, answer(rate));
    }
    if (!verdict.limit.empty()) {
        text += fmt::format("  {:<10} {}\n", "Limit", verdict.limit);
    }
    if (!verdict.load.empty()) {
        text += fmt::format("  {:<10} {}\n", "Load", verdict.load);
    }
    if (!report.ending.said.empty()) {
        text += "\nThe measuring process's last words:\n" + report.ending.said;
    }
    return text;
}

std::string TextReport::comparison(const Comparison& comparison)
{
    std::string text = fmt::format("\nCompared with {} ({}, {})\n", comparison.name, comparison.date,
                                   comparison.device.empty() ? "no device" : comparison.device);
    text += std::string(text.size() - 2, '=') + "\n\n";
    for (const std::string& remark : comparison.remarks) {
        text += remark + "\n";
    }
    for (const Change& change : comparison.changes) {
        text += fmt::format("  {:<56} {:>17} -> {:>17} {:>8}  {}\n", change.title,
                            quantity(change.before, change.unit), quantity(change.now, change.unit),
                            signedPercent(change.percent), nameOf(change.meaning));
    }
    return text;
}

std::string textOf(const Report& report)
{
    std::string text;
    for (const SuiteLine& line : report.suite) {
        text += TextReport::line(line);
    }
    TextReport writer;
    for (const Figure& figure : report.figures) {
        text += writer.figure(figure);
    }
    return text + TextReport::end(report, judge(report));
}

} // namespace Qx::Diagnosis
