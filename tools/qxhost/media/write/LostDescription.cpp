#include "tools/qxhost/media/write/LostDescription.h"

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/media/write/StoredContainers.h"

#include <algorithm>
#include <cmath>

namespace Qx::Media {

namespace {

/// "time code 01:00:00:00 is left out: .avi (ffv1) does not hold it; .mov, .mp4 and .mkv do"
class Remarks
{
public:
    Remarks(const std::string& extension, const AVCodecContext& video, bool isPipe)
        : kind_((isPipe ? "" : ".") + extension + " (" + avcodec_get_name(video.codec_id) + ")"),
          isPipe_(isPipe)
    {
    }

    void add(const std::string& what, const std::string& holders)
    {
        const bool areContainers = holders.starts_with('.');
        lines_.push_back(what + ": " + kind_ + " does not hold it; " +
                         (isPipe_ && areContainers ? "--container mkv does" : holders));
    }

    const std::vector<std::string>& lines() const { return lines_; }

private:
    std::string kind_;
    bool isPipe_;
    std::vector<std::string> lines_;
};

/// The numbers of a label alone: files write its last separator differently.
std::string digits(std::string label)
{
    std::erase_if(label, [](char c) { return c < '0' || c > '9'; });
    return label;
}

double ratio(const Rational& aspect)
{
    return aspect.num > 0 ? aspect.toDouble() : 1.0;
}

/// Some kinds of file hold the size on the screen, in whole pixels.
bool isSameAspect(const Rational& a, const Rational& b)
{
    constexpr double tolerance = 0.01;
    return std::abs(ratio(a) / ratio(b) - 1.0) < tolerance;
}

bool isSameMatrix(int a, int b)
{
    return a == b || (matrixOfTag(a) && matrixOfTag(a) == matrixOfTag(b));
}

/// BT.709 and BT.601 have one curve.
bool isSameTransfer(int a, int b)
{
    const auto isVideo = [](int tag) { return tag == AVCOL_TRC_BT709 || tag == AVCOL_TRC_SMPTE170M; };
    return a == b || (isVideo(a) && isVideo(b));
}

/// RGB has no matrix.
std::string lostTags(const AVCodecContext& meant, const Colour& found)
{
    std::string tags;
    const auto add = [&tags](bool lost, const char* what, const char* name) {
        if (lost && name != nullptr) {
            tags += (tags.empty() ? "" : ", ") + std::string(what) + " " + name;
        }
    };
    add(meant.colorspace != AVCOL_SPC_UNSPECIFIED && !found.fromRgb &&
            !isSameMatrix(meant.colorspace, found.matrixTag),
        "matrix", av_color_space_name(meant.colorspace));
    add(meant.color_primaries != AVCOL_PRI_UNSPECIFIED && meant.color_primaries != found.primariesTag,
        "primaries", av_color_primaries_name(meant.color_primaries));
    add(meant.color_trc != AVCOL_TRC_UNSPECIFIED && !isSameTransfer(meant.color_trc, found.transferTag),
        "transfer", av_color_transfer_name(meant.color_trc));
    return tags;
}

/// Without a tag, RGB is taken as full range and YCbCr as video range.
bool losesRange(Range meant, const Colour& found)
{
    return found.fromRgb ? meant == Range::video && found.rgbRange == Range::full
                         : meant == Range::full && found.range == Range::video;
}

/// Of the extensions that hold a range with any codec, one that holds this one.
std::string rangeHolder(const OutputSettings& settings, const std::string& range)
{
    if (settings.stored && findContainer(settings.stored->format, settings.stored->bits, "mkv") == nullptr) {
        return "read it with --range " + range;
    }
    return ".mkv does";
}

} // namespace

std::vector<std::string> lostDescription(const std::filesystem::path& clip, const OutputSettings& settings,
                                         const AVCodecContext& video, const std::string& extension)
{
    const auto reader = ClipReader::open(clip, {.threads = 1, .keepAudio = false, .isBrief = true});
    if (!reader) {
        return {};
    }
    const StreamInfo& found = reader.value()->info();
    const bool isPipe = settings.standardOutput >= 0;
    Remarks remarks(extension, video, isPipe);
    if (!settings.timeCode.empty() && digits(found.timeCode) != digits(settings.timeCode)) {
        remarks.add("time code " + settings.timeCode + " is left out", ".mov, .mp4 and .mkv do");
    }
    if (!isSameAspect(settings.sampleAspect, found.sampleAspect)) {
        const Rational& aspect = settings.sampleAspect;
        remarks.add("pixel aspect " + std::to_string(aspect.num) + ":" + std::to_string(aspect.den) +
                        " is left out",
                    ".mov, .mp4 and .mkv do");
    }
    if (settings.fieldOrder != FieldOrder::progressive && found.fieldOrder != settings.fieldOrder) {
        remarks.add(std::string("field order (") +
                        (settings.fieldOrder == FieldOrder::topFirst ? "top" : "bottom") +
                        " field first) is left out",
                    ".mov and .mkv do");
    }
    // Files of RGB are taken for pictures, what a pipe carries for a clip.
    const std::string tags = found.colour.fromRgb && !isPipe ? std::string() : lostTags(video, found.colour);
    if (!tags.empty()) {
        remarks.add("colour tags (" + tags + ") are left out", ".mov, .mp4 and .mkv do");
    }
    const Range ofVideo = video.color_range == AVCOL_RANGE_JPEG ? Range::full : Range::video;
    const Range range = found.colour.fromRgb ? settings.rgbRange : ofVideo;
    if (losesRange(range, found.colour)) {
        const std::string name = range == Range::full ? "full" : "video";
        remarks.add("colour tags (range " + name + ") are left out", rangeHolder(settings, name));
    }
    return remarks.lines();
}

} // namespace Qx::Media
