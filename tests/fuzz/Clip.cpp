#include "tests/TemporaryDirectory.h"
#include "tests/fuzz/Targets.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/media/rows/FramePacker.h"
#include "tools/qxhost/media/rows/RgbPacker.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

extern "C" {
#include <libavutil/mem.h>
}

namespace Qx::Fuzz {
namespace {

using namespace Media;

// What one input may take: FFmpeg allocates no more at once, and later frames bring nothing new.
constexpr std::size_t mostBytesAtOnce = 64U << 20U;
constexpr int mostFrames = 32;
constexpr int mostPixels = 1 << 18; // of a frame that is packed

void checkLine(const std::string& text, const char* what)
{
    promise(!text.empty(), std::string(what) + " without a word");
    promise(text.find('\n') == std::string::npos, std::string(what) + " of several lines");
    promise(text.size() < 2000, std::string(what) + " without end");
}

void checkInfo(const StreamInfo& info)
{
    promise(info.width > 0 && info.height > 0, "a picture without a size");
    promise(std::max(info.width, info.height) <= ClipReader::largestSide, "a picture that is too large");
    promise(info.timeBase.den != 0 && info.frameRate.den != 0 && info.sampleAspect.den != 0,
            "a ratio to nothing");
    promise(std::isfinite(info.duration) && info.duration >= 0, "a duration that is none");
    promise(info.frameCount >= 0, "a count of frames below nothing");
    promise(info.bitsPerComponent >= 8 && info.bitsPerComponent <= 16, "a depth that is none");
    promise(!info.pixelFormat.empty() && !info.codec.empty() && !info.container.empty(), "a kind unnamed");
}

/// As the program does it, into memory that has no byte too many.
void pack(const StreamInfo& info, const FramePacker::Target& target, const Frame& frame, FramePacker& packer)
{
    if (info.width * static_cast<std::int64_t>(info.height) > mostPixels) {
        return;
    }
    const bool rgb = info.colour.fromRgb && info.hasFullChroma;
    const std::size_t bytes = info.packingDepth == Depth::bits8 ? 1 : 2;
    const std::size_t pitch = rgb ? 4 * bytes * static_cast<std::size_t>(info.width)
                                  : FramePacker::rowBytes(info.width, info.packingDepth);
    std::vector<std::byte> rows(pitch * static_cast<std::size_t>(info.height));
    const auto step = static_cast<std::ptrdiff_t>(pitch);
    const Status status =
        rgb ? packRgb(frame, target, rows.data(), step) : packer.pack(frame, rows.data(), step);
    if (!status) {
        checkLine(status.text(), "a frame refused");
    }
}

void readFrames(ClipReader& reader)
{
    const StreamInfo& info = reader.info();
    const FramePacker::Target target{.depth = info.packingDepth,
                                     .range = info.colour.range,
                                     .matrix = info.colour.matrix,
                                     .followTags = true,
                                     .anyForm = true};
    FramePacker packer(target);
    std::optional<std::int64_t> last;
    for (int i = 0; i < mostFrames; ++i) {
        Frame frame;
        const ClipReader::Next next = reader.next(frame);
        promise((next == ClipReader::Next::failed) == !reader.failure().empty(), "a failure unexplained");
        if (next != ClipReader::Next::frame) {
            promise(reader.next(frame) == next, "an end that is none");
            break;
        }
        promise(!frame.empty(), "a frame without a picture");
        promise(!last || frame.time().pts > *last, "time that stands still");
        promise(frame.time().duration >= 0, "a duration below nothing");
        last = frame.time().pts;
        pack(info, target, frame, packer);
    }
    while (reader.audio()->pop()) {
    }
}

void readThrough(const std::filesystem::path& file)
{
    // In the fuzzer's own thread, so that a finding repeats.
    auto opened = ClipReader::open(file, {.threads = 1, .keepAudio = true});
    if (!opened) {
        checkLine(opened.text(), "a refusal");
        return;
    }
    ClipReader& reader = *opened.value();
    checkInfo(reader.info());
    readFrames(reader);
    if (!reader.failure().empty()) {
        checkLine(reader.failure(), "a failure");
    }
    promise(reader.problemCount() >= static_cast<std::int64_t>(reader.problems().size()),
            "fewer problems than are described");
    for (const std::string& problem : reader.problems()) {
        checkLine(problem, "a problem");
    }
}

/// Where the files lie that FFmpeg is given; made once.
const Test::TemporaryDirectory& place()
{
    static const Test::TemporaryDirectory directory;
    av_max_alloc(mostBytesAtOnce);
    return directory;
}

} // namespace

void clip(Input input)
{
    readThrough(place().write("clip", textOf(input)));
}

/// The first byte chooses the kind of picture and leaves pictures out; two more each are the lengths of the
/// first three of four pictures.
void sequence(Input input)
{
    constexpr std::array kinds{"png", "tif", "bmp", "jpg", "ppm", "dpx", "tga", "webp"};
    constexpr std::size_t pictures = 4;
    constexpr std::size_t headerBytes = 1 + 2 * (pictures - 1);
    if (input.size() < headerBytes) {
        return;
    }
    const Test::TemporaryDirectory& folder = place();
    const std::string ending = std::string(".") + kinds[input[0] % kinds.size()];
    Input rest = input.subspan(headerBytes);
    for (std::size_t i = 0; i < pictures; ++i) {
        const std::size_t told = i + 1 < pictures ? input[1 + 2 * i] + 256U * input[2 + 2 * i] : rest.size();
        const std::size_t bytes = std::min(told, rest.size());
        const std::string name = "s" + std::to_string(i + 1) + ending;
        const bool isLeftOut = (input[0] >> (4 + i) & 1) != 0;
        if (isLeftOut) {
            std::filesystem::remove(folder / name);
        } else {
            folder.write(name, textOf(rest.first(bytes)));
        }
        rest = rest.subspan(bytes);
    }
    readThrough(folder / ("s%d" + ending));
}

} // namespace Qx::Fuzz
