#include "tools/qxhost/console/ProgressDisplay.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr std::chrono::milliseconds redrawEvery{100};
constexpr std::chrono::seconds lineEvery{5};
constexpr std::chrono::seconds rateOver{4}; ///< long enough to be steady, short enough to follow the picture

} // namespace

std::string clockText(double seconds)
{
    const auto whole = static_cast<std::int64_t>(std::ceil(std::max(seconds, 0.0)));
    const std::int64_t h = whole / 3600;
    const std::int64_t m = whole / 60 % 60;
    const std::int64_t s = whole % 60;
    return h > 0 ? fmt::format("{}:{:02}:{:02}", h, m, s) : fmt::format("{}:{:02}", m, s);
}

std::string fieldsThatFit(std::string_view text, std::size_t columns)
{
    while (text.size() > columns) {
        const std::size_t end = text.rfind(", ");
        if (end == std::string_view::npos) {
            return {};
        }
        text = text.substr(0, end);
    }
    return std::string(text);
}

ProgressDisplay::ProgressDisplay(Console& console, std::int64_t total)
    : console_(console), total_(total), lastShown_(Clock::now())
{
    recent_.push_back({Clock::now(), 0});
}

ProgressDisplay::~ProgressDisplay()
{
    console_.endStatus(false);
}

void ProgressDisplay::update(std::int64_t done)
{
    if (console_.quiet()) {
        return;
    }
    const Clock::time_point now = Clock::now();
    const bool interactive = console_.interactive();
    if (now - lastShown_ < (interactive ? Clock::duration(redrawEvery) : Clock::duration(lineEvery))) {
        return;
    }
    lastShown_ = now;
    recent_.push_back({now, done});
    while (recent_.size() > 2 && now - recent_.front().when > rateOver) {
        recent_.pop_front();
    }
    if (interactive) {
        console_.status(bar(done));
    } else {
        console_.note(figures(done));
    }
}

double ProgressDisplay::framesPerSecond() const
{
    const std::chrono::duration<double> span = recent_.back().when - recent_.front().when;
    const auto frames = static_cast<double>(recent_.back().done - recent_.front().done);
    return span.count() > 0 ? frames / span.count() : 0;
}

std::string ProgressDisplay::figures(std::int64_t done) const
{
    const double rate = framesPerSecond();
    if (total_ <= 0) {
        return fmt::format("{} frames, {:.1f} frames/s", done, rate);
    }
    const auto left = static_cast<double>(std::max<std::int64_t>(total_ - done, 0));
    const std::string time = rate > 0 ? clockText(left / rate) + " left" : std::string("stalled");
    return fmt::format("{} of {} frames, {:.1f} frames/s, {}", done, total_, rate, time);
}

std::string ProgressDisplay::bar(std::int64_t done) const
{
    const std::string text = figures(done);
    constexpr std::size_t widest = 32;
    constexpr std::size_t around = 10; // brackets, blanks and "100%"
    const std::size_t columns = console_.columns();
    if (total_ <= 0 || columns < text.size() + around + 4) {
        return fieldsThatFit(text, columns > 0 ? columns - 1 : 0);
    }
    const std::size_t width = std::min(widest, columns - text.size() - around);
    const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
    const auto filled = static_cast<std::size_t>(part * static_cast<double>(width));
    return fmt::format("[{}{}] {:3.0f}%  {}", std::string(filled, '#'), std::string(width - filled, '.'),
                       std::floor(part * 100), text);
}

} // namespace Qx::Program
