#include "tools/qxhost/pipeline/look/KeyFrames.h"

#include <algorithm>
#include <cstddef>

namespace Qx::Program {

namespace {

double componentOf(const KeyFrame& key, std::size_t component)
{
    return key.values[std::min(component, key.values.size() - 1)];
}

/// Values a frame, from a key frame to the next.
double speedBetween(const KeyFrame& from, const KeyFrame& to, std::size_t component)
{
    return (componentOf(to, component) - componentOf(from, component)) /
           static_cast<double>(to.frame - from.frame);
}

/// The speed of a smooth curve at its n-th key frame: that of Fritsch and Butland, which keeps a curve
/// through the key frames between their values; none where a run of smooth key frames begins or ends.
double speedAt(const std::vector<KeyFrame>& keys, std::size_t n, std::size_t component)
{
    const bool isWithin = n > 0 && n + 1 < keys.size() && keys[n - 1].curve == KeyCurve::smooth &&
                          keys[n].curve == KeyCurve::smooth;
    if (!isWithin) {
        return 0;
    }
    const double before = speedBetween(keys[n - 1], keys[n], component);
    const double after = speedBetween(keys[n], keys[n + 1], component);
    if (before * after <= 0) {
        return 0;
    }
    const auto lengthBefore = static_cast<double>(keys[n].frame - keys[n - 1].frame);
    const auto lengthAfter = static_cast<double>(keys[n + 1].frame - keys[n].frame);
    const double weightBefore = 2 * lengthAfter + lengthBefore;
    const double weightAfter = lengthAfter + 2 * lengthBefore;
    return (weightBefore + weightAfter) / (weightBefore / before + weightAfter / after);
}

/// The cubic through both key frames with the speeds of the curve there.
double smoothValue(const std::vector<KeyFrame>& keys, std::size_t n, std::size_t component, double along)
{
    const auto length = static_cast<double>(keys[n + 1].frame - keys[n].frame);
    const double from = componentOf(keys[n], component);
    const double change = componentOf(keys[n + 1], component) - from;
    const double begin = length * speedAt(keys, n, component);
    const double end = length * speedAt(keys, n + 1, component);
    return from +
           along * (begin + along * ((3 * change - 2 * begin - end) + along * (begin + end - 2 * change)));
}

/// Between the n-th key frame and the next.
double valueBetween(const std::vector<KeyFrame>& keys, std::size_t n, std::size_t component,
                    std::int64_t frame)
{
    const KeyFrame& from = keys[n];
    const double along =
        static_cast<double>(frame - from.frame) / static_cast<double>(keys[n + 1].frame - from.frame);
    const double first = componentOf(from, component);
    switch (from.curve) {
    case KeyCurve::hold:
        return first;
    case KeyCurve::smooth:
        return smoothValue(keys, n, component, along);
    case KeyCurve::linear:
        break;
    }
    return first + along * (componentOf(keys[n + 1], component) - first);
}

} // namespace

std::vector<float> valuesAt(const std::vector<KeyFrame>& keys, std::int64_t frame)
{
    const auto after = std::upper_bound(keys.begin(), keys.end(), frame,
                                        [](std::int64_t at, const KeyFrame& key) { return at < key.frame; });
    if (after == keys.begin()) {
        return keys.front().values;
    }
    const auto n = static_cast<std::size_t>(after - keys.begin()) - 1;
    if (after == keys.end() || keys[n].frame == frame) {
        return keys[n].values;
    }
    const std::size_t components = std::max(keys[n].values.size(), keys[n + 1].values.size());
    std::vector<float> values;
    for (std::size_t i = 0; i < components; ++i) {
        values.push_back(static_cast<float>(valueBetween(keys, n, i, frame)));
    }
    return values;
}

} // namespace Qx::Program
