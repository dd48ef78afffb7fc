#pragma once

#include "host/luts/LUTReader.h"
#include "host/luts/Table.h"

#include <optional>

namespace Qx::Host::Luts {

/// Reads a LUT file through OpenColorIO, in the way of readLUT. The file exists, is a plain file and not too
/// large; `text` is what it holds. Nothing is thrown.
std::optional<LUTReading> readThroughColourIO(const std::filesystem::path& file, std::string_view text,
                                              Refusal& refusal);

/// The extensions that OpenColorIO knows, lower case, without repetitions.
std::vector<std::string> colourIOExtensions();

} // namespace Qx::Host::Luts
