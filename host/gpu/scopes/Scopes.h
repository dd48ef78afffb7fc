#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace Qx::Host {

/// How the levels of red, green and blue, 0 to 1, become a code of a signal: the nearest to
/// offset + weights[0] * red + weights[1] * green + weights[2] * blue, upwards in the middle between two.
struct SignalCode
{
    double offset = 0;               ///< codes
    std::array<double, 3> weights{}; ///< codes for each of the levels, red first
};

/// What GPUService::countScopes() counts.
struct ScopeRequest
{
    /// Of the waveforms: 1 to 4096; the picture's columns share them evenly.
    unsigned columns = 480;
    /// Codes of all signals are 0 to levels - 1: 2 to 1024. Codes beyond count as the nearest.
    unsigned levels = 256;
    SignalCode luma;  ///< the signal of the waveform of luma
    SignalCode red;   ///< the signal of the waveform of red
    SignalCode green; ///< the signal of the waveform of green
    SignalCode blue;  ///< the signal of the waveform of blue
    SignalCode cb;    ///< the signal that goes to the right in the vectorscope
    SignalCode cr;    ///< the signal that goes upwards in it
    /// Columns and rows of the vectorscope, which share the codes evenly: 1 to 1024; 0: none.
    unsigned vectorscope = 0;
    /// Columns and rows of the chromaticity diagram: 1 to 512; 0: none.
    unsigned chromaticity = 0;
    /// X, Y and Z of the light of red, green and blue: not negative, and at most 1.1. Rounded to multiples of
    /// 2^-xyzBits.
    std::array<std::array<double, 3>, 3> toXYZ{};
    static constexpr int xyzBits = 20; ///< after the point of toXYZ
    /// The light of each code of the picture, from 0 to the largest: 256, 1024 or 65536 numbers from 0 to 1.
    /// Rounded to multiples of 2^-lightBits. Unread without a chromaticity diagram.
    std::vector<double> light;
    static constexpr int lightBits = 26; ///< after the point of light
};

/// How many pixels there are of each code. Rows follow each other.
struct ScopeCounts
{
    using Counts = std::vector<std::uint32_t>; ///< numbers of pixels

    Counts luma;  ///< a row for each code, from 0 on, with the request's columns
    Counts red;   ///< the same of red
    Counts green; ///< the same of green
    Counts blue;  ///< the same of blue
    /// Cb to the right, Cr in the rows, both from 0 on. Empty if there is none.
    Counts vectorscope;
    /// x of CIE 1931 to the right and y in the rows, both from 0 to chromaticityEnd, each column and row
    /// without its upper edge. Counted without any error but the rounding of the request's numbers. Pixels
    /// whose Y is below 1/1024, whose colour is not to be told, do not count. Empty if there is none.
    Counts chromaticity;
    /// Where the chromaticity diagram ends to the right and above: all light lies within.
    static constexpr double chromaticityEnd = 0.9;
};

} // namespace Qx::Host
