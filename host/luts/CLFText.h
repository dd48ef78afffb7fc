#pragma once

#include <string>
#include <string_view>

namespace Qx::Host::Luts {

/// The text of a CLF file as OpenColorIO knows it: with its elements' namespace prefix taken off, and with
/// the AMPAS namespace and version in place of those of SMPTE ST 2136-1, which describes the same elements.
/// Lines keep their numbers. Empty if the text is to be read as it is.
std::string asKnownCLF(std::string_view text);

} // namespace Qx::Host::Luts
