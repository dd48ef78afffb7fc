#include "tools/qxhost/pipeline/burnin/BurnIn.h"

#include "host/core/AsciiCase.h"
#include "host/fonts/Typeface.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Text.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/device/HostText.h"

#include <algorithm>
#include <array>

namespace Qx::Program {

namespace {

constexpr const char* usualFont = "monospace";
constexpr float boxOpacity = 0.6F;
constexpr int smallestFitted = 8;

/// Of white text on a picture of that height: a twentieth, which reads on small screens too.
int usualSize(int height)
{
    return std::clamp(height / 20, 12, Host::Text::largestFont);
}

int padding(int size)
{
    return std::max(size / 4, 2);
}

/// The twentieth at each side that a screen or a frame around it may cover (EBU R 95).
int safeEdge(int length)
{
    return length / 20;
}

int placed(int anchor, int length, int box)
{
    const int edge = safeEdge(length);
    const int free = length - box;
    return anchor < 0 ? edge : anchor > 0 ? free - edge : free / 2;
}

/// A code of 8 bits, scaled to the image's depth, as a share of its largest code.
float level(int code, iGPUImage::eFormat format)
{
    return format == iGPUImage::eARGB16 ? static_cast<float>(code) * 256.0F / 65535.0F
                                        : static_cast<float>(code) / 255.0F;
}

NormalisedRGB grey(float value)
{
    return {value, value, value, 1.0F};
}

/// A hint if the name looks like a file: without a "/" it names a typeface.
std::string fileHint(const std::string& font)
{
    const std::string extension = Host::asciiLower(std::filesystem::path(font).extension().string());
    constexpr std::array fontFiles{".ttf", ".otf", ".ttc", ".otc"};
    const bool looksLikeFile = std::find(fontFiles.begin(), fontFiles.end(), extension) != fontFiles.end();
    return looksLikeFile ? "; a font file is named with a \"/\" in it: ./" + font : std::string();
}

TimeCode timeCodeOf(const Media::StreamInfo& info, std::vector<std::string>& remarks)
{
    if (!info.timeCode.empty()) {
        if (const auto code = TimeCode::startingAt(info.timeCode, info.frameRate)) {
            return *code;
        }
        remarks.push_back("the clip's time code " + info.timeCode + " is invalid at its frame rate; " +
                          "{timecode} counts from 0");
    }
    return TimeCode(info.frameRate);
}

} // namespace

BurnIn::BurnIn(const BurnInOptions& options, const BurnInClip& clip, std::vector<std::string>& remarks)
    : options_(options),
      text_(options.text),
      clip_{clip.file.stem().string(), clip.file.filename().string(), clip.begin.date(),
            timeCodeOf(clip.info, remarks)},
      size_(options.size > 0 ? options.size : usualSize(clip.info.height))
{
    std::string remark;
    const std::string font = options.font.empty() ? usualFont : options.font;
    const std::string failure = Host::Text::whyNoTypeface(font, size_, remark);
    if (!failure.empty()) {
        throw Failure(ExitCode::effect, "--font " + font + ": " + failure);
    }
    if (!remark.empty()) {
        remarks.push_back("--font " + font + ": " + remark + fileHint(font));
    }
    obtainFont(size_);
}

void BurnIn::obtainFont(int size)
{
    const std::string& font = options_.font;
    size_ = size;
    font_ = GPUFontCache::instance().getFont(
        {wide(font.empty() ? usualFont : font), static_cast<float>(size), 0});
    if (!font_->value()) {
        throw Failure(ExitCode::device, deviceName() + ": cannot draw text; see the log (qxhost.log)");
    }
}

void BurnIn::fitInto(XY<int> picture, const Text& text)
{
    const int room = picture.x - 2 * safeEdge(picture.x) - 2 * padding(size_);
    const int width = font_->value()->measure(text).x;
    if (options_.size == 0 && width > room) {
        obtainFont(std::max(smallestFitted, static_cast<int>(std::int64_t{size_} * room / width)));
    }
}

BurnIn::Text BurnIn::textOf(std::int64_t frame) const
{
    return wide(text_.filledFor(frame, clip_));
}

void BurnIn::widenFor(const Text& text)
{
    const XY<int> size = font_->value()->measure(text);
    widest_ = {std::max(widest_.x, size.x), std::max(widest_.y, size.y)};
}

void BurnIn::passOver(std::int64_t first, std::int64_t end, XY<int> picture)
{
    fitInto(picture, textOf(first));
    fitted_ = true;
    for (std::int64_t frame = first; frame < end; ++frame) {
        widenFor(textOf(frame));
    }
}

RectangleOf<int> BurnIn::boxOf(XY<int> picture, const Text& text)
{
    widenFor(text);
    const int width = widest_.x + 2 * padding(size_);
    const int height = widest_.y + padding(size_);
    XY<int> corner{0, 0};
    if (const auto* place = std::get_if<BurnInPlace>(&options_.position)) {
        corner = {place->x, place->y};
    } else {
        const auto& anchor = std::get<BurnInAnchor>(options_.position);
        corner = {placed(anchor.across, picture.x, width), placed(anchor.down, picture.y, height)};
    }
    return {corner.x, corner.y, corner.x + width, corner.y + height};
}

bool BurnIn::drawBox(const Qx::Ptr<iGPUImage>& target, const RectangleOf<int>& box,
                     const NormalisedRGB& black)
{
    if (!dot_) {
        dot_ = OS().gpu().createGPUImage({1, 1}, target->getFormat());
        const auto painter = dot_ ? dot_->getPrimitivesRenderer(1) : Qx::Ptr<iGraphicPrimitivesRenderer>();
        if (!painter || !painter->draw(RectDescription{{0, 0, 1, 1}, black, black, 0}, 1)) {
            return false;
        }
    }
    return target->getPrimitivesRenderer(1)->draw(ImageDescription{dot_, box, {0, 0, 1, 1}, true, boxOpacity},
                                                  1);
}

void BurnIn::draw(const Image::Surface& picture, std::int64_t frame, Media::Range range)
{
    const Qx::Ptr<iGPUImage> target = picture.getGPUSurface();
    const bool video = range == Media::Range::video;
    const NormalisedRGB black = grey(video ? level(16, target->getFormat()) : 0.0F);
    const NormalisedRGB white = grey(video ? level(235, target->getFormat()) : 1.0F);
    const Text text = textOf(frame);
    if (text.length() > Host::Text::TextShaper::longestLine) {
        throw Failure(ExitCode::usage, "--burn-in: the text has " + std::to_string(text.length()) +
                                           " characters: expected at most " +
                                           std::to_string(Host::Text::TextShaper::longestLine));
    }
    if (!fitted_) {
        fitInto(target->getSize(), text);
        fitted_ = true;
    }
    const XY<int> size = target->getSize();
    const RectangleOf<int> box = boxOf(size, text);
    cut_ = cut_ || box.x0 < 0 || box.y0 < 0 || box.x1 > size.x || box.y1 > size.y;
    const XY<int> corner{box.x0 + padding(size_), box.y0 + padding(size_) / 2};
    if (!drawBox(target, box, black) || !font_->value()->draw(target, text, corner, white)) {
        failOnDevice(size.x, size.y);
    }
}

std::string BurnIn::remark() const
{
    return cut_ ? "--burn-in: the text does not fit into the picture, and is cut off; give a "
                  "shorter text, a smaller --font-size or another --position"
                : "";
}

} // namespace Qx::Program
