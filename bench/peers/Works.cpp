#include "bench/peers/Works.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>

namespace Qx::Bench {
namespace {

const char* nameOf(WorkKind kind)
{
    switch (kind) {
    case WorkKind::Decode:
        return "decode";
    case WorkKind::Encode:
        return "encode";
    case WorkKind::FromV210:
        return "from-v210-";
    case WorkKind::ToV210:
        return "to-v210-";
    case WorkKind::V210ToRGB:
        return "v210-to-rgb";
    case WorkKind::Grade:
        return "grade";
    case WorkKind::Look:
        break;
    }
    return "look";
}

const char* textOf(WorkKind kind)
{
    switch (kind) {
    case WorkKind::Decode:
        return "4:2:2 to RGB";
    case WorkKind::Encode:
        return "RGB to 4:2:2";
    case WorkKind::FromV210:
        return "v210 to 4:2:2";
    case WorkKind::ToV210:
        return "4:2:2 to v210";
    case WorkKind::V210ToRGB:
        return "v210 to RGB";
    case WorkKind::Grade:
        return "colour correction";
    case WorkKind::Look:
        break;
    }
    return "look of 33 points";
}

const char* nameOf(ChromaFilter filter)
{
    switch (filter) {
    case ChromaFilter::Point:
        return "point";
    case ChromaFilter::CatmullRom:
        return "catmull-rom";
    case ChromaFilter::Mitchell:
        return "mitchell";
    case ChromaFilter::Lanczos:
        return "lanczos";
    case ChromaFilter::None:
        break;
    }
    return "exact";
}

const char* textOf(ChromaFilter filter)
{
    switch (filter) {
    case ChromaFilter::Point:
        return ", Point";
    case ChromaFilter::CatmullRom:
        return ", Catmull-Rom";
    case ChromaFilter::Mitchell:
        return ", Mitchell";
    case ChromaFilter::Lanczos:
        return ", Lanczos";
    case ChromaFilter::None:
        break;
    }
    return "";
}

std::vector<Work> makeWorks()
{
    using enum WorkKind;
    using enum ChromaFilter;
    std::vector<Work> works;
    for (const Place place : {Place::Device, Place::Memory}) {
        for (const unsigned depth : {8U, 16U}) {
            for (const ChromaFilter filter : {Point, CatmullRom, Mitchell}) {
                works.push_back({Decode, depth, filter, place});
            }
            for (const ChromaFilter filter : {Point, Lanczos}) {
                works.push_back({Encode, depth, filter, place});
            }
        }
        works.push_back({FromV210, 16, None, place});
        works.push_back({ToV210, 16, None, place});
        works.push_back({V210ToRGB, 16, Point, place});
        for (const unsigned depth : {8U, 16U}) {
            works.push_back({Look, depth, None, place});
            works.push_back({Look, depth, None, place, Content::Photograph});
            works.push_back({Grade, depth, None, place});
        }
    }
    return works;
}

using Random = std::mt19937;

/// A 10-bit code between video's black and white.
std::uint16_t videoCode(Random& random)
{
    return static_cast<std::uint16_t>(64U + random() % 877U);
}

void putWord(std::vector<std::byte>& bytes, std::size_t at, std::uint32_t word)
{
    std::memcpy(bytes.data() + at, &word, sizeof word);
}

std::vector<std::byte> videoFrame(unsigned depth)
{
    Random random(1);
    std::vector<std::byte> bytes(frameBytes(FrameLayout::Video, depth));
    for (std::size_t at = 0; at < bytes.size(); at += depth / 8) {
        const std::uint16_t code = videoCode(random);
        if (depth == 8) {
            bytes[at] = static_cast<std::byte>(code >> 2U);
        } else {
            const auto word = static_cast<std::uint16_t>(code << 6U);
            std::memcpy(bytes.data() + at, &word, sizeof word);
        }
    }
    return bytes;
}

std::vector<std::byte> packedFrame()
{
    Random random(1);
    std::vector<std::byte> bytes(frameBytes(FrameLayout::V210, 16));
    for (std::size_t at = 0; at < bytes.size(); at += 4) {
        const std::uint32_t low = videoCode(random);
        const std::uint32_t middle = videoCode(random);
        const std::uint32_t high = videoCode(random);
        putWord(bytes, at, low | middle << 10U | high << 20U);
    }
    return bytes;
}

std::vector<std::byte> colourFrame(unsigned depth)
{
    Random random(1);
    std::vector<std::byte> bytes(frameBytes(FrameLayout::Colour, depth));
    const std::size_t pixel = depth / 2;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const bool alpha = at % pixel >= pixel / 4 * 3;
        bytes[at] = static_cast<std::byte>(alpha ? 255U : random() & 255U);
    }
    return bytes;
}

/// Random values on a grid of square cells; between them, values are interpolated.
class Clouds
{
public:
    Clouds(Random& random, int cell) : cell_(cell), columns_(frameWidth / cell + 2)
    {
        values_.resize(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(frameHeight / cell + 2));
        for (float& value : values_) {
            value = std::uniform_real_distribution(-1.0F, 1.0F)(random);
        }
    }

    float at(int x, int y) const
    {
        const auto scale = static_cast<float>(cell_);
        const float right = static_cast<float>(x % cell_) / scale;
        const float down = static_cast<float>(y % cell_) / scale;
        const auto first = static_cast<std::size_t>(y / cell_ * columns_ + x / cell_);
        const auto below = first + static_cast<std::size_t>(columns_);
        return std::lerp(std::lerp(values_[first], values_[first + 1], right),
                         std::lerp(values_[below], values_[below + 1], right), down);
    }

private:
    int cell_;
    int columns_;
    std::vector<float> values_;
};

/// Discs of all sizes that hide each other, each of its own colour, under soft light: the "dead leaves" that
/// have the statistics of photographs (Lee, Mumford and Huang, 2001).
class Scene
{
public:
    explicit Scene(Random& random)
        : discOf_(static_cast<std::size_t>(frameWidth) * static_cast<std::size_t>(frameHeight))
    {
        constexpr int discs = 12000; // they cover the frame
        constexpr float smallest = 6;
        constexpr float largest = 500;
        std::uniform_real_distribution<float> unit(0.0F, 1.0F);
        for (int i = 0; i < discs; ++i) {
            // Sizes are as frequent as their cube is small.
            const float least = smallest * smallest / (largest * largest);
            const float radius = smallest / std::sqrt(1 - unit(random) * (1 - least));
            const auto x = static_cast<float>(random() % frameWidth);
            const auto y = static_cast<float>(random() % frameHeight);
            colours_.push_back({unit(random), unit(random), unit(random)});
            paint(x, y, radius);
        }
        for (int cell = 16; cell <= 256; cell *= 4) {
            light_.emplace_back(random, cell);
        }
    }

    /// From 0 to 1.
    std::array<float, 3> at(int x, int y) const
    {
        float light = 0.75F;
        for (const Clouds& clouds : light_) {
            light += 0.08F * clouds.at(x, y);
        }
        std::array<float, 3> colour = colours_[discOf_[placeOf(x, y)]];
        for (float& component : colour) {
            component *= light;
        }
        return colour;
    }

private:
    static std::size_t placeOf(int x, int y)
    {
        return static_cast<std::size_t>(y) * frameWidth + static_cast<std::size_t>(x);
    }

    /// The newest colour hides what is under it.
    void paint(float atX, float atY, float radius)
    {
        const auto first = [&](float at) { return std::max(static_cast<int>(at - radius), 0); };
        const auto end = [&](float at, int most) {
            return std::min(static_cast<int>(at + radius) + 1, most);
        };
        for (int y = first(atY); y < end(atY, frameHeight); ++y) {
            for (int x = first(atX); x < end(atX, frameWidth); ++x) {
                if (std::hypot(static_cast<float>(x) - atX, static_cast<float>(y) - atY) < radius) {
                    discOf_[placeOf(x, y)] = colours_.size() - 1;
                }
            }
        }
    }

    std::vector<std::array<float, 3>> colours_;
    std::vector<std::size_t> discOf_; ///< the topmost at each pixel
    std::vector<Clouds> light_;
};

std::vector<std::byte> photograph(unsigned depth)
{
    Random random(1);
    const Scene scene(random);
    std::normal_distribution<float> noise(0.0F, 1.0F / 255);
    std::vector<std::byte> bytes(frameBytes(FrameLayout::Colour, depth));
    const std::size_t component = depth / 8;
    const auto most = static_cast<float>((1U << depth) - 1);
    std::byte* to = bytes.data();
    for (int y = 0; y < frameHeight; ++y) {
        for (int x = 0; x < frameWidth; ++x) {
            const std::array<float, 3> colour = scene.at(x, y);
            for (std::size_t i = 0; i < 4; ++i, to += component) {
                const float value = i == 3 ? 1.0F : std::clamp(colour.at(i) + noise(random), 0.0F, 1.0F);
                const auto code = static_cast<std::uint32_t>(std::lround(value * most));
                std::memcpy(to, &code, component); // the lowest bytes
            }
        }
    }
    return bytes;
}

} // namespace

std::string Work::key() const
{
    return nameOf(kind) + std::to_string(depth) + '.' + nameOf(filter) +
           (place == Place::Device ? ".device" : ".memory") +
           (content == Content::Photograph ? ".photograph" : "");
}

std::string Work::text() const
{
    return std::string(textOf(kind)) + ", " + std::to_string(depth) + " bits" + textOf(filter) +
           (content == Content::Photograph ? ", as in a photograph" : "");
}

const std::vector<Work>& allWorks()
{
    static const std::vector<Work> works = makeWorks();
    return works;
}

std::optional<Work> workOf(std::string_view key)
{
    const auto& works = allWorks();
    const auto found =
        std::find_if(works.begin(), works.end(), [key](const Work& work) { return work.key() == key; });
    return found != works.end() ? std::optional(*found) : std::nullopt;
}

FrameLayout sourceLayout(WorkKind kind)
{
    switch (kind) {
    case WorkKind::Decode:
    case WorkKind::ToV210:
        return FrameLayout::Video;
    case WorkKind::FromV210:
    case WorkKind::V210ToRGB:
        return FrameLayout::V210;
    case WorkKind::Encode:
    case WorkKind::Look:
    case WorkKind::Grade:
        break;
    }
    return FrameLayout::Colour;
}

FrameLayout resultLayout(WorkKind kind)
{
    switch (kind) {
    case WorkKind::Encode:
    case WorkKind::FromV210:
        return FrameLayout::Video;
    case WorkKind::ToV210:
        return FrameLayout::V210;
    case WorkKind::Decode:
    case WorkKind::V210ToRGB:
    case WorkKind::Look:
    case WorkKind::Grade:
        break;
    }
    return FrameLayout::Colour;
}

std::size_t rowBytes(FrameLayout layout, unsigned depth)
{
    constexpr std::size_t width = frameWidth;
    switch (layout) {
    case FrameLayout::Video:
        return width * 2 * depth / 8;
    case FrameLayout::V210:
        return (width + 47) / 48 * 128;
    case FrameLayout::Colour:
        break;
    }
    return width * 4 * depth / 8;
}

std::size_t frameBytes(FrameLayout layout, unsigned depth)
{
    return rowBytes(layout, depth) * static_cast<std::size_t>(frameHeight);
}

std::vector<std::byte> sourceFrame(const Work& work)
{
    switch (sourceLayout(work.kind)) {
    case FrameLayout::Video:
        return videoFrame(work.depth);
    case FrameLayout::V210:
        return packedFrame();
    case FrameLayout::Colour:
        break;
    }
    return work.content == Content::Photograph ? photograph(work.depth) : colourFrame(work.depth);
}

} // namespace Qx::Bench
