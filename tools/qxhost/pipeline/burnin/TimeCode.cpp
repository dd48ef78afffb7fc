#include "tools/qxhost/pipeline/burnin/TimeCode.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

std::int64_t nominalRate(const Media::Rational& rate)
{
    constexpr std::int64_t unknown = 25;
    return rate.num > 0 ? std::max<std::int64_t>(std::llround(rate.toDouble()), 1) : unknown;
}

/// Labels that drop-frame counting leaves out in a minute; 0 for rates without it.
std::int64_t droppedLabels(const Media::Rational& rate)
{
    const std::int64_t nominal = nominalRate(rate);
    const bool fractional = std::abs(rate.toDouble() * 1.001 - static_cast<double>(nominal)) < 0.0005 * 30;
    return rate.num > 0 && nominal % 30 == 0 && fractional ? nominal / 15 : 0;
}

/// The four numbers of a label, and what stands before the last.
struct Label
{
    std::array<std::int64_t, 4> numbers{};
    char lastSeparator = ':';
};

std::optional<Label> read(std::string_view text)
{
    Label label;
    const char* at = text.data();
    const char* end = at + text.size();
    for (std::size_t i = 0; i < 4; ++i) {
        const auto [stopped, error] = std::from_chars(at, end, label.numbers.at(i));
        const auto digits = stopped - at;
        if (error != std::errc() || label.numbers.at(i) < 0 || digits < 2 || digits > 3) {
            return std::nullopt;
        }
        at = stopped;
        if (i < 3) {
            if (at == end || (*at != ':' && *at != ';' && *at != '.')) {
                return std::nullopt;
            }
            label.lastSeparator = *at++;
        }
    }
    return at == end ? std::optional(label) : std::nullopt;
}

} // namespace

TimeCode::TimeCode(const Media::Rational& rate) : perSecond_(nominalRate(rate)), dropped_(droppedLabels(rate))
{
}

std::optional<TimeCode> TimeCode::startingAt(std::string_view text, const Media::Rational& rate)
{
    TimeCode code(rate);
    const std::optional<Label> label = read(text);
    if (!label) {
        return std::nullopt;
    }
    const auto [hours, minutes, seconds, frames] = label->numbers;
    if (hours > 23 || minutes > 59 || seconds > 59 || frames >= code.perSecond_) {
        return std::nullopt;
    }
    if (label->lastSeparator == ':') {
        code.dropped_ = 0;
    }
    const std::int64_t allMinutes = 60 * hours + minutes;
    // A label that drop-frame counting leaves out stands for the first one after it.
    const bool leftOut = minutes % 10 != 0 && seconds == 0 && frames < code.dropped_;
    code.first_ = (60 * allMinutes + seconds) * code.perSecond_ + (leftOut ? code.dropped_ : frames) -
                  code.dropped_ * (allMinutes - allMinutes / 10);
    return code;
}

bool TimeCode::isLabel(std::string_view text)
{
    return read(text).has_value();
}

std::optional<std::int64_t> TimeCode::frameOf(std::string_view text) const
{
    const std::optional<Label> given = read(text);
    const Media::Rational rate = dropped_ > 0 ? Media::Rational{static_cast<int>(perSecond_) * 1000, 1001}
                                              : Media::Rational{static_cast<int>(perSecond_), 1};
    const std::optional<TimeCode> code = startingAt(text, rate);
    if (!given || !code || (given->lastSeparator == ':') != (dropped_ == 0)) {
        return std::nullopt;
    }
    if (code->label(0) != fmt::format("{:02}:{:02}:{:02}{}{:02}", given->numbers[0], given->numbers[1],
                                      given->numbers[2], dropped_ > 0 ? ';' : ':', given->numbers[3])) {
        return std::nullopt; // one that drop-frame counting leaves out
    }
    return ((code->first_ - first_) % framesPerDay() + framesPerDay()) % framesPerDay();
}

TimeCode TimeCode::ofFields() const
{
    TimeCode fields(*this);
    fields.perSecond_ *= 2;
    fields.dropped_ *= 2;
    fields.first_ *= 2;
    return fields;
}

std::string TimeCode::label(std::int64_t frame) const
{
    const std::int64_t day = framesPerDay();
    std::int64_t number = ((first_ + frame) % day + day) % day;
    const std::int64_t tens = number / framesPerTenMinutes();
    const std::int64_t rest = number % framesPerTenMinutes();
    // The first minute of ten keeps all its labels.
    const std::int64_t fullMinute = 60 * perSecond_;
    const std::int64_t minutes = rest < fullMinute ? 0 : 1 + (rest - fullMinute) / framesPerMinute();
    number += dropped_ * (9 * tens + minutes);
    const std::int64_t seconds = number / perSecond_;
    return fmt::format("{:02}:{:02}:{:02}{}{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60,
                       dropped_ > 0 ? ';' : ':', number % perSecond_);
}

} // namespace Qx::Program
