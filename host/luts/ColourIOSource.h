#pragma once

#include "host/luts/Source.h"
#include "host/luts/Table.h"

#include <OpenColorIO/OpenColorIO.h>

#include <optional>

namespace Qx::Host::Luts {

namespace OCIO = OCIO_NAMESPACE;

/// A configuration without colour spaces, which keeps no processors. Warnings of OpenColorIO go to the log
/// from then on.
OCIO::ConfigRcPtr plainConfig();

/// The cause of a refusal: a number is infinite or none.
inline constexpr const char* notFinite = "it holds a number that is not finite";

/// What a processor does, in parts. Empty if it is refused. Throws what OpenColorIO throws.
std::optional<Source> sourceOf(const OCIO::ConstProcessorRcPtr& processor, Wanted wanted, Refusal& refusal);

} // namespace Qx::Host::Luts
