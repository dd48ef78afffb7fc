#include "tools/qxhost/diagnose/Plots.h"

#include "tools/qxhost/diagnose/FrameSizes.h"
#include "tools/qxhost/diagnose/Page.h"
#include "tools/qxhost/diagnose/TextReport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <numeric>

namespace Qx::Diagnosis {

namespace {

constexpr double barWidth = 1000; // of the drawing, in its own units
constexpr double hundred = 100;

/// A number for data-value: as exact as it is.
std::string exact(double value)
{
    return fmt::format("{}", value);
}

std::string row(const std::string& name, const std::string& drawing, const std::string& number)
{
    return fmt::format(
        "<div class=\"row\"><span class=\"name\">{}</span>{}<span class=\"number\">{}</span></div>\n", name,
        drawing, number);
}

std::string bar(const Figure& figure, double largest)
{
    const double width = largest > 0 ? barWidth * *figure.value / largest : 0;
    std::string mark;
    std::string label = fmt::format("{}: {}", figure.title, quantity(figure.value, figure.unit));
    if (figure.yardstick) {
        constexpr double markWidth = 6;
        const double x = barWidth * *figure.yardstick / largest - markWidth;
        if (x < barWidth) {
            mark = fmt::format(R"(<rect class="mark" x="{:.1f}" y="0" width="{}" height="20"/>)",
                               std::max(x, 0.0), markWidth);
        }
        label +=
            fmt::format("; a {} makes {}", figure.yardstickName, quantity(figure.yardstick, figure.unit));
    }
    return fmt::format(
        R"(<svg class="bar" role="img" aria-label="{0}" viewBox="0 0 1000 20" preserveAspectRatio="none">)"
        R"(<title>{0}</title><rect class="track" width="1000" height="20"/>)"
        R"(<rect class="fill" data-id="{1}" data-value="{2}" y="3" width="{3:.1f}" height="14"/>{4}</svg>)",
        escaped(label), escaped(figure.id), exact(*figure.value), width, mark);
}

std::string numberText(const Figure& figure)
{
    std::string text = escaped(quantity(figure.value, figure.unit));
    if (figure.yardstick && *figure.yardstick > 0) {
        text += fmt::format(" <small>{:.0f} %</small>", hundred * *figure.value / *figure.yardstick);
    }
    return text;
}

/// A line of the plot of transfers.
struct Line
{
    std::string_view prefix; ///< of the figures' ids
    const char* name;
    const char* style; ///< class
};

constexpr std::array lines{Line{"copy-memory-", "Copy in memory", "copy"}, Line{"upload-", "Upload", "up"},
                           Line{"download-", "Download", "down"}};

constexpr double plotLeft = 44;
constexpr double plotRight = 430;
constexpr double plotTop = 12;
constexpr double plotBottom = 216;

double xOf(std::size_t index)
{
    constexpr double margin = 36;
    return plotLeft + margin +
           (plotRight - plotLeft - 2 * margin) * static_cast<double>(index) / (frameSizes.size() - 1);
}

double yOf(double value, double top)
{
    return plotBottom - (plotBottom - plotTop) * value / top;
}

/// The smallest of 1, 2, 5, 10, 20, ... that divides up to `value` into at most five parts.
double tickStep(double value)
{
    const double power = std::pow(10.0, std::floor(std::log10(value / 5)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (value <= 5 * factor * power) {
            return factor * power;
        }
    }
    return 10 * power;
}

std::string marker(const Line& line, double x, double y, const Figure& figure)
{
    const std::string title = fmt::format("{}: {}", figure.title, quantity(figure.value, figure.unit));
    return fmt::format(R"(<circle class="{}" cx="{:.1f}" cy="{:.1f}" r="4.5" data-id="{}" data-value="{}">)"
                       R"(<title>{}</title></circle>)",
                       line.style, x, y, escaped(figure.id), exact(*figure.value), escaped(title));
}

std::string drawLine(const Report& report, const Line& line, double top)
{
    std::string points;
    std::string markers;
    for (std::size_t i = 0; i < frameSizes.size(); ++i) {
        const Figure* figure = find(report, std::string(line.prefix) + std::string(frameSizes.at(i).id));
        if (figure != nullptr && figure->value) {
            const double x = xOf(i);
            const double y = yOf(*figure->value, top);
            points += fmt::format("{:.1f},{:.1f} ", x, y);
            markers += marker(line, x, y, *figure);
        }
    }
    return points.empty()
               ? ""
               : fmt::format(R"(<polyline class="{}" points="{}"/>{})", line.style, points, markers);
}

std::string axes(double top, double step)
{
    std::string text;
    for (int i = 0; i * step <= top * 1.001; ++i) {
        const double y = yOf(i * step, top);
        text += fmt::format(R"(<line class="grid" x1="{}" x2="{}" y1="{:.1f}" y2="{:.1f}"/>)"
                            R"(<text class="tick" x="{}" y="{:.1f}" text-anchor="end">{:g}</text>)",
                            plotLeft, plotRight, y, y, plotLeft - 6, y + 4, i * step);
    }
    for (std::size_t i = 0; i < frameSizes.size(); ++i) {
        const std::string_view name = frameSizes.at(i).name;
        text += fmt::format(R"(<text class="tick" x="{:.1f}" y="{}" text-anchor="middle">{}</text>)", xOf(i),
                            plotBottom + 18, name.substr(0, name.find(',')));
    }
    return text;
}

double largestTransfer(const Report& report)
{
    double largest = 0;
    for (const Line& line : lines) {
        for (const Figure& figure : report.figures) {
            if (figure.value && figure.id.starts_with(line.prefix)) {
                largest = std::max(largest, *figure.value);
            }
        }
    }
    return largest;
}

/// So many means of neighbours at most.
std::vector<double> thinned(const std::vector<double>& samples)
{
    constexpr std::size_t most = 80;
    if (samples.size() <= most) {
        return samples;
    }
    std::vector<double> means;
    for (std::size_t i = 0; i < most; ++i) {
        const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(i * samples.size() / most);
        const auto end = samples.begin() + static_cast<std::ptrdiff_t>((i + 1) * samples.size() / most);
        means.push_back(std::accumulate(begin, end, 0.0) / static_cast<double>(end - begin));
    }
    return means;
}

std::string course(const Figure& figure)
{
    const std::vector<double> samples = thinned(figure.samples);
    const double top = *std::max_element(samples.begin(), samples.end());
    constexpr double width = 300;
    constexpr double height = 50;
    std::string points;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        points += fmt::format("{:.1f},{:.1f} ",
                              width * static_cast<double>(i) / static_cast<double>(samples.size() - 1),
                              height - (height - 2) * samples[i] / top);
    }
    const auto [least, most] = std::minmax_element(figure.samples.begin(), figure.samples.end());
    const auto factor = slowdown(figure.samples);
    const std::string range =
        fmt::format("{} to {} ms{}", digits(*least), digits(*most),
                    factor ? fmt::format(", slower all the while: {:.1f} times", *factor) : "");
    return fmt::format(
        R"(<figure class="course{}"><figcaption>{} <small>{}</small></figcaption><svg role="img" aria-label="{}: )"
        R"({} a frame, in the order of time" viewBox="0 0 300 52" preserveAspectRatio="none">)"
        R"(<line class="grid" x1="0" x2="300" y1="50" y2="50"/><polyline data-id="{}" points="{}"/></svg></figure>)"
        "\n",
        factor ? " slower" : "", escaped(figure.title), range, escaped(figure.title), range,
        escaped(figure.id), points);
}

/// Where a change points: above zero for the better.
double improvement(const Change& change)
{
    return change.meaning == Change::Meaning::worse    ? -std::abs(*change.percent)
           : change.meaning == Change::Meaning::better ? std::abs(*change.percent)
                                                       : *change.percent;
}

} // namespace

std::string barPlot(const std::vector<const Figure*>& figures)
{
    // A yardstick far off, as a software device's is, would leave no room for the bars.
    constexpr double room = 2.5;
    double largest = 0;
    for (const Figure* figure : figures) {
        largest = std::max(largest, figure->value.value_or(0));
    }
    const double bound = room * largest;
    for (const Figure* figure : figures) {
        const double yardstick = figure->yardstick.value_or(0);
        largest = yardstick <= bound ? std::max(largest, yardstick) : largest;
    }
    std::string text;
    for (const Figure* figure : figures) {
        const std::string name = escaped(figure->title);
        text += figure->value
                    ? row(name, bar(*figure, largest), numberText(*figure))
                    : row(name, fmt::format("<span class=\"none\">{}</span>", escaped(figure->note)),
                          "not measured");
    }
    return text.empty() ? "" : "<div class=\"bars\">\n" + text + "</div>\n";
}

std::string transferPlot(const Report& report)
{
    const double largest = largestTransfer(report);
    if (largest <= 0) {
        return {};
    }
    const double step = tickStep(largest);
    const double top = std::ceil(largest / step) * step;
    std::string text =
        R"(<svg class="lines" role="img" aria-label="Gigabytes a second over sizes of frames; the )"
        R"(table has the figures" viewBox="0 0 440 244">)";
    text += axes(top, step);
    std::string legend;
    for (const Line& line : lines) {
        const std::string drawn = drawLine(report, line, top);
        text += drawn;
        if (!drawn.empty()) {
            legend += fmt::format(
                R"(<li><svg viewBox="0 0 34 12" aria-hidden="true"><polyline class="{0}" )"
                R"(points="2,6 32,6"/><circle class="{0}" cx="17" cy="6" r="4.5"/></svg>{1}</li>)",
                line.style, line.name);
        }
    }
    return text + "</svg>\n<ul class=\"legend\">" + legend + "</ul>\n";
}

std::string coursePlots(const Report& report)
{
    constexpr std::size_t fewest = 8;
    std::string text;
    for (const Figure& figure : report.figures) {
        if (figure.samples.size() >= fewest && figure.group != "copies") {
            text += course(figure);
        }
    }
    return text;
}

std::string changePlot(const Comparison& comparison)
{
    double largest = 2 * noise;
    for (const Change& change : comparison.changes) {
        if (change.percent) {
            largest = std::max(largest, std::min(std::abs(*change.percent), hundred));
        }
    }
    constexpr double middle = barWidth / 2;
    std::string text;
    for (const Change& change : comparison.changes) {
        if (!change.percent || change.meaning == Change::Meaning::same) {
            continue;
        }
        const double length = middle * std::clamp(improvement(change) / largest, -1.0, 1.0);
        const std::string label =
            fmt::format("{}: {} then, {} now, {}", change.title, quantity(change.before, change.unit),
                        quantity(change.now, change.unit), nameOf(change.meaning));
        const std::string drawing = fmt::format(
            R"(<svg class="bar" role="img" aria-label="{0}" viewBox="0 0 1000 20" preserveAspectRatio="none"><title>{0})"
            R"(</title><rect class="track" width="1000" height="20"/><rect class="{1}" data-change="{2}" x="{3:.1f}" )"
            R"(y="3" width="{4:.1f}" height="14"/><rect class="zero" x="498" width="4" height="20"/></svg>)",
            escaped(label), nameOf(change.meaning), exact(*change.percent), middle + std::min(length, 0.0),
            std::abs(length));
        text +=
            row(escaped(change.title), drawing,
                fmt::format("{} <small>{}</small>", signedPercent(change.percent), nameOf(change.meaning)));
    }
    return text.empty() ? "" : "<div class=\"bars\">\n" + text + "</div>\n";
}

} // namespace Qx::Diagnosis
