#include "tools/qxhost/commands/lut/LutPicture.h"

#include "platform/Font.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <numbers>

namespace Qx::Program {

namespace {

using Colour = CanvasColour;

constexpr int width = 1280;
constexpr int height = 1016;
constexpr int margin = 24;
constexpr int heading = 60; ///< for the name of the LUT
constexpr int titleSize = 17;
constexpr int title = 30; ///< above each panel
constexpr int panelWidth = (width - 3 * margin) / 2;
constexpr int chartHeight = 400;
constexpr int chartTop = heading + title;
constexpr int lowerTop = chartTop + chartHeight + margin / 2 + title;
constexpr int lowerHeight = height - margin - lowerTop;

constexpr Box before{margin, chartTop, panelWidth, chartHeight};
constexpr Box after{2 * margin + panelWidth, chartTop, panelWidth, chartHeight};
constexpr Box curves{margin, lowerTop, panelWidth, lowerHeight};
constexpr Box ramps{2 * margin + panelWidth, lowerTop, panelWidth, lowerHeight};

constexpr Colour panel{0.145F, 0.149F, 0.165F};
constexpr Colour gridLine{0.23F, 0.235F, 0.255F};
constexpr Colour identityLine{0.45F, 0.46F, 0.49F};
constexpr std::array<Colour, 3> channelLines{Colour{0.95F, 0.36F, 0.34F}, Colour{0.40F, 0.80F, 0.42F},
                                             Colour{0.36F, 0.62F, 0.98F}};

/// Every hue, from dark over full to bright, above patches and a grey ramp: u and v run over the chart.
Colour chartAt(float u, float v)
{
    constexpr float hues = 0.62F;
    constexpr float patches = 0.84F;
    if (v >= patches) {
        return {u, u, u};
    }
    if (v >= hues) {
        // Skin, foliage, sky and neutrals: colours that people know well.
        constexpr std::array<Colour, 12> known{
            Colour{0.45F, 0.32F, 0.27F}, Colour{0.80F, 0.63F, 0.55F}, Colour{0.93F, 0.78F, 0.68F},
            Colour{0.35F, 0.42F, 0.26F}, Colour{0.48F, 0.62F, 0.28F}, Colour{0.36F, 0.48F, 0.61F},
            Colour{0.53F, 0.70F, 0.86F}, Colour{0.85F, 0.47F, 0.18F}, Colour{0.73F, 0.20F, 0.22F},
            Colour{0.92F, 0.78F, 0.20F}, Colour{0.20F, 0.20F, 0.20F}, Colour{0.62F, 0.62F, 0.62F}};
        return known[std::min<std::size_t>(static_cast<std::size_t>(u * 12.0F), known.size() - 1)];
    }
    Colour colour{};
    const float level = 1.0F - v / hues;
    for (std::size_t c = 0; c < 3; ++c) {
        const float turn = u * 2.0F * std::numbers::pi_v<float> - static_cast<float>(c) * 2.0944F;
        const float hue = std::clamp(0.5F + 0.65F * std::cos(turn), 0.0F, 1.0F);
        colour[c] = level < 0.5F ? 2.0F * level * hue : hue + (2.0F * level - 1.0F) * (1.0F - hue);
    }
    return colour;
}

template <class Function>
void paint(Canvas& canvas, const Box& box, Function&& colourAt)
{
    for (int y = 0; y < box.height; ++y) {
        for (int x = 0; x < box.width; ++x) {
            canvas.blend(box.x + x, box.y + y,
                         colourAt(static_cast<float>(x) / static_cast<float>(box.width - 1),
                                  static_cast<float>(y) / static_cast<float>(box.height - 1)),
                         1.0F);
        }
    }
}

/// How the curves' panel shows numbers: its inside spans the inputs and outputs from low to high.
struct Scale
{
    Box inside;
    float low;
    float high;

    float x(float value) const
    {
        return static_cast<float>(inside.x) + part(value) * static_cast<float>(inside.width);
    }
    float y(float value) const
    {
        return static_cast<float>(inside.y) + (1.0F - part(value)) * static_cast<float>(inside.height);
    }
    float part(float value) const { return (value - low) / (high - low); }
};

/// A line through points, drawn as a whole so that its joints are not darker.
void drawLine(Canvas& canvas, const Box& clip, const std::vector<std::array<float, 2>>& points,
              const Colour& colour, float thickness)
{
    std::vector<float> coverage(static_cast<std::size_t>(clip.width) * static_cast<std::size_t>(clip.height));
    const float reach = thickness / 2 + 1;
    for (std::size_t i = 1; i < points.size(); ++i) {
        const auto [ax, ay] = points[i - 1];
        const auto [bx, by] = points[i];
        const float dx = bx - ax;
        const float dy = by - ay;
        const float length = std::max(dx * dx + dy * dy, 1e-6F);
        const int top = std::max(static_cast<int>(std::min(ay, by) - reach), clip.y);
        const int bottom = std::min(static_cast<int>(std::max(ay, by) + reach), clip.y + clip.height - 1);
        const int left = std::max(static_cast<int>(std::min(ax, bx) - reach), clip.x);
        const int right = std::min(static_cast<int>(std::max(ax, bx) + reach), clip.x + clip.width - 1);
        for (int y = top; y <= bottom; ++y) {
            for (int x = left; x <= right; ++x) {
                const float px = static_cast<float>(x) + 0.5F - ax;
                const float py = static_cast<float>(y) + 0.5F - ay;
                const float along = std::clamp((px * dx + py * dy) / length, 0.0F, 1.0F);
                const float distance = std::hypot(px - along * dx, py - along * dy);
                float& cell =
                    coverage[static_cast<std::size_t>(y - clip.y) * static_cast<std::size_t>(clip.width) +
                             static_cast<std::size_t>(x - clip.x)];
                cell = std::max(cell, std::clamp(thickness / 2 + 0.5F - distance, 0.0F, 1.0F));
            }
        }
    }
    for (int y = 0; y < clip.height; ++y) {
        for (int x = 0; x < clip.width; ++x) {
            canvas.blend(clip.x + x, clip.y + y, colour,
                         coverage[static_cast<std::size_t>(y) * static_cast<std::size_t>(clip.width) +
                                  static_cast<std::size_t>(x)]);
        }
    }
}

/// Grey through the LUT, over 0 to 1 or the domain of its table, whichever is wider.
struct GreyCurve
{
    std::vector<float> in;
    std::vector<Colour> out;
};

GreyCurve greyThrough(const Host::LUTSteps& steps)
{
    const Qx::Ptr<iHostImage3D> table = Host::singleTable(steps);
    const TableDomain domain = table ? table->getDomain() : TableDomain{};
    const float low = std::min(0.0F, *std::min_element(domain.min.begin(), domain.min.end()));
    const float high = std::max(1.0F, *std::max_element(domain.max.begin(), domain.max.end()));
    constexpr int last = 1024;
    GreyCurve curve;
    for (int i = 0; i <= last; ++i) {
        const float grey = low + (high - low) * static_cast<float>(i) / last;
        curve.in.push_back(grey);
        curve.out.push_back(Host::apply(steps, {grey, grey, grey}));
    }
    return curve;
}

/// The lines of the grid, with a number at each: quarters, or fewer where these would be crowded.
std::vector<float> gridOf(const Scale& scale)
{
    const float span = scale.high - scale.low;
    const float step = span <= 1.5F ? 0.25F : span <= 3.0F ? 0.5F : 1.0F;
    std::vector<float> grid;
    for (float i = std::ceil(scale.low / step); i * step <= scale.high; ++i) {
        grid.push_back(i * step + 0.0F); // without a sign at zero
    }
    return grid;
}

/// Numbers the inputs below the grid and the outputs to the left of it.
void drawGrid(Canvas& canvas, const Scale& scale)
{
    constexpr int numberSize = 13;
    constexpr int gap = 6;
    CanvasWriter writer(canvas, numberSize, 0);
    for (const float at : gridOf(scale)) {
        const float thickness = at == 0.0F || at == 1.0F ? 1.6F : 1.0F;
        const float x = scale.x(at);
        const float y = scale.y(at);
        drawLine(canvas, curves, {{scale.x(scale.low), y}, {scale.x(scale.high), y}}, gridLine, thickness);
        drawLine(canvas, curves, {{x, scale.y(scale.low)}, {x, scale.y(scale.high)}}, gridLine, thickness);
        const std::string number = fmt::format("{:g}", at);
        const XY<int> size = writer.measure(number);
        writer.write(number, scale.inside.x - gap - size.x, static_cast<int>(y) - size.y / 2, plainText,
                     width);
        writer.write(number, static_cast<int>(x) - size.x / 2, scale.inside.y + scale.inside.height + gap,
                     plainText, width);
    }
}

void drawCurves(Canvas& canvas, const Host::LUTSteps& steps)
{
    canvas.fill(curves, panel);
    const GreyCurve curve = greyThrough(steps);
    float low = curve.in.front();
    float high = curve.in.back();
    for (const Colour& out : curve.out) {
        // Values far beyond run off the panel instead of flattening the rest.
        low = std::max(std::min(low, *std::min_element(out.begin(), out.end())), -1.0F);
        high = std::min(std::max(high, *std::max_element(out.begin(), out.end())), 4.0F);
    }
    constexpr int padding = 20;
    constexpr int numbersLeft = 48;
    constexpr int numbersBelow = 32;
    const Scale scale{{curves.x + numbersLeft, curves.y + padding, curves.width - numbersLeft - padding,
                       curves.height - padding - numbersBelow},
                      low,
                      high};
    drawGrid(canvas, scale);
    drawLine(canvas, curves, {{scale.x(low), scale.y(low)}, {scale.x(high), scale.y(high)}}, identityLine,
             1.2F);
    for (std::size_t c = 0; c < 3; ++c) {
        std::vector<std::array<float, 2>> points;
        for (std::size_t i = 0; i < curve.in.size(); ++i) {
            points.push_back({scale.x(curve.in[i]), scale.y(std::clamp(curve.out[i][c], low - 1, high + 1))});
        }
        drawLine(canvas, curves, points, channelLines[c], 2.6F);
    }
}

void drawRamps(Canvas& canvas, const Host::LUTSteps& steps)
{
    constexpr std::array<Colour, 7> ends{Colour{1, 1, 1}, Colour{1, 0, 0}, Colour{0, 1, 0}, Colour{0, 0, 1},
                                         Colour{0, 1, 1}, Colour{1, 0, 1}, Colour{1, 1, 0}};
    constexpr int gap = 12;
    const auto count = static_cast<int>(ends.size());
    const int pair = (ramps.height - (count - 1) * gap) / count;
    for (int i = 0; i < count; ++i) {
        const Colour end = ends[static_cast<std::size_t>(i)];
        const auto ramp = [&](float u) { return Colour{u * end[0], u * end[1], u * end[2]}; };
        const int top = ramps.y + i * (pair + gap);
        paint(canvas, {ramps.x, top, ramps.width, pair / 2}, [&](float u, float) { return ramp(u); });
        paint(canvas, {ramps.x, top + pair / 2, ramps.width, pair - pair / 2},
              [&](float u, float) { return Host::apply(steps, ramp(u)); });
    }
}

void drawTitles(Canvas& canvas, const std::string& name, const std::string& contents)
{
    CanvasWriter head(canvas, 26, iFont::Bold);
    const int end = head.write(name, margin, 18, brightText, width / 2);
    CanvasWriter plain(canvas, titleSize, 0);
    plain.write(contents, end + 18, 26, plainText, width - margin - end - 18);
    constexpr int above = 25;
    plain.write("Before", before.x, before.y - above, plainText, width);
    plain.write("After", after.x, after.y - above, plainText, width);
    int x = plain.write("Curves of grey:", curves.x, curves.y - above, plainText, width) + 8;
    constexpr std::array names{"red", "green", "blue"};
    for (std::size_t c = 0; c < names.size(); ++c) {
        x = plain.write(names[c], x, curves.y - above, channelLines[c], width) + 8;
    }
    plain.write("Ramps: before above, after below", ramps.x, ramps.y - above, plainText, width);
}

} // namespace

MemoryPicture drawLut(const Host::LUTSteps& steps, const std::string& name, const std::string& contents)
{
    Canvas canvas(width, height);
    drawTitles(canvas, name, contents);
    paint(canvas, before, chartAt);
    paint(canvas, after, [&](float u, float v) { return Host::apply(steps, chartAt(u, v)); });
    drawCurves(canvas, steps);
    drawRamps(canvas, steps);
    return canvas.take();
}

} // namespace Qx::Program
