#pragma once

#include "Qx/Ptr.h"
#include "host/luts/ColourSpaces.h"
#include "host/luts/LUTReader.h"
#include "platform/GPUImage.h"

#include <filesystem>
#include <string>
#include <variant>
#include <vector>

namespace Qx::Program {

// LUTs as a user names them: by a path, or by a file's name in the catalogue.

/// The file that the name stands for: that file if there is one, else the first of that name in the
/// catalogue, else the name itself.
std::filesystem::path lutPath(const std::string& nameOrPath);

struct LutOnGpu
{
    Qx::Ptr<iGPUImage3D> image; ///< never empty
    std::string technique;      ///< of LUT.fx, the one that draws this image
};

/// Reads the LUT and uploads it. Throws Failure (effect), with the reason.
LutOnGpu obtainLut(const std::string& nameOrPath, Host::LUTInput input = Host::LUTInput::Codes);

/// What draws a change of colour spaces: a LUT, or an effect's file.
using ColourSpaceDrawing = std::variant<LutOnGpu, std::filesystem::path>;

/// Reads the change. Appends a warning if the result may be off by more than a LUT may. Throws Failure
/// (effect).
ColourSpaceDrawing obtainColourSpaceChange(const Host::ColourSpaceChange& change,
                                           std::vector<std::string>& warnings,
                                           Host::LUTInput input = Host::LUTInput::Codes);

/// A change of colour spaces for people: "studio.ocio: ACEScg to sRGB, Film".
std::string wordsOf(const Host::ColourSpaceChange& change);

/// The LUT's steps and facts, without a GPU. Throws Failure (input), with the reason.
Host::LUTReading readLut(const std::string& nameOrPath);

/// The catalogue: the files of the user's LUT directory and of the machine's.
std::vector<std::filesystem::path> listedLuts();

/// The user's LUT directory and the machine's; an empty path if there is none.
std::vector<std::filesystem::path> lutDirectories();

/// Whether the extension is one of LUT files, ignoring case.
bool hasLutExtension(const std::filesystem::path& file);

/// Why the catalogue does not list files with this extension, for people; empty if it does.
std::string whyNotListed(const std::filesystem::path& file);

} // namespace Qx::Program
