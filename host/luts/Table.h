#pragma once

#include "platform/GPUImage.h"

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Qx::Host::Luts {

using Colour = std::array<float, 3>;

/// A table in plain memory.
class Table final : public iHostImage3D
{
public:
    /// All entries black and opaque.
    Table(int size, const TableDomain& domain);

    int getSize() const override { return size_; }
    const float* getData() const override { return entries_.data(); }
    float* getData() override { return entries_.data(); }
    TableDomain getDomain() const override { return domain_; }

    /// The i-th entry, red running fastest.
    void set(std::size_t i, const Colour& colour);

private:
    const int size_;
    const TableDomain domain_;
    std::vector<float> entries_;
};

std::size_t entriesOf(int size);

/// What is wrong with a file; `line` is 0 if unknown.
struct Refusal
{
    std::size_t line = 0;
    std::string cause;
};

/// What the error of the worst colour that was tried is multiplied by, for those between.
inline constexpr double untriedMargin = 1.5;

/// Changes colours, `count` of them in a row, in place.
using Evaluation = std::function<void(Colour* colours, std::size_t count)>;

} // namespace Qx::Host::Luts
