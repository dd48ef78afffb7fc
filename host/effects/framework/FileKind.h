#pragma once

#include <string>
#include <string_view>

namespace Qx::Host::Effects {

/// Why a file's bytes are no effect, for people: a web page, a compiled effect, a picture, UTF-16, binary
/// data. Empty for what may be one.
std::string whyNoEffect(std::string_view bytes);

} // namespace Qx::Host::Effects
