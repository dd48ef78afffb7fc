#pragma once

#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Initializers.h"
#include "host/effects/framework/Limits.h"
#include "host/effects/framework/Problems.h"
#include "host/effects/framework/SamplerArrays.h"
#include "host/effects/framework/TokenReader.h"

#include <cstdint>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Qx::Host::Effects {

/// Parses the effect framework from preprocessed tokens that end with an End token. Function bodies stay
/// tokens; their brackets are checked.
class EffectParser
{
public:
    /// Both live longer than this object.
    EffectParser(const std::vector<Token>& tokens, Problems& problems)
        : reader_(tokens),
          problems_(problems),
          initializers_([this](const Token& type) { return shapeOf(type); },
                        [this](const Token& name) { return constantNamed(name); }, effect_.texts)
    {
    }
    EffectParser(const EffectParser&) = delete;
    EffectParser& operator=(const EffectParser&) = delete;

    /// Parses the effect. An item with an error becomes a problem and is left out, and parsing continues
    /// after it. The result then serves only to find more problems, and only if it is `complete`. Throws
    /// CompileError if there are too many problems.
    EffectSyntax parse();

private:
    using Tokens = std::vector<Token>;
    using Annotations = std::vector<EffectSyntax::Annotation>;

    enum class Stage : std::uint8_t
    {
        Vertex,
        Pixel
    };

    /// The words before a type.
    struct Qualifiers
    {
        Tokens kept; ///< for the HLSL compiler
        bool isStatic = false;
        bool isConst = false;
        bool isUniform = false;
        bool isOut = false;
        bool isInOut = false;
    };

    /// What follows a name: ": SEMANTIC : register(c0)".
    struct Suffixes
    {
        std::optional<Token> semantic;
        Tokens place; ///< what is inside of register() or packoffset()
    };

    void parseGlobal();
    void checkSize(const Token& item) const;
    void refuseForeign() const;
    bool startsTechnique() const;
    void parseTechnique();
    EffectSyntax::Pass parsePass();
    void tellOfPassesLeftOut();
    void parseState(EffectSyntax::Pass& pass);
    void parseStateCall(EffectSyntax::Pass& pass, const Token& name);
    void parseShaderOf(EffectSyntax::Pass& pass, Stage stage);
    EffectSyntax::Shader parseShader(Stage stage);
    std::size_t parseShaderIndex(const Token& shaders);
    EffectSyntax::Shader parseCompilation(Stage stage);
    void parseShaderVariable();
    void parseBuffer();
    void parseStateObject();
    void parseTexture();
    void parseSamplers();
    void parseSampler(std::optional<SamplerType> type, const Token& name);
    void parseSamplerArray(const EffectSyntax::Sampler& each, const Token& name);
    bool parseSamplerStates(EffectSyntax::Sampler& sampler);
    void addSampler(EffectSyntax::Sampler sampler, bool allKnown, const Annotations& annotations);
    std::vector<Token> claimElements(const Token& name);
    Tokens withoutArrays(const Tokens& tokens);
    Tokens withoutTextureMethods(const Tokens& body);
    std::string_view samplerOf(const Token& texture, const Token* states);
    bool parseSamplerState(EffectSyntax::Sampler& sampler);
    void completeSamplers();
    std::uint32_t registerOfTexture(std::string_view name) const;
    void addVolumesOfPasses(std::unordered_set<std::string_view>& volumes) const;
    void parseStruct();
    double numbersIn(const EffectSyntax::Type& type, std::optional<std::uint32_t> elements) const;
    void claimSize(const Token& name, double numbers);
    void parseTypedef();
    void parseText();
    void parseDeclaration(const Qualifiers& qualifiers);
    void parseFunction(const Qualifiers& qualifiers, EffectSyntax::Type type, const Token& name);
    void parseFunctionParameter(EffectSyntax::Piece& piece);
    std::vector<Token> claimLocalElements(const Tokens& dimensions, const Token& name);
    void refuseFloatRemainder(const Tokens& value) const;
    void parseBody(EffectSyntax::Piece& piece);
    void parseVariables(const Qualifiers& qualifiers, const EffectSyntax::Type& type, Token name);
    void parseConstant(bool isConst, EffectSyntax::Type type, const Token& name);
    void rememberConstant(const EffectSyntax::Type& type, const Token& name, const Tokens& value);
    void parseParameter(EffectSyntax::Type type, const Token& name);
    void parseStructParameter(const EffectSyntax::Type& type, const Token& name);
    void addVariable(const EffectSyntax::Type& type, const Token& name);
    void checkParameterType(const EffectSyntax::Type& type, const Token& name) const;

    Qualifiers parseQualifiers();
    EffectSyntax::Type parseType();
    Tokens parseDimensions(double mostElements = Limits::arrayElements);
    std::optional<Shape> shapeOf(const Token& type, std::size_t depth = 0) const;
    static std::optional<Shape> shapeOf(const EffectSyntax::Type& type);
    std::uint32_t elementsOf(const Tokens& dimensions, const Token& name, std::size_t most);
    static std::uint32_t checkedElements(double count, Location at, const Token& name, std::size_t most);
    std::optional<std::uint32_t> knownElements(const Tokens& dimensions);
    Suffixes parseSuffixes();
    std::optional<Token> parseSemantic() { return parseSuffixes().semantic; }
    static std::string registerOf(const Suffixes& suffixes);
    static std::uint32_t registerIndexOf(const Suffixes& suffixes, char letter);
    Annotations parseAnnotations();
    ConstantValue evaluateInitializer(Tokens tokens, const Token& name);
    std::optional<ConstantValue> constantNamed(const Token& name) const;
    Tokens checked(const Tokens& tokens, double mostElements = Limits::arrayElements);
    void claimName(const Token& name);
    void claimTypeName(const Token& name);
    void checkType(const EffectSyntax::Type& type) const;

    TokenReader reader_;
    Problems& problems_;
    EffectSyntax effect_;
    Initializers initializers_;
    std::size_t passes_ = 0;
    std::vector<CompileError> leftOut_; ///< passes without a pixel shader
    std::unordered_map<std::string_view, EffectSyntax::TextureKind> textureKinds_;
    std::map<std::pair<std::string_view, std::string_view>, std::string_view> combined_; ///< see samplerOf
    SamplerArrays arrays_;
    SamplerArrays localArrays_; ///< those of the function's parameters
    std::unordered_map<std::string_view, ConstantValue> constants_;
    using ShaderVariables = std::unordered_map<std::string_view, std::vector<EffectSyntax::Shader>>;
    std::map<Stage, ShaderVariables> shaders_;
    std::unordered_map<std::string_view, NumericType> typedefs_;
    std::unordered_map<std::string_view, std::size_t> structs_; ///< index of the first piece of each name
    std::unordered_map<std::string_view, double> sizes_;        ///< numbers in each struct and typedef
    std::set<std::string_view> typeNames_;                      ///< of structs and typedefs
    std::unordered_set<std::string_view> names_; ///< of parameters, textures, samplers and constants
};

} // namespace Qx::Host::Effects
