#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/ConstantExpression.h"
#include "host/effects/framework/Lexer.h"
#include "host/effects/framework/SamplerType.h"

#include <array>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// The content of an effect file, parsed and not yet checked. Tokens refer to the text of the files.
struct EffectSyntax
{
    using Tokens = std::vector<Token>;

    struct Type
    {
        Tokens tokens;
        std::optional<NumericType> numeric; ///< nothing for structs, samplers and void
        std::optional<SamplerType> sampler;
    };

    struct FunctionParameter
    {
        Type type;
        std::size_t typeAt = 0; ///< index of the type in the text of the function
        Token name;
        bool uniform = false;
        bool input = true;
        bool output = false;
        std::optional<std::uint32_t> elements; ///< of an array; 0 if their number is not known here
        std::optional<Token> semantic;
        Tokens defaultValue;
    };

    struct Function
    {
        Type result;
        Token name;
        std::vector<FunctionParameter> parameters;
        std::optional<Token> semantic;
        bool hasBody = false;
    };

    struct Member
    {
        Type type;
        Token name;
        std::optional<std::uint32_t> elements; ///< as of a function's parameter
        std::optional<Token> semantic;
    };

    /// A piece of plain HLSL: a function, struct, typedef or constant. Pieces refer to each other by name.
    struct Piece
    {
        enum class Kind
        {
            Function,
            Struct,
            Typedef,
            Constant
        };
        Kind kind = Kind::Function;
        Token name;
        Tokens text;                 ///< for the HLSL compiler: without semantics and `uniform`
        std::size_t bodyBegin = 0;   ///< index in the text of a function's body or a constant's value; or 0
        Type type;                   ///< of a constant
        Function function;           ///< of a function
        std::vector<Member> members; ///< of a struct
    };

    struct Annotation
    {
        Token type;
        Token name;
        std::string value;
        Location at;
    };

    struct Parameter
    {
        Type type;
        Token name;
        std::uint32_t elements = 0;
        std::optional<Token> semantic;
        std::vector<Annotation> annotations;
        std::string place; ///< as CompiledEffect::Parameter::place
        std::optional<ConstantValue> defaultValue;
        Token structure;            ///< the variable that it is a member of; an End token if it is none
        Token member;               ///< its name there
        bool choosesShader = false; ///< its default is the number of a shader in an array of them
    };

    /// As a texture's type says; "texture" and those of samplers are pictures.
    enum class TextureKind
    {
        Picture,
        Line,
        Volume,
        Cube
    };

    struct Texture
    {
        Token name;
        std::uint32_t registerIndex = CompiledEffect::Sampler::noRegister; ///< N of register(tN)
        std::vector<Annotation> annotations;
        std::optional<Token> semantic;
    };

    /// Which levels a sampler reads, beside CompiledEffect::Sampler::mip.
    struct LevelRange
    {
        float bias = 0;                                   ///< is added to the level
        float first = 0;                                  ///< no larger one is read
        float last = CompiledEffect::Texture::mostLevels; ///< no smaller one is read
        std::vector<Token> states;                        ///< those that say so
    };

    struct Sampler
    {
        Token name;
        Token texture; ///< the sampler's name if it declares none
        SamplerType type;
        bool onlyStates = false; ///< a SamplerState that no texture is read with yet
        std::uint32_t registerIndex = CompiledEffect::Sampler::noRegister;
        CompiledEffect::Filter filter = CompiledEffect::Filter::Point;
        CompiledEffect::Mip mip = CompiledEffect::Mip::None;
        LevelRange levels;
        CompiledEffect::Address addressU = CompiledEffect::Address::Clamp;
        CompiledEffect::Address addressV = CompiledEffect::Address::Clamp;
    };

    struct Shader
    {
        Token profile;
        Token entry;                   ///< an End token if there is no shader
        std::vector<Tokens> arguments; ///< each without an End token

        explicit operator bool() const { return entry.kind != TokenKind::End; }
    };

    struct Pass
    {
        Token name;    ///< an End token for a pass without one
        Token keyword; ///< where it begins
        Shader shader; ///< of the pixels
        Shader vertex; ///< most passes have none
        std::vector<Annotation> annotations;

        /// The textures that the shader's results COLOR0 to COLOR3 are drawn into. The first colour is drawn
        /// in any case; of the others, callersTarget stands for those that are not.
        std::array<std::uint32_t, CompiledEffect::Pass::results> targets = CompiledEffect::Pass::noTargets();
        std::uint32_t result = 0; ///< as CompiledEffect::Pass::result
    };

    struct Technique
    {
        Token name;
        std::vector<Annotation> annotations;
        std::vector<Pass> passes;
    };

    std::deque<std::string> texts; ///< of tokens that no file has
    bool complete = true;          ///< nothing was left out; false only after an error
    std::vector<Piece> pieces;     ///< in the file's order
    std::vector<Parameter> parameters;
    std::vector<Texture> textures;
    std::vector<Sampler> samplers;
    std::vector<Technique> techniques;
};

} // namespace Qx::Host::Effects
