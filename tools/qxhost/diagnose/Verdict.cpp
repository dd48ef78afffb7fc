#include "tools/qxhost/diagnose/Verdict.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace Qx::Diagnosis {

namespace {

struct Rate
{
    std::string_view name;
    double framesPerSecond;
    std::string_view figure;
};

constexpr std::array rates{Rate{"1080p25", 25, "frame-hd"}, Rate{"1080p60", 60, "frame-hd"},
                           Rate{"2160p60", 60, "frame-uhd"}};

std::string describeDevice(const Report& report)
{
    if (report.device.name.empty()) {
        return "No device was found.";
    }
    if (report.device.software) {
        return fmt::format("{} is a SOFTWARE device: the processor computes every picture, and no GPU is "
                           "used.",
                           report.device.name);
    }
    return fmt::format("{} is a real device ({}).", report.device.name, report.device.type);
}

void addEnding(const Ending& ending, Verdict& verdict)
{
    using Kind = Ending::Kind;
    const std::string doing =
        ending.doing.empty() ? "" : fmt::format(" The last thing it was asked for: {}.", ending.doing);
    switch (ending.kind) {
    case Kind::complete:
        break;
    case Kind::interrupted:
        verdict.remarks.push_back("The run was interrupted: this is a part of it." + doing);
        break;
    case Kind::hung:
        verdict.faults.push_back(fmt::format("The device or its driver hung: {}.{}", ending.reason, doing));
        break;
    case Kind::died:
        verdict.faults.push_back(fmt::format("The measuring process died: {}.{}", ending.reason, doing));
        break;
    case Kind::noDevice:
        verdict.faults.push_back(fmt::format("There is no device to measure: {}.", ending.reason));
        break;
    }
}

void addSuite(const std::vector<SuiteLine>& lines, Verdict& verdict)
{
    constexpr int failure = 4;
    constexpr int heading = 5;
    std::string test;
    for (const SuiteLine& line : lines) {
        if (line.category == heading) {
            test = line.text;
        } else if (line.category == failure) {
            verdict.faults.push_back(fmt::format("{}: {}.", test, line.text));
        }
    }
}

bool isCheck(const Figure& figure)
{
    return figure.group == "checks" && figure.id != "rounding";
}

void addFigure(const Figure& figure, Verdict& verdict)
{
    if (figure.failed) {
        verdict.faults.push_back(fmt::format("{}: {}.", figure.title, figure.note));
    } else if (isCheck(figure) && figure.value.value_or(0) > 0) {
        verdict.faults.push_back(fmt::format("{}: {:.0f} wrong.", figure.title, *figure.value));
    } else if (figure.id == "rounding" && figure.value.value_or(0) > 0) {
        verdict.remarks.push_back(
            fmt::format("The device rounds {:.0f} of the levels tried to the wrong code; the shipped "
                        "conversions round by themselves and are not touched by this.",
                        *figure.value));
    }
    if (const auto factor = slowdown(figure.samples)) {
        verdict.remarks.push_back(fmt::format("{} got slower all the while: frames took {:.1f} times as long "
                                              "at the end as at the beginning. Heat, or something else that "
                                              "uses the device?",
                                              figure.title, *factor));
    }
}

/// Milliseconds that a frame of 1920 x 1080 spends on something; empty when that was not measured.
std::optional<double> drawingTime(const Report& report)
{
    constexpr double perSecond = 1000;
    double sum = 0;
    for (const std::string_view id : {"decode-8", "effect-8", "encode-8"}) {
        const auto rate = valueOf(report, id);
        if (!rate || *rate <= 0) {
            return std::nullopt;
        }
        sum += perSecond / *rate;
    }
    return sum;
}

std::optional<double> transferTime(const Report& report, std::string_view id)
{
    constexpr double bytes = 1920.0 * 1080.0 * 2; // 4:2:2 with 8 bits
    constexpr double bytesPerMillisecond = 1e6;   // of one GB/s
    if (const Figure* figure = find(report, id); figure != nullptr && figure->note == nothingCopied) {
        return 0;
    }
    const auto rate = valueOf(report, id);
    return rate && *rate > 0 ? std::optional(bytes / (*rate * bytesPerMillisecond)) : std::nullopt;
}

struct Part
{
    std::string_view name;
    double milliseconds;
};

std::string describeLimit(const Report& report)
{
    const auto whole = valueOf(report, "frame-hd");
    const auto up = transferTime(report, "upload-hd");
    const auto drawing = drawingTime(report);
    const auto down = transferTime(report, "download-hd");
    if (!whole || *whole <= 0 || !up || !drawing || !down) {
        return {};
    }
    constexpr double perSecond = 1000;
    constexpr double percent = 100;
    const double sum = *up + *drawing + *down;
    const double frame = perSecond / *whole;
    // Stages of several frames run beside each other, so that the parts may come to more than a frame takes.
    if (sum < frame / 2) {
        return fmt::format(
            "Neither drawing nor the transfers limit it: at 1080p they take {:.1f} of the {:.1f} "
            "ms of a frame. The rest is the processor's: orders, and waiting.",
            sum, frame);
    }
    const std::array parts{Part{"Moving frames to the device", *up}, Part{"Drawing", *drawing},
                           Part{"Reading frames back", *down}};
    const Part& largest = *std::max_element(parts.begin(), parts.end(), [](const Part& a, const Part& b) {
        return a.milliseconds < b.milliseconds;
    });
    std::string text = fmt::format("{} limits it: {:.1f} ms of a 1080p frame, {:.0f} % of its work.",
                                   largest.name, largest.milliseconds, percent * largest.milliseconds / sum);
    if (report.device.software) {
        text += " All of it is the processor's work here; a GPU would take it over.";
    }
    return text;
}

bool lacksEffects(const Report& report)
{
    const Figure* figure = find(report, effectsFigure);
    return figure != nullptr && figure->failed;
}

/// The groups that a run with --only was asked for, or those that it was not, by their names.
std::string groupsOf(const Report& report, bool wanted)
{
    std::string names;
    for (const Group& group : groups()) {
        if (wantsPacked(report, group.id) == wanted) {
            names += fmt::format("{}{}", names.empty() ? "" : ", ", group.id);
        }
    }
    return names;
}

/// A quick run leaves out what says nothing about health.
bool isPartial(const Report& report)
{
    return !report.only.empty() && !groupsOf(report, false).empty();
}

Health healthOf(const Report& report, const Verdict& verdict)
{
    if (verdict.faults.size() == 1 && lacksEffects(report)) {
        return Health::unknown;
    }
    if (!verdict.faults.empty()) {
        return Health::unhealthy;
    }
    if (report.figures.empty() && report.suite.empty()) {
        return Health::unknown;
    }
    if (!verdict.remarks.empty()) {
        return Health::remarks;
    }
    return isPartial(report) ? Health::partial : Health::healthy;
}

std::string headlineOf(const Report& report, const Verdict& verdict)
{
    const std::string kind = report.device.software ? "The software device" : "The GPU path";
    switch (verdict.health) {
    case Health::unhealthy:
        return fmt::format("{} is NOT healthy: {} {} wrong.", kind, verdict.faults.size(),
                           verdict.faults.size() == 1 ? "thing went" : "things went");
    case Health::unknown:
        return lacksEffects(report)
                   ? "Effects to draw with are missing, so nothing can be said of the device."
                   : "Nothing was measured, so nothing can be said.";
    case Health::healthy:
    case Health::partial:
    case Health::remarks:
        break;
    }
    if (report.ending.kind == Ending::Kind::interrupted) {
        return fmt::format("{} was healthy as far as the run got.", kind);
    }
    if (isPartial(report)) {
        return fmt::format("{} was well in what was measured: {}. Not measured: {}.", kind,
                           groupsOf(report, true), groupsOf(report, false));
    }
    std::string fast;
    for (const RealTime& rate : verdict.realTime) {
        if (rate.reached && *rate.reached >= rate.needed) {
            fast = rate.name;
        }
    }
    const bool measured = verdict.realTime.front().reached.has_value();
    return fmt::format("{} is healthy{}.", kind,
                       !measured      ? ""
                       : fast.empty() ? ", but too slow for real time even at 1080p25"
                                      : " and fast enough for real time up to " + fast);
}

} // namespace

std::string_view nameOf(Health health)
{
    switch (health) {
    case Health::healthy:
        return "healthy";
    case Health::partial:
        return "healthy as far as it was measured";
    case Health::remarks:
        return "healthy, with remarks";
    case Health::unhealthy:
        return "not healthy";
    case Health::unknown:
        break;
    }
    return "unknown";
}

Verdict judge(const Report& report)
{
    Verdict verdict;
    verdict.device = describeDevice(report);
    addEnding(report.ending, verdict);
    addSuite(report.suite, verdict);
    for (const Figure& figure : report.figures) {
        addFigure(figure, verdict);
    }
    for (const Rate& rate : rates) {
        verdict.realTime.push_back(
            {std::string(rate.name), rate.framesPerSecond, valueOf(report, rate.figure)});
    }
    verdict.limit = describeLimit(report);
    if (const std::string busy = busyness(report.machine); !busy.empty()) {
        verdict.load =
            fmt::format("The machine was busy with other work in the minute before: {}. The figures "
                        "may be lower than it reaches undisturbed.",
                        busy);
    }
    verdict.health = healthOf(report, verdict);
    verdict.headline = headlineOf(report, verdict);
    return verdict;
}

std::string answer(const RealTime& rate)
{
    if (!rate.reached) {
        return "not measured";
    }
    constexpr double ease = 1.1;
    const double times = *rate.reached / rate.needed;
    if (times < 1) {
        return fmt::format("no ({:.3g} frames/s, {:.2f} times what is needed)", *rate.reached, times);
    }
    return fmt::format("{} ({:.3g} frames/s, {:.{}f} times what is needed)", times < ease ? "barely" : "yes",
                       *rate.reached, times, times < ease ? 2 : 1);
}

} // namespace Qx::Diagnosis
