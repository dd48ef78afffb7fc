#include "tools/qxhost/studio/picture/Pixels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Qx::Program::Studio {

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
    if (n == 1) {
        return copyOf(view);
    }
    Pixels result{view.width / n, view.height / n, {}};
    const std::size_t row = static_cast<std::size_t>(result.width) * 4;
    result.bytes.resize(row * static_cast<std::size_t>(result.height));
    std::vector<unsigned> sums(row);
    const auto count = static_cast<unsigned>(n * n);
    for (int y = 0; y < result.height; ++y) {
        std::fill(sums.begin(), sums.end(), count / 2);
        for (int line = 0; line < n; ++line) {
            const std::uint8_t* in = view.at(0, y * n + line);
            for (std::size_t x = 0; x < row; x += 4, in += 4 * n) {
                for (int i = 0; i < 4 * n; ++i) {
                    sums[x + static_cast<std::size_t>(i % 4)] += in[i];
                }
            }
        }
        std::uint8_t* const out = result.bytes.data() + row * static_cast<std::size_t>(y);
        std::transform(sums.begin(), sums.end(), out,
                       [count](unsigned sum) { return static_cast<std::uint8_t>(sum / count); });
    }
    return result;
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
