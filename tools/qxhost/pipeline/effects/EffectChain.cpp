#include "tools/qxhost/pipeline/effects/EffectChain.h"

#include "QxFxResources/Manager.h"
#include "host/core/Suggestion.h"
#include "host/effects/TextureSources.h"
#include "host/effects/framework/ParameterRange.h"
#include "host/gpu/GPUService.h"
#include "image/TechniqueApplication.h"
#include "platform/Text.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/device/Drawing.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace Qx::Program {

namespace {

/// The texture that the table of "--lut" is bound to.
constexpr const char* tableTexture = "LUT";

/// Decorates an effect for one draw: renames the picture, which the library calls Input, and adds further
/// sources.
class EffectWithPictures : public iShaderEffect
{
public:
    /// `picture` is empty if the effect reads none.
    EffectWithPictures(Qx::Ptr<iShaderEffect> effect, LightweightString<char> picture,
                       std::vector<Source> more)
        : effect_(std::move(effect)), picture_(std::move(picture)), more_(std::move(more))
    {
    }

    bool setTechnique(const LightweightString<char>& name) override { return effect_->setTechnique(name); }
    Qx::Vector<LightweightString<char>> getTechniqueNames() const override
    {
        return effect_->getTechniqueNames();
    }
    Qx::Ptr<iShaderParam> getParam(const char* name) override { return effect_->getParam(name); }
    bool render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources) override
    {
        Qx::Vector<Source> all = sources;
        for (Source& source : all) {
            source.name = picture_;
        }
        for (const Source& source : more_) {
            all.push_back(source);
        }
        return effect_->render(std::move(target), all);
    }

private:
    Qx::Ptr<iShaderEffect> effect_;
    LightweightString<char> picture_;
    std::vector<Source> more_;
};

LightweightString<char> lightweight(std::string_view text)
{
    return LightweightString<char>(text);
}

LightweightString<char> chooseTechnique(const iShaderEffect& effect, const EffectRequest& request)
{
    const Qx::Vector<LightweightString<char>> names = effect.getTechniqueNames();
    if (request.technique.empty()) {
        return names.front();
    }
    std::vector<std::string> known;
    for (const LightweightString<char>& name : names) {
        known.emplace_back(name.view());
    }
    if (std::find(known.begin(), known.end(), request.technique) == known.end()) {
        throw WrongOption(ExitCode::effect, request.file + ": has no technique \"" + request.technique +
                                                "\"" + Host::didYouMean(request.technique, known) +
                                                "; it has " + listed(known));
    }
    return LightweightString<char>(std::string_view(request.technique));
}

[[noreturn]] void refuseParameter(const iShaderEffect& effect, const EffectRequest& request,
                                  const ParameterSetting& setting)
{
    const std::vector<std::string> known = Host::settableParameters(effect);
    throw WrongOption(ExitCode::effect, request.file + ": has no parameter \"" + setting.name + "\"" +
                                            Host::didYouMean(setting.name, known) + "; it has " +
                                            (known.empty() ? "none" : listed(known)));
}

void refuseUnknownTexture(const Host::CompiledEffect& effect, const EffectRequest& request,
                          const TextureFile& texture)
{
    std::vector<std::string> known;
    for (const Host::CompiledEffect::Texture& each : effect.textures) {
        known.push_back(each.name);
    }
    if (std::find(known.begin(), known.end(), texture.name) == known.end()) {
        throw WrongOption(ExitCode::effect, request.file + ": has no texture \"" + texture.name + "\"" +
                                                Host::didYouMean(texture.name, known) + "; it has " +
                                                (known.empty() ? "none" : listed(known)));
    }
}

Qx::Ptr<iShaderParam> findParameter(iShaderEffect& effect, const EffectRequest& request,
                                    const ParameterSetting& setting)
{
    Qx::Ptr<iShaderParam> param = effect.getParam(setting.name.c_str());
    if (!param) {
        refuseParameter(effect, request, setting);
    }
    const std::size_t components = param->getComponentCount();
    if (components == 0) {
        throw WrongOption(ExitCode::effect, request.file + ": \"" + setting.name + "\" holds no numbers");
    }
    if (setting.values.size() != 1 && setting.values.size() != components) {
        const std::size_t given = setting.values.size();
        throw WrongOption(ExitCode::effect,
                          request.file + ": \"" + setting.name + "\" takes " +
                              (components == 1 ? std::string("one value")
                                               : std::to_string(components) + " values, or one for all") +
                              "; " + std::to_string(given) + " are given");
    }
    return param;
}

Image::Surface copyOf(const Image::Surface& picture)
{
    const Qx::Ptr<iGPUImage> image = picture.getGPUSurface();
    Image::Surface copy = picture.createDestARGBGPUSurface(image->getFormat());
    if (!copy.getGPUSurface() || !Host::gpuService().copyImage(image, copy.getGPUSurface())) {
        failOnDevice(picture);
    }
    return copy;
}

[[noreturn]] void refuseDrawing(const std::string& file, const LightweightString<char>& technique,
                                const Image::Surface& picture)
{
    if (deviceIsLost()) {
        failOnDevice(picture);
    }
    throw Failure(ExitCode::effect, file + ": technique \"" + std::string(technique.view()) +
                                        "\" could not be drawn; see the log (qxhost.log)");
}

bool setParameter(iShaderParam& param, const std::vector<float>& values)
{
    return values.size() == 1 ? param.setValue(values.front())
                              : param.setValues(values.data(), values.size());
}

/// Who says the value of a parameter that cannot be set.
std::string holderOf(const Host::CompiledEffect& effect, const std::string& name)
{
    using Semantic = Host::CompiledEffect::Semantic;
    for (const Host::CompiledEffect::Parameter& parameter : effect.parameters) {
        if (parameter.name == name && parameter.semantic == Semantic::ShaderNumber) {
            return "its value in the file has chosen the shader of a pass; change it there";
        }
        if (parameter.name == name && parameter.semantic == Semantic::Identity) {
            return "it places the rectangle that a pass draws, as its semantic " + parameter.semanticName +
                   " says";
        }
    }
    return "the host fills it when it draws";
}

[[noreturn]] void refuseSetting(const Host::CompiledEffect& effect, const EffectRequest& request,
                                const ParameterSetting& setting)
{
    throw WrongOption(ExitCode::effect, request.file + ": \"" + setting.name +
                                            "\" cannot be set: " + holderOf(effect, setting.name));
}

/// The warning of a value outside the range that the effect's author gave; empty if all are in it. A shader
/// may well take such a value, so that it is no error.
std::string rangeWarning(const iShaderEffect& effect, const EffectRequest& request,
                         const ParameterSetting& setting)
{
    const Host::ParameterRange range = Host::rangeOf(effect, setting.name);
    const auto outside = std::find_if(setting.values.begin(), setting.values.end(),
                                      [&](float value) { return !range.holds(value); });
    if (outside == setting.values.end() || range.isEmpty()) {
        return {};
    }
    return request.file + ": \"" + setting.name + "\" is set to " + Host::written(*outside) +
           ", which is outside its range " + range.written() + "; it is drawn with that value";
}

/// What a texture that an option or the effect names gets: the picture or table of a file, or what another
/// program gives.
std::shared_ptr<iTextureFile> openGiven(const EffectRequest& request, const TextureBinding& binding)
{
    for (const TextureFile& texture : request.textures) {
        if (texture.name == binding.texture && texture.pictures) {
            return texture.pictures;
        }
    }
    try {
        return openTexture(request.file, binding);
    } catch (const Failure& failure) {
        if (std::any_of(request.textures.begin(), request.textures.end(),
                        [&](const TextureFile& texture) { return texture.name == binding.texture; })) {
            throw WrongOption(failure.code(), failure.what(), failure.details());
        }
        throw;
    }
}

/// Tells the effect which colours the table covers.
void setDomain(iShaderEffect& effect, const std::string& file, const TableDomain& domain)
{
    for (const auto& [name, ends] :
         {std::pair("domainMin", domain.min), std::pair("domainMax", domain.max)}) {
        const Qx::Ptr<iShaderParam> param = effect.getParam(name);
        if (!param || !param->setValues(ends.data(), ends.size())) {
            throw Failure(ExitCode::effect, file + ": has no parameter " + name +
                                                " of three numbers, so it cannot apply LUTs; is another "
                                                "file of this name in the way?");
        }
    }
}

/// What begins messages on a look's steps.
std::string nameOfLook(const EffectRequest& request)
{
    return request.look.empty() ? "" : request.look.string() + ": ";
}

bool reads(const std::vector<TextureBinding>& bindings, TextureBinding::Kind kind)
{
    return std::any_of(bindings.begin(), bindings.end(),
                       [kind](const TextureBinding& each) { return each.kind == kind; });
}

/// Why a texture has no picture. In a look, what the command line would be given belongs to the step.
std::string obstacleFor(const EffectRequest& request, const TextureBinding& binding)
{
    return request.look.empty() ? binding.obstacle
                                : asInLooks(binding.obstacle, "to this step of " + request.look.string());
}

} // namespace

EffectChain::EffectChain(const std::vector<EffectRequest>& requests, std::optional<DateTime> begin,
                         Parameters parameters, Host::LUTInput input)
    : begin_(begin ? *begin : localTime()), parameters_(parameters), input_(input)
{
    for (const EffectRequest& request : requests) {
        try {
            links_.push_back(makeLink(request));
        } catch (const WrongOption& failure) {
            throw WrongOption(failure.code(), nameOfLook(request) + failure.what(), failure.details());
        } catch (const Failure& failure) {
            throw Failure(failure.code(), nameOfLook(request) + failure.what(), failure.details());
        }
    }
}

int EffectChain::framesBefore() const
{
    return static_cast<int>(std::count_if(links_.begin(), links_.end(), [](const Link& link) {
        return reads(link.bindings, TextureBinding::Kind::pictureBefore);
    }));
}

std::string EffectChain::recursiveEffect() const
{
    const auto found = std::find_if(links_.begin(), links_.end(), [](const Link& link) {
        return reads(link.bindings, TextureBinding::Kind::resultBefore);
    });
    return found == links_.end() ? std::string() : found->file;
}

bool EffectChain::isInUse(const Qx::Ptr<iShaderEffect>& effect) const
{
    return std::any_of(links_.begin(), links_.end(), [&](const Link& link) { return link.effect == effect; });
}

void EffectChain::takeLut(Link& link, const std::string& lut) const
{
    link.file = lutPath(lut).native(); // a LUT's name and its path are one
    const auto same = std::find_if(links_.begin(), links_.end(),
                                   [&](const Link& other) { return other.table && other.file == link.file; });
    if (same != links_.end()) {
        link.table = same->table;
        link.technique = same->technique;
        return;
    }
    takeTable(link, obtainLut(lut, input_));
}

void EffectChain::takeTable(Link& link, LutOnGpu table)
{
    link.table = std::move(table.image);
    link.technique = LightweightString<char>(std::string_view(table.technique));
}

EffectChain::Link EffectChain::makeLink(const EffectRequest& request)
{
    if (!request.ocio) {
        return makeLink(request, {});
    }
    ColourSpaceDrawing drawing = obtainColourSpaceChange(*request.ocio, warnings_, input_);
    if (auto* table = std::get_if<LutOnGpu>(&drawing)) {
        return makeLink(request, std::move(*table));
    }
    EffectRequest effect = request;
    effect.file = std::get<std::filesystem::path>(drawing).native();
    effect.ocio.reset();
    return makeLink(effect, {});
}

EffectChain::Link EffectChain::makeLink(const EffectRequest& request, std::optional<LutOnGpu> table)
{
    Link link;
    link.file = request.file;
    const bool isOthers = parameters_ == Parameters::own && isCatalogued(request.file);
    link.effect = isOthers ? Qx::Ptr<iShaderEffect>() : obtainEffect(request.file);
    if (isOthers || isInUse(link.effect)) {
        // A second use of the same file has parameters of its own.
        link.effect = compileEffectFile(effectPath(request.file));
    }
    EffectRequest chosen = request;
    if (request.hasTable()) {
        if (table) {
            link.file = wordsOf(*request.ocio);
            takeTable(link, *std::move(table));
        } else {
            takeLut(link, request.lut);
        }
        setDomain(*link.effect, request.file, link.table->getDomain());
        chosen.technique = link.technique.c_str();
    }
    link.technique = chooseTechnique(*link.effect, chosen);
    link.compiled = Host::compiledEffect(*link.effect);
    takeTextures(link, request);
    takeParameters(link, request);
    return link;
}

void EffectChain::takeTextures(Link& link, const EffectRequest& request)
{
    const Host::CompiledEffect& effect = *link.compiled;
    const Host::CompiledEffect::Technique& technique = *Host::techniqueNamed(effect, link.technique.view());
    for (const TextureFile& texture : request.textures) {
        refuseUnknownTexture(effect, request, texture);
    }
    for (TextureBinding& binding :
         bindingsOf(effect, technique, effectPath(request.file), request.textures)) {
        if (link.table && binding.texture == tableTexture) {
            continue; // bound() has it
        } else if (binding.kind == TextureBinding::Kind::missing) {
            throw Failure(ExitCode::effect, request.file + ": technique \"" + technique.name +
                                                "\" reads the texture \"" + binding.texture + "\", " +
                                                obstacleFor(request, binding));
        } else if (binding.kind == TextureBinding::Kind::file) {
            link.files.emplace_back(lightweight(binding.texture), openGiven(request, binding));
            if (!binding.file.empty()) {
                textureFiles_.push_back(binding.file);
            }
            warnOfCube(request.file, effect, binding.texture, link.files.back().second->at({}).get());
        } else {
            link.bindings.push_back(std::move(binding));
        }
    }
    warnOfUnread(effect, technique, request);
    const bool readsFrames = !link.bindings.empty() || request.hasTable();
    if (!request.textures.empty() && !readsFrames) {
        warnings_.push_back(request.file + ": technique \"" + technique.name +
                            "\" reads nothing but the files of its textures; the picture is not seen");
    }
}

/// Pictures that an option gives to textures for which the technique takes none.
void EffectChain::warnOfUnread(const Host::CompiledEffect& effect,
                               const Host::CompiledEffect::Technique& technique, const EffectRequest& request)
{
    std::vector<std::string> read;
    for (const std::size_t texture : Host::texturesRead(effect, technique)) {
        read.push_back(effect.textures[texture].name);
    }
    for (const TextureFile& given : request.textures) {
        if (std::find(read.begin(), read.end(), given.name) != read.end()) {
            continue;
        }
        const bool isDrawn = std::any_of(technique.passes.begin(), technique.passes.end(),
                                         [&](const Host::CompiledEffect::Pass& pass) {
                                             return pass.target < effect.textures.size() &&
                                                    effect.textures[pass.target].name == given.name;
                                         });
        warnings_.push_back(request.file + ": technique \"" + technique.name + "\" " +
                            (isDrawn ? "draws the texture \"" : "does not read the texture \"") + given.name +
                            "\"" + (isDrawn ? " itself" : "") + "; " + given.file.string() + " is not used");
    }
}

void EffectChain::warnOfCube(const std::string& file, const Host::CompiledEffect& effect,
                             const std::string& texture, const iGPUResource* resource)
{
    const auto* const image = dynamic_cast<const iGPUImage*>(resource);
    for (const Host::CompiledEffect::Sampler& sampler : effect.samplers) {
        if (image == nullptr || effect.textures[sampler.texture].name != texture) {
            continue;
        }
        const XY<int> size = image->getSize();
        if (!Host::CompiledEffect::fits(sampler, static_cast<std::uint32_t>(size.x),
                                        static_cast<std::uint32_t>(size.y))) {
            warnings_.push_back(file + ": the texture \"" + texture +
                                "\" is read as a cube, whose six square "
                                "faces lie side by side; its picture has " +
                                std::to_string(size.x) + " x " + std::to_string(size.y) + " pixels");
            return;
        }
    }
}

void EffectChain::takeParameters(Link& link, const EffectRequest& request)
{
    const std::vector<Host::CompiledEffect::Parameter>& parameters = link.compiled->parameters;
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        if (Host::supplyOf(parameters[i]) != Host::Supply::None) {
            link.supplied.push_back(i);
        }
    }
    for (const ParameterSetting& setting : request.settings) {
        setValue(link, request, setting);
        warnOfRange(link, request, setting);
    }
    for (const KeyedParameter& parameter : request.keyed) {
        setKeys(link, request, parameter);
        for (const KeyFrame& key : parameter.keys) {
            warnOfRange(link, request, {parameter.name, key.values});
        }
    }
}

void EffectChain::warnOfRange(const Link& link, const EffectRequest& request, const ParameterSetting& setting)
{
    std::string warning = rangeWarning(*link.effect, request, setting);
    const bool isNew = std::find(warnings_.begin(), warnings_.end(), warning) == warnings_.end();
    if (!warning.empty() && isNew) {
        warnings_.push_back(std::move(warning));
    }
}

void EffectChain::setValue(Link& link, const EffectRequest& request, const ParameterSetting& setting)
{
    if (!setParameter(*findParameter(*link.effect, request, setting), setting.values)) {
        refuseSetting(*link.compiled, request, setting);
    }
    std::erase_if(link.supplied,
                  [&](std::size_t each) { return link.compiled->parameters[each].name == setting.name; });
    std::erase_if(link.keyed, [&](const KeyedParameter& each) { return each.name == setting.name; });
}

/// Each key frame is tried as a value, so that no frame fails of it later.
void EffectChain::setKeys(Link& link, const EffectRequest& request, const KeyedParameter& parameter)
{
    for (const KeyFrame& key : parameter.keys) {
        setValue(link, request, {parameter.name, key.values});
    }
    if (!parameter.keys.empty()) {
        link.keyed.push_back(parameter);
    }
}

void EffectChain::set(std::size_t n, const ParameterSetting& setting)
{
    EffectRequest request;
    request.file = links_[n].file;
    setValue(links_[n], request, setting);
}

void EffectChain::set(std::size_t n, const KeyedParameter& parameter)
{
    EffectRequest request;
    request.file = links_[n].file;
    setKeys(links_[n], request, parameter);
}

void EffectChain::supply(const Link& link, const Host::FrameFacts& facts)
{
    for (const std::size_t index : link.supplied) {
        const Host::CompiledEffect::Parameter& parameter = link.compiled->parameters[index];
        const std::vector<float> values = Host::valuesOf(Host::supplyOf(parameter), parameter, facts);
        link.effect->getParam(parameter.name.c_str())->setValues(values.data(), values.size());
    }
    for (const KeyedParameter& parameter : link.keyed) {
        setParameter(*link.effect->getParam(parameter.name.c_str()), valuesAt(parameter.keys, facts.number));
    }
}

Qx::Ptr<iShaderEffect> EffectChain::bound(const Link& link, const Image::Surface& picture,
                                          const Host::FrameFacts& facts)
{
    LightweightString<char> input;
    std::vector<iShaderEffect::Source> sources;
    if (link.table) {
        sources.emplace_back(lightweight(tableTexture), link.table);
    }
    for (const auto& [name, file] : link.files) {
        sources.emplace_back(name, file->at(facts));
    }
    for (const TextureBinding& binding : link.bindings) {
        const LightweightString<char> name = lightweight(binding.texture);
        if (binding.kind == TextureBinding::Kind::picture) {
            input = name;
            continue;
        }
        const Image::Surface& before =
            binding.kind == TextureBinding::Kind::resultBefore ? link.resultBefore : link.pictureBefore;
        const bool isFirst = !before.getGPUSurface();
        sources.emplace_back(name, (isFirst ? picture : before).getGPUSurface());
    }
    return Qx::makePtr<EffectWithPictures>(link.effect, input, std::move(sources));
}

std::vector<std::string> EffectChain::remarks() const
{
    std::vector<std::string> remarks;
    for (const Link& link : links_) {
        for (const std::string& note : Host::drawingNotes(*link.effect)) {
            remarks.push_back(link.file + ": " + note);
        }
        for (const auto& [name, file] : link.files) {
            if (std::string remark = file->remark(); !remark.empty()) {
                remarks.push_back(link.file + ": texture \"" + name.c_str() + "\": " + remark);
            }
        }
    }
    return remarks;
}

void EffectChain::forgetFrames()
{
    for (Link& link : links_) {
        link.pictureBefore = {};
        link.resultBefore = {};
    }
}

/// Keeps what the next frame reads, and nothing else: pictures that are held must be copied when the memory
/// that they share with host images is written to.
void EffectChain::keep(Link& link, const Image::Surface& picture, const Image::Surface& result)
{
    for (const TextureBinding& binding : link.bindings) {
        if (binding.kind == TextureBinding::Kind::pictureBefore) {
            link.pictureBefore = picture;
        } else if (binding.kind == TextureBinding::Kind::resultBefore) {
            link.resultBefore = copyOf(result); // what is drawn over the result later is no part of it
        }
    }
}

Image::Surface EffectChain::apply(const Image::Surface& picture, iGPUImage::eFormat format,
                                  Host::FrameFacts facts)
{
    Image::Surface current = picture;
    facts.width = static_cast<int>(picture.getWidth());
    facts.height = static_cast<int>(picture.getHeight());
    facts.day = begin_.day;
    facts.secondsOfDay = begin_.seconds;
    for (Link& link : links_) {
        Image::Surface next = current.createDestARGBGPUSurface(format);
        if (!next.getGPUSurface()) {
            failOnDevice(current);
        }
        supply(link, facts);
        const Qx::Ptr<iShaderEffect> effect = bound(link, current, facts);
        const Drawing drawing = tryDrawing([&] {
            return Image::applyTechnique(effect, current, next, link.technique,
                                         static_cast<float>(current.getWidth()));
        });
        if (drawing != Drawing::recorded) {
            refuseDrawing(link.file, link.technique, current);
        }
        keep(link, current, next);
        current = next;
    }
    return current;
}

} // namespace Qx::Program
