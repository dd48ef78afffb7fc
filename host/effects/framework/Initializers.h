#pragma once

#include "host/effects/framework/ConstantExpression.h"
#include "host/effects/framework/Lexer.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Qx::Host::Effects {

/// What a variable consists of: numbers, the elements of an array, or the members of a struct.
struct Shape
{
    NumericType type;                      ///< without parts
    std::vector<Shape> parts;              ///< the members of a struct; the element of an array
    bool array = false;                    ///< of `elements` of its one part
    std::optional<std::uint32_t> elements; ///< nothing for "[]": as many as are given

    static constexpr std::size_t mostComponents = 65536; ///< of what is worth rewriting

    std::size_t components() const;

    static Shape arrayOf(Shape element, std::optional<std::uint32_t> elements);
};

/// Rewrites braced initializers as the HLSL compiler takes them. Effects may give all numbers of a variable
/// in one flat list, however many arrays, structs, matrices and vectors it consists of; the HLSL compiler
/// wants a list for each of them.
class Initializers
{
public:
    using Tokens = std::vector<Token>;
    using Types = std::function<std::optional<Shape>(const Token&)>;

    /// `types` gives the shape of a type, and `names` the values of constants. `texts` keeps what tokens
    /// refer to. All live longer than this object.
    Initializers(Types types, ConstantReader::Names names, std::deque<std::string>& texts)
        : types_(std::move(types)), names_(std::move(names)), texts_(texts)
    {
    }

    /// The variables that values may refer to, outside of functions and in the body that comes next.
    void rememberGlobal(const Token& name, const Shape& shape) { globals_[name.text] = shape.components(); }
    void rememberLocal(const Token& name, const Shape& shape) { locals_[name.text] = shape.components(); }

    /// The shape of an array of that shape, with dimensions such as "[2][]". Nothing if one is not constant.
    std::optional<Shape> arrayOf(Shape shape, const Tokens& dimensions) const;

    /// A matrix of whole numbers is an array of its rows: changes the type's name and adds a dimension.
    void splitWholeMatrix(NumericType& type, Token& name, Tokens& dimensions);

    /// The value "{...}" of a variable of that shape. Fills in the first of its `dimensions` if it is "[]".
    /// Throws CompileError at `name` for too few or too many numbers.
    Tokens arranged(const Shape& shape, Tokens& dimensions, Tokens value, const Token& name);

    /// The body of a function with its initializers arranged.
    Tokens arrangedBody(const Tokens& body);

private:
    struct Value;
    struct Number;

    static Value read(const Token*& token, const Token* end);
    bool fits(const Shape& shape, const Value& value) const;
    bool flatten(const Value& value, std::vector<Number>& numbers) const;
    std::optional<std::size_t> componentsOf(const Tokens& expression) const;
    static void write(const Shape& shape, const Number*& next, Tokens& to);
    void arrangeVariable(const Tokens& body, std::size_t& at, const Shape& type, const Tokens& ofType,
                         Tokens& to);
    Token whole(std::size_t number, const Token& at);

    Types types_;
    ConstantReader::Names names_;
    std::deque<std::string>& texts_;
    std::unordered_map<std::string_view, std::size_t> globals_; ///< components of each
    std::unordered_map<std::string_view, std::size_t> locals_;
    std::size_t work_ = 0; ///< components of the types of all variables of functions
};

} // namespace Qx::Host::Effects
