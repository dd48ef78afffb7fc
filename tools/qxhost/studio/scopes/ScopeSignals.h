#pragma once

#include "host/gpu/scopes/Scopes.h"
#include "tools/qxhost/media/MediaTypes.h"

#include <array>
#include <vector>

namespace Qx::Program {

/// The signal that a picture of red, green and blue stands for.
struct ScopeSignal
{
    Media::Colour colour; ///< its matrix, range, primaries and transfer
    int bits = 8;         ///< of the clip; scopes of more than 8 have the codes of 10
};

/// How large scopes are, in cells.
struct ScopeSizes
{
    unsigned columns = 480; ///< of waveforms
    unsigned vectorscope = 256;
    unsigned chromaticity = 256;
};

/// What to count of a picture of that signal: its luma and chroma in the signal's range, and red, green and
/// blue in full range.
Host::ScopeRequest scopeRequest(const ScopeSignal& signal, const ScopeSizes& sizes);

/// A code of chroma, with the name of the colour bar that has it.
struct ScopeTarget
{
    const char* name;
    double cb;
    double cr;
};

/// Where a vectorscope has the colour bars of 75 %.
std::vector<ScopeTarget> scopeTargets(const Host::ScopeRequest& request);

/// The codes that the signal's range allows for its luma.
struct ScopeRange
{
    double black;
    double white;
};
ScopeRange scopeRange(const Host::ScopeRequest& request);

using Chromaticity = std::array<double, 2>; ///< x and y of CIE 1931

/// The primaries, red first.
std::array<Chromaticity, 3> scopeGamut(const ScopeSignal& signal);

/// The light of single wavelengths, from 380 nm to 700 nm (CIE 015:2018, table 6).
const std::vector<Chromaticity>& spectralLocus();

/// The light of a level from 0 to 1, as a part of the brightest.
double lightOfLevel(double level, int transferTag);

} // namespace Qx::Program
