#include "bench/comparison/Page.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Qx::Bench {
namespace {

constexpr double width = 1000;
constexpr double labels = 560; ///< start of the axis
constexpr double margin = 24;
constexpr double rowHeight = 17;
constexpr double top = 74;
constexpr double headingHeight = 30;

constexpr const char* sameColour = "#1b6ca8";
constexpr const char* otherColour = "#9a9a9a";

std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    return result;
}

/// A logarithmic axis over all ratios.
class Axis
{
public:
    explicit Axis(const std::vector<const Result*>& results)
    {
        for (const Result* const result : results) {
            lowest_ = std::min(lowest_, result->ratio->smallest);
            highest_ = std::max(highest_, result->ratio->largest);
        }
        lowest_ = std::max(lowest_ / 1.1, 0.01);
        highest_ = std::min(highest_ * 1.1, 1000.0);
    }

    double at(double ratio) const
    {
        const double held = std::clamp(ratio, lowest_, highest_);
        return labels + (width - margin - labels) * std::log(held / lowest_) / std::log(highest_ / lowest_);
    }

    bool shows(double ratio) const { return ratio >= lowest_ && ratio <= highest_; }

private:
    double lowest_ = 0.5;
    double highest_ = 2;
};

std::vector<const Result*> measured(const std::vector<Result>& results)
{
    std::vector<const Result*> found;
    for (const Result& result : results) {
        if (result.ratio) {
            found.push_back(&result);
        }
    }
    return found;
}

class Drawing
{
public:
    Drawing(const Axis& axis, double height) : axis_(axis), height_(height)
    {
        text_ = fmt::format(R"(<svg xmlns="http://www.w3.org/2000/svg" width="{0:.0f}" height="{1:.0f}" )"
                            R"(viewBox="0 0 {0:.0f} {1:.0f}" font-family="DejaVu Sans, sans-serif" )"
                            R"(font-size="11">)"
                            "\n<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n",
                            width, height);
    }

    void grid()
    {
        for (const double ratio : {0.05, 0.1, 0.2, 0.5, 1.0, 2.0, 4.0, 10.0, 20.0, 50.0, 100.0}) {
            if (!axis_.shows(ratio)) {
                continue;
            }
            const bool one = ratio == 1.0;
            text_ += fmt::format(R"(<line x1="{0:.1f}" x2="{0:.1f}" y1="{1:.1f}" y2="{2:.1f}" stroke="{3}"/>)"
                                 "\n",
                                 axis_.at(ratio), top - 6, height_ - margin, one ? "#333333" : "#dddddd");
            label(axis_.at(ratio), top - 12, fmt::format("{:g}", ratio), "middle", one);
        }
    }

    void heading(double y, const std::string& text) { label(margin / 2, y, text, "start", true); }

    void legend()
    {
        label(margin / 2, 22, "Ours to theirs: right of 1 ours is faster", "start", true);
        mark(margin / 2 + 5, 40, sameColour);
        label(margin / 2 + 16, 44, "the same work", "start", false);
        mark(margin / 2 + 125, 40, otherColour);
        label(margin / 2 + 136, 44, "not the same work, or no rival: never counted", "start", false);
    }

    void row(double y, const Result& result, bool counted)
    {
        const Spread& ratio = *result.ratio;
        const char* const colour = counted ? sameColour : otherColour;
        label(labels - 10, y + 4, result.comparison.title + " | " + result.comparison.against, "end", false);
        line(axis_.at(ratio.smallest), axis_.at(ratio.largest), y, colour, 1);
        line(axis_.at(ratio.lowerQuartile), axis_.at(ratio.upperQuartile), y, colour, 4);
        mark(axis_.at(ratio.median), y, colour);
    }

    std::string finished() const { return text_ + "</svg>\n"; }

private:
    void label(double x, double y, const std::string& text, const char* anchor, bool bold)
    {
        text_ += fmt::format(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="{}"{}>{}</text>)"
                             "\n",
                             x, y, anchor, bold ? " font-weight=\"bold\"" : "", escaped(text));
    }

    void line(double from, double to, double y, const char* colour, int thickness)
    {
        text_ += fmt::format(
            R"(<line x1="{:.1f}" x2="{:.1f}" y1="{:.1f}" y2="{:.1f}" stroke="{}" stroke-width="{}"/>)"
            "\n",
            from, to, y, y, colour, thickness);
    }

    void mark(double x, double y, const char* colour)
    {
        text_ += fmt::format(R"(<circle cx="{:.1f}" cy="{:.1f}" r="4.5" fill="{}"/>)"
                             "\n",
                             x, y, colour);
    }

    const Axis& axis_;
    double height_;
    std::string text_;
};

} // namespace

std::string plotOf(const Page& page)
{
    const std::array<std::pair<const char*, std::vector<const Result*>>, 2> groups{
        {{"Beside others", measured(page.peers)}, {"Beside the limits", measured(page.limits)}}};
    std::vector<const Result*> all;
    double height = top + margin;
    for (const auto& [name, results] : groups) {
        all.insert(all.end(), results.begin(), results.end());
        height += results.empty() ? 0 : headingHeight + rowHeight * static_cast<double>(results.size());
    }
    const Axis axis(all);
    Drawing drawing(axis, height);
    drawing.legend();
    drawing.grid();
    double y = top;
    for (const auto& [name, results] : groups) {
        if (results.empty()) {
            continue;
        }
        drawing.heading(y + headingHeight / 2, name);
        y += headingHeight;
        for (const Result* const result : results) {
            drawing.row(y, *result, results == groups[0].second && result->otherwise().empty());
            y += rowHeight;
        }
    }
    return drawing.finished();
}

} // namespace Qx::Bench
