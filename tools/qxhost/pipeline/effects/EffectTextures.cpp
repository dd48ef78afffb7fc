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
#include <cstring>
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

/// Takes the frame that a pipeline makes, as rows of A R G B, to the GPU.
class TextureWriter : public Media::iFrameWriter
{
public:
    TextureWriter(XY<int> size, iGPUImage::eFormat format) : size_(size), format_(format) {}

    Media::Status write(const void* rows, std::ptrdiff_t pitch, const Media::FrameTime&) override
    {
        const Qx::Ptr<iHostImage> host = OS().gpu().createHostImage(size_, format_);
        void* const memory = host ? host->map(iHostImage::Write) : nullptr;
        if (memory == nullptr) {
            return {};
        }
        const std::size_t bytes =
            static_cast<std::size_t>(size_.x) * (format_ == iGPUImage::eARGB8 ? 4U : 8U);
        for (int y = 0; y < size_.y; ++y) {
            std::memcpy(static_cast<std::byte*>(memory) + static_cast<std::size_t>(y) * host->getPitch(),
                        static_cast<const std::byte*>(rows) + y * pitch, bytes);
        }
        image_ = OS().gpu().uploadImage(host, 0);
        return {};
    }
    Media::Status finish() override { return {}; }
    const std::vector<std::string>& warnings() const override { return warnings_; }
    std::string description() const override { return "texture"; }
    std::vector<path> files() const override { return {}; }

    const Qx::Ptr<iGPUImage>& image() const { return image_; }

private:
    XY<int> size_;
    iGPUImage::eFormat format_;
    Qx::Ptr<iGPUImage> image_;
    std::vector<std::string> warnings_;
};

Qx::Ptr<iGPUImage> firstFrame(const path& file)
{
    // A pipe would be waited for, and has no first frame for the next run.
    std::error_code error;
    if (std::filesystem::exists(file, error) && !std::filesystem::is_regular_file(file, error)) {
        throw Failure(ExitCode::input, file.string() + ": is not a file; a texture's picture is read from "
                                                       "a file");
    }
    ConvertOptions options;
    options.input = file;
    options.picked.frames = 1;
    const std::unique_ptr<iFrameInput> input = openFrameInput(options, false);
    const Media::StreamInfo& info = input->info();
    const ColourChoice colour = chooseColour(options, info);
    EffectChain none({});
    const Media::Depth depth = info.naturalDepth;
    FrameRange onlyFirst;
    onlyFirst.frames = 1;
    FramePipeline pipeline({.input = *input,
                            .effects = none,
                            .source = {.depth = holdsRgb(info) ? depth : info.packingDepth,
                                       .range = colour.range,
                                       .matrix = colour.matrix,
                                       .followTags = true,
                                       .anyForm = true},
                            .depth = depth,
                            .step = {},
                            .range = onlyFirst},
                           [](std::int64_t) {});
    TextureWriter writer({info.width, info.height},
                         depth == Media::Depth::bits8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16);
    pipeline.run(writer);
    if (!pipeline.inputFailure().empty()) {
        throw Failure(ExitCode::input, pipeline.inputFailure());
    }
    if (!writer.image()) {
        throw Failure(ExitCode::device, file.string() + ": not enough GPU memory for this picture");
    }
    return writer.image();
}

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

Qx::Ptr<iGPUResource> loadTexture(const std::string& effect, const TextureBinding& binding)
{
    try {
        if (binding.isVolume) {
            return tableOf(binding.file);
        }
        return firstFrame(binding.file);
    } catch (const Failure& failure) {
        throw Failure(failure.code() == ExitCode::input ? ExitCode::effect : failure.code(),
                      fmt::format("{}: the texture \"{}\" cannot have its {}: {}", effect, binding.texture,
                                  binding.isVolume ? "table" : "picture", failure.what()),
                      failure.details());
    }
}

} // namespace Qx::Program
