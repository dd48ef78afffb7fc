#include "QxFxResources/GPUColourConverter.h"
#include "platform/GPUService.h"
#include "platform/GraphicPrimitives.h"
#include "platform/OS.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <span>

namespace Qx::Diagnosis {

using namespace Image;

namespace {

Figure countFigure(const char* id, std::string title, std::optional<std::uint64_t> wrong)
{
    Figure figure;
    figure.id = id;
    figure.group = "checks";
    figure.title = std::move(title);
    figure.unit = "wrong";
    figure.better = Better::lower;
    figure.basis = Basis::counted;
    figure.failed = !wrong;
    if (wrong) {
        figure.value = static_cast<double>(*wrong);
    } else {
        figure.note = "the device refused an image or a drawing";
    }
    return figure;
}

std::span<std::uint8_t> bytesOf(const Qx::Ptr<iHostImage>& image, iHostImage::eAccess access)
{
    void* memory = image ? image->map(access) : nullptr;
    return memory == nullptr ? std::span<std::uint8_t>()
                             : std::span(static_cast<std::uint8_t*>(memory),
                                         image->getPitch() * static_cast<std::size_t>(image->getSize().y));
}

/// Bytes without a pattern: Marsaglia's xorshift.
void fillWithNoise(std::span<std::uint8_t> bytes)
{
    std::uint32_t state = 0x9E3779B9U;
    for (std::uint8_t& byte : bytes) {
        state ^= state << 13U;
        state ^= state >> 17U;
        state ^= state << 5U;
        byte = static_cast<std::uint8_t>(state >> 24U);
    }
}

/// Bytes that came back changed from a way to the device and back; empty when they did not come back.
std::optional<std::uint64_t> changedBytes(Probe& probe, iGPUImage::eFormat format)
{
    const Qx::Ptr<iHostImage> sent = OS().gpu().createHostImage(hd.size(), format);
    const std::span<std::uint8_t> before = bytesOf(sent, iHostImage::Write);
    if (before.empty()) {
        return std::nullopt;
    }
    fillWithNoise(before);
    const Qx::Ptr<iHostImage> back = probe.download(probe.upload(sent));
    const std::span<std::uint8_t> after = bytesOf(back, iHostImage::Read);
    if (after.size() != before.size()) {
        return std::nullopt;
    }
    std::uint64_t changed = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        changed += before[i] != after[i] ? 1U : 0U;
    }
    return changed;
}

struct Colour
{
    int y;
    int cb;
    int cr;
};

/// White, black, grey and the bars of Rec. ITU-R BT.709 at 75 % as their codes in video range.
constexpr std::array colours{Colour{235, 128, 128}, Colour{16, 128, 128}, Colour{126, 128, 128},
                             Colour{180, 128, 128}, Colour{168, 44, 136}, Colour{145, 147, 44},
                             Colour{134, 63, 52},   Colour{63, 193, 204}, Colour{51, 109, 212},
                             Colour{28, 212, 120}};

/// Rec. ITU-R BT.709-6, items 3.2 to 3.4: the full-range codes of a colour.
std::array<int, 3> rgbOf(const Colour& colour)
{
    constexpr double kr = 0.2126;
    constexpr double kb = 0.0722;
    constexpr double kg = 1 - kr - kb;
    const double y = (colour.y - 16) / 219.0;
    const double pb = (colour.cb - 128) / 224.0;
    const double pr = (colour.cr - 128) / 224.0;
    const double red = y + 2 * (1 - kr) * pr;
    const double blue = y + 2 * (1 - kb) * pb;
    const double green = (y - kr * red - kb * blue) / kg;
    const auto code = [](double value) {
        return static_cast<int>(std::lround(std::min(std::max(value, 0.0), 1.0) * 255));
    };
    return {code(red), code(green), code(blue)};
}

constexpr int pixelsAColour = 16;

Surface makeColours()
{
    constexpr int height = 2;
    Surface frame(static_cast<unsigned>(pixelsAColour * static_cast<int>(colours.size())), height, YUY2,
                  false, 8, 0, 0);
    frame.setColourSpace(ColourSpace::BT709);
    frame.setGamutScaling(GamutScaling::Video);
    if (!frame.allocateHost()) {
        return frame;
    }
    const std::span<std::uint8_t> bytes = bytesOf(frame.getHostImage(), iHostImage::Write);
    const std::size_t pitch = frame.getHostImage()->getPitch();
    for (std::size_t i = 0; i + 3 < bytes.size(); i += 4) {
        const std::size_t pair = i % pitch / 4;
        const Colour& colour = colours.at(std::min(pair / (pixelsAColour / 2), colours.size() - 1));
        bytes[i] = static_cast<std::uint8_t>(colour.y);
        bytes[i + 1] = static_cast<std::uint8_t>(colour.cb);
        bytes[i + 2] = static_cast<std::uint8_t>(colour.y);
        bytes[i + 3] = static_cast<std::uint8_t>(colour.cr);
    }
    return frame;
}

/// Colours that a conversion to RGB misses by more than a code.
std::optional<std::uint64_t> wrongColours(Probe& probe)
{
    const Surface source = probe.upload(makeColours());
    Surface target = source.createDestARGBGPUSurface(iGPUImage::eARGB8);
    if (!source.getGPUSurface() || !target.getGPUSurface() ||
        !ColourConversion::convertYCrCb422ToRGB(source, target, GamutScaling::Unscaled, Filter::Point)) {
        return std::nullopt;
    }
    const std::span<std::uint8_t> bytes = bytesOf(probe.download(target.getGPUSurface()), iHostImage::Read);
    if (bytes.size() < colours.size() * pixelsAColour * 4) {
        return std::nullopt;
    }
    std::uint64_t wrong = 0;
    for (std::size_t i = 0; i < colours.size(); ++i) {
        const std::size_t pixel = (i * pixelsAColour + pixelsAColour / 2) * 4; // its components: A R G B
        const std::array<int, 3> expected = rgbOf(colours.at(i));
        bool fits = true;
        for (std::size_t c = 0; c < expected.size(); ++c) {
            fits = fits && std::abs(bytes[pixel + 1 + c] - expected.at(c)) <= 1;
        }
        wrong += fits ? 0U : 1U;
    }
    return wrong;
}

constexpr int steps8Bits = 255;

/// A hundredth of a code below and above the half between two codes: far more than the error of a float
/// there, and less than any device's steps.
constexpr float besideHalf = 0.01F;

/// Levels that the device rounds to the farther code when it writes them to 8 bits.
std::optional<std::uint64_t> wronglyRounded(Probe& probe)
{
    constexpr int levels = 2 * steps8Bits;
    const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage({levels, 1}, iGPUImage::eARGB8);
    const Qx::Ptr<iGraphicPrimitivesRenderer> renderer =
        target ? target->getPrimitivesRenderer(1) : Qx::Ptr<iGraphicPrimitivesRenderer>();
    for (int i = 0; i < levels; ++i) {
        const float side = i % 2 == 0 ? -besideHalf : besideHalf;
        const int below = i / 2;
        const float level = (static_cast<float>(below) + 0.5F + side) / steps8Bits;
        const NormalisedRGB colour{level, level, level, level};
        if (!renderer || !probe.operation() ||
            !renderer->draw(RectDescription{{i, 0, i + 1, 1}, colour, colour, 0}, 1)) {
            return std::nullopt;
        }
    }
    const std::span<std::uint8_t> bytes = bytesOf(probe.download(target), iHostImage::Read);
    if (bytes.size() != static_cast<std::size_t>(levels) * 4) {
        return std::nullopt;
    }
    std::uint64_t wrong = 0;
    for (int i = 0; i < levels; ++i) {
        const int nearest = (i + 1) / 2;
        bool fits = true;
        for (int c = 0; c < 4; ++c) {
            fits = fits && bytes[static_cast<std::size_t>(i) * 4 + static_cast<std::size_t>(c)] == nearest;
        }
        wrong += fits ? 0U : 1U;
    }
    return wrong;
}

} // namespace

void checkResults(Probe& probe, Yardsticks&)
{
    for (const auto format : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        const int bits = format == iGPUImage::eARGB8 ? 8 : 16;
        probe.doing(fmt::format("sending a frame of 1920 x 1080, {} bits, there and back", bits));
        probe.send(countFigure(bits == 8 ? "transfer-8" : "transfer-16",
                               fmt::format("Bytes of a frame of {} bits that came back changed", bits),
                               changedBytes(probe, format)));
    }
    probe.doing("converting known colours from 4:2:2 to RGB");
    probe.send(countFigure("colours",
                           fmt::format("Known colours, of {}, that 4:2:2 to RGB missed", colours.size()),
                           wrongColours(probe)));
    probe.doing("drawing levels beside the half between two codes");
    probe.send(countFigure("rounding",
                           fmt::format("Levels beside a half, of {}, rounded the wrong way", 2 * steps8Bits),
                           wronglyRounded(probe)));
}

} // namespace Qx::Diagnosis
