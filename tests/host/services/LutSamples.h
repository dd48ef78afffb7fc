#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// Small LUT files of every kind, as text.
namespace Qx::Host::Test {

struct LutSample
{
    std::string name; ///< of the file
    std::string text;
    int edge = 0;      ///< of the table that is to come out; 0 where that is the reader's choice
    bool baked = true; ///< whether the table has to be made
};

/// A file of every kind that can be read, some kinds several times.
std::vector<LutSample> lutSamples();

/// Files that one table does not follow: curves steep or with ends, curves around tables and matrices,
/// inverse curves and tables. All can be drawn in steps.
std::vector<LutSample> stepSamples();

/// A CLF file around these elements.
std::string clf(const std::string& inside);

/// A CTF file around these elements.
std::string ctf(const std::string& inside);

/// The lines of a .cube file's table for a function of colour, without keywords.
std::string cubeEntries(int edge, const std::function<void(double& r, double& g, double& b)>& change);

/// A function that mixes and bends the channels, so that exchanged axes show.
void sampleLook(double& r, double& g, double& b);

} // namespace Qx::Host::Test
