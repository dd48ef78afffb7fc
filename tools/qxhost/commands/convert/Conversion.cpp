#include "tools/qxhost/commands/convert/Conversion.h"

#include "QxFxResources/GPUColourConverter.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/FailureReport.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/console/ProgressDisplay.h"
#include "tools/qxhost/console/SlowStart.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/media/files/PartFiles.h"
#include "tools/qxhost/media/filter/FilterGraph.h"
#include "tools/qxhost/media/filter/FilteredWriter.h"
#include "tools/qxhost/media/filter/FrameDependence.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/pipeline/FramePipeline.h"
#include "tools/qxhost/pipeline/burnin/BurnIn.h"
#include "tools/qxhost/pipeline/burnin/TimeCode.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/AlphaSteps.h"
#include "tools/qxhost/pipeline/effects/EffectChain.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"
#include "tools/qxhost/pipeline/effects/ToneMap.h"
#include "tools/qxhost/pipeline/effects/WideEffect.h"
#include "tools/qxhost/pipeline/formats/FormatWay.h"
#include "tools/qxhost/pipeline/input/ColourChoice.h"
#include "tools/qxhost/pipeline/input/FrameUpload.h"
#include "tools/qxhost/pipeline/input/InputNotes.h"
#include "tools/qxhost/pipeline/input/Rotation.h"
#include "tools/qxhost/pipeline/input/UploadChoice.h"
#include "tools/qxhost/pipeline/look/LookSteps.h"
#include "tools/qxhost/pipeline/output/PictureOutput.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <set>

namespace Qx::Program {

namespace {

using InputPtr = std::unique_ptr<iFrameInput>;
using WriterPtr = std::unique_ptr<Media::iFrameWriter>;

/// A conversion, with everything that is decided before its first frame.
struct Conversion
{
    ConvertOptions options; ///< with the effects that follow from the input
    InputPtr input;
    ColourChoice colour;
    std::optional<FrameDelivery> delivery; ///< to the pixel format asked for
    bool keepCodes = false;                ///< YCrCb codes pass through unchanged
    bool keepFrames = false;               ///< decoded frames are encoded; nothing is drawn
    bool packOnly = false;                 ///< codes are kept, and packed in the order that is written
    bool floats = false;                   ///< pictures are of floats up to the output
    Media::OutputSettings settings;
    std::vector<std::string> effectWarnings; ///< known before the first frame
    WriterPtr writer;
    FrameRange range;
    Media::ClipPlace start;       ///< of the first frame
    std::int64_t firstNumber = 0; ///< of the first frame, counted by the clip's time
    std::vector<std::string> filterNotes;
    std::vector<std::string> remarks; ///< to be made in the end
    Media::FrameTime firstTime;       ///< of the first and the last frame written
    Media::FrameTime lastTime;
    std::int64_t frames = 0; ///< written
    bool endedEarly = false; ///< the input has no frame with the time code of --out
    double seconds = 0;

    const Media::StreamInfo& info() const { return input->info(); }
    /// Whether codes go from the input to the output without a change.
    bool keepsDepth() const
    {
        return keepCodes && static_cast<int>(options.format->bits) == info().bitsPerComponent;
    }
    bool needsDevice() const { return !keepFrames && !packOnly; }
    /// No part of what was asked for was lost.
    bool complete() const { return input->problemCount() == 0 && !endedEarly; }
    double framesPerSecond() const { return seconds > 0 ? static_cast<double>(frames) / seconds : 0; }
};

void refuseSameFile(const ConvertOptions& options)
{
    std::error_code ignored;
    const bool areFiles = !options.readsStandardInput() && !options.writesStandardOutput();
    if (areFiles && std::filesystem::equivalent(options.input, options.output, ignored)) {
        throw Failure(ExitCode::output, options.outputName() + ": is the input itself; choose another name");
    }
}

InputPtr openInput(const ConvertOptions& options)
{
    const bool keepAudio = options.audio && !Media::writesPictures(options.namedOutput());
    return openFrameInput(options, keepAudio);
}

/// Returns true if the frames are drawn on, or through, between the input and the output.
bool drawsPictures(const ConvertOptions& options)
{
    return !options.effects.empty() || !options.burnIns.empty() ||
           !std::holds_alternative<std::monostate>(options.step);
}

/// Returns true if frames go from one YCrCb format to another and nothing needs RGB.
bool passesCodes(const ConvertOptions& options, const Media::StreamInfo& info)
{
    return options.format && options.format->isYCrCb() && !holdsRgb(info) && !drawsPictures(options);
}

/// Whether frames can go from the decoder to the encoder: nothing is drawn, and nothing that is asked for
/// needs RGB.
bool passesFrames(const Conversion& conversion)
{
    const ConvertOptions& options = conversion.options;
    const Media::StreamInfo& info = conversion.info();
    const bool isPlain = !options.format && !options.raw.format && !drawsPictures(options) &&
                         !options.outputRange && !options.depth && !options.dithers() &&
                         options.filters.after.empty() && options.filter == Image::Filter::CatmullRom;
    const bool isCoded = !holdsRgb(info) && !info.colour.fromRgb;
    return isPlain && isCoded && Media::takesDecoded(options.output, conversion.settings);
}

/// The depth of pictures that loses nothing of the input or of the output format.
Media::Depth depthOf(const Conversion& conversion)
{
    const ConvertOptions& options = conversion.options;
    if (!options.format) {
        // There is nothing to dither in what has been rounded.
        const Media::Depth least = options.dithers() ? Media::Depth::bits16 : Media::Depth::bits8;
        return options.depth.value_or(std::max(least, conversion.info().naturalDepth));
    }
    const Media::Depth formats = options.format->isDeep() ? Media::Depth::bits16 : Media::Depth::bits8;
    // Pictures that only leave in the format are made at its depth, so that codes are rounded once.
    const bool onlyLeave = !drawsPictures(options) && !options.format->isYCrCb();
    if (conversion.keepCodes) {
        return formats;
    }
    return options.depth.value_or(onlyLeave ? formats : std::max(formats, conversion.info().naturalDepth));
}

/// Whether frames come to the GPU as 4:4:4, with alpha.
bool uploadsFullChroma(const Conversion& conversion)
{
    return !conversion.keepCodes && holdsFullChroma(conversion.info());
}

/// The depth of frames on their way to the GPU.
Media::Depth uploadDepth(const Conversion& conversion)
{
    return conversion.keepCodes
               ? conversion.settings.depth
               : Program::uploadDepth(conversion.info(), conversion.settings.depth, conversion.options.depth);
}

/// The bits of codes on their way to the GPU; 0: all of a sample.
int uploadBits(const Conversion& conversion)
{
    return conversion.keepCodes
               ? static_cast<int>(conversion.options.format->bits)
               : Program::uploadBits(conversion.info(), uploadDepth(conversion), conversion.colour.range);
}

/// Whether pictures of 10 bits are made at once, so that codes are rounded once.
bool makesTenBits(const Conversion& conversion)
{
    const ConvertOptions& options = conversion.options;
    return options.format && !options.format->isYCrCb() && options.format->bits == 10 && !options.depth &&
           !drawsPictures(options) && !holdsRgb(conversion.info());
}

/// The matrix of YCrCb that is made of pictures.
Media::Matrix madeMatrix(const Conversion& conversion)
{
    return conversion.colour.forWriting.matrix == Media::Matrix::bt2020
               ? Media::Matrix::bt2020
               : Media::matrixForWidth(afterStep(conversion.options, conversion.info()).width);
}

/// The tags of the frames that the library encodes or that are passed through.
Media::Colour storedColour(const Conversion& conversion)
{
    Media::Colour colour = conversion.colour.forWriting;
    // Frames that are made by a guess are tagged with it; codes that pass through get no guessed tag.
    colour.rangeGuessed = conversion.keepsDepth() && conversion.colour.rangeGuessed;
    colour.matrixGuessed = conversion.keepCodes && conversion.colour.matrixGuessed;
    if (conversion.options.format->isYCrCb() && !conversion.keepCodes) {
        colour.range = Media::Range::video;
        colour.matrix = madeMatrix(conversion);
        colour.matrixTag = 2;
    }
    return colour;
}

/// The range of the intermediate RGB.
Media::Range rgbRange(const Conversion& conversion)
{
    const ConvertOptions& options = conversion.options;
    if (holdsRgb(conversion.info())) {
        const Media::Range own = conversion.colour.range;
        if (options.outputRange.value_or(own) != own) {
            throw Failure(ExitCode::usage,
                          fmt::format("--output-range {}: {} holds RGB, whose codes are kept as they are",
                                      nameOf(*options.outputRange), options.inputName()));
        }
        return own;
    }
    if (options.outputRange == Media::Range::video && options.format && options.format->isYCrCb()) {
        throw Failure(ExitCode::usage,
                      "--output-range video: the RGB on the way to " + options.format->name() +
                          " is of full range, and what is written is of video range without it");
    }
    // Effects and filters are written for full range. Without one, video range loses nothing on its way to
    // YCbCr.
    const bool full = !options.effects.empty() || options.format || !options.filters.after.empty();
    return options.outputRange.value_or(full ? Media::Range::full
                                             : Media::bestRgbRange(options.output, conversion.settings));
}

/// The time code of the first output frame; empty if the input has none or an invalid one.
std::string firstTimeCode(const Conversion& conversion)
{
    const ConvertOptions& options = conversion.options;
    const Media::StreamInfo& info = conversion.info();
    const auto code = TimeCode::startingAt(info.timeCode, info.frameRate);
    if (!code || std::holds_alternative<ShrinkPicture>(options.step)) {
        return {};
    }
    const bool fields = std::holds_alternative<SeparateFields>(options.step);
    const std::int64_t number = conversion.firstNumber;
    return fields ? code->ofFields().label(2 * number) : code->label(number);
}

/// What the run reads, and so must not replace: its input, and the effects, LUTs and font of its options.
/// Effects are looked up in the catalogue: the host must have started.
std::shared_ptr<const Media::FileSet> filesRead(const Conversion& conversion)
{
    const std::shared_ptr<Media::FileSet> files = conversion.input->files();
    for (const EffectRequest& request : conversion.options.effects) {
        files->add(effectPath(request.file));
        if (!request.lut.empty()) {
            files->add(lutPath(request.lut));
        }
        if (request.ocio) {
            files->add(request.ocio->config);
        }
    }
    for (const BurnInOptions& burnIn : conversion.options.burnIns) {
        files->add(burnIn.font);
    }
    return files;
}

/// The pictures of textures, which are known once the effects are, are not replaced either.
void keepTexturesOf(const EffectChain& effects, const iFrameInput& input)
{
    for (const std::filesystem::path& file : effects.textureFiles()) {
        input.files()->add(file);
    }
}

/// The choices that need no frame.
void setEncoding(const ConvertOptions& options, Media::OutputSettings& settings)
{
    settings.encoder = options.codec;
    settings.container = options.container;
    settings.pixelFormat = options.pixelFormat;
    settings.profile = options.profile;
    settings.rate = options.rate;
    settings.encoderOptions = options.videoOptions;
    settings.audioCodec = options.audioCodec;
    settings.audioOptions = options.audioOptions;
}

/// Before anything is decoded.
void checkEncoding(const ConvertOptions& options, int standardOutput)
{
    Media::OutputSettings settings;
    settings.standardOutput = standardOutput;
    setEncoding(options, settings);
    const Media::Status status =
        options.format ? Media::Status() : Media::checkEncoding(options.output, settings);
    if (!status) {
        throw Failure(ExitCode::output, status.text());
    }
}

/// Whether packing the frames for the GPU would make what is written, so that nothing is left for it.
bool onlyPacks(const Conversion& conversion)
{
    const ConvertOptions& options = conversion.options;
    return conversion.keepCodes && !options.raw.format && pairOrderOf(*options.format);
}

void fillSettings(Conversion& conversion)
{
    const ConvertOptions& options = conversion.options;
    const Media::StreamInfo info = afterStep(options, conversion.info());
    Media::OutputSettings& settings = conversion.settings;
    settings.width = info.width;
    settings.height = info.height;
    settings.depth = depthOf(conversion);
    if (info.frameRate.num > 0) {
        settings.frameRate = info.frameRate;
    }
    settings.timeBase = info.timeBase;
    settings.sampleAspect = info.sampleAspect;
    settings.fieldOrder = info.fieldOrder;
    settings.orientation = options.rotates ? std::nullopt : info.orientation;
    settings.timeCode = firstTimeCode(conversion);
    settings.colour = conversion.colour.forWriting;
    setEncoding(options, settings);
    settings.firstNumber = options.sequence.renumber.value_or(info.firstNumber.value_or(1));
    settings.numbersByTime = info.firstNumber && std::holds_alternative<std::monostate>(options.step);
    if (settings.numbersByTime && !options.sequence.renumber) {
        settings.firstNumber += conversion.firstNumber;
    }
    settings.alpha = keepsAlpha(options, conversion.info());
    settings.dither = options.dither;
    settings.prefersEightBits = options.dithers() && info.naturalDepth == Media::Depth::bits8;
    settings.force = options.force;
    settings.expectedFrames = conversion.range.expected * picturesEach(options.step);
    settings.audio = conversion.input->audio();
    settings.beginsAtZero = options.picked.skips();
    settings.cutsAudio = options.picked.skips() || options.picked.ends();
    if (options.segment) {
        settings.beginsAtZero = false;
        settings.origin = options.segment->origin;
    }
    if (options.format) {
        settings.stored = writtenLayout(*options.format, options.namedOutput(),
                                        static_cast<unsigned>(info.width), static_cast<unsigned>(info.height),
                                        static_cast<std::size_t>(options.outputRowBytes));
        settings.colour = storedColour(conversion);
    }
    settings.rgbRange = rgbRange(conversion);
    conversion.keepFrames = passesFrames(conversion);
    conversion.packOnly = onlyPacks(conversion);
    settings.floats = conversion.info().hasFloats && Media::takesFloats(options.output, settings);
    if (settings.floats && !options.filters.after.empty() &&
        !Media::filtersTakeFloats(settings, options.filters.after)) {
        settings.floats = false;
        conversion.filterNotes.emplace_back(
            "--after: these filters take no floats, so numbers beyond 0 and 1 are clipped before them");
    }
    // Where nothing is done to them, what codes of the output cannot hold is clipped at once.
    conversion.floats = conversion.info().hasFloats && holdsRgb(conversion.info()) &&
                        (settings.floats || !options.effects.empty());
    settings.floats = settings.floats && conversion.floats;
}

WriterPtr openOutput(Conversion& conversion)
{
    Media::OutputSettings settings = conversion.settings;
    settings.kept = filesRead(conversion);
    const ConvertOptions& options = conversion.options;
    auto writer = options.filters.after.empty()
                      ? Media::openWriter(options.output, settings)
                      : Media::openFilteredWriter(options.output, settings, options.filters.after, "--after");
    if (!writer) {
        throw Failure(ExitCode::output, writer.text());
    }
    conversion.settings.width = settings.width; // as filters make them
    conversion.settings.height = settings.height;
    return std::move(writer.value());
}

/// Whether YCrCb of BT.2020 is decoded or made.
bool drawsWide(const Conversion& conversion)
{
    const auto isWide = [](Media::Matrix matrix) { return matrix == Media::Matrix::bt2020; };
    const bool decodes = !holdsRgb(conversion.info()) && isWide(conversion.colour.matrix);
    const std::optional<PixelFormat>& format = conversion.options.format;
    const bool encodes = format && format->isYCrCb() && isWide(madeMatrix(conversion));
    return !conversion.keepCodes && (decodes || encodes);
}

/// The host, with a device only where it draws, or is to be a certain one.
std::unique_ptr<HostSession> startHost(const Conversion& conversion, Console& console)
{
    const std::string& device = conversion.options.device;
    return conversion.needsDevice() || !device.empty() ? std::make_unique<HostSession>(device, &console)
                                                       : std::make_unique<HostSession>(console);
}

/// Lets the library obtain its effect now, so that a failure is reported before any frame is lost.
void prepareConversion(Conversion& conversion)
{
    if (!conversion.needsDevice()) {
        return;
    }
    settleNamesOfLooks(conversion.options.effects);
    if (conversion.floats && !deviceDrawsFloats()) {
        conversion.floats = conversion.settings.floats = false;
        conversion.colour.notes.push_back(conversion.options.inputName() +
                                          ": the device cannot draw into pictures of floats");
    }
    if (uploadsFullChroma(conversion)) {
        static_cast<void>(obtainEffect(fullChromaEffect));
    } else if (drawsWide(conversion)) {
        static_cast<void>(obtainEffect(wideEffect));
    }
    if (!Image::ColourConversion::isInitialised() && !Image::ColourConversion::init()) {
        static_cast<void>(obtainEffect("ColourConvert.fx")); // for its messages
        throw Failure(ExitCode::effect, "ColourConvert.fx: cannot be used; see the log (qxhost.log)");
    }
}

Host::LUTInput lutInput(const Conversion& conversion)
{
    return conversion.floats ? Host::LUTInput::Floats : Host::LUTInput::Codes;
}

void noteDecisions(const Conversion& conversion, Console& console)
{
    const ConvertOptions& options = conversion.options;
    for (const std::string& note : conversion.colour.notes) {
        if (!conversion.keepCodes) {
            console.note(note);
        }
    }
    if (conversion.keepCodes && !conversion.keepsDepth() && conversion.colour.rangeGuessed) {
        console.note(fmt::format("{}: has no tag for its range; assuming {} range for its codes at {} bits; "
                                 "--range overrides",
                                 options.inputName(), nameOf(conversion.colour.range), options.format->bits));
    }
    for (const std::string& note : conversion.filterNotes) {
        console.note(note);
    }
    if (options.readsStandardInput() && options.picked.skips()) {
        console.note("standard input cannot be searched: it is decoded from its beginning up to " +
                     startText(options.picked));
    }
    for (const std::string& note : inputNotes(options, conversion.info())) {
        console.note(note);
    }
    for (const std::string& warning : conversion.effectWarnings) {
        console.note(warning);
    }
    if (conversion.needsDevice() && deviceIsSoftware()) {
        console.note("converting on " + deviceName() +
                     ", a software device that runs on the CPU; expect it to be slow");
    }
}

/// What was lost of the input, a line each.
std::vector<std::string> problemsOf(const Conversion& conversion)
{
    std::vector<std::string> problems = conversion.input->problems();
    const std::int64_t unlisted =
        conversion.input->problemCount() - static_cast<std::int64_t>(problems.size());
    if (unlisted > 0) {
        problems.push_back(fmt::format("{}: {} more problems", conversion.options.inputName(), unlisted));
    }
    return problems;
}

Json describeSource(const Conversion& conversion)
{
    const Media::StreamInfo& info = conversion.info();
    Json source;
    source["codec"] = info.codec;
    source["pixelFormat"] = info.pixelFormat;
    source["matrix"] = nameOf(conversion.colour.matrix);
    source["matrixGuessed"] = conversion.colour.matrixGuessed && !conversion.keepCodes;
    source["range"] = nameOf(conversion.colour.range);
    source["rangeGuessed"] = conversion.colour.rangeGuessed && !conversion.keepsDepth();
    source["alpha"] = info.hasAlpha ? Json(nameOf(conversion.options.alpha.value_or(alphaOf(info)))) : Json();
    return source;
}

Json describeRun(const Conversion& conversion)
{
    Json run;
    run["input"] = conversion.options.input.string();
    run["output"] = conversion.options.output.string();
    run["files"] = Json::array();
    for (const std::filesystem::path& file : conversion.writer->files()) {
        run["files"].push_back(file.string());
    }
    run["format"] = conversion.writer->description();
    run["audio"] = Json::array();
    for (const Media::WrittenAudio& track : conversion.writer->audio()) {
        run["audio"].push_back({{"codec", track.codec},
                                {"written", track.written.empty() ? Json() : Json(track.written)},
                                {"copied", track.isCopied}});
    }
    run["firstFrame"] = conversion.start.frame;
    run["frames"] = conversion.frames;
    run["complete"] = conversion.complete();
    run["width"] = conversion.settings.width;
    run["height"] = conversion.settings.height;
    run["bitsPerComponent"] = conversion.options.format ? static_cast<int>(conversion.options.format->bits)
                                                        : static_cast<int>(conversion.settings.depth);
    run["source"] = describeSource(conversion);
    run["alpha"] =
        conversion.settings.alpha ? Json(nameOf(alphaFor(conversion.options.namedOutput()))) : Json();
    run["codesKept"] = conversion.keepCodes || conversion.keepFrames;
    run["outputRange"] =
        conversion.keepCodes || conversion.keepFrames ? Json() : Json(nameOf(conversion.settings.rgbRange));
    run["device"] = Json();
    if (conversion.needsDevice()) {
        run["device"] = {{"name", deviceName()}, {"software", deviceIsSoftware()}};
    }
    run["seconds"] = conversion.seconds;
    run["framesPerSecond"] = conversion.framesPerSecond();
    std::vector<std::string> warnings = conversion.effectWarnings;
    for (const std::vector<std::string>& more : {conversion.info().remarks, conversion.writer->warnings(),
                                                 conversion.input->remarks(), problemsOf(conversion)}) {
        warnings.insert(warnings.end(), more.begin(), more.end());
    }
    run["warnings"] = warnings;
    return run;
}

/// "; audio: pcm_s16le as aac", or for several "; audio 1 and 2: ac3 copied; audio 3: ..."; empty without
/// any.
std::string audioSummary(const std::vector<Media::WrittenAudio>& tracks)
{
    std::vector<std::pair<std::string, std::vector<std::string>>> groups; // what is done, and with which
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const Media::WrittenAudio& track = tracks[i];
        const std::string done = track.written.empty() ? track.codec + " left out"
                                 : track.isCopied      ? track.codec + " copied"
                                                       : track.codec + " as " + track.written;
        const auto same = std::find_if(groups.begin(), groups.end(),
                                       [&](const auto& group) { return group.first == done; });
        auto& group = same != groups.end() ? *same : groups.emplace_back(done, std::vector<std::string>());
        group.second.push_back(std::to_string(i + 1));
    }
    std::string text;
    for (const auto& [done, numbers] : groups) {
        text += "; audio" + (tracks.size() > 1 ? " " + listed(numbers, "and") : "") + ": " + done;
    }
    return text;
}

std::string summary(const Conversion& conversion)
{
    return fmt::format("{}: {} {} ({}{}) in {:.1f} s, {:.1f} frames/s on {}",
                       writtenFiles(conversion.writer->files(), conversion.options.outputName()),
                       conversion.frames, conversion.frames == 1 ? "frame" : "frames",
                       conversion.writer->description(), audioSummary(conversion.writer->audio()),
                       conversion.seconds, conversion.framesPerSecond(),
                       conversion.needsDevice() ? deviceName() : "the processor");
}

/// What several have in common, such as a typeface that is missing, is noted once.
void noteOnce(const std::vector<std::string>& remarks, Console& console)
{
    std::set<std::string> noted;
    for (const std::string& remark : remarks) {
        if (noted.insert(remark).second) {
            console.note(remark);
        }
    }
}

using BurnIns = std::vector<std::unique_ptr<BurnIn>>;

BurnIns prepareBurnIns(const Conversion& conversion, Console& console)
{
    std::vector<std::string> remarks;
    const ConvertOptions& options = conversion.options;
    BurnIns burnIns;
    for (const BurnInOptions& each : options.burnIns) {
        burnIns.push_back(std::make_unique<BurnIn>(
            each, BurnInClip{options.input, conversion.info(), options.date.value_or(localTime())}, remarks));
        if (options.segment && options.segment->begin) {
            const Media::StreamInfo& info = conversion.info();
            burnIns.back()->passOver(frameNumber(info, options.segment->firstOfAll, 0),
                                     frameNumber(info, *options.segment->begin, 0),
                                     {info.width, info.height});
        }
    }
    noteOnce(remarks, console);
    return burnIns;
}

ConversionJob jobOf(const Conversion& conversion, EffectChain& effects, const BurnIns& burnIns)
{
    const ConvertOptions& options = conversion.options;
    ConversionJob job{
        .input = *conversion.input,
        .effects = effects,
        .source = {.depth = uploadDepth(conversion),
                   .range = conversion.colour.range,
                   .matrix = conversion.colour.matrix,
                   .bits = uploadBits(conversion),
                   .followTags = !options.range,
                   .anyForm = !conversion.keepCodes,
                   .fullChroma = uploadsFullChroma(conversion),
                   .order = conversion.packOnly ? *pairOrderOf(*options.format) : Media::PairOrder::yuyv},
        .depth = conversion.settings.depth,
        .tenBits = makesTenBits(conversion),
        .outputRange = conversion.settings.rgbRange == Media::Range::video ? Image::GamutScaling::Video
                                                                           : Image::GamutScaling::Unscaled,
        .filter = options.filter,
        .burnIns = burnIns,
        .step = options.step,
        .delivery = conversion.delivery ? &*conversion.delivery : nullptr,
        .keepCodes = conversion.keepCodes,
        .keepFrames = conversion.keepFrames,
        .packOnly = conversion.packOnly,
        .start = conversion.start.frame,
        .range = conversion.range,
        .floats = conversion.floats,
        .writesFloats = conversion.settings.floats,
        .writeFrom = options.segment && options.segment->preroll ? options.segment->begin : std::nullopt};
    if (auto* target = std::get_if<ShrinkPicture>(&job.step)) {
        target->width = static_cast<unsigned>(conversion.settings.width);
        target->height = static_cast<unsigned>(conversion.settings.height);
    }
    return job;
}

std::string interruptedText(const ConvertOptions& options)
{
    return "interrupted; " + options.outputName() + " was not completed";
}

/// The input failed. A clip without its end is removed; pictures that are complete are kept, as they are when
/// the run is interrupted.
[[noreturn]] void failOfInput(Conversion& conversion, std::string text)
{
    if (conversion.frames > 0 && Media::writesPictures(conversion.options.output)) {
        if (const Media::Status finished = conversion.writer->finish(); !finished) {
            throw Failure(ExitCode::output, finished.text());
        }
        text += " and is written: " + writtenFiles(conversion.writer->files(), conversion.options.output);
    }
    throw Failure(ExitCode::input, text);
}

void noteClipped(Conversion& conversion, const Media::ClippedNumbers& clipped)
{
    if (const std::string text = Media::clippedText(clipped); !text.empty()) {
        conversion.remarks.push_back(conversion.options.outputName() + ": " + text + "; .exr keeps them");
    }
}

/// Runs the pipeline. Returns false if interrupted.
bool convertFrames(Conversion& conversion, const ConversionJob& job, SlowStart& slowStart, Console& console)
{
    ProgressDisplay progress(console, conversion.settings.expectedFrames);
    FramePipeline pipeline(job, [&](std::int64_t done) {
        slowStart.end();
        if (conversion.options.progress) {
            progress.update(done);
        }
    });
    // From here on there are files to clean up.
    const Interruption interruption([&] { pipeline.stop(); }, Media::PartFiles::removeAll,
                                    [&] {
                                        report(console, conversion.options.json, ExitCode::interrupted,
                                               interruptedText(conversion.options));
                                    });
    conversion.writer = openOutput(conversion);
    const auto begin = std::chrono::steady_clock::now();
    conversion.frames = pipeline.run(*conversion.writer);
    if (pipeline.stopped()) {
        conversion.writer.reset();
        return false;
    }
    if (!pipeline.inputFailure().empty()) {
        failOfInput(conversion, pipeline.inputFailure());
    }
    if (conversion.frames == 0) {
        throw Failure(ExitCode::input,
                      fmt::format("{}: has no frame to start from at {}; choose an earlier one",
                                  conversion.options.inputName(), startText(conversion.options.picked)));
    }
    if (const Media::Status finished = conversion.writer->finish(); !finished) {
        throw Failure(ExitCode::output, finished.text());
    }
    noteClipped(conversion, pipeline.clipped());
    conversion.firstTime = pipeline.firstTime();
    conversion.lastTime = pipeline.lastTime();
    conversion.endedEarly = pipeline.endedEarly();
    conversion.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return true;
}

/// Makes BT.709 of other colours, if that is asked for or the picture is only to be looked at.
void fitColours(Conversion& conversion)
{
    std::vector<EffectRequest>& effects = conversion.options.effects;
    const Media::Colour& colour = conversion.colour.forWriting;
    const std::string input = conversion.options.inputName();
    const std::string beyond = beyondBt709(colour);
    auto step = std::find_if(effects.begin(), effects.end(),
                             [](const EffectRequest& each) { return each.mapsTones; });
    if (std::holds_alternative<ShrinkPicture>(conversion.options.step) && isHighDynamicRange(colour)) {
        step = effects.insert(effects.begin(), toneMapRequest(ToneMap::bt2390));
        conversion.colour.notes.push_back(
            fmt::format("{}: is {}; the picture is made BT.709", input, beyond));
    }
    if (step == effects.end()) {
        if (isHighDynamicRange(colour) && Media::writesPictures(conversion.options.namedOutput())) {
            conversion.colour.notes.push_back(fmt::format(
                "{}: is {}, and its codes are kept; --tone-map bt2390 makes BT.709 of them", input, beyond));
        }
        return;
    }
    if (beyond.empty() && step->settings.empty()) {
        conversion.colour.notes.push_back(
            input + (saysWhichColours(colour)
                         ? ": is tagged as BT.709 already; --tone-map changes nothing"
                         : ": has no tag that says PQ, HLG or BT.2020, so --tone-map changes nothing; "
                           "--set transfer=1 --set primaries=1 after it says so of PQ"));
        effects.erase(step);
        return;
    }
    fitToneMap(*step, colour);
    conversion.colour.forWriting = afterToneMap(colour);
}

/// Before anything is decoded.
void checkFilters(const FilterOptions& filters)
{
    for (const auto& [graph, option] : {std::pair(filters.before, "--before"), {filters.after, "--after"}}) {
        const Media::Status status =
            graph.empty() ? Media::Status() : Media::FilterGraph::check(graph, option);
        if (!status) {
            throw Failure(ExitCode::usage, status.text());
        }
    }
}

/// What "--rotate" stands for with this input.
std::string rotationFor(const Conversion& conversion)
{
    const ConvertOptions& options = conversion.options;
    return !options.rotates ? std::string()
                            : rotationOf(conversion.info(), options.inputName(),
                                         {.oddTurns = "leave it out, or use --before rotate=...",
                                          .fields = "add --deinterlace"},
                                         !options.filters.deinterlace.empty());
}

/// Has the frames of the range filtered.
void filterInput(Conversion& conversion)
{
    const FilterOptions& filters = conversion.options.filters;
    const std::string shortForms = Media::joinGraphs(
        Media::joinGraphs(filters.deinterlace, rotationFor(conversion)), filters.shortForms);
    if (filters.before.empty() && shortForms.empty()) {
        return;
    }
    if (!shortForms.empty()) {
        conversion.filterNotes.push_back("frames are filtered by " + shortForms);
    }
    const std::string timeCode = conversion.info().timeCode;
    const Media::Rational rate = conversion.info().frameRate;
    const std::vector<std::string> notes =
        conversion.input->filter(Media::joinGraphs(filters.before, shortForms),
                                 filters.before.empty() ? "the filters" : "--before", conversion.range);
    conversion.filterNotes.insert(conversion.filterNotes.end(), notes.begin(), notes.end());
    if (!timeCode.empty() && conversion.info().timeCode.empty()) {
        conversion.filterNotes.push_back("time code " + timeCode +
                                         " is left out: --before changes the frame rate");
    }
    const bool isSameRate = conversion.info().frameRate == rate;
    conversion.range = {.start = conversion.range.start,
                        .frames = 0,
                        .endPts = {},
                        .duration = {},
                        .expected = isSameRate ? conversion.range.expected : 0};
}

/// Reads the looks, whose steps then stand in their places.
void readLooks(Conversion& conversion)
{
    std::vector<EffectRequest>& effects = conversion.options.effects;
    for (const EffectRequest& request : effects) {
        if (request.isLook()) {
            conversion.input->files()->add(request.look);
        }
    }
    const Media::StreamInfo& info = conversion.info();
    effects = withStepsOfLooks(effects, TimeCode::startingAt(info.timeCode, info.frameRate),
                               conversion.options.inputName());
}

/// Leaves of a range what belongs to a segment.
void narrow(FrameRange& range, const Segment& segment)
{
    if (const auto first = segment.preroll ? segment.preroll : segment.begin) {
        range.start = Media::SeekTarget{.frame = 0, .pts = first};
    }
    range.frames = 0;
    range.duration.reset();
    range.endPts = segment.end ? segment.end : range.endPts;
    range.expected = segment.frames;
}

/// Opens the input and decides everything that the first frame needs.
Conversion decide(const ConvertOptions& options, int standardOutput = -1)
{
    refuseSameFile(options);
    if (std::holds_alternative<ShrinkPicture>(options.step) && !options.format) {
        if (options.writesStandardOutput() && !Media::writesPictures(options.namedOutput())) {
            throw Failure(ExitCode::usage,
                          "a thumbnail is a picture; for standard output add --container png "
                          "or another ending of pictures");
        }
        requirePicture(options.namedOutput(), "a thumbnail");
    }
    checkEncoding(options, standardOutput);
    checkFilters(options.filters);
    Conversion conversion{.options = options,
                          .input = openInput(options),
                          .colour = {},
                          .delivery = {},
                          .keepCodes = false,
                          .keepFrames = false,
                          .packOnly = false,
                          .floats = false,
                          .settings = {},
                          .effectWarnings = {},
                          .writer = {},
                          .range = {},
                          .start = {},
                          .firstNumber = 0,
                          .filterNotes = {},
                          .remarks = {},
                          .firstTime = {},
                          .lastTime = {},
                          .frames = 0,
                          .endedEarly = false,
                          .seconds = 0};
    conversion.range = frameRange(options.picked, conversion.info(), options.inputName());
    if (options.segment) {
        narrow(conversion.range, *options.segment);
    }
    conversion.start.pts = conversion.info().firstPts;
    if (conversion.range.start) {
        conversion.start = conversion.input->skipTo(*conversion.range.start);
    }
    const bool hasPreroll = options.segment && options.segment->preroll;
    conversion.firstNumber =
        frameNumber(conversion.info(), hasPreroll ? *options.segment->begin : conversion.start.pts,
                    conversion.start.frame);
    filterInput(conversion);
    readLooks(conversion);
    conversion.colour = chooseColour(options, conversion.info());
    fitColours(conversion);
    if (keepsAlpha(options, conversion.info())) {
        const std::vector<std::string> notes = fitAlpha(conversion.options, conversion.info());
        conversion.colour.notes.insert(conversion.colour.notes.end(), notes.begin(), notes.end());
    }
    conversion.keepCodes = passesCodes(conversion.options, conversion.info());
    if (options.format) {
        conversion.delivery.emplace(*options.format, madeMatrix(conversion));
    }
    conversion.settings.standardOutput = standardOutput;
    fillSettings(conversion);
    return conversion;
}

/// Converts, once everything is decided. Throws Failure, also if it is interrupted.
void perform(Conversion& conversion, Console& console)
{
    const ConvertOptions& options = conversion.options;
    SlowStart slowStart(console);
    prepareConversion(conversion);
    EffectChain effects(conversion.options.effects, options.date, EffectChain::Parameters::shared,
                        lutInput(conversion));
    keepTexturesOf(effects, *conversion.input);
    conversion.effectWarnings = effects.warnings();
    noteDecisions(conversion, console);
    const BurnIns burnIns = prepareBurnIns(conversion, console);
    if (!convertFrames(conversion, jobOf(conversion, effects, burnIns), slowStart, console)) {
        throw Failure(ExitCode::interrupted, interruptedText(options));
    }
    for (const std::unique_ptr<BurnIn>& burnIn : burnIns) {
        const std::string remark = burnIn->remark();
        const std::vector<std::string>& noted = conversion.remarks;
        if (!remark.empty() && std::find(noted.begin(), noted.end(), remark) == noted.end()) {
            conversion.remarks.push_back(remark);
        }
    }
    for (std::string& remark : effects.remarks()) {
        conversion.remarks.push_back(std::move(remark));
    }
}

} // namespace

ExitCode runConversion(const ConvertOptions& options, Console& console)
{
    console.setQuiet(options.quiet);
    Conversion conversion = decide(options, options.writesStandardOutput() ? console.binaryOutput() : -1);
    const std::unique_ptr<HostSession> host = startHost(conversion, console);
    perform(conversion, console);
    for (const std::string& warning : conversion.writer->warnings()) {
        console.note(warning);
    }
    for (const std::string& remark : conversion.input->remarks()) {
        console.note(remark);
    }
    for (const std::string& problem : problemsOf(conversion)) {
        console.error(problem); // they explain the exit code
    }
    for (const std::string& remark : conversion.remarks) {
        console.note(remark);
    }
    console.note(summary(conversion));
    if (options.json) {
        console.data(jsonText(describeRun(conversion)));
    }
    if (conversion.endedEarly) {
        console.error(fmt::format("--out {}: {} ends before it; {} holds what there is", options.picked.out,
                                  options.inputName(), options.outputName()));
        return ExitCode::input;
    }
    if (!conversion.complete()) {
        console.error(options.inputName() + ": is damaged or incomplete; " + options.outputName() +
                      " holds what could be read of it");
        return ExitCode::input;
    }
    return ExitCode::ok;
}

ConvertedSegment convertSegment(const ConvertOptions& options, std::unique_ptr<HostSession>& host,
                                Console& console)
{
    console.setQuiet(options.quiet);
    Conversion conversion = decide(options);
    if (!host) {
        host = startHost(conversion, console);
    }
    perform(conversion, console);
    ConvertedSegment made{.frames = conversion.frames,
                          .first = conversion.firstTime,
                          .last = conversion.lastTime,
                          .problems = problemsOf(conversion),
                          .remarks = conversion.remarks};
    if (conversion.endedEarly) {
        made.problems.push_back(
            fmt::format("{}: ends before the frames that were to be converted do", options.input.string()));
    }
    // They are errors of the whole, which is told of them when the pieces are joined.
    for (const std::vector<std::string>& lines : {made.problems, made.remarks}) {
        for (const std::string& line : lines) {
            console.note(line);
        }
    }
    console.note(summary(conversion));
    return made;
}

namespace {

/// The frames of a range among all.
void pick(ConversionPlan& plan, const FrameRange& range, std::int64_t firstPts)
{
    std::vector<Media::ShownFrame> all = std::move(plan.frames);
    std::size_t next = 0;
    if (range.start && range.start->pts) {
        const auto isBefore = [](const Media::ShownFrame& each, std::int64_t pts) { return each.pts < pts; };
        next = static_cast<std::size_t>(
            std::lower_bound(all.begin(), all.end(), *range.start->pts, isBefore) - all.begin());
    } else if (range.start) {
        next = std::min(static_cast<std::size_t>(range.start->frame), all.size());
    }
    RangeLimit limit(range, firstPts);
    const auto isTaken = [&] {
        return next < all.size() && !limit.isFull() && limit.take({all[next].pts, 0, {}});
    };
    plan.frames.clear();
    for (; isTaken(); ++next) {
        plan.frames.push_back(all[next]);
    }
    plan.after = next < all.size() ? std::optional(all[next].pts) : std::nullopt;
}

/// Throws Failure (usage) if parts of the conversion cannot be made one without the other.
void refuseUnsplittable(const Conversion& conversion, const EffectChain& effects)
{
    const ConvertOptions& options = conversion.options;
    const auto fail = [](const std::string& text) { throw Failure(ExitCode::usage, text); };
    if (!options.filters.after.empty()) {
        fail("--after: what its filters make of a frame may depend on others, so the conversion cannot be "
             "split; use --resize, --crop or --pad instead, or convert in one run");
    }
    for (const auto& [graph, option] : {std::pair(options.filters.before, "--before "),
                                        {options.filters.deinterlace, "the filter "},
                                        {options.filters.shortForms, "the filter "}}) {
        if (const std::string filter = Media::dependentFilter(graph); !filter.empty()) {
            fail(option + filter +
                 ": this filter may look at other frames than the one that it makes, or at files, so the "
                 "conversion cannot be split; leave out the filter, or convert in one run");
        }
    }
    if (const std::string effect = effects.recursiveEffect(); !effect.empty()) {
        fail("--effect " + effect +
             ": draws over its own result of the frame before, so the conversion "
             "cannot be split; convert in one run");
    }
    const bool isClip =
        !Media::writesPictures(options.output) &&
        !(conversion.settings.stored && Media::writesRawFrames(options.output, *conversion.settings.stored));
    if (const std::string why = isClip ? Media::whyNoPieces(options.output, conversion.settings) : "";
        !why.empty()) {
        throw Failure(ExitCode::output, options.output.string() + ": " + why);
    }
}

/// The times of all frames. Throws Failure (input).
std::vector<Media::ShownFrame> timesOf(iFrameInput& input)
{
    try {
        return input.readTimes();
    } catch (const Failure& failure) {
        throw Failure(failure.code(), std::string(failure.what()) +
                                          ", so the conversion cannot be split; copy the clip into a .mov or "
                                          ".mkv first, or convert in one run");
    }
}

} // namespace

ConversionPlan planConversion(const ConvertOptions& options, Console& console)
{
    Conversion conversion = decide(options);
    prepareConversion(conversion);
    const EffectChain effects(conversion.options.effects, options.date);
    conversion.effectWarnings = effects.warnings();
    refuseUnsplittable(conversion, effects);
    noteDecisions(conversion, console);
    static_cast<void>(prepareBurnIns(conversion, console)); // for what it refuses and notes
    const InputPtr input = openFrameInput(options, false);
    ConversionPlan plan{.frames = timesOf(*input),
                        .after = {},
                        .origin = 0,
                        .framesBefore = effects.framesBefore(),
                        .textureFiles = effects.textureFiles(),
                        .container = conversion.info().container,
                        .frameBytes = static_cast<std::int64_t>(conversion.info().width) *
                                      conversion.info().height * 8};
    pick(plan, frameRange(options.picked, input->info(), options.input), input->info().firstPts);
    if (plan.frames.empty()) {
        throw Failure(ExitCode::input,
                      fmt::format("{}: has no frame to start from at {}; choose an earlier one",
                                  options.input.string(), startText(options.picked)));
    }
    plan.origin = options.picked.skips() ? plan.frames.front().pts : 0;
    return plan;
}

std::int64_t joinSegments(const ConvertOptions& options, const std::vector<Media::Piece>& pieces,
                          const std::vector<std::filesystem::path>& alsoRead,
                          const std::atomic<bool>& stopped, Console& console)
{
    ConvertOptions whole = options;
    whole.segment.reset();
    Conversion conversion = decide(whole);
    for (const std::filesystem::path& file : alsoRead) {
        conversion.input->files()->add(file);
    }
    conversion.settings.kept = conversion.input->files();
    ProgressDisplay progress(console, conversion.settings.expectedFrames);
    auto writer =
        Media::joinPieces(options.output, conversion.settings, pieces,
                          {.readAudioUpTo = [&](std::int64_t pts) { conversion.input->readAudioUpTo(pts); },
                           .wantsToProceed =
                               [&](std::int64_t done) {
                                   conversion.frames = done;
                                   progress.update(done);
                                   return !stopped;
                               }});
    if (!writer) {
        throw Failure(ExitCode::output, writer.text());
    }
    if (!writer.value()) {
        throw Failure(ExitCode::interrupted, interruptedText(options));
    }
    conversion.writer = std::move(writer.value());
    for (const std::string& warning : conversion.writer->warnings()) {
        console.note(warning);
    }
    console.note(fmt::format("{}: {} frames ({}{}) of {} pieces", options.output.string(), conversion.frames,
                             conversion.writer->description(), audioSummary(conversion.writer->audio()),
                             pieces.size()));
    return conversion.frames;
}

QuietConversion convertQuietly(const ConvertOptions& options)
{
    Conversion conversion = decide(options);
    prepareConversion(conversion);
    EffectChain effects(conversion.options.effects, options.date, EffectChain::Parameters::shared,
                        lutInput(conversion));
    keepTexturesOf(effects, *conversion.input);
    conversion.writer = openOutput(conversion);
    FramePipeline pipeline(jobOf(conversion, effects, BurnIns()), [](std::int64_t) {});
    conversion.frames = pipeline.run(*conversion.writer);
    if (!pipeline.inputFailure().empty()) {
        throw Failure(ExitCode::input, pipeline.inputFailure());
    }
    if (const Media::Status finished = conversion.writer->finish(); !finished) {
        throw Failure(ExitCode::output, finished.text());
    }
    std::vector<std::string> warnings = effects.warnings();
    for (std::string& remark : effects.remarks()) {
        warnings.push_back(std::move(remark));
    }
    return {std::move(warnings), effects.textureFiles()};
}

namespace {

/// Keeps the one frame that it is given.
class FrameKeeper final : public Media::iFrameWriter
{
public:
    explicit FrameKeeper(HeldFrame& frame) : frame_(frame) {}

    Media::Status write(const void* rows, std::ptrdiff_t pitch, const Media::FrameTime&) override
    {
        const std::size_t rowBytes = frame_.rowBytes();
        frame_.bytes.resize(rowBytes * static_cast<std::size_t>(frame_.height));
        for (int y = 0; y < frame_.height; ++y) {
            std::memcpy(&frame_.bytes[rowBytes * static_cast<std::size_t>(y)],
                        static_cast<const std::byte*>(rows) + y * pitch, rowBytes);
        }
        return {};
    }
    Media::Status finish() override { return {}; }
    const std::vector<std::string>& warnings() const override { return warnings_; }
    std::string description() const override { return {}; }
    std::vector<std::filesystem::path> files() const override { return {}; }

private:
    HeldFrame& frame_;
    std::vector<std::string> warnings_;
};

} // namespace

HeldFrame convertToMemory(const ConvertOptions& options, Console& console)
{
    Conversion conversion = decide(options);
    conversion.keepFrames = false; // a picture is wanted, whatever the output is
    conversion.floats = conversion.info().hasFloats && holdsRgb(conversion.info());
    prepareConversion(conversion);
    conversion.settings.floats = conversion.floats;
    EffectChain effects(conversion.options.effects, options.date, EffectChain::Parameters::shared,
                        lutInput(conversion));
    conversion.effectWarnings = effects.warnings();
    noteDecisions(conversion, console);
    const Media::Rational rate = conversion.info().frameRate;
    HeldFrame frame{
        .width = conversion.settings.width,
        .height = conversion.settings.height,
        .depth = conversion.settings.depth,
        .isOfFloats = conversion.floats,
        .range = conversion.settings.rgbRange,
        .bytes = {},
        .facts = {.seconds = static_cast<double>(conversion.start.pts - conversion.info().firstPts) *
                             conversion.info().timeBase.toDouble(),
                  .frameSeconds = rate.num > 0 ? 1 / rate.toDouble() : 0,
                  .number = conversion.firstNumber}};
    ConversionJob job = jobOf(conversion, effects, BurnIns());
    job.range.frames = 1;
    FramePipeline pipeline(job, [](std::int64_t) {});
    FrameKeeper keeper(frame);
    conversion.frames = pipeline.run(keeper);
    if (!pipeline.inputFailure().empty() || conversion.frames == 0) {
        throw Failure(ExitCode::input,
                      conversion.frames == 0 && pipeline.inputFailure().empty()
                          ? fmt::format("{}: has no frame to start from at {}; choose an earlier one",
                                        options.inputName(), startText(options.picked))
                          : pipeline.inputFailure());
    }
    return frame;
}

} // namespace Qx::Program
