#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Program {

/// How a parameter goes from a key frame to the next one.
enum class KeyCurve
{
    linear, ///< at a constant speed
    smooth, ///< speeds up, and slows down; passes key frames between smooth ones without a stop
    hold    ///< stays, and jumps at the next one
};

/// The value of a parameter in a certain frame.
struct KeyFrame
{
    std::int64_t frame = 0; ///< of the clip, from 0; negative: before it
    /// The label that says the frame, as it was written; empty if the number does. The number then follows
    /// from the clip's time code: see resolveTimeCodes().
    std::string timeCode;
    std::vector<float> values; ///< at least one, all finite
    KeyCurve curve = KeyCurve::linear;

    bool operator==(const KeyFrame&) const = default;
};

/// A parameter whose value changes with the frames.
struct KeyedParameter
{
    std::string name;
    std::vector<KeyFrame> keys; ///< at least one; by their frames, and no two of one frame

    bool operator==(const KeyedParameter&) const = default;
};

/// The value in a frame: that of the first key frame before it, that of the last one after it. Between two
/// key frames it never leaves what lies between theirs. Where one has a single value and another several,
/// the single one counts for each. `keys` is as in KeyedParameter.
std::vector<float> valuesAt(const std::vector<KeyFrame>& keys, std::int64_t frame);

} // namespace Qx::Program
