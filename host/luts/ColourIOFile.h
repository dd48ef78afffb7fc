#pragma once

#include "host/luts/Source.h"
#include "host/luts/Table.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Luts {

/// Reads the text of a LUT file through OpenColorIO, as readLUT does: its name, and its extension in lower
/// case, which tells the kind. Throws only std::bad_alloc.
std::optional<Source> readThroughColourIO(const std::string& name, const std::string& extension,
                                          std::string_view text, Wanted wanted, Refusal& refusal);

/// The extensions that OpenColorIO knows, lower case, without repetitions.
std::vector<std::string> colourIOExtensions();

} // namespace Qx::Host::Luts
