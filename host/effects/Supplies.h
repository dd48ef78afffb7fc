#pragma once

#include "host/effects/CompiledEffect.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host {

// What effect files expect of the program that runs them over pictures, and how they ask for it: by a
// semantic, by an annotation, or by a parameter's name alone. The library itself sets none of these values;
// they are for programs that draw effects whose parameters nobody else sets. docs/effects.md has the tables.

/// What a program sets a parameter to before each frame.
enum class Supply : std::uint8_t
{
    None,
    Seconds,           ///< of the frame, since the clip's beginning
    Milliseconds,      ///< the same
    FrameSeconds,      ///< from one frame to the next; 0 for a still picture
    FrameMilliseconds, ///< the same
    SecondsBefore,     ///< Seconds of the frame before
    FrameNumber,       ///< from 0
    FrameRate,         ///< frames per second; 0 for a still picture
    Date,              ///< year, month from 1, day of the month, seconds of the day
    PlayerDate,        ///< the same with the month from 0
    PictureSize,       ///< width, height; a third component is 1, or 1 / width, 1 / height
    TexelSize,         ///< 1 / width, 1 / height; two more components are width, height
    PictureWidth,      ///< in pixels
    PictureHeight,     ///< in pixels
    TexelWidth,        ///< 1 / width
    TexelHeight,       ///< 1 / height
    AspectRatio,       ///< width / height
    Random,            ///< each component anew in each frame, the same in each run
    PointerPosition,   ///< the picture's centre, from 0 to 1
    PointerPixel,      ///< the picture's centre, in pixels
    PingPong,          ///< back and forth between two values, and the direction: 1 or -1
    Rest,              ///< nothing is pressed or moved: 0
    PlayerPicture,     ///< width, height, frame number, seconds
    PlayerTexel,       ///< 1 / width, 1 / height, 0, 0
};

/// What a parameter asks for, and can be given: its type suits. None for a parameter with a
/// CompiledEffect::Semantic, which the host fills when it draws. A parameter with a range, and one that asks
/// by its name alone but has a default for a value of time, are the user's.
Supply supplyOf(const CompiledEffect::Parameter& parameter);

/// "time in seconds"; empty for None.
std::string_view meaningOf(Supply supply);

/// What a frame's values are made of.
struct FrameFacts
{
    double seconds = 0;      ///< since the clip's beginning
    double frameSeconds = 0; ///< from one frame to the next; 0 for a still picture
    std::int64_t number = 0; ///< of the frame, from 0
    int width = 1;           ///< of the picture, in pixels
    int height = 1;
    std::int64_t day = 0; ///< of the clip's beginning, in days since 1970-01-01, and the time of that day
    double secondsOfDay = 0;
};

/// The value of each component of the parameter.
std::vector<float> valuesOf(Supply supply, const CompiledEffect::Parameter& parameter,
                            const FrameFacts& facts);

/// What a parameter asks for that no program here has, as written: `semantic WORLDVIEW`, `source "key"`.
/// Empty if it asks for nothing, or is given it, or is meant for the user (it has a range or a label).
std::string unansweredBy(const CompiledEffect::Parameter& parameter);

/// Whether a semantic asks for one of the values above. Ignores case.
bool isSuppliedSemantic(std::string_view semantic);

} // namespace Qx::Host
