#include "tools/qxhost/studio/picture/Pixels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace Qx::Program::Studio {

namespace {

/// Averages of N x N pixels, or of n x n if N is 0: a number that the compiler knows makes it several times
/// as quick.
template <int N>
Pixels averagesOf(const PixelView& view, int n = N)
{
    if constexpr (N != 0) {
        n = N;
    }
    Pixels result{view.width / n, view.height / n, {}};
    result.bytes.resize(static_cast<std::size_t>(result.width) * static_cast<std::size_t>(result.height) * 4);
    std::uint8_t* out = result.bytes.data();
    const auto count = static_cast<unsigned>(n * n);
    for (int y = 0; y < result.height; ++y) {
        for (int x = 0; x < result.width; ++x, out += 4) {
            std::array<unsigned, 4> sums{count / 2, count / 2, count / 2, count / 2};
            for (int line = 0; line < n; ++line) {
                const std::uint8_t* in = view.at(x * n, y * n + line);
                for (int i = 0; i < n; ++i, in += 4) {
                    sums[0] += in[0];
                    sums[1] += in[1];
                    sums[2] += in[2];
                    sums[3] += in[3];
                }
            }
            for (std::size_t i = 0; i < sums.size(); ++i) {
                out[i] = static_cast<std::uint8_t>(sums[i] / count);
            }
        }
    }
    return result;
}

} // namespace

Pixels copyOf(const PixelView& view)
{
    Pixels copy{view.width, view.height, {}};
    const std::size_t row = static_cast<std::size_t>(view.width) * 4;
    copy.bytes.resize(row * static_cast<std::size_t>(view.height));
    for (int y = 0; y < view.height; ++y) {
        std::memcpy(copy.bytes.data() + row * static_cast<std::size_t>(y), view.at(0, y), row);
    }
    return copy;
}

Pixels resized(const PixelView& view, int width, int height)
{
    if (view.width == width && view.height == height) {
        return copyOf(view);
    }
    Pixels result{width, height, {}};
    result.bytes.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    std::uint8_t* out = result.bytes.data();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x, out += 4) {
            std::memcpy(out, view.at(x * view.width / width, y * view.height / height), 4);
        }
    }
    return result;
}

Pixels reduced(const PixelView& view, int n)
{
    switch (n) {
    case 1:
        return copyOf(view);
    case 2:
        return averagesOf<2>(view);
    case 3:
        return averagesOf<3>(view);
    case 4:
        return averagesOf<4>(view);
    default:
        return averagesOf<0>(view, n);
    }
}

Pixels differenceOf(const PixelView& one, const PixelView& other, double times)
{
    constexpr int codes = 256;
    std::vector<std::uint8_t> table(static_cast<std::size_t>(2 * codes)); // by the difference + 256
    for (int d = -codes; d < codes; ++d) {
        table[static_cast<std::size_t>(d + codes)] =
            static_cast<std::uint8_t>(std::clamp(std::lround(128 + times * d), 0L, 255L));
    }
    Pixels result{one.width, one.height, {}};
    result.bytes.resize(static_cast<std::size_t>(one.width) * static_cast<std::size_t>(one.height) * 4);
    std::uint8_t* out = result.bytes.data();
    for (int y = 0; y < one.height; ++y) {
        const std::uint8_t* a = one.at(0, y);
        const std::uint8_t* b = other.at(0, y);
        for (int i = 0; i < one.width * 4; ++i) {
            *out++ = i % 4 == 0 ? 255 : table[static_cast<std::size_t>(a[i] - b[i] + codes)];
        }
    }
    return result;
}

} // namespace Qx::Program::Studio
