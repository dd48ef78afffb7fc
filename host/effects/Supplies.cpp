#include "host/effects/Supplies.h"

#include "host/core/AsciiCase.h"
#include "host/effects/framework/AnnotationNumbers.h"
#include "host/effects/framework/ParameterRange.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>

namespace Qx::Host {
namespace {

using Parameter = CompiledEffect::Parameter;

struct Spelling
{
    std::string_view word; ///< in lower case
    Supply supply;
};

template <std::size_t Count>
Supply supplyFor(const std::array<Spelling, Count>& spellings, const std::string& word)
{
    const auto found = std::find_if(spellings.begin(), spellings.end(),
                                    [&](const Spelling& spelling) { return spelling.word == word; });
    return found == spellings.end() ? Supply::None : found->supply;
}

constexpr std::array semantics{
    Spelling{"time", Supply::Seconds},
    Spelling{"time0_x", Supply::Seconds},
    Spelling{"elapsedtime", Supply::FrameSeconds},
    Spelling{"lasttime", Supply::SecondsBefore},
    Spelling{"frame", Supply::FrameNumber},
    Spelling{"framenumber", Supply::FrameNumber},
    Spelling{"framecount", Supply::FrameNumber},
    Spelling{"fps", Supply::FrameRate},
    Spelling{"date", Supply::Date},
    Spelling{"viewportpixelsize", Supply::PictureSize},
    Spelling{"viewportsize", Supply::PictureSize},
    Spelling{"viewportdimensions", Supply::PictureSize},
    Spelling{"rendertargetdimensions", Supply::PictureSize},
    Spelling{"picturesize", Supply::PictureSize},
    Spelling{"texelsize", Supply::TexelSize},
    Spelling{"pixelsize", Supply::TexelSize},
    Spelling{"inverseviewportdimensions", Supply::TexelSize},
    Spelling{"viewportwidth", Supply::PictureWidth},
    Spelling{"viewportheight", Supply::PictureHeight},
    Spelling{"viewportwidthinverse", Supply::TexelWidth},
    Spelling{"viewportheightinverse", Supply::TexelHeight},
    Spelling{"aspectratio", Supply::AspectRatio},
    Spelling{"random", Supply::Random},
    Spelling{"mouseposition", Supply::PointerPosition},
    Spelling{"mousecoordinatesxy", Supply::PointerPixel},
    Spelling{"leftmousedown", Supply::Rest},
    Spelling{"rightmousedown", Supply::Rest},
};

constexpr std::array sources{
    Spelling{"timer", Supply::Milliseconds},
    Spelling{"frametime", Supply::FrameMilliseconds},
    Spelling{"framecount", Supply::FrameNumber},
    Spelling{"date", Supply::Date},
    Spelling{"random", Supply::Random},
    Spelling{"pingpong", Supply::PingPong},
    Spelling{"mousepoint", Supply::PointerPixel},
    Spelling{"mousedelta", Supply::Rest},
    Spelling{"mousebutton", Supply::Rest},
    Spelling{"mousewheel", Supply::Rest},
    Spelling{"key", Supply::Rest},
    Spelling{"overlay_active", Supply::Rest},
    Spelling{"overlay_hovered", Supply::Rest},
    Spelling{"overlay_open", Supply::Rest},
    Spelling{"bufready_depth", Supply::Rest},
};

constexpr std::array addresses{
    Spelling{"sas.time.now", Supply::Seconds},
    Spelling{"sas.time.last", Supply::SecondsBefore},
    Spelling{"sas.time.framenumber", Supply::FrameNumber},
};

/// Without underscores and a leading "g_".
constexpr std::array names{
    Spelling{"time", Supply::Seconds},
    Spelling{"ftime", Supply::Seconds},
    Spelling{"gtime", Supply::Seconds},
    Spelling{"itime", Supply::Seconds},
    Spelling{"iglobaltime", Supply::Seconds},
    Spelling{"totaltime", Supply::Seconds},
    Spelling{"timer", Supply::Seconds},
    Spelling{"elapsedtime", Supply::FrameSeconds},
    Spelling{"deltatime", Supply::FrameSeconds},
    Spelling{"itimedelta", Supply::FrameSeconds},
    Spelling{"frame", Supply::FrameNumber},
    Spelling{"iframe", Supply::FrameNumber},
    Spelling{"framenumber", Supply::FrameNumber},
    Spelling{"framecount", Supply::FrameNumber},
    Spelling{"idate", Supply::PlayerDate},
    Spelling{"resolution", Supply::PictureSize},
    Spelling{"iresolution", Supply::PictureSize},
    Spelling{"screensize", Supply::PictureSize},
    Spelling{"screendimensions", Supply::PictureSize},
    Spelling{"viewportsize", Supply::PictureSize},
    Spelling{"texturesize", Supply::PictureSize},
    Spelling{"imagesize", Supply::PictureSize},
    Spelling{"picturesize", Supply::PictureSize},
    Spelling{"rendertargetsize", Supply::PictureSize},
    Spelling{"texelsize", Supply::TexelSize},
    Spelling{"pixelsize", Supply::TexelSize},
    Spelling{"invresolution", Supply::TexelSize},
    Spelling{"inverseresolution", Supply::TexelSize},
    Spelling{"invscreensize", Supply::TexelSize},
    Spelling{"invviewportsize", Supply::TexelSize},
    Spelling{"inverseviewportsize", Supply::TexelSize},
    Spelling{"rcpframe", Supply::TexelSize},
    Spelling{"screenwidth", Supply::PictureWidth},
    Spelling{"viewportwidth", Supply::PictureWidth},
    Spelling{"texturewidth", Supply::PictureWidth},
    Spelling{"imagewidth", Supply::PictureWidth},
    Spelling{"screenheight", Supply::PictureHeight},
    Spelling{"viewportheight", Supply::PictureHeight},
    Spelling{"textureheight", Supply::PictureHeight},
    Spelling{"imageheight", Supply::PictureHeight},
    Spelling{"texelwidth", Supply::TexelWidth},
    Spelling{"texelheight", Supply::TexelHeight},
    Spelling{"aspectratio", Supply::AspectRatio},
    Spelling{"p0", Supply::PlayerPicture},
    Spelling{"p1", Supply::PlayerTexel},
};

std::string plainName(std::string_view name)
{
    std::string plain = asciiLower(name);
    if (plain.starts_with("g_")) {
        plain.erase(0, 2);
    }
    std::erase(plain, '_');
    return plain;
}

const std::string* annotation(const Parameter& parameter, std::string_view name)
{
    for (const CompiledEffect::Annotation& each : parameter.annotations) {
        if (asciiLower(each.name) == name) {
            return &each.value;
        }
    }
    return nullptr;
}

/// Values that change from frame to frame: a default other than 0 then says what the author means instead.
bool changes(Supply supply)
{
    return supply >= Supply::Seconds && supply <= Supply::PlayerDate;
}

bool isZero(const Parameter& parameter)
{
    return std::all_of(parameter.defaultValue.begin(), parameter.defaultValue.end(),
                       [](std::byte byte) { return byte == std::byte{0}; });
}

bool suits(Supply supply, const Parameter& parameter)
{
    const bool isFloat = parameter.type == CompiledEffect::ScalarType::Float;
    if (parameter.rows != 1 || parameter.elements != 0) {
        return false;
    }
    switch (supply) {
    case Supply::None:
        return false;
    case Supply::Rest:
        return true;
    case Supply::PictureSize:
        return parameter.columns > 1 && (isFloat || parameter.type == CompiledEffect::ScalarType::Int);
    case Supply::TexelSize:
        return isFloat && (parameter.columns == 2 || parameter.columns == 4);
    case Supply::PlayerPicture:
    case Supply::PlayerTexel:
    case Supply::Date:
    case Supply::PlayerDate:
        return isFloat && parameter.columns == 4;
    case Supply::PingPong:
        return isFloat && parameter.columns <= 2;
    case Supply::PointerPosition:
    case Supply::PointerPixel:
        return isFloat && parameter.columns > 1;
    case Supply::Random:
        return parameter.type != CompiledEffect::ScalarType::Bool;
    case Supply::FrameNumber:
    case Supply::PictureWidth:
    case Supply::PictureHeight:
        return parameter.columns == 1 && parameter.type != CompiledEffect::ScalarType::Bool;
    default:
        return parameter.columns == 1 && isFloat;
    }
}

/// What it asks for, whether or not its type suits.
Supply askedBy(const Parameter& parameter)
{
    if (const std::string* source = annotation(parameter, "source")) {
        return supplyFor(sources, asciiLower(*source));
    }
    if (const std::string* address = annotation(parameter, "sasbindaddress")) {
        return supplyFor(addresses, asciiLower(*address));
    }
    return supplyFor(semantics, asciiLower(parameter.semanticName));
}

/// A number from 0 to 1, less than 1, that frame, parameter and component alone determine.
double randomNumber(std::int64_t frame, std::string_view parameter, std::size_t component)
{
    std::uint64_t state = static_cast<std::uint64_t>(frame) * 0x9E3779B97F4A7C15U + component;
    for (const char letter : parameter) {
        state = state * 1099511628211U + static_cast<unsigned char>(letter);
    }
    // The finalizer of SplitMix64.
    state = (state ^ (state >> 30U)) * 0xBF58476D1CE4E5B9U;
    state = (state ^ (state >> 27U)) * 0x94D049BB133111EBU;
    state ^= state >> 31U;
    constexpr double step = 1.0 / 9007199254740992.0; // 2^-53
    return static_cast<double>(state >> 11U) * step;
}

std::vector<float> randomValues(const Parameter& parameter, std::int64_t frame)
{
    const ParameterRange range = rangeOf(parameter);
    const double least = range.least.value_or(0);
    const double most = std::max(range.most.value_or(1), least);
    std::vector<float> values;
    for (std::size_t i = 0; i < parameter.columns; ++i) {
        const double random = randomNumber(frame, parameter.name, i);
        const double value = parameter.type == CompiledEffect::ScalarType::Int
                                 ? std::floor(least + random * (most - least + 1))
                                 : least + random * (most - least);
        values.push_back(static_cast<float>(value));
    }
    return values;
}

std::array<double, 4> dateOf(const FrameFacts& facts, int firstMonth)
{
    constexpr double daySeconds = 86400;
    const double seconds = facts.secondsOfDay + facts.seconds;
    const double days = std::floor(seconds / daySeconds);
    const std::chrono::sys_days day{std::chrono::days{facts.day + static_cast<std::int64_t>(days)}};
    const std::chrono::year_month_day date{day};
    return {static_cast<double>(static_cast<int>(date.year())),
            static_cast<double>(static_cast<unsigned>(date.month())) - 1 + firstMonth,
            static_cast<double>(static_cast<unsigned>(date.day())), seconds - days * daySeconds};
}

/// The way from one end to the other, in time. Its speed is `step` and, within `smoothing` of the end, less
/// by as much as it is nearer than that; but never less than `slowest`.
class Way
{
public:
    Way(double length, double step, double smoothing)
        : length_(length),
          step_(std::max(step, slowest)),
          slowing_(std::clamp(smoothing, 0.0, length)),
          creeping_(std::clamp(slowest - step_ + smoothing, 0.0, slowing_)),
          offset_(step_ - smoothing),
          slowingAt_((length - slowing_) / step_),
          creepingAt_(slowingAt_ +
                      (slowing_ > creeping_ ? std::log((slowing_ + offset_) / (creeping_ + offset_)) : 0))
    {
    }

    double seconds() const { return creepingAt_ + creeping_ / slowest; }

    /// The distance from the end after that time.
    double leftAt(double seconds) const
    {
        if (seconds < slowingAt_) {
            return length_ - step_ * seconds;
        }
        return seconds < creepingAt_ ? (slowing_ + offset_) * std::exp(slowingAt_ - seconds) - offset_
                                     : std::max(creeping_ - slowest * (seconds - creepingAt_), 0.0);
    }

private:
    static constexpr double slowest = 0.05; // per second

    double length_;
    double step_;
    double slowing_;  // distance from the end where it begins to slow down
    double creeping_; // where it has become the slowest
    double offset_;   // the speed between them is this more than the distance
    double slowingAt_;
    double creepingAt_;
};

/// From the least value to the greatest and back.
std::array<double, 4> pingPong(const Parameter& parameter, double seconds)
{
    const auto numbers = [&](std::string_view name) {
        const std::string* text = annotation(parameter, name);
        return text == nullptr ? std::vector<double>() : Effects::numbersIn(*text);
    };
    const ParameterRange range = rangeOf(parameter);
    const double least = range.least.value_or(0);
    const double most = std::max(range.most.value_or(1), least);
    const std::vector<double> steps = numbers("step");
    const std::vector<double> smoothing = numbers("smoothing");
    // Two steps are the ends of a range; what moves by chance goes by their mean.
    const double step = steps.empty()                       ? 0
                        : steps.size() > 1 && steps[1] != 0 ? (steps[0] + steps[1]) / 2
                                                            : steps[0];
    const Way way(most - least, std::abs(step), smoothing.empty() ? 0 : smoothing[0]);
    if (way.seconds() <= 0) {
        return {least, 1};
    }
    const double turns = std::floor(seconds / way.seconds());
    const double left = way.leftAt(seconds - turns * way.seconds());
    return std::fmod(turns, 2) == 0 ? std::array{most - left, 1.0, 0.0, 0.0}
                                    : std::array{least + left, -1.0, 0.0, 0.0};
}

std::array<double, 4> fourOf(Supply supply, const Parameter& parameter, const FrameFacts& facts)
{
    const double width = facts.width;
    const double height = facts.height;
    switch (supply) {
    case Supply::Seconds:
        return {facts.seconds};
    case Supply::Milliseconds:
        return {facts.seconds * 1000};
    case Supply::FrameSeconds:
        return {facts.frameSeconds};
    case Supply::FrameMilliseconds:
        return {facts.frameSeconds * 1000};
    case Supply::SecondsBefore:
        return {std::max(facts.seconds - facts.frameSeconds, 0.0)};
    case Supply::FrameNumber:
        return {static_cast<double>(facts.number)};
    case Supply::FrameRate:
        return {facts.frameSeconds > 0 ? 1 / facts.frameSeconds : 0};
    case Supply::Date:
        return dateOf(facts, 1);
    case Supply::PlayerDate:
        return dateOf(facts, 0);
    case Supply::PingPong:
        return pingPong(parameter, facts.seconds);
    case Supply::PictureSize:
        return parameter.columns == 3 ? std::array{width, height, 1.0, 0.0}
                                      : std::array{width, height, 1 / width, 1 / height};
    case Supply::TexelSize:
        return {1 / width, 1 / height, width, height};
    case Supply::PictureWidth:
        return {width};
    case Supply::PictureHeight:
        return {height};
    case Supply::TexelWidth:
        return {1 / width};
    case Supply::TexelHeight:
        return {1 / height};
    case Supply::AspectRatio:
        return {width / height};
    case Supply::PointerPosition:
        return {0.5, 0.5};
    case Supply::PointerPixel:
        return {width / 2, height / 2};
    case Supply::PlayerPicture:
        return {width, height, static_cast<double>(facts.number), facts.seconds};
    case Supply::PlayerTexel:
        return {1 / width, 1 / height};
    case Supply::None:
    case Supply::Rest:
    case Supply::Random:
        break;
    }
    return {};
}

} // namespace

Supply supplyOf(const Parameter& parameter)
{
    if (parameter.semantic != CompiledEffect::Semantic::None) {
        return Supply::None;
    }
    if (const Supply asked = askedBy(parameter); suits(asked, parameter)) {
        return asked;
    }
    const Supply named = supplyFor(names, plainName(parameter.name));
    const bool asksByName = parameter.semanticName.empty() && annotation(parameter, "source") == nullptr &&
                            annotation(parameter, "sasbindaddress") == nullptr;
    const bool isUsers = rangeOf(parameter).hasLimits() || (changes(named) && !isZero(parameter));
    return asksByName && !isUsers && suits(named, parameter) ? named : Supply::None;
}

std::string_view meaningOf(Supply supply)
{
    static constexpr std::array<std::string_view, 24> texts{
        "",
        "time in seconds",
        "time in milliseconds",
        "seconds of a frame",
        "milliseconds of a frame",
        "time of the frame before, in seconds",
        "number of the frame",
        "frames per second",
        "year, month, day, seconds",
        "year, month from 0, day, seconds",
        "size of the picture",
        "size of a texel",
        "width of the picture",
        "height of the picture",
        "width of a texel",
        "height of a texel",
        "width / height of the picture",
        "random",
        "pointer at the centre, 0 to 1",
        "pointer at the centre, in pixels",
        "back and forth",
        "nothing pressed",
        "width, height, frame, seconds",
        "size of a texel",
    };
    return texts.at(static_cast<std::size_t>(supply));
}

std::vector<float> valuesOf(Supply supply, const Parameter& parameter, const FrameFacts& facts)
{
    if (supply == Supply::Random) {
        return randomValues(parameter, facts.number);
    }
    const std::array<double, 4> values = fourOf(supply, parameter, facts);
    std::vector<float> floats;
    for (std::size_t i = 0; i < parameter.columns; ++i) {
        floats.push_back(static_cast<float>(values.at(i)));
    }
    return floats;
}

std::string unansweredBy(const Parameter& parameter)
{
    const ParameterRange range = rangeOf(parameter);
    const bool isUsers = range.hasLimits() || !range.label.empty() ||
                         annotation(parameter, "uiwidget") != nullptr ||
                         annotation(parameter, "ui_type") != nullptr;
    if (parameter.semantic != CompiledEffect::Semantic::None || supplyOf(parameter) != Supply::None ||
        isUsers) {
        return {};
    }
    if (const std::string* source = annotation(parameter, "source")) {
        return "source \"" + *source + '"';
    }
    if (const std::string* address = annotation(parameter, "sasbindaddress")) {
        return "SasBindAddress \"" + *address + '"';
    }
    // What scripts are said by: it holds no value.
    const bool isScript = asciiLower(parameter.semanticName) == "standardsglobal";
    return parameter.semanticName.empty() || isScript ? "" : "semantic " + parameter.semanticName;
}

bool isSuppliedSemantic(std::string_view semantic)
{
    return supplyFor(semantics, asciiLower(semantic)) != Supply::None;
}

} // namespace Qx::Host
