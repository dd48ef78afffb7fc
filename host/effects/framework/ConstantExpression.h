#pragma once

#include "host/effects/framework/Lexer.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// What an expression without variables comes to: a scalar, a vector, a matrix or the flat content of a
/// braced list, always in row order. Arithmetic is in double precision; integers divide as integers.
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
        Other ///< one that parameters cannot have: uint, double
    };
    Scalar scalar = Scalar::Float;
    std::uint32_t rows = 1;
    std::uint32_t columns = 1;

    std::uint32_t components() const { return rows * columns; }

    /// Its name with float for half and fixed: "float3", "int", "float4x4". Not for Other.
    std::string_view spelling() const;

    /// The type that a name spells: float, half and fixed (all held as floats), int, bool, uint, double, with
    /// N or NxM behind them.
    static std::optional<NumericType> named(std::string_view name);
};

/// The value as `count` components of a type; a single number stands for all of them when `spread`. Throws
/// CompileError, naming `at`, when there are too few or too many.
ConstantValue fitted(ConstantValue value, NumericType::Scalar scalar, std::size_t count, bool spread,
                     const Token& at);

/// Reads one expression from tokens that end with an End token. Throws CompileError for what is not constant.
class ConstantReader
{
public:
    /// What a name stands for; nothing when it is no constant.
    using Names = std::function<std::optional<ConstantValue>(const Token&)>;

    ConstantReader(const Token* begin, Names names) : token_(begin), names_(std::move(names)) {}

    /// An expression without commas at its top.
    ConstantValue readExpression();

    /// An expression, or a list in braces of such, flattened.
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
