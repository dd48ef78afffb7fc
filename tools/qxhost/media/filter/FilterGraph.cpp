#include "tools/qxhost/media/filter/FilterGraph.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/media/filter/MessageCollector.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/FloatPicture.h"
#include "tools/qxhost/media/write/EncoderOptions.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Qx::Media {

namespace {

constexpr const char* sourceName = "input";
constexpr const char* targetName = "output";
constexpr const char* jointPrefix = "joint_";

struct FreeEnds
{
    void operator()(AVFilterInOut* ends) const { avfilter_inout_free(&ends); }
};
using EndsPtr = std::unique_ptr<AVFilterInOut, FreeEnds>;

/// The filter that libavfilter calls "Parsed_crop_0".
std::string plainName(const std::string& name)
{
    static constexpr std::string_view prefix = "Parsed_";
    if (!name.starts_with(prefix)) {
        return name;
    }
    return name.substr(prefix.size(), name.rfind('_') - prefix.size());
}

/// With the names that people wrote.
std::string plainText(std::string text)
{
    static constexpr std::string_view prefix = "Parsed_";
    for (std::size_t at = text.find(prefix); at != std::string::npos; at = text.find(prefix, at)) {
        std::size_t end = at;
        while (end < text.size() &&
               (std::isalnum(static_cast<unsigned char>(text[end])) != 0 || text[end] == '_')) {
            ++end;
        }
        text.replace(at, end - at, plainName(text.substr(at, end - at)));
    }
    return text;
}

/// What follows "'" in a message, up to the next one; advances `at`.
std::string quotedWord(const std::string& text, std::size_t& at)
{
    const std::size_t begin = text.find('\'', at);
    const std::size_t end = begin == std::string::npos ? begin : text.find('\'', begin + 1);
    if (end == std::string::npos) {
        return {};
    }
    at = end + 1;
    return text.substr(begin + 1, end - begin - 1);
}

std::string nearFilters(const std::string& messages)
{
    static constexpr std::string_view missing = "No such filter: ";
    std::size_t at = messages.find(missing);
    if (at == std::string::npos) {
        return {};
    }
    const std::string word = quotedWord(messages, at);
    std::vector<std::string> names;
    void* place = nullptr;
    while (const AVFilter* each = av_filter_iterate(&place)) {
        names.emplace_back(each->name);
    }
    return nearestWords(word, names) + " ('ffmpeg -filters' lists them all)";
}

AVFilterLink* linkBetween(AVFilterGraph& graph, const std::string& from, const std::string& to)
{
    for (unsigned i = 0; i < graph.nb_filters; ++i) {
        const AVFilterContext& filter = *graph.filters[i];
        for (unsigned pad = 0; pad < filter.nb_outputs; ++pad) {
            AVFilterLink* link = filter.outputs[pad];
            if (link && from == filter.name && to == link->dst->name) {
                return link;
            }
        }
    }
    return nullptr;
}

std::string formatName(AVPixelFormat format)
{
    const char* name = av_get_pix_fmt_name(format);
    return name ? name : "unknown";
}

/// Whether the user asks for the format with this filter, whatever is lost.
bool asksForFormat(const AVFilterContext& filter)
{
    const std::string_view name = filter.filter->name;
    return name == "format" || name == "zscale" || name == "scale";
}

bool loses(AVPixelFormat from, AVPixelFormat to)
{
    const ComponentRows a(from);
    const ComponentRows b(to);
    return b.bits() < a.bits() || b.chromaShiftX() > a.chromaShiftX() ||
           b.chromaShiftY() > a.chromaShiftY() || (a.hasAlpha() && !b.hasAlpha()) ||
           (b.isGrey() && !a.isGrey());
}

/// A filter's option; empty if it is no whole number but a formula.
std::optional<int> numberIn(const AVFilterContext& filter, const char* option)
{
    std::uint8_t* written = nullptr;
    if (av_opt_get(filter.priv, option, 0, &written) < 0) {
        return {};
    }
    const std::string text = reinterpret_cast<const char*>(written);
    av_free(written);
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

std::string sizeText(int width, int height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

/// What is wrong with the place of a crop, which the filter itself moves into the picture without a word.
std::string faultOfCrop(const AVFilterContext& crop)
{
    const AVFilterLink& in = *crop.inputs[0];
    const AVFilterLink& out = *crop.outputs[0];
    const std::optional<int> x = numberIn(crop, "x");
    const std::optional<int> y = numberIn(crop, "y");
    const auto fits = [](std::optional<int> place, int size, int whole) {
        return !place || (*place >= 0 && *place <= whole - size);
    };
    if (fits(x, out.w, in.w) && fits(y, out.h, in.h)) {
        return {};
    }
    const auto placeText = [](std::optional<int> place) {
        return place ? std::to_string(*place) : std::string("a formula");
    };
    return "crop: " + sizeText(out.w, out.h) + " pixels at " + placeText(x) + " across, " + placeText(y) +
           " down, reach out of the picture of " + sizeText(in.w, in.h) + "; the largest place is " +
           std::to_string(in.w - out.w) + " across, " + std::to_string(in.h - out.h) + " down";
}

/// The sizes around one that whole chroma samples allow: "320 or 322".
std::string allowedSizes(int size, int unit)
{
    const int below = size / unit * unit;
    return size % unit == 0
               ? std::to_string(size)
               : (below > 0 ? std::to_string(below) + " or " : "") + std::to_string(below + unit);
}

/// What is wrong with the size of frames before or behind zscale, which itself says a code at the first
/// frame.
std::string faultOfSize(const AVFilterLink& link, const char* verb)
{
    const auto format = static_cast<AVPixelFormat>(link.format);
    const ComponentRows rows(format);
    const int across = 1 << rows.chromaShiftX();
    const int down = 1 << rows.chromaShiftY();
    if (link.w % across == 0 && link.h % down == 0) {
        return {};
    }
    return "zscale: " + formatName(format) + " has one chroma sample for " + std::to_string(across) +
           " pixels across and " + std::to_string(down) + " down, so it cannot " + verb + " " +
           sizeText(link.w, link.h) + "; use a width of " + allowedSizes(link.w, across) +
           " and a height of " + allowedSizes(link.h, down);
}

/// What is wrong with the size that a filter is to make.
std::string faultOfResize(const AVFilterContext& zscale)
{
    const AVFilterLink& in = *zscale.inputs[0];
    const AVFilterLink& out = *zscale.outputs[0];
    return in.w == out.w && in.h == out.h ? "" : faultOfSize(out, "be");
}

/// What a failed graph has said, in plain words if it is that zscale gets frames of such a size.
std::string plainFailure(const AVFilterGraph& graph, int error, const std::string& messages)
{
    const bool isSize = messages.find("divisible by subsampling") != std::string::npos;
    for (unsigned i = 0; isSize && i < graph.nb_filters; ++i) {
        const AVFilterContext& filter = *graph.filters[i];
        const bool scales = std::string_view(filter.filter->name) == "zscale";
        const std::string fault = scales ? faultOfSize(*filter.inputs[0], "take") : "";
        if (!fault.empty()) {
            return fault;
        }
    }
    return errorText(error) + (messages.empty() ? "" : ": " + plainText(messages));
}

} // namespace

std::string joinGraphs(const std::string& first, const std::string& second)
{
    if (first.empty() || second.empty()) {
        return first + second;
    }
    const std::size_t end = first.find_last_not_of(" \t\n");
    const std::size_t label = first.rfind('[');
    const bool hasLabel = end != std::string::npos && first[end] == ']' && label != std::string::npos;
    return hasLabel ? first + ";" + first.substr(label) + second : first + "," + second;
}

void FilterGraph::FreeGraph::operator()(AVFilterGraph* graph) const
{
    avfilter_graph_free(&graph);
}

FilterGraph::FilterGraph(std::string text, std::string option, const Form& source, AVPixelFormat target)
    : text_(std::move(text)), option_(std::move(option)), source_(source), target_(target)
{
}

FilterGraph::~FilterGraph() = default;

Status FilterGraph::check(const std::string& text, const std::string& option)
{
    captureFfmpegLog();
    Form any;
    any.width = 16;
    any.height = 16;
    any.format = AV_PIX_FMT_YUV420P;
    FilterGraph graph(text, option, any, AV_PIX_FMT_NONE);
    return graph.parse();
}

Result<std::unique_ptr<FilterGraph>> FilterGraph::make(const std::string& text, const std::string& option,
                                                       const Form& source, AVPixelFormat target)
{
    captureFfmpegLog();
    std::unique_ptr<FilterGraph> made(new FilterGraph(text, option, source, target));
    if (Status status = made->configure(); !status) {
        return Error{status.text()};
    }
    return made;
}

/// Makes the filters, without asking for formats.
Status FilterGraph::parse()
{
    graph_.reset(avfilter_graph_alloc());
    if (!graph_) {
        return Error{"out of memory"};
    }
    avfilter_graph_set_auto_convert(graph_.get(), AVFILTER_AUTO_CONVERT_NONE);
    const auto ratio = [](const Rational& value) {
        return std::to_string(value.num) + "/" + std::to_string(value.den);
    };
    std::string arguments = "video_size=" + std::to_string(source_.width) + "x" +
                            std::to_string(source_.height) + ":pix_fmt=" + std::to_string(source_.format) +
                            ":time_base=" + ratio(source_.timeBase) +
                            ":pixel_aspect=" + ratio(source_.sampleAspect);
    arguments += colourArguments(source_.format, source_.matrixTag, toAv(source_.range));
    if (source_.frameRate.num > 0) {
        arguments += ":frame_rate=" + ratio(source_.frameRate);
    }
    const MessageCollector collector;
    if (avfilter_graph_create_filter(&in_, avfilter_get_by_name("buffer"), sourceName, arguments.c_str(),
                                     nullptr, graph_.get()) < 0 ||
        avfilter_graph_create_filter(&out_, avfilter_get_by_name("buffersink"), targetName, nullptr, nullptr,
                                     graph_.get()) < 0) {
        return Error{option_ + ": cannot begin a graph: " + collector.text()};
    }
    AVFilterInOut* rawInputs = nullptr;
    AVFilterInOut* rawOutputs = nullptr;
    const int error = avfilter_graph_parse2(graph_.get(), text_.c_str(), &rawInputs, &rawOutputs);
    const EndsPtr inputs(rawInputs);
    const EndsPtr outputs(rawOutputs);
    if (error < 0) {
        const std::string messages = plainText(collector.text());
        return Error{option_ + " \"" + text_ + "\": " + (messages.empty() ? errorText(error) : messages) +
                     nearFilters(messages)};
    }
    const auto isOne = [](const EndsPtr& ends) { return ends && !ends->next; };
    if (!isOne(inputs) || !isOne(outputs)) {
        return Error{option_ + " \"" + text_ +
                     "\": a graph must have one open input, for the frames, and one open output; link the "
                     "others with labels"};
    }
    if (avfilter_pad_get_type(inputs->filter_ctx->input_pads, inputs->pad_idx) != AVMEDIA_TYPE_VIDEO ||
        avfilter_pad_get_type(outputs->filter_ctx->output_pads, outputs->pad_idx) != AVMEDIA_TYPE_VIDEO) {
        return Error{option_ + " \"" + text_ + "\": it filters audio; only the picture can be filtered"};
    }
    AVFilterContext* last = outputs->filter_ctx;
    auto lastPad = static_cast<unsigned>(outputs->pad_idx);
    int linked = avfilter_link(in_, 0, inputs->filter_ctx, static_cast<unsigned>(inputs->pad_idx));
    if (linked >= 0 && target_ != AV_PIX_FMT_NONE) {
        AVFilterContext* format = nullptr;
        linked = avfilter_graph_create_filter(&format, avfilter_get_by_name("format"), "target",
                                              formatName(target_).c_str(), nullptr, graph_.get());
        linked = linked < 0 ? linked : avfilter_link(last, lastPad, format, 0);
        last = format;
        lastPad = 0;
    }
    linked = linked < 0 ? linked : avfilter_link(last, lastPad, out_, 0);
    return linked < 0 ? Status(Error{option_ + " \"" + text_ + "\": " + errorText(linked)}) : Status();
}

/// Parses, puts in what is known to be needed, and asks for formats.
Status FilterGraph::build(std::string& messages)
{
    if (Status status = parse(); !status) {
        return status;
    }
    const MessageCollector collector;
    for (std::size_t i = 0; i < joints_.size(); ++i) {
        AVFilterLink* link = linkBetween(*graph_, joints_[i].from, joints_[i].to);
        AVFilterContext* joint = nullptr;
        const std::string name = jointPrefix + std::to_string(i);
        if (!link ||
            avfilter_graph_create_filter(&joint, avfilter_get_by_name("zscale"), name.c_str(), nullptr,
                                         nullptr, graph_.get()) < 0 ||
            avfilter_insert_filter(link, joint, 0, 0) < 0) {
            return Error{option_ + " \"" + text_ +
                         "\": zscale cannot be put in: " + plainText(collector.text())};
        }
    }
    const int error = avfilter_graph_config(graph_.get(), nullptr);
    messages = collector.text();
    return error < 0 ? Status(Error{option_ + " \"" + text_ +
                                    "\": " + (messages.empty() ? errorText(error) : plainText(messages))})
                     : Status();
}

Status FilterGraph::configure()
{
    constexpr int mostJoints = 16;
    for (bool again = true; again;) {
        again = false;
        std::string messages;
        if (Status status = build(messages); !status) {
            if (static_cast<int>(joints_.size()) == mostJoints) {
                return status;
            }
            if (Status joined = join(messages, again); !joined) {
                return joined;
            }
            if (!again) {
                return status;
            }
        }
    }
    if (Status status = judgeJoints(); !status) {
        return status;
    }
    for (unsigned i = 0; i < graph_->nb_filters; ++i) {
        const std::string_view name = graph_->filters[i]->filter->name;
        const std::string fault = name == "crop"     ? faultOfCrop(*graph_->filters[i])
                                  : name == "zscale" ? faultOfResize(*graph_->filters[i])
                                                     : "";
        if (!fault.empty()) {
            return Error{option_ + " \"" + text_ + "\": " + fault};
        }
        const bool isScale = name == "scale" || name == "scale2ref";
        if (isScale && codesOfFloats(source_.format) != AV_PIX_FMT_NONE) {
            return Error{option_ + " \"" + text_ + "\": " + std::string(name) +
                         " clips floats to 0 to 1 inside; zscale does not"};
        }
        if (isScale) {
            notes_.push_back(option_ + ": " + std::string(name) +
                             " rounds more than need be (two codes in the mean); zscale is more exact");
        }
    }
    form_.width = av_buffersink_get_w(out_);
    form_.height = av_buffersink_get_h(out_);
    form_.format = static_cast<AVPixelFormat>(av_buffersink_get_format(out_));
    form_.timeBase = fromAv(av_buffersink_get_time_base(out_));
    form_.frameRate = fromAv(av_buffersink_get_frame_rate(out_));
    form_.sampleAspect = fromAv(av_buffersink_get_sample_aspect_ratio(out_));
    const bool isOfFloats = codesOfFloats(form_.format) != AV_PIX_FMT_NONE;
    if (const std::string why = isOfFloats ? "" : ComponentRows::unreadable(form_.format); !why.empty()) {
        return Error{option_ + " \"" + text_ + "\": frames of " + formatName(form_.format) +
                     " come out, which cannot be converted: " + why};
    }
    return {};
}

/// Where libavfilter says that formats do not meet, zscale is put in next time.
Status FilterGraph::join(const std::string& messages, bool& again)
{
    static constexpr std::string_view words = "do not have a common format";
    const std::size_t found = messages.find(words);
    if (found == std::string::npos) {
        return {};
    }
    std::size_t at = messages.rfind("The filters '", found);
    if (at == std::string::npos) {
        return {};
    }
    const std::string from = quotedWord(messages, at);
    const std::string to = quotedWord(messages, at);
    if (from.starts_with(jointPrefix) || to.starts_with(jointPrefix)) {
        // The nearest filter that somebody wrote.
        const Joint& joint = joints_[static_cast<std::size_t>(
            std::stoul((from.starts_with(jointPrefix) ? from : to).substr(std::string(jointPrefix).size())))];
        return refusal(joint.to, source_.format);
    }
    joints_.push_back({from, to});
    again = true;
    return {};
}

/// Says what the filters that were put in do, and tells them what they cannot know.
Status FilterGraph::judgeJoints()
{
    for (std::size_t i = 0; i < joints_.size(); ++i) {
        AVFilterContext* joint =
            avfilter_graph_get_filter(graph_.get(), (jointPrefix + std::to_string(i)).c_str());
        const auto from = static_cast<AVPixelFormat>(joint->inputs[0]->format);
        const auto to = static_cast<AVPixelFormat>(joint->outputs[0]->format);
        const AVFilterContext& next = *joint->outputs[0]->dst;
        if (loses(from, to) && !asksForFormat(next)) {
            return refusal(next.name, from);
        }
        const bool toRgb = ComponentRows(to).isRgb();
        if (toRgb != ComponentRows(from).isRgb()) {
            const bool isFull = toRgb || source_.range == Range::full;
            const char* matrix = source_.matrix == Matrix::bt709 ? "709" : "170m";
            av_opt_set(joint->priv, "matrix", toRgb ? "gbr" : matrix, 0);
            av_opt_set(joint->priv, "range", isFull ? "full" : "limited", 0);
        }
        notes_.push_back(option_ + ": zscale is put in before " +
                         (joints_[i].to == targetName || joints_[i].to == "target"
                              ? "the output"
                              : plainName(joints_[i].to)) +
                         ", " + formatName(from) + " becomes " + formatName(to));
    }
    return {};
}

/// Whether frames of this format can go through without anything put in.
bool FilterGraph::runsOn(AVPixelFormat format) const
{
    Form source = source_;
    source.format = format;
    FilterGraph tried(text_, option_, source, AV_PIX_FMT_NONE);
    std::string messages;
    return static_cast<bool>(tried.build(messages));
}

Error FilterGraph::refusal(const std::string& filter, AVPixelFormat given)
{
    std::string formats;
    for (const AVPixFmtDescriptor* each = nullptr; (each = av_pix_fmt_desc_next(each));) {
        const AVPixelFormat format = av_pix_fmt_desc_get_id(each);
        const bool isPlain = (each->flags & (AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BE)) == 0;
        if (isPlain && ComponentRows::unreadable(format).empty() && runsOn(format)) {
            formats += (formats.empty() ? "" : ", ") + std::string(each->name);
        }
    }
    return {option_ + " \"" + text_ + "\": filter " + plainName(filter) + " does not take " +
            formatName(given) + (formats.empty() ? "" : "; it takes " + formats) +
            "; write format=NAME before it to have frames converted to one of these, with what that loses"};
}

Status FilterGraph::push(FramePtr frame)
{
    const MessageCollector collector;
    // Filters that change the rate must know how long the last frame is shown.
    end_ = frame ? av_sat_add64(frame->pts, durationOf(*frame)) : end_;
    const int added = frame ? av_buffersrc_add_frame(in_, frame.get()) : av_buffersrc_close(in_, end_, 0);
    return added < 0 && added != AVERROR_EOF
               ? Status(
                     Error{option_ + " \"" + text_ + "\": " + plainFailure(*graph_, added, collector.text())})
               : Status();
}

Result<std::optional<FilterGraph::Made>> FilterGraph::pull()
{
    for (;;) {
        FramePtr frame(av_frame_alloc());
        if (!frame) {
            return Error{"out of memory"};
        }
        const MessageCollector collector;
        const int error = av_buffersink_get_frame(out_, frame.get());
        if (error == AVERROR(EAGAIN)) {
            return std::optional<Made>();
        }
        if (error == AVERROR_EOF) {
            return held_ ? timed(nullptr) : std::optional<Made>();
        }
        if (error < 0) {
            return Error{option_ + " \"" + text_ + "\": " + plainFailure(*graph_, error, collector.text())};
        }
        if (std::optional<Made> made = timed(std::move(frame))) {
            return made;
        }
    }
}

/// The frame before this one, which says how long that is shown; empty if there is none before.
std::optional<FilterGraph::Made> FilterGraph::timed(FramePtr frame)
{
    std::optional<Made> made;
    if (held_) {
        FrameTime time;
        time.pts = held_->pts;
        time.fieldOrder = fieldOrderOf(*held_);
        if (frame && frame->pts > held_->pts) {
            time.duration = frame->pts - held_->pts;
        } else if (form_.frameRate.num > 0) {
            time.duration = av_rescale_q(1, av_inv_q(toAv(form_.frameRate)), toAv(form_.timeBase));
        } else {
            time.duration = lastDuration_;
        }
        lastDuration_ = time.duration;
        made = Made{std::move(held_), time};
    }
    held_ = std::move(frame);
    return made;
}

} // namespace Qx::Media
