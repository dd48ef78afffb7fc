#pragma once

#include "host/effects/framework/Lexer.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// The value of a constant expression: a scalar, a vector, a matrix or the flat content of a braced list,
/// always in row order. Arithmetic is in double precision; integers divide as integers.
struct ConstantValue
{
    std::vector<double> components{0.0};
    bool integer = false;

    static ConstantValue ofInteger(double value) { return {{value}, true}; }
};

/// The components of a numeric type: "float3x4" has 3 rows and 4 columns.
struct NumericType
{
    enum class Scalar : std::uint8_t
    {
        Float,
        Int,
        Bool,
        Other ///< uint or double, which parameters cannot have
    };
    Scalar scalar = Scalar::Float;
    std::uint32_t rows = 1;
    std::uint32_t columns = 1;

    std::uint32_t components() const { return rows * columns; }

    /// The name with float for half and fixed: "float3", "int", "float4x4". Not for Other.
    std::string_view spelling() const;

    /// The type of that name: float, half and fixed (all stored as floats), int, bool, uint or double,
    /// followed by nothing, N or NxM.
    static std::optional<NumericType> named(std::string_view name);
};

/// Converts the value to `count` components of a type. If `spread`, a single number becomes all of them.
/// Throws CompileError at `at` if there are too few or too many.
ConstantValue fitted(ConstantValue value, NumericType::Scalar scalar, std::size_t count, bool spread,
                     const Token& at);

/// Reads one constant expression from tokens that end with an End token. Throws CompileError for others.
class ConstantReader
{
public:
    /// The value of a named constant; nothing for other names.
    using Names = std::function<std::optional<ConstantValue>(const Token&)>;

    ConstantReader(const Token* begin, Names names) : token_(begin), names_(std::move(names)) {}

    /// An expression without commas at its top level.
    ConstantValue readExpression();

    /// An expression, or a braced list of expressions, which is flattened.
    ConstantValue readInitializer();

    /// The first token that was not read.
    const Token* position() const { return token_; }

private:
    class Depth;

    ConstantValue readBinary(int lowest);
    ConstantValue readUnary();
    ConstantValue readPostfix();
    ConstantValue readPrimary();
    ConstantValue readCall(const Token& name);
    ConstantValue readCast();
    bool accept(std::string_view text);
    void expect(std::string_view text);

    const Token* token_;
    Names names_;
    std::size_t depth_ = 0;
};

} // namespace Qx::Host::Effects
