#pragma once

#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Problems.h"
#include "host/effects/framework/TokenReader.h"

#include <set>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Qx::Host::Effects {

/// Parses the effect framework from preprocessed tokens that end with an End token. Function bodies stay
/// tokens; their brackets are checked.
class EffectParser
{
public:
    /// Both live longer than this object.
    EffectParser(const std::vector<Token>& tokens, Problems& problems) : reader_(tokens), problems_(problems)
    {
    }

    /// Parses the effect. An item with an error becomes a problem and is left out, and parsing continues
    /// after it. The result then serves only to find more problems, and only if it is `complete`. Throws
    /// CompileError if there are too many problems.
    EffectSyntax parse();

private:
    using Tokens = std::vector<Token>;
    using Annotations = std::vector<EffectSyntax::Annotation>;

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

    void parseGlobal();
    void checkSize(const Token& item) const;
    void refuseForeign() const;
    void parseTechnique();
    EffectSyntax::Pass parsePass();
    void parseState(EffectSyntax::Pass& pass);
    void parseCompile(EffectSyntax::Pass& pass);
    void parseTexture();
    void parseSampler();
    bool parseSamplerState(EffectSyntax::Sampler& sampler);
    void parseStruct();
    void parseTypedef();
    void parseText();
    void parseDeclaration();
    void parseFunction(const Qualifiers& qualifiers, EffectSyntax::Type type, const Token& name);
    EffectSyntax::FunctionParameter parseFunctionParameter(EffectSyntax::Piece& piece);
    void refuseFloatRemainder(const Tokens& value) const;
    void parseBody(EffectSyntax::Piece& piece);
    void parseVariables(const Qualifiers& qualifiers, const EffectSyntax::Type& type, Token name);
    void parseConstant(bool isConst, const EffectSyntax::Type& type, const Token& name);
    void rememberConstant(const EffectSyntax::Type& type, const Token& name, const Tokens& value);
    void parseParameter(const EffectSyntax::Type& type, const Token& name);
    void checkParameterType(const EffectSyntax::Type& type, const Token& name) const;

    Qualifiers parseQualifiers();
    EffectSyntax::Type parseType();
    Tokens parseDimensions();
    std::uint32_t elementsOf(const Tokens& dimensions, const Token& name);
    std::optional<Token> parseSemantic();
    Annotations parseAnnotations();
    ConstantValue evaluateInitializer(Tokens tokens, const Token& name);
    std::optional<ConstantValue> constantNamed(const Token& name) const;
    Tokens checked(const Tokens& tokens) const;
    void claimName(const Token& name);
    void claimTypeName(const Token& name);
    void checkType(const EffectSyntax::Type& type) const;

    TokenReader reader_;
    Problems& problems_;
    EffectSyntax effect_;
    std::size_t passes_ = 0;
    std::unordered_map<std::string_view, ConstantValue> constants_;
    std::unordered_map<std::string_view, NumericType> typedefs_;
    std::set<std::string_view> typeNames_;       ///< of structs and typedefs
    std::unordered_set<std::string_view> names_; ///< of parameters, textures, samplers and constants
};

} // namespace Qx::Host::Effects
