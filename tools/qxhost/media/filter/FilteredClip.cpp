#include "tools/qxhost/media/filter/FilteredClip.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/media/read/PictureDescription.h"
#include "tools/qxhost/media/read/StreamColour.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/Levels.h"

#include <array>
#include <cmath>
#include <utility>

namespace Qx::Media {

namespace {

/// A format for frames that filters do not take as they are: the same codes in planes, which more filters
/// take; else, of more than 8 bits, 16 bits in planes, since few filters take 10 and 12 bits with alpha. Grey
/// becomes RGB whose components are alike.
/// AV_PIX_FMT_NONE if there is no such format.
AVPixelFormat planarFormatOf(AVPixelFormat given, bool hasAlpha)
{
    static constexpr std::array formats{
        AV_PIX_FMT_GBRP,         AV_PIX_FMT_GBRAP,        AV_PIX_FMT_GBRP10LE,     AV_PIX_FMT_GBRAP10LE,
        AV_PIX_FMT_GBRP12LE,     AV_PIX_FMT_GBRAP12LE,    AV_PIX_FMT_GBRP16LE,     AV_PIX_FMT_GBRAP16LE,
        AV_PIX_FMT_YUV420P,      AV_PIX_FMT_YUV422P,      AV_PIX_FMT_YUV444P,      AV_PIX_FMT_YUV420P10LE,
        AV_PIX_FMT_YUV422P10LE,  AV_PIX_FMT_YUV444P10LE,  AV_PIX_FMT_YUV422P12LE,  AV_PIX_FMT_YUV444P12LE,
        AV_PIX_FMT_YUV422P16LE,  AV_PIX_FMT_YUV444P16LE,  AV_PIX_FMT_YUVA422P,     AV_PIX_FMT_YUVA444P,
        AV_PIX_FMT_YUVA422P16LE, AV_PIX_FMT_YUVA444P16LE, AV_PIX_FMT_YUVA420P16LE, AV_PIX_FMT_YUV420P16LE};
    constexpr int most = 16;
    const ComponentRows from(given);
    const bool toRgb = from.isRgb() || from.isGrey();
    const int shiftX = toRgb ? 0 : from.chromaShiftX();
    const int shiftY = toRgb ? 0 : from.chromaShiftY();
    for (const int bits : {from.bits(), from.wide() ? most : from.bits()}) {
        for (const AVPixelFormat each : formats) {
            const ComponentRows to(each);
            if (each != given && to.isRgb() == toRgb && to.bits() == bits && to.chromaShiftX() == shiftX &&
                to.chromaShiftY() == shiftY && to.hasAlpha() == hasAlpha) {
                return each;
            }
        }
    }
    return AV_PIX_FMT_NONE;
}

/// Turns codes of more than 8 bits into those of the same level of other bits.
void bringToDepth(std::vector<std::uint16_t>& codes, int from, int to, Range range, bool isChroma)
{
    for (std::uint16_t& code : codes) {
        code = isChroma ? chromaAtDepth(code, from, to, range) : codeAtDepth(code, from, to, range);
    }
}

} // namespace

FilteredClip::FilteredClip(std::string text, std::string option, const StreamInfo& info, Source source)
    : text_(std::move(text)), option_(std::move(option)), clip_(info), source_(std::move(source)), info_(info)
{
}

Result<std::unique_ptr<FilteredClip>> FilteredClip::make(const std::string& text, const std::string& option,
                                                         const StreamInfo& info, Source source)
{
    std::unique_ptr<FilteredClip> clip(new FilteredClip(text, option, info, std::move(source)));
    while (clip->made_.empty()) {
        const Next next = clip->feed();
        if (!clip->failure_.empty()) {
            return Error{clip->failure_};
        }
        if (next != Next::frame || !clip->graph_) {
            return Error{option + " \"" + text + "\": no frame comes out"};
        }
        auto made = clip->graph_->pull();
        if (!made) {
            return made.error();
        }
        if (made.value()) {
            if (Status given = clip->give(std::move(*made.value())); !given) {
                return Error{given.text()};
            }
        } else if (clip->hasEnded_) {
            return Error{option + " \"" + text + "\": no frame comes out"};
        }
    }
    clip->describe(*clip->made_.front().frame);
    return clip;
}

FilteredClip::Next FilteredClip::fail(const std::string& text)
{
    failure_ = text;
    return Next::failed;
}

FilteredClip::Next FilteredClip::next(Frame& frame)
{
    while (failure_.empty()) {
        if (!made_.empty()) {
            FilterGraph::Made made = std::move(made_.front());
            made_.pop_front();
            AVFrame& picture = *made.frame;
            const bool isOther = picture.width != info_.width || picture.height != info_.height;
            if (isOther) {
                return fail(option_ + " \"" + text_ + "\": the size of frames changes on the way");
            }
            const Range range = picture.color_range == AVCOL_RANGE_UNSPECIFIED
                                    ? (info_.colour.fromRgb ? info_.colour.rgbRange : info_.colour.range)
                                    : (picture.color_range == AVCOL_RANGE_JPEG ? Range::full : Range::video);
            frame = Frame(std::shared_ptr<const AVFrame>(made.frame.release(), FreeFrame()), made.time, false,
                          range);
            return Next::frame;
        }
        auto made = graph_->pull();
        if (!made) {
            return fail(made.text());
        }
        if (made.value()) {
            if (Status given = give(std::move(*made.value())); !given) {
                return fail(given.text());
            }
        } else if (hasEnded_) {
            return Next::end;
        } else if (feed() == Next::failed) {
            return Next::failed;
        }
    }
    return Next::failed;
}

/// Gives the graph the next frame, or the end.
FilteredClip::Next FilteredClip::feed()
{
    Frame frame;
    const Next next = source_(frame);
    if (next == Next::failed) {
        return next;
    }
    hasEnded_ = next == Next::end;
    FramePtr picture;
    if (!hasEnded_) {
        if (Status status = prepare(frame, picture); !status) {
            return fail(status.text());
        }
        if (planar_ != AV_PIX_FMT_NONE) {
            picture = inPlanes(*picture);
        }
        if (!picture) {
            return fail("out of memory for a frame");
        }
    }
    if (!graph_) {
        return next;
    }
    if (Status status = graph_->push(std::move(picture)); !status) {
        return fail(status.text());
    }
    return Next::frame;
}

/// Takes what the graph has made.
Status FilteredClip::give(FilterGraph::Made made)
{
    if (isOfFloats(*made.frame)) {
        made.frame = codesFrom(*made.frame, clipped_, true);
        if (!made.frame) {
            return Error{"out of memory for a frame"};
        }
    }
    made_.push_back(std::move(made));
    return {};
}

/// Makes a picture for the graph, and the graph for the first one: of floats if it has them and the filters
/// take them.
Status FilteredClip::prepare(const Frame& frame, FramePtr& picture)
{
    const Error noMemory{"out of memory for a frame"};
    const bool hasFloats = clip_.hasFloats;
    if (hasFloats && takesFloats_ && hasFloatPlanes(*frame.picture())) {
        picture = forGraph(frame, true);
        if (!picture) {
            return noMemory;
        }
        if (startGraph(*picture)) {
            return {};
        }
        takesFloats_ = false;
    }
    // Whole numbers, also those of a picture among others of floats.
    picture = forGraph(frame, false);
    if (!picture) {
        return noMemory;
    }
    const bool isFirst = !graph_;
    Status status = startGraph(*picture);
    if (status && hasFloats && isFirst) {
        notes_.push_back(option_ +
                         ": these filters take no floats, so numbers beyond 0 and 1 are clipped before "
                         "them; crop, zscale, hflip, vflip and transpose keep them");
    }
    return status;
}

namespace {

/// Codes of 16 bits as floats.
FramePtr inFloats(const AVFrame& codes)
{
    FramePtr floats(av_frame_alloc());
    if (!floats) {
        return nullptr;
    }
    floats->format = codes.format == AV_PIX_FMT_GBRAP16 ? AV_PIX_FMT_GBRAPF32 : AV_PIX_FMT_GBRPF32;
    floats->width = codes.width;
    floats->height = codes.height;
    if (av_frame_get_buffer(floats.get(), 0) < 0 || av_frame_copy_props(floats.get(), &codes) < 0) {
        return nullptr;
    }
    floatsFrom(codes, *floats, false);
    return floats;
}

} // namespace

/// With its time, and with all tags that filters convert by.
FramePtr FilteredClip::forGraph(const Frame& frame, bool asFloats) const
{
    const AVFrame* floats = floatsOf(*frame.picture());
    FramePtr copy(!asFloats           ? av_frame_clone(frame.picture())
                  : floats != nullptr ? av_frame_clone(floats)
                                      : inFloats(*frame.picture()).release());
    if (!copy) {
        return nullptr;
    }
    forgetFloats(*copy); // they are not filtered
    copy->pts = frame.time().pts;
    setDuration(*copy, frame.time().duration);
    const bool isRgb = ComponentRows(static_cast<AVPixelFormat>(copy->format)).isRgb();
    if (copy->color_range == AVCOL_RANGE_UNSPECIFIED || asFloats) {
        copy->color_range = toAv(asFloats ? Range::full : frame.range());
    }
    if (copy->colorspace == AVCOL_SPC_UNSPECIFIED && !isRgb) {
        copy->colorspace = static_cast<AVColorSpace>(writtenTag(clip_.colour.matrix, clip_.colour.matrixTag));
    }
    return copy;
}

FramePtr FilteredClip::inPlanes(const AVFrame& frame) const
{
    FramePtr made(av_frame_alloc());
    if (!made) {
        return nullptr;
    }
    made->width = frame.width;
    made->height = frame.height;
    made->format = planar_;
    if (av_frame_get_buffer(made.get(), 0) < 0 || av_frame_copy_props(made.get(), &frame) < 0) {
        return nullptr;
    }
    const ComponentRows from(static_cast<AVPixelFormat>(frame.format));
    const ComponentRows to(planar_);
    made->colorspace = to.isRgb() ? AVCOL_SPC_RGB : made->colorspace;
    const Range range = frame.color_range == AVCOL_RANGE_JPEG ? Range::full : Range::video;
    std::vector<std::uint16_t> codes(static_cast<std::size_t>(frame.width));
    for (int component = 0; component < (to.hasAlpha() ? 4 : 3); ++component) {
        const bool isChroma = component == 1 || component == 2;
        const int shiftX = isChroma ? to.chromaShiftX() : 0;
        const int shiftY = isChroma ? to.chromaShiftY() : 0;
        const int width = -((-frame.width) >> shiftX);
        const int height = -((-frame.height) >> shiftY);
        for (int y = 0; y < height; ++y) {
            from.read(frame, component, y, 0, width, codes.data());
            if (from.bits() != to.bits()) {
                bringToDepth(codes, from.bits(), to.bits(), component == 3 ? Range::full : range,
                             isChroma && !to.isRgb());
            }
            to.write(*made, component, y, 0, width, codes.data());
        }
    }
    return made;
}

/// A clip may change its pixel format; a graph is made for one.
Status FilteredClip::startGraph(const AVFrame& frame)
{
    FilterGraph::Form form{.width = frame.width,
                           .height = frame.height,
                           .format = static_cast<AVPixelFormat>(frame.format),
                           .timeBase = clip_.timeBase,
                           .frameRate = clip_.frameRate,
                           .sampleAspect = clip_.sampleAspect,
                           .matrix = clip_.colour.matrix,
                           .range = frame.color_range == AVCOL_RANGE_JPEG ? Range::full : Range::video,
                           .matrixTag = frame.colorspace};
    if (graph_ && sourceForm_.format == form.format) {
        return {};
    }
    auto made = FilterGraph::make(text_, option_, form, AV_PIX_FMT_NONE);
    planar_ = AV_PIX_FMT_NONE;
    if (!made) {
        FilterGraph::Form planes = form;
        planes.format = isOfFloats(frame) ? AV_PIX_FMT_NONE : planarFormatOf(form.format, clip_.hasAlpha);
        if (planes.format != AV_PIX_FMT_NONE && ComponentRows(planes.format).isRgb()) {
            planes.matrixTag = AVCOL_SPC_RGB;
        }
        auto other = planes.format == AV_PIX_FMT_NONE
                         ? Result<std::unique_ptr<FilterGraph>>(made.error())
                         : FilterGraph::make(text_, option_, planes, AV_PIX_FMT_NONE);
        if (!other) {
            return Error{made.text()};
        }
        made = std::move(other);
        planar_ = planes.format;
    }
    notes_ = made.value()->notes();
    if (planar_ != AV_PIX_FMT_NONE) {
        notes_.insert(
            notes_.begin(),
            option_ + ": frames of " + av_get_pix_fmt_name(form.format) + " are laid out as " +
                av_get_pix_fmt_name(planar_) + " for the filters, with the same " +
                (ComponentRows(planar_).bits() == ComponentRows(form.format).bits() ? "codes" : "levels"));
    }
    if (graph_) {
        if (Status status = graph_->push(nullptr); !status) {
            return status;
        }
        for (bool hasMore = true; hasMore;) {
            auto rest = graph_->pull();
            if (!rest) {
                return Error{rest.text()};
            }
            hasMore = rest.value().has_value();
            Status given = hasMore ? give(std::move(*rest.value())) : Status();
            if (!given) {
                return given;
            }
        }
        const FilterGraph::Form& before = graph_->form();
        const FilterGraph::Form& after = made.value()->form();
        if (!(before.timeBase == after.timeBase)) {
            return Error{option_ + " \"" + text_ + "\": the unit of times changes with the pixel format"};
        }
    }
    graph_ = std::move(made.value());
    sourceForm_ = form;
    return {};
}

void FilteredClip::describe(const AVFrame& first)
{
    const FilterGraph::Form& form = graph_->form();
    describePicture(first, info_);
    info_.hasFloats = floatsOf(first) != nullptr;
    const bool sameRate = form.frameRate == clip_.frameRate || form.frameRate.num <= 0;
    info_.timeBase = form.timeBase;
    info_.sampleAspect = form.sampleAspect;
    info_.firstPts = av_rescale_q(clip_.firstPts, toAv(clip_.timeBase), toAv(form.timeBase));
    info_.frameCountIsExact = false;
    if (!sameRate) {
        info_.frameRate = form.frameRate;
        info_.frameCount = std::llround(clip_.duration * form.frameRate.toDouble());
        info_.timeCode.clear(); // it counts at the clip's rate
    }
    // Frames go in with all tags: what they had none for is still a guess.
    Colour colour = colourOf(first);
    if (colour.fromRgb == clip_.colour.fromRgb) {
        const Colour& before = clip_.colour;
        if (before.matrixGuessed && colour.matrix == before.matrix) {
            colour.matrixGuessed = true;
            colour.matrixTag = before.matrixTag;
        }
        const bool sameRange =
            colour.fromRgb ? colour.rgbRange == before.rgbRange : colour.range == before.range;
        colour.rangeGuessed = colour.rangeGuessed || (before.rangeGuessed && sameRange);
        const auto keep = [](int& tag, int ofClip) { tag = tag == AVCOL_SPC_UNSPECIFIED ? ofClip : tag; };
        keep(colour.primariesTag, before.primariesTag);
        keep(colour.transferTag, before.transferTag);
    }
    if (colour.transferTag == clip_.colour.transferTag) {
        colour.brightness = clip_.colour.brightness;
    }
    info_.colour = colour;
}

} // namespace Qx::Media
