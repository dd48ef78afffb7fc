#pragma once

#include <string>
#include <string_view>

namespace Qx::Host::Effects {

/// The reason why a file is not an effect, for a message: a web page, a compiled effect, a picture, UTF-16 or
/// binary data. Empty if it may be one.
std::string whyNoEffect(std::string_view bytes);

} // namespace Qx::Host::Effects
