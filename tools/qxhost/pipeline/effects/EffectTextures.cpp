#include "tools/qxhost/pipeline/effects/EffectTextures.h"

#include "host/core/AsciiCase.h"
#include "host/effects/TextureSources.h"
#include "host/luts/LUTReader.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/pipeline/FramePipeline.h"
#include "tools/qxhost/pipeline/input/ColourChoice.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <fmt/format.h>
#include <optional>

namespace Qx::Program {

namespace {

using Host::CompiledEffect;
using Kind = TextureBinding::Kind;
using std::filesystem::path;

/// What has that name in the directory, ignoring letter case where nothing has exactly it.
path entryOf(const path& directory, const path& name)
{
    std::error_code error;
    if (!std::filesystem::exists(directory / name, error)) {
        const std::string wanted = Host::asciiLower(name.string());
        for (std::filesystem::directory_iterator each(directory.empty() ? "." : directory, error), end;
             !error && each != end; each.increment(error)) {
            if (Host::asciiLower(each->path().filename().string()) == wanted) {
                return directory / each->path().filename();
            }
        }
    }
    return directory / name;
}

/// The file of that name below the directory. Letter case does not count, neither of the file nor of the
/// directories: nor does it where most effects come from.
std::optional<path> fileIn(path directory, const path& name)
{
    for (const path& part : name) {
        directory = entryOf(directory, part);
    }
    std::error_code error;
    return std::filesystem::is_regular_file(directory, error) ? std::optional(directory) : std::nullopt;
}

/// The file that an annotation names: at that place below the effect's directory, or directly in it.
std::optional<path> fileBeside(const path& effectFile, std::string written)
{
    std::replace(written.begin(), written.end(), '\\', '/');
    const path named = path(written).lexically_normal();
    const path directory = effectFile.parent_path();
    const bool isBelow = named.is_relative() && !named.empty() && *named.begin() != "..";
    std::optional<path> found = isBelow ? fileIn(directory, named) : std::nullopt;
    return found ? found : fileIn(directory, named.filename());
}

/// The binding of a texture that does not get the picture.
TextureBinding bindingOf(const CompiledEffect& effect, std::size_t index, const path& effectFile,
                         const std::vector<TextureFile>& given)
{
    const CompiledEffect::Texture& texture = effect.textures[index];
    TextureBinding binding{texture.name, Kind::missing, {}, Host::isVolume(effect, index), {}};
    const auto takeFile = [&](const path& file) {
        binding.kind = Kind::file;
        binding.file = file;
        return binding;
    };
    // The last one counts, as with every option.
    const auto found = std::find_if(given.rbegin(), given.rend(),
                                    [&](const TextureFile& each) { return each.name == texture.name; });
    if (found != given.rend()) {
        return takeFile(found->file);
    }
    const Host::TextureSource source = Host::sourceOf(texture);
    switch (source.kind) {
    case Host::TextureSource::Kind::PictureBefore:
    case Host::TextureSource::Kind::ResultBefore:
        if (!binding.isVolume) {
            const bool picture = source.kind == Host::TextureSource::Kind::PictureBefore;
            binding.kind = picture ? Kind::pictureBefore : Kind::resultBefore;
            return binding;
        }
        break;
    case Host::TextureSource::Kind::File:
        if (const std::optional<path> file = fileBeside(effectFile, source.file)) {
            return takeFile(*file);
        }
        binding.obstacle = fmt::format("whose file {} is not beside the effect; put it there, or add "
                                       "--texture {}=FILE",
                                       source.file, texture.name);
        return binding;
    case Host::TextureSource::Kind::None:
        break;
    }
    if (Host::asciiLower(texture.semantic) == "rendercolortarget") {
        binding.obstacle =
            fmt::format("into which no pass draws: none has the annotation string Target = \"{0}\" or "
                        "a script with RenderColorTarget0={0}",
                        texture.name);
        return binding;
    }
    if (!source.noFile.empty()) {
        binding.obstacle =
            fmt::format("whose annotation {} is no file's name, which has an extension; add --texture "
                        "{}=FILE",
                        source.noFile, texture.name);
        return binding;
    }
    binding.obstacle =
        binding.isVolume
            ? fmt::format("a volume, which nothing gives a table; add --texture {}=FILE with a LUT",
                          texture.name)
            : fmt::format("which nothing gives a picture; add --texture {}=FILE", texture.name);
    return binding;
}

std::string optionFor(const std::string& texture)
{
    return "--texture " + texture + "=FILE";
}

std::vector<std::string> namesOf(const std::vector<TextureFile>& given)
{
    std::vector<std::string> names;
    for (const TextureFile& texture : given) {
        names.push_back(texture.name);
    }
    return names;
}

Failure textureFailure(const std::string& named, const Failure& failure)
{
    return {failure.code() == ExitCode::input ? ExitCode::effect : failure.code(),
            named + ": " + failure.what(), failure.details()};
}

/// A frame of a clip on the GPU.
struct TextureFrame
{
    Qx::Ptr<iGPUImage> image;
    std::int64_t time; ///< in units of the clip's time base
};

/// Takes the frames that a pipeline makes, as rows of A R G B, to the GPU.
class TextureWriter : public Media::iFrameWriter
{
public:
    TextureWriter(XY<int> size, iGPUImage::eFormat format, std::deque<TextureFrame>& frames)
        : size_(size), format_(format), frames_(frames)
    {
    }

    Media::Status write(const void* rows, std::ptrdiff_t pitch, const Media::FrameTime& time) override
    {
        const Qx::Ptr<iHostImage> host = OS().gpu().createHostImage(size_, format_);
        void* const memory = host ? host->map(iHostImage::Write) : nullptr;
        if (memory == nullptr) {
            isShort_ = true;
            return {};
        }
        const std::size_t bytes =
            static_cast<std::size_t>(size_.x) * (format_ == iGPUImage::eARGB8 ? 4U : 8U);
        for (int y = 0; y < size_.y; ++y) {
            std::memcpy(static_cast<std::byte*>(memory) + static_cast<std::size_t>(y) * host->getPitch(),
                        static_cast<const std::byte*>(rows) + y * pitch, bytes);
        }
        const Qx::Ptr<iGPUImage> image = OS().gpu().uploadImage(host, 0);
        isShort_ = isShort_ || !image;
        frames_.push_back({image, time.pts});
        return {};
    }
    Media::Status finish() override { return {}; }
    const std::vector<std::string>& warnings() const override { return warnings_; }
    std::string description() const override { return "texture"; }
    std::vector<path> files() const override { return {}; }

    bool isShortOfMemory() const { return isShort_; }

private:
    XY<int> size_;
    iGPUImage::eFormat format_;
    std::deque<TextureFrame>& frames_;
    bool isShort_ = false;
    std::vector<std::string> warnings_;
};

/// A picture or a clip.
class FramesOfTexture final : public iTextureFile
{
public:
    /// `named` begins the texts for people.
    FramesOfTexture(const path& file, std::string named) : file_(file), named_(std::move(named))
    {
        // A pipe would be waited for, and has no first frame for the next run.
        std::error_code error;
        if (std::filesystem::exists(file, error) && !std::filesystem::is_regular_file(file, error)) {
            throw Failure(ExitCode::input,
                          file.string() + ": is not a file; a texture's picture is read from a file");
        }
        options_.input = file;
        input_ = openFrameInput(options_, false);
        read(); // a mistake is told before the first frame
        if (frames_.empty()) {
            throw Failure(ExitCode::input, file.string() + ": has no frame");
        }
        isMoving_ = frames_.size() > 1;
    }

    Qx::Ptr<iGPUResource> at(const Host::FrameFacts& clip) override
    {
        if (isMoving_) {
            try {
                moveTo(clip);
            } catch (const Failure& failure) {
                throw textureFailure(named_, failure);
            }
        }
        return frames_.front().image;
    }

    std::string remark() const override
    {
        return isOver_
                   ? fmt::format("{} ends after {} frames; its last frame stays", file_.string(), number_ + 1)
                   : std::string();
    }

private:
    void moveTo(const Host::FrameFacts& clip)
    {
        const Media::StreamInfo& info = input_->info();
        const double rate = info.frameRate.num > 0 ? info.frameRate.toDouble() : 0;
        const bool sameRate = std::abs(rate * clip.frameSeconds - 1) < 1e-6;
        const auto isDue = [&](std::int64_t number, std::int64_t time) {
            constexpr double tick = 1e-6; // times are rounded to the time bases of both clips
            const double begins = static_cast<double>(time - firstTime_) * info.timeBase.toDouble();
            return sameRate ? number <= clip.number : begins <= clip.seconds + tick;
        };
        while (true) {
            if (frames_.size() < 2) {
                read();
            }
            if (frames_.size() < 2 || !isDue(number_ + 1, frames_[1].time)) {
                break;
            }
            frames_.pop_front();
            ++number_;
        }
        const double frame = rate > 0 ? 1 / rate : clip.frameSeconds;
        const auto after =
            frames_.front().time + static_cast<std::int64_t>(std::llround(frame / info.timeBase.toDouble()));
        isOver_ = isOver_ || (frames_.size() < 2 && isDue(number_ + 1, after));
    }

    /// Reads the next frames, if there are any.
    void read()
    {
        if (hasEnded_) {
            return;
        }
        constexpr std::int64_t atOnce = 4; // their decoding and their conversion overlap
        const Media::StreamInfo& info = input_->info();
        const ColourChoice colour = chooseColour(options_, info);
        EffectChain none({});
        const Media::Depth depth = info.naturalDepth;
        FrameRange some;
        some.frames = frames_.empty() ? 2 : atOnce;
        FramePipeline pipeline({.input = *input_,
                                .effects = none,
                                .source = {.depth = holdsRgb(info) ? depth : info.packingDepth,
                                           .range = colour.range,
                                           .matrix = colour.matrix,
                                           .followTags = true,
                                           .anyForm = true},
                                .depth = depth,
                                .step = {},
                                .range = some},
                               [](std::int64_t) {});
        const std::size_t before = frames_.size();
        TextureWriter writer({info.width, info.height},
                             depth == Media::Depth::bits8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16, frames_);
        pipeline.run(writer);
        if (!pipeline.inputFailure().empty()) {
            throw Failure(ExitCode::input, input_->failure());
        }
        if (writer.isShortOfMemory()) {
            throw Failure(ExitCode::device, file_.string() + ": not enough GPU memory for this picture");
        }
        hasEnded_ = frames_.size() == before;
        firstTime_ = before == 0 && !frames_.empty() ? frames_.front().time : firstTime_;
    }

    const path file_;
    const std::string named_;
    ConvertOptions options_;
    std::unique_ptr<iFrameInput> input_;
    std::deque<TextureFrame> frames_; ///< the one shown and those after it
    std::int64_t number_ = 0;         ///< of the one shown
    std::int64_t firstTime_ = 0;
    bool hasEnded_ = false; ///< no frame is left to read
    bool isMoving_ = false;
    bool isOver_ = false;
};

Qx::Ptr<iGPUResource> tableOf(const path& file)
{
    const Host::LUTTableReading reading = Host::readLUTTable(file);
    if (!reading.table) {
        throw Failure(ExitCode::input, reading.failure);
    }
    Qx::Ptr<iGPUImage3D> table = OS().gpu().upload3DImage(reading.table);
    if (!table) {
        throw Failure(ExitCode::device, file.string() + ": not enough GPU memory for this LUT");
    }
    return table;
}

class TableOfTexture final : public iTextureFile
{
public:
    explicit TableOfTexture(Qx::Ptr<iGPUResource> table) : table_(std::move(table)) {}
    Qx::Ptr<iGPUResource> at(const Host::FrameFacts&) override { return table_; }

private:
    const Qx::Ptr<iGPUResource> table_;
};

} // namespace

std::vector<TextureBinding> bindingsOf(const CompiledEffect& effect,
                                       const CompiledEffect::Technique& technique, const path& effectFile,
                                       const std::vector<TextureFile>& given)
{
    std::vector<TextureBinding> bindings;
    const std::optional<std::size_t> picture = Host::pictureTexture(effect, technique, namesOf(given));
    for (const std::size_t texture : Host::texturesRead(effect, technique)) {
        bindings.push_back(texture == picture
                               ? TextureBinding{effect.textures[texture].name, Kind::picture, {}, false, {}}
                               : bindingOf(effect, texture, effectFile, given));
    }
    return bindings;
}

std::string obstacleTo(const CompiledEffect& effect, const CompiledEffect::Technique& technique,
                       const path& effectFile, const std::vector<TextureFile>& given)
{
    for (const TextureBinding& binding : bindingsOf(effect, technique, effectFile, given)) {
        if (binding.kind == Kind::missing) {
            return fmt::format("reads the texture \"{}\", {}", binding.texture, binding.obstacle);
        }
    }
    return {};
}

std::string asInLooks(const std::string& text, const std::string& place)
{
    constexpr std::string_view option = "--texture ";
    const std::size_t begin = text.find(option);
    const std::size_t end = begin == std::string::npos ? begin : text.find("=FILE", begin);
    if (end == std::string::npos) {
        return text;
    }
    const std::size_t name = begin + option.size();
    return fmt::format("{}texture = {{ {} = \"FILE\" }} {}{}", text.substr(0, begin),
                       text.substr(name, end - name), place, text.substr(end + std::strlen("=FILE")));
}

std::vector<std::string> neededBy(const CompiledEffect& effect, const CompiledEffect::Technique& technique,
                                  const path& effectFile)
{
    std::vector<std::string> options;
    for (const TextureBinding& binding : bindingsOf(effect, technique, effectFile, {})) {
        if (binding.kind == Kind::missing) {
            options.push_back(optionFor(binding.texture));
        }
    }
    return options;
}

std::string givenTo(const CompiledEffect& effect, std::size_t texture, const path& effectFile)
{
    std::vector<std::string> over; // techniques whose picture it is
    for (const CompiledEffect::Technique& technique : effect.techniques) {
        if (Host::pictureTexture(effect, technique) == texture) {
            over.push_back(technique.name);
        }
    }
    if (over.size() == effect.techniques.size()) {
        return "the picture";
    }
    if (!over.empty()) {
        return "the picture of " + listed(over);
    }
    const auto isDrawn = [texture](const CompiledEffect::Technique& technique) {
        return std::any_of(technique.passes.begin(), technique.passes.end(),
                           [texture](const auto& pass) { return pass.target == texture; });
    };
    if (std::any_of(effect.techniques.begin(), effect.techniques.end(), isDrawn)) {
        return "a pass";
    }
    const TextureBinding binding = bindingOf(effect, texture, effectFile, {});
    switch (binding.kind) {
    case Kind::pictureBefore:
        return "the picture of the frame before";
    case Kind::resultBefore:
        return "the result of the frame before";
    case Kind::file:
        return effectFile.has_parent_path()
                   ? binding.file.lexically_relative(effectFile.parent_path()).string()
                   : binding.file.string();
    case Kind::picture:
    case Kind::missing:
        break;
    }
    return optionFor(binding.texture);
}

std::unique_ptr<iTextureFile> openTexture(const std::string& effect, const TextureBinding& binding)
{
    const std::string named = fmt::format("{}: the texture \"{}\" cannot have its {}", effect,
                                          binding.texture, binding.isVolume ? "table" : "picture");
    try {
        if (binding.isVolume) {
            return std::make_unique<TableOfTexture>(tableOf(binding.file));
        }
        return std::make_unique<FramesOfTexture>(binding.file, named);
    } catch (const Failure& failure) {
        throw textureFailure(named, failure);
    }
}

} // namespace Qx::Program
