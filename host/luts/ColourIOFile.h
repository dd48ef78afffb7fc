#pragma once

#include "host/luts/LUTReader.h"
#include "host/luts/Table.h"

#include <optional>

namespace Qx::Host::Luts {

/// Reads a LUT file through OpenColorIO, as readLUT does. The file must be a regular file within the limits;
/// `text` is its content. Throws nothing.
std::optional<LUTReading> readThroughColourIO(const std::filesystem::path& file, std::string_view text,
                                              Refusal& refusal);

/// The extensions that OpenColorIO knows, lower case, without repetitions.
std::vector<std::string> colourIOExtensions();

} // namespace Qx::Host::Luts
