#pragma once

#include "tools/qxhost/media/files/FileSet.h"
#include "tools/qxhost/pipeline/look/ColourDrawing.h"
#include "tools/qxhost/pipeline/look/Look.h"

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Program {

constexpr int fewestTablePoints = 17; ///< of an edge
constexpr int mostTablePoints = 65;

/// A look as a table of colours, and how far colours between its points are off.
struct LookTable
{
    int size = 0;                              ///< points of an edge
    std::vector<std::array<float, 3>> entries; ///< red running fastest; black is 0 and white is 1
    /// The largest differences of a component from what the look draws, of many colours between the points,
    /// by how a program interpolates the table; black is 0 and white is 1.
    double tetrahedralError = 0;
    double trilinearError = 0;

    double largestError() const;
};

/// Draws the table. The look must be a mapping: see examineMapping(), and ColourDrawing for what is needed.
/// Throws Failure (effect, device).
LookTable tableOf(const Look& look, int size);

/// The text of a .cube file.
std::string cubeText(const LookTable& table, const std::string& title);

/// What an export has become of.
struct LookExport
{
    std::string obstacle;     ///< why the look is no mapping of colours; nothing is written then
    double largestError = 0;  ///< black is 0 and white is 1
    std::string errorInWords; ///< "0.12 codes of 10 bits"
};

/// Examines the look and writes its table as a .cube file, aside and renamed, unless it is no mapping. `kept`
/// are files not to be replaced; null for none. Throws Failure (output) if the file exists and `replace` is
/// false or it cannot be written, (effect, device) as examineMapping().
LookExport exportCube(const Look& look, int size, const std::filesystem::path& file, bool replace,
                      const std::shared_ptr<const Media::FileSet>& kept = nullptr);

/// What a file made of the look is called in it.
std::string titleOf(const Look& look, const std::filesystem::path& file);

/// Colours that no table of usual sizes has as its points.
const std::vector<DeepColour>& coloursBetween();

/// As parts of white.
std::array<float, 3> sharesOf(const DeepColour& colour);

} // namespace Qx::Program
