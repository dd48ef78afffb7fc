#pragma once

#include <string>
#include <string_view>

namespace Qx::Host::Luts {

/// The text of a CLF file as OpenColorIO knows it: with its elements' namespace prefix taken off, and with
/// the AMPAS namespace and version in place of those of SMPTE ST 2136-1, which describes the same elements.
/// Lines keep their numbers. Empty if the text is to be read as it is.
std::string asKnownCLF(std::string_view text);

/// Why a text must not be given to OpenColorIO, which takes the text of any file for XML if nothing else
/// reads it: it names another file, or could without its letters showing it, or has markup without end. Empty
/// if it may.
std::string obstacleInXML(std::string_view text);

/// The text with every `what` in it replaced, in one pass.
std::string replaced(std::string_view text, std::string_view what, std::string_view with);

} // namespace Qx::Host::Luts
