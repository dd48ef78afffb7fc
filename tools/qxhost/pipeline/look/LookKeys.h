#pragma once

#include "tools/qxhost/pipeline/look/KeyFrames.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace Qx::Program {

// The words of look files, for those who read and write them.

constexpr const char* versionKey = "look";
constexpr std::int64_t lookVersion = 1;
constexpr std::int64_t lastKeyFrame = 999'999'999;

constexpr std::array<std::pair<std::string_view, KeyCurve>, 3> curveWords{
    {{"linear", KeyCurve::linear}, {"smooth", KeyCurve::smooth}, {"hold", KeyCurve::hold}}};

/// The word of a curve.
constexpr std::string_view wordOf(KeyCurve curve)
{
    for (const auto& [word, each] : curveWords) {
        if (each == curve) {
            return word;
        }
    }
    return curveWords.front().first;
}

/// The order of key frames: those by number, and after them those by time code.
inline bool isEarlierKey(const KeyFrame& a, const KeyFrame& b)
{
    if (a.timeCode.empty() != b.timeCode.empty()) {
        return a.timeCode.empty();
    }
    return a.timeCode.empty() ? a.frame < b.frame : a.timeCode < b.timeCode;
}

} // namespace Qx::Program
