#include "bench/peers/Works.h"

#include <algorithm>
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

} // namespace

std::string Work::key() const
{
    return nameOf(kind) + std::to_string(depth) + '.' + nameOf(filter) +
           (place == Place::Device ? ".device" : ".memory");
}

std::string Work::text() const
{
    return std::string(textOf(kind)) + ", " + std::to_string(depth) + " bits" + textOf(filter);
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
    return colourFrame(work.depth);
}

} // namespace Qx::Bench
