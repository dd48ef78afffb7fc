#include "host/effects/framework/EffectStates.h"

#include "host/core/AsciiCase.h"
#include "host/core/Suggestion.h"
#include "host/effects/framework/ConstantExpression.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

namespace Qx::Host::Effects {
namespace {

using Filter = CompiledEffect::Filter;
using Address = CompiledEffect::Address;

template <typename Value, std::size_t Count>
using Names = std::array<std::pair<std::string_view, Value>, Count>;

constexpr Names<Filter, 6> filters{{{"Point", Filter::Point},
                                    {"None", Filter::Point},
                                    {"Linear", Filter::Linear},
                                    {"Anisotropic", Filter::Linear},
                                    {"PyramidalQuad", Filter::Linear},
                                    {"GaussianQuad", Filter::Linear}}};
constexpr Names<Address, 4> addresses{{{"Clamp", Address::Clamp},
                                       {"Wrap", Address::Wrap},
                                       {"Mirror", Address::Mirror},
                                       {"Border", Address::Border}}};

// What other frameworks call them, and the numbers of Direct3D 9.
constexpr Names<Filter, 17> otherFilters{{{"Nearest", Filter::Point},
                                          {"NearestMipMapNearest", Filter::Point},
                                          {"NearestMipMapLinear", Filter::Point},
                                          {"LinearMipMapNearest", Filter::Linear},
                                          {"LinearMipMapLinear", Filter::Linear},
                                          {"MIN_MAG_MIP_POINT", Filter::Point},
                                          {"MIN_MAG_POINT_MIP_LINEAR", Filter::Point},
                                          {"MIN_LINEAR_MAG_MIP_POINT", Filter::Point},
                                          {"MIN_LINEAR_MAG_POINT_MIP_LINEAR", Filter::Point},
                                          {"MIN_POINT_MAG_LINEAR_MIP_POINT", Filter::Linear},
                                          {"MIN_POINT_MAG_MIP_LINEAR", Filter::Linear},
                                          {"MIN_MAG_LINEAR_MIP_POINT", Filter::Linear},
                                          {"MIN_MAG_MIP_LINEAR", Filter::Linear},
                                          {"0", Filter::Point},
                                          {"1", Filter::Point},
                                          {"2", Filter::Linear},
                                          {"3", Filter::Linear}}};
constexpr Names<Address, 10> otherAddresses{{{"Repeat", Address::Wrap},
                                             {"MirroredRepeat", Address::Mirror},
                                             {"MirrorRepeat", Address::Mirror},
                                             {"MirrorOnce", Address::Mirror},
                                             {"ClampToEdge", Address::Clamp},
                                             {"ClampToBorder", Address::Border},
                                             {"1", Address::Wrap},
                                             {"2", Address::Mirror},
                                             {"3", Address::Clamp},
                                             {"4", Address::Border}}};

/// What a value of MipFilter, or one of Filter that says it too, is for the levels. Nothing for others.
std::optional<CompiledEffect::Mip> mipIn(std::string_view value, bool ofMipFilter)
{
    using Mip = CompiledEffect::Mip;
    const std::string name = asciiLower(value);
    if (name.ends_with("mip_linear") || name.ends_with("mipmaplinear")) {
        return Mip::Linear;
    }
    if (name.ends_with("mip_point") || name.ends_with("mipmapnearest")) {
        return Mip::Point;
    }
    if (!ofMipFilter) {
        return std::nullopt;
    }
    return name == "none" || name == "0"                                         ? Mip::None
           : name == "point" || name == "nearest" || name == "1" || name.empty() ? Mip::Point
                                                                                 : Mip::Linear;
}

template <typename Value, std::size_t Count, std::size_t OtherCount>
Value look(const Names<Value, Count>& names, const Names<Value, OtherCount>& others, const Token& state,
           const std::vector<Token>& value)
{
    for (const auto& [name, meaning] : others) {
        if (value.size() == 1 && equalIgnoringCase(value[0].text, name)) {
            return meaning;
        }
    }
    std::string choices;
    std::vector<std::string_view> known;
    for (const auto& [name, meaning] : names) {
        if (value.size() == 1 && equalIgnoringCase(value[0].text, name)) {
            return meaning;
        }
        choices += (choices.empty() ? "" : ", ") + std::string(name);
        known.push_back(name);
    }
    throw CompileError(value[0].at, "state " + inQuotes(state.text) + " is one of " + choices +
                                        didYouMean(value[0].text, known));
}

constexpr std::array<std::string_view, 103> renderStates{"AlphaBlendEnable",
                                                         "AlphaFunc",
                                                         "AlphaRef",
                                                         "AlphaTestEnable",
                                                         "Ambient",
                                                         "AmbientMaterialSource",
                                                         "AntialiasedLineEnable",
                                                         "BlendEnable",
                                                         "BlendFactor",
                                                         "BlendOp",
                                                         "BlendOpAlpha",
                                                         "CCW_StencilFail",
                                                         "CCW_StencilFunc",
                                                         "CCW_StencilPass",
                                                         "CCW_StencilZFail",
                                                         "Clipping",
                                                         "ClipPlaneEnable",
                                                         "ColorVertex",
                                                         "ColorWriteEnable",
                                                         "ColorWriteEnable1",
                                                         "ColorWriteEnable2",
                                                         "ColorWriteEnable3",
                                                         "CullMode",
                                                         "DepthBias",
                                                         "DestBlend",
                                                         "DestBlendAlpha",
                                                         "DiffuseMaterialSource",
                                                         "DitherEnable",
                                                         "EmissiveMaterialSource",
                                                         "FillMode",
                                                         "FogColor",
                                                         "FogDensity",
                                                         "FogEnable",
                                                         "FogEnd",
                                                         "FogStart",
                                                         "FogTableMode",
                                                         "FogVertexMode",
                                                         "FVF",
                                                         "IndexedVertexBlendEnable",
                                                         "LastPixel",
                                                         "Lighting",
                                                         "LocalViewer",
                                                         "MaterialAmbient",
                                                         "MaterialDiffuse",
                                                         "MaterialEmissive",
                                                         "MaterialPower",
                                                         "MaterialSpecular",
                                                         "MultiSampleAntialias",
                                                         "MultiSampleEnable",
                                                         "MultiSampleMask",
                                                         "NormalizeNormals",
                                                         "PatchSegments",
                                                         "PointScale_A",
                                                         "PointScale_B",
                                                         "PointScale_C",
                                                         "PointScaleEnable",
                                                         "PointSize",
                                                         "PointSize_Max",
                                                         "PointSize_Min",
                                                         "PointSpriteEnable",
                                                         "ProjectionTransform",
                                                         "RangeFogEnable",
                                                         "ScissorTestEnable",
                                                         "SeparateAlphaBlendEnable",
                                                         "ShadeMode",
                                                         "SlopeScaleDepthBias",
                                                         "SpecularEnable",
                                                         "SpecularMaterialSource",
                                                         "SrcBlend",
                                                         "SrcBlendAlpha",
                                                         "SRGBWriteEnable",
                                                         "StencilEnable",
                                                         "StencilFail",
                                                         "StencilFunc",
                                                         "StencilMask",
                                                         "StencilPass",
                                                         "StencilRef",
                                                         "StencilWriteMask",
                                                         "StencilZFail",
                                                         "TextureFactor",
                                                         "TweenFactor",
                                                         "TwoSidedStencilMode",
                                                         "VertexBlend",
                                                         "ViewTransform",
                                                         "Wrap0",
                                                         "Wrap1",
                                                         "Wrap10",
                                                         "Wrap11",
                                                         "Wrap12",
                                                         "Wrap13",
                                                         "Wrap14",
                                                         "Wrap15",
                                                         "Wrap2",
                                                         "Wrap3",
                                                         "Wrap4",
                                                         "Wrap5",
                                                         "Wrap6",
                                                         "Wrap7",
                                                         "Wrap8",
                                                         "Wrap9",
                                                         "ZEnable",
                                                         "ZFunc",
                                                         "ZWriteEnable"};
constexpr std::array<std::string_view, 48> numberedStates{"AddressU",
                                                          "AddressV",
                                                          "AddressW",
                                                          "AlphaArg0",
                                                          "AlphaArg1",
                                                          "AlphaArg2",
                                                          "AlphaOp",
                                                          "BlendEnable",
                                                          "BorderColor",
                                                          "BumpEnvLOffset",
                                                          "BumpEnvLScale",
                                                          "BumpEnvMat00",
                                                          "BumpEnvMat01",
                                                          "BumpEnvMat10",
                                                          "BumpEnvMat11",
                                                          "ColorArg0",
                                                          "ColorArg1",
                                                          "ColorArg2",
                                                          "ColorOp",
                                                          "ColorWriteMask",
                                                          "LightAmbient",
                                                          "LightAttenuation0",
                                                          "LightAttenuation1",
                                                          "LightAttenuation2",
                                                          "LightDiffuse",
                                                          "LightDirection",
                                                          "LightEnable",
                                                          "LightFalloff",
                                                          "LightPhi",
                                                          "LightPosition",
                                                          "LightRange",
                                                          "LightSpecular",
                                                          "LightTheta",
                                                          "LightType",
                                                          "MagFilter",
                                                          "MaxAnisotropy",
                                                          "MaxMipLevel",
                                                          "MinFilter",
                                                          "MipFilter",
                                                          "MipMapLodBias",
                                                          "ResultArg",
                                                          "Sampler",
                                                          "SRGBTexture",
                                                          "TexCoordIndex",
                                                          "Texture",
                                                          "TextureTransform",
                                                          "TextureTransformFlags",
                                                          "WorldTransform"};
constexpr std::array<std::string_view, 3> meaninglessSamplerStates{"ElementIndex", "DMapOffset",
                                                                   "ComparisonFunc"};
constexpr std::array<std::string_view, 17> samplerStates{
    "Filter",        "Texture",     "MinFilter",     "MagFilter",   "MipFilter",   "AddressU",
    "AddressV",      "AddressW",    "BorderColor",   "SRGBTexture", "MinLOD",      "MaxLOD",
    "MaxAnisotropy", "MaxMipLevel", "MipMapLodBias", "MipLodBias",  "ElementIndex"};

template <typename Names>
bool isOneOf(std::string_view name, const Names& names)
{
    return std::any_of(names.begin(), names.end(),
                       [&](std::string_view candidate) { return equalIgnoringCase(name, candidate); });
}

bool isZero(const std::vector<Token>& value)
{
    return std::none_of(value.begin(), value.end(), [](const Token& token) {
        double number = 0.0;
        bool integer = false;
        return (token.kind == TokenKind::Number &&
                (!readNumber(token.text, number, integer) || number != 0.0)) ||
               token.is("true") || token.is("TRUE") || token.is("True");
    });
}

/// The number that a state has; nothing if it is no constant.
std::optional<double> numberOfState(std::vector<Token> value)
{
    Token end = value.back();
    end.kind = TokenKind::End;
    end.text = {};
    value.push_back(end);
    try {
        ConstantReader reader(value.data(), [](const Token&) { return std::optional<ConstantValue>(); });
        const ConstantValue read = reader.readExpression();
        const bool isNumber = read.components.size() == 1 && std::isfinite(read.components[0]);
        return isNumber && reader.position()->kind == TokenKind::End ? std::optional(read.components[0])
                                                                     : std::nullopt;
    } catch (const CompileError&) {
        return std::nullopt; // a parameter of the effect, for example
    }
}

} // namespace

bool isRenderState(std::string_view name)
{
    return isOneOf(name, renderStates);
}

bool isNumberedState(std::string_view name)
{
    return isOneOf(name, numberedStates);
}

std::string likelyRenderState(std::string_view name)
{
    static constexpr std::array<std::string_view, 2> shaders{"PixelShader", "VertexShader"};
    const std::string shader = didYouMean(name, shaders);
    return shader.empty() ? didYouMean(name, renderStates) : shader;
}

void SamplerStates::set(const Token& name, const std::vector<Token>& value, Problems& problems)
{
    const std::string_view state = name.text;
    if (value.empty()) {
        throw CompileError(name.at, "the state " + inQuotes(state) + " has no value");
    }
    if (equalIgnoringCase(state, "Filter")) {
        minFilter_ = magFilter_ = look(filters, otherFilters, name, value);
        if (const auto mip = mipIn(value[0].text, false)) { // Linear alone leaves MipFilter as it is
            mip_ = mip;
        }
    } else if (equalIgnoringCase(state, "MinFilter")) {
        minFilter_ = look(filters, otherFilters, name, value);
        mip_ = mip_ ? mip_ : mipIn(value[0].text, false); // as CgFX says both
    } else if (equalIgnoringCase(state, "MagFilter")) {
        magFilter_ = look(filters, otherFilters, name, value);
    } else if (equalIgnoringCase(state, "MipFilter")) {
        look(filters, otherFilters, name, value);
        mip_ = mipIn(value[0].text, true);
    } else if (equalIgnoringCase(state, "AddressU") || equalIgnoringCase(state, "WrapS")) {
        addressU_ = look(addresses, otherAddresses, name, value);
    } else if (equalIgnoringCase(state, "AddressV") || equalIgnoringCase(state, "WrapT")) {
        addressV_ = look(addresses, otherAddresses, name, value);
    } else if (equalIgnoringCase(state, "AddressW") || equalIgnoringCase(state, "WrapR")) {
        look(addresses, otherAddresses, name, value);
    } else if (equalIgnoringCase(state, "BorderColor") || equalIgnoringCase(state, "SRGBTexture")) {
        if (!isZero(value)) {
            problems.warn({name.at, "the state " + inQuotes(state) + " is treated as 0"});
        }
    } else if (equalIgnoringCase(state, "MaxAnisotropy")) {
        if (numberOfState(value).value_or(2) > 1) {
            problems.warn({name.at, "the state " + inQuotes(state) +
                                        " has no effect: the filter Anisotropic is the filter Linear"});
        }
    } else if (!setLevels(name, value, problems) && !isOneOf(state, meaninglessSamplerStates)) {
        throw CompileError(name.at, "unknown state " + inQuotes(state) + " of a sampler" +
                                        didYouMean(state, samplerStates));
    }
}

/// Returns false if it is no state of levels.
bool SamplerStates::setLevels(const Token& name, const std::vector<Token>& value, Problems& problems)
{
    const std::string_view state = name.text;
    const bool isBias = equalIgnoringCase(state, "MipMapLodBias") || equalIgnoringCase(state, "MipLodBias");
    const bool isFirst = equalIgnoringCase(state, "MaxMipLevel") || equalIgnoringCase(state, "MinLOD");
    const bool isLast = equalIgnoringCase(state, "MaxLOD");
    if (!isBias && !isFirst && !isLast) {
        return false;
    }
    const std::optional<double> number = numberOfState(value);
    if (!number) {
        problems.warn({name.at, "the state " + inQuotes(state) +
                                    " is ignored: its value is not a number that is known before drawing"});
        return true;
    }
    // Beyond these the same level is read.
    constexpr double most = CompiledEffect::Texture::mostLevels;
    if (isBias) {
        levels_.bias = static_cast<float>(std::clamp(*number, -2 * most, 2 * most));
    } else {
        (isFirst ? levels_.first : levels_.last) = static_cast<float>(std::clamp(*number, 0.0, most));
    }
    if (!isLast && *number != 0) {
        levels_.states.push_back(name);
    }
    return true;
}

void SamplerStates::apply(EffectSyntax::Sampler& sampler, Problems& problems) const
{
    if (minFilter_ && magFilter_ && *minFilter_ != *magFilter_) {
        problems.warn({sampler.name.at, "sampler " + inQuotes(sampler.name.text) +
                                            " has two filters; MagFilter is used for both"});
    }
    sampler.filter = magFilter_.value_or(minFilter_.value_or(sampler.filter));
    sampler.mip = mip_.value_or(sampler.mip);
    sampler.levels = levels_;
    sampler.addressU = addressU_.value_or(sampler.addressU);
    sampler.addressV = addressV_.value_or(sampler.addressV);
}

} // namespace Qx::Host::Effects
