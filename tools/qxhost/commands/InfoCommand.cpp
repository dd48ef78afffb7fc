#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/read/ClipDescription.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/media/read/Sequence.h"
#include "tools/qxhost/pipeline/burnin/TimeCode.h"
#include "tools/qxhost/pipeline/effects/AlphaSteps.h"
#include "tools/qxhost/pipeline/effects/ToneMap.h"
#include "tools/qxhost/pipeline/input/ColourChoice.h"
#include "tools/qxhost/pipeline/input/InputNotes.h"

#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* clipInfoFooter = R"(Examples:
  qxhost info clip.mov
      Its streams, tags and time code, and what 'qxhost convert' would do with it.
  qxhost info clip.mov --json
      The same for programs.)";

std::string ratio(const Media::Rational& value, char separator)
{
    return fmt::format("{}{}{}", value.num, separator, value.den);
}

const char* orderText(Media::FieldOrder order)
{
    switch (order) {
    case Media::FieldOrder::progressive:
        break;
    case Media::FieldOrder::topFirst:
        return "top field first";
    case Media::FieldOrder::bottomFirst:
        return "bottom field first";
    }
    return "progressive";
}

/// What is known of a clip, and what a conversion without options would do with it.
struct ClipReport
{
    Media::StreamInfo info;
    Media::ClipDescription file;
    Media::ColourTagNames tags;
    std::optional<ColourChoice> colour; ///< empty if it would be refused
    std::string refusal;
    std::vector<std::string> notes;
    std::string lastTimeCode; ///< empty if it is not known
};

/// Where a sequence of pictures ends before its last one; empty if it does not.
std::string gapIn(const std::filesystem::path& file)
{
    const auto sequence = Media::sequenceOf(file, {}, Media::MissingPictures::hold);
    if (!sequence || !sequence.value() || sequence.value()->runs().size() < 2) {
        return {};
    }
    return fmt::format("ends at a gap after picture {}; --missing hold or black goes on to picture {}",
                       sequence.value()->runs().front().last, sequence.value()->last());
}

ClipReport inspect(const std::filesystem::path& file)
{
    auto reader = Media::ClipReader::open(file, {.threads = 1, .mayBeStandardInput = true});
    if (!reader) {
        throw Failure(ExitCode::input, reader.text());
    }
    ClipReport clip{reader.value()->info(), reader.value()->description(), {}, {}, {}, {}, {}};
    clip.tags = Media::tagNames(clip.info.colour);
    ConvertOptions options;
    options.input = file;
    try {
        clip.colour = chooseColour(options, clip.info);
        clip.notes = clip.colour->notes;
        const std::vector<std::string> lost = inputNotes(options, clip.info);
        clip.notes.insert(clip.notes.end(), lost.begin(), lost.end());
        if (const std::string gap = gapIn(file); !gap.empty()) {
            clip.notes.push_back(options.inputName() + ": " + gap);
        }
        if (isHighDynamicRange(clip.info.colour)) {
            clip.notes.push_back(options.inputName() + ": is " + beyondBt709(clip.info.colour) +
                                 ", and its codes are kept; --tone-map bt2390 makes BT.709 of them");
        }
    } catch (const Failure& failure) {
        clip.refusal = failure.what();
    }
    const auto code = TimeCode::startingAt(clip.info.timeCode, clip.info.frameRate);
    if (code && clip.info.frameCountIsExact) {
        clip.lastTimeCode = code->label(clip.info.frameCount - 1);
    }
    return clip;
}

Json describe(const Media::FileTags& tags)
{
    Json described = Json::object();
    for (const auto& [name, value] : tags) {
        described[name] = value;
    }
    return described;
}

Json describe(const Media::StreamDescription& stream)
{
    Json described;
    described["index"] = stream.index;
    described["kind"] = stream.kind;
    described["codec"] = stream.codec;
    if (stream.sampleRate > 0) {
        described["sampleRate"] = stream.sampleRate;
        described["channels"] = stream.channels;
    }
    described["tags"] = describe(stream.tags);
    return described;
}

Json orNull(const std::string& text)
{
    return text.empty() ? Json() : Json(text);
}

Json describeVideo(const ClipReport& clip)
{
    const Media::StreamInfo& info = clip.info;
    Json video;
    video["stream"] = info.streamIndex;
    video["codec"] = info.codec;
    video["pixelFormat"] = info.pixelFormat;
    video["bitsPerComponent"] = info.bitsPerComponent;
    video["width"] = info.width;
    video["height"] = info.height;
    video["pixelAspect"] = info.sampleAspect.num > 0 ? Json(ratio(info.sampleAspect, ':')) : Json();
    video["frameRate"] = info.frameRate.num > 0 ? Json(ratio(info.frameRate, '/')) : Json();
    video["frames"] = info.frameCount > 0 ? Json(info.frameCount) : Json();
    video["framesAreCounted"] = info.frameCountIsExact || info.isStill;
    video["seconds"] = info.duration > 0 ? Json(info.duration) : Json();
    video["fieldOrder"] = orderText(info.fieldOrder);
    video["alpha"] = info.hasAlpha;
    video["rotation"] = info.orientation ? info.orientation->degrees : 0;
    video["timeCode"] = orNull(info.timeCode);
    video["lastTimeCode"] = orNull(clip.lastTimeCode);
    video["range"] = info.colour.rangeGuessed
                         ? Json()
                         : Json(nameOf(info.colour.fromRgb ? info.colour.rgbRange : info.colour.range));
    video["matrix"] = orNull(clip.tags.matrix);
    video["primaries"] = orNull(clip.tags.primaries);
    video["transfer"] = orNull(clip.tags.transfer);
    return video;
}

Json describeConversion(const ClipReport& clip)
{
    Json conversion;
    conversion["refused"] = orNull(clip.refusal);
    if (clip.colour) {
        conversion["upload"] = wayToGpu(clip.info);
        conversion["bitsPerComponent"] = static_cast<int>(clip.info.naturalDepth);
        conversion["matrix"] = nameOf(clip.colour->matrix);
        conversion["matrixGuessed"] = clip.colour->matrixGuessed;
        conversion["range"] = nameOf(clip.colour->range);
        conversion["rangeGuessed"] = clip.colour->rangeGuessed;
        conversion["alpha"] = clip.info.hasAlpha ? Json(nameOf(alphaOf(clip.info))) : Json();
        conversion["notes"] = clip.notes;
    }
    return conversion;
}

Json describe(const std::filesystem::path& file, const ClipReport& clip)
{
    Json described;
    described["input"] = file.string();
    described["container"] = clip.info.container;
    described["tags"] = describe(clip.file.tags);
    described["streams"] = Json::array();
    for (const Media::StreamDescription& stream : clip.file.streams) {
        described["streams"].push_back(describe(stream));
    }
    described["video"] = describeVideo(clip);
    described["conversion"] = describeConversion(clip);
    return described;
}

using Rows = std::vector<std::vector<std::string>>;

void addTags(Rows& rows, const Media::FileTags& tags)
{
    for (const auto& [name, value] : tags) {
        rows.push_back({"", name + ": " + value});
    }
}

std::string lengthText(const Media::StreamInfo& info)
{
    if (info.isStill) {
        return "a still picture";
    }
    std::string text =
        info.frameRate.num > 0 ? fmt::format("{:.6g} frames/s", info.frameRate.toDouble()) : "";
    if (info.frameCount > 0) {
        text += fmt::format(", {}{} frames", info.frameCountIsExact ? "" : "about ", info.frameCount);
    }
    return info.duration > 0 ? text + fmt::format(", {:.3f} s", info.duration) : text;
}

std::string tagText(const ClipReport& clip)
{
    const Media::Colour& colour = clip.info.colour;
    std::string text;
    const auto add = [&text](const char* what, const std::string& value) {
        if (!value.empty()) {
            text += (text.empty() ? "" : ", ") + std::string(what) + " " + value;
        }
    };
    add("range", colour.rangeGuessed ? "" : nameOf(colour.fromRgb ? colour.rgbRange : colour.range));
    add("matrix", clip.tags.matrix);
    add("primaries", clip.tags.primaries);
    add("transfer", clip.tags.transfer);
    return text.empty() ? "no tags" : text;
}

std::string describeForPeople(const ClipReport& clip)
{
    const Media::StreamInfo& info = clip.info;
    Rows rows{{"File", info.container}};
    addTags(rows, clip.file.tags);
    for (const Media::StreamDescription& stream : clip.file.streams) {
        std::string what = stream.kind + ", " + stream.codec;
        if (stream.sampleRate > 0) {
            what += fmt::format(", {} Hz, {} {}", stream.sampleRate, stream.channels,
                                stream.channels == 1 ? "channel" : "channels");
        }
        what += stream.isCover ? ", a cover picture" : "";
        what += stream.index == info.streamIndex ? " (converted)" : "";
        rows.push_back({fmt::format("Stream {}", stream.index), what});
        addTags(rows, stream.tags);
    }
    rows.push_back(
        {"Picture", fmt::format("{} x {}, {} ({} bits), {}", info.width, info.height, info.pixelFormat,
                                info.bitsPerComponent, orderText(info.fieldOrder))});
    if (info.sampleAspect.num > 0 && info.sampleAspect.num != info.sampleAspect.den) {
        rows.push_back({"", "pixels of " + ratio(info.sampleAspect, ':')});
    }
    if (info.orientation) {
        rows.push_back({"", fmt::format("shown turned by {} degrees", info.orientation->degrees)});
    }
    rows.push_back({"Length", lengthText(info)});
    if (!info.timeCode.empty()) {
        rows.push_back(
            {"Time code", info.timeCode + (clip.lastTimeCode.empty() ? "" : " to " + clip.lastTimeCode)});
    }
    rows.push_back({"Colour", tagText(clip)});
    if (!clip.colour) {
        rows.push_back({"Convert", "refuses it: " + clip.refusal});
        return Program::table(rows);
    }
    rows.push_back({"Convert", fmt::format("to the GPU as {}", wayToGpu(info))});
    rows.push_back({"", fmt::format("pictures of {} bits, because the source has {}",
                                    static_cast<int>(info.naturalDepth), info.bitsPerComponent)});
    if (!info.colour.fromRgb) {
        rows.push_back(
            {"",
             fmt::format("codes of {} range, {}, {}", nameOf(clip.colour->range), nameOf(clip.colour->matrix),
                         clip.colour->rangeGuessed || clip.colour->matrixGuessed ? "partly guessed"
                                                                                 : "by its tags")});
    }
    if (info.hasAlpha) {
        rows.push_back({"", fmt::format("alpha, taken as {}", nameOf(alphaOf(info)))});
    }
    for (const std::string& note : clip.notes) {
        rows.push_back({"", note});
    }
    return Program::table(rows);
}

struct ClipInfoOptions
{
    std::filesystem::path input;
    bool json = false;
};

class ClipInfoCommand : public CommandWithOptions<ClipInfoOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("INPUT", options_.input, "Any clip, picture or pattern that FFmpeg reads")
            ->option_text(" ");
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(clipInfoFooter);
    }

    void check(const CLI::App& app) override { requireValue(app, options_.input, "INPUT"); }

    ExitCode run(Console& console) override
    {
        const ClipReport clip = inspect(options_.input);
        console.data(options_.json ? jsonText(describe(options_.input, clip)) : describeForPeople(clip));
        return ExitCode::ok;
    }
};

const Registered<ClipInfoCommand> registeredClipInfo(
    {.name = "info", .order = 5, .about = "Say what a clip holds and what 'convert' would do with it"});

} // namespace

} // namespace Qx::Program
