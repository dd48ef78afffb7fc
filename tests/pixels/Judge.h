#pragma once

#include "tests/pixels/Picture.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Pixels {

/// How far codes are from the exact values they stand for. Alpha counts for `worst` alone: it is always the
/// same, and would make the shares look better than they are.
struct Errors
{
    /// Values this close to the middle between two codes may round either way: double precision itself
    /// knows them no better.
    static constexpr double tie = 1e-6;

    std::uint64_t samples = 0;
    std::uint64_t misrounded = 0; ///< samples that are not the code nearest to the exact value
    int worst = 0;                ///< codes between the worst sample and the nearest one
    double distance = 0.0;        ///< sum of the samples' distances from the exact values, in codes

    double correctPercent() const;
    double meanDistance() const; ///< 0.25 is what exact rounding of evenly spread values gives

    Errors& operator+=(const Errors& other);
};

/// What became of one picture.
struct Verdict
{
    Errors errors;
    /// Names the worst sample: place, component, code and exact value.
    std::string worstSample;
};

/// Compares the codes of `got` with exact values, four a texel, row by row without padding.
Verdict judge(const Picture& got, const std::vector<double>& exact);

/// The farthest that two pictures of one size are apart, in codes; `where` then names the place. `edge`
/// pixels on the left and on the right are not compared.
int farthestApart(const Picture& one, const Picture& other, int edge, std::string& where);

/// The exact values as a picture, rounded.
Picture rounded(const Picture& like, const std::vector<double>& exact);

/// Writes both as PNG to the folder where failures are left, named for the trial, and says where that is.
std::string leaveBehind(const std::string& trial, const Picture& got, const Picture& wanted);

/// RGB with its alpha; of 4:2:2 each pixel's Y, Cb and Cr as R, G and B.
/// False when the file cannot be written.
bool writePng(const std::filesystem::path& file, const Picture& picture);

/// A PNG of any kind as RGB with alpha of 8 bits; nothing if it cannot be read.
std::optional<Picture> readPng(const std::filesystem::path& file);

} // namespace Qx::Pixels
