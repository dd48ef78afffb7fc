#include "tools/qxhost/pipeline/formats/PixelFormat.h"

#include "host/core/AsciiCase.h"
#include "host/core/Suggestion.h"
#include "host/surfaces/RowGeometry.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

using Host::FormatInfo;
using Host::Planes;

constexpr const char* outputRowBytesOption = "--output-row-bytes";

const FormatInfo* findWord(const std::string& word)
{
    const auto table = Host::formatTable();
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const FormatInfo& info) { return info.word == word; });
    return found != table.end() ? &*found : nullptr;
}

std::string depthsOf(const FormatInfo& info)
{
    std::vector<std::string> depths;
    for (const std::uint16_t bits : info.depths) {
        if (bits != 0) {
            depths.push_back(std::to_string(bits));
        }
    }
    return listed(depths, "or");
}

unsigned parseDepth(const std::string& option, const FormatInfo& info, const std::string& text)
{
    unsigned bits = 0;
    const char* end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, bits);
    if (error != std::errc() || stopped != end || !info.hasDepth(bits)) {
        throw Failure(ExitCode::usage,
                      fmt::format("{}: {} has no depth \"{}\": expected {} ('qxhost formats' lists them)",
                                  option, info.word, text, depthsOf(info)));
    }
    return bits;
}

std::vector<Media::StoredLayout::Plane> planesOf(const FormatInfo& info, int width, int height,
                                                 std::size_t sampleBytes, std::size_t rowBytes)
{
    using Plane = Media::StoredLayout::Plane;
    const auto whole = static_cast<std::size_t>(width) * sampleBytes;
    if (info.planes == Planes::ThreeFull) {
        const Plane plane{height, whole, rowBytes};
        return {plane, plane, plane};
    }
    const std::size_t half = static_cast<std::size_t>((width + 1) / 2) * sampleBytes;
    // Padding is the same share of a row in every plane.
    const Plane chroma{(height + 1) / 2, half,
                       rowBytes == whole ? half : (rowBytes / sampleBytes + 1) / 2 * sampleBytes};
    return {Plane{height, whole, rowBytes}, chroma, chroma};
}

} // namespace

std::string PixelFormat::name() const
{
    return bits == info->usualDepth ? info->word : fmt::format("{}:{}", info->word, bits);
}

std::vector<PixelFormat> pixelFormats()
{
    std::vector<PixelFormat> all;
    for (const FormatInfo& info : Host::formatTable()) {
        for (const std::uint16_t bits : info.depths) {
            if (bits != 0) {
                all.push_back({&info, bits});
            }
        }
    }
    return all;
}

PixelFormat parsePixelFormat(const std::string& option, const std::string& text)
{
    const std::size_t colon = text.find(':');
    const std::string word = Host::asciiLower(text.substr(0, colon));
    const FormatInfo* info = findWord(word);
    if (info == nullptr) {
        std::vector<std::string> words;
        for (const FormatInfo& each : Host::formatTable()) {
            words.emplace_back(each.word);
        }
        throw Failure(ExitCode::usage, fmt::format("{}: unknown pixel format \"{}\"{}; 'qxhost formats' "
                                                   "lists them",
                                                   option, text, Host::didYouMean(word, words)));
    }
    return {info, colon == std::string::npos ? info->usualDepth
                                             : parseDepth(option, *info, text.substr(colon + 1))};
}

std::optional<PixelFormat> pixelFormatOf(const std::filesystem::path& file)
{
    const std::string extension = Host::asciiLower(file.extension().string());
    const FormatInfo* info = extension.size() > 1 ? findWord(extension.substr(1)) : nullptr;
    return info != nullptr ? std::optional(PixelFormat{info, info->usualDepth}) : std::nullopt;
}

Image::Core::Data describeFrame(const PixelFormat& format, unsigned width, unsigned height)
{
    Image::Core::Data data(width, height, format.info->format, static_cast<std::uint16_t>(format.bits), 0);
    data.bitsPerPixel = format.info->layout(format.bits).bitsPerPixel;
    if (const auto geometry = Host::rowGeometryOf(data)) {
        data.rowPitch = static_cast<std::uint32_t>(geometry->pitch);
    }
    return data;
}

Media::StoredLayout storedLayout(const PixelFormat& format, unsigned width, unsigned height,
                                 std::size_t rowBytes, const char* option)
{
    const FormatInfo& info = *format.info;
    const Host::RowLayout& layout = info.layout(format.bits);
    const std::size_t blocks = (std::size_t{width} + layout.blockPixels - 1) / layout.blockPixels;
    const std::size_t needed = blocks * layout.blockBytes;
    const std::size_t usual = (needed + layout.rowAlignment - 1) / layout.rowAlignment * layout.rowAlignment;
    const std::size_t stride = rowBytes != 0 ? rowBytes : usual;
    constexpr std::size_t longestRow = std::size_t{1}
                                       << 30U; // no real row is as long, and frame sizes do not overflow
    if (stride > longestRow) {
        throw Failure(ExitCode::usage,
                      fmt::format("{} {}: expected at most {} bytes", option, rowBytes, longestRow));
    }
    const bool words = layout.texels == iGPUImage::eARGB16;
    if (stride < needed || (words && stride % 2 != 0)) {
        throw Failure(ExitCode::usage,
                      fmt::format("{} {}: a row of {} pixels of {} has {} bytes{}", option, rowBytes, width,
                                  format.name(), needed, words ? ", and rows have whole 16-bit words" : ""));
    }
    Media::StoredLayout result;
    result.format = info.format;
    result.bits = static_cast<int>(format.bits);
    result.word = info.word;
    result.name = format.name();
    result.yCrCb = format.isYCrCb();
    result.words = words;
    const auto rows = static_cast<int>(height);
    result.planes = info.planes == Planes::One
                        ? std::vector{Media::StoredLayout::Plane{rows, needed, stride}}
                        : planesOf(info, static_cast<int>(width), rows, words ? 2 : 1, stride);
    return result;
}

Media::StoredLayout writtenLayout(const PixelFormat& format, const std::filesystem::path& file,
                                  unsigned width, unsigned height, std::size_t rowBytes)
{
    Media::StoredLayout layout = storedLayout(format, width, height, rowBytes, outputRowBytesOption);
    if (rowBytes != 0 && !Media::writesRawFrames(file, layout)) {
        throw Failure(ExitCode::usage,
                      fmt::format("{} {}: only raw files (.raw) take a row stride, and this is {}; leave it "
                                  "out, or write a raw file",
                                  outputRowBytesOption, rowBytes, file.extension().string()));
    }
    return layout;
}

} // namespace Qx::Program
