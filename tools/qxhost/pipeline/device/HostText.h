#pragma once

#include "platform/Text.h"

#include <string>
#include <string_view>

namespace Qx::Program {

/// The host's texts are wide; the program's are UTF-8.
inline LightweightString<wchar_t> wide(const std::string& text)
{
    return fromUTF8(LightweightString<char>(std::string_view(text)));
}

inline std::string narrow(const LightweightString<wchar_t>& text)
{
    return std::string(toUTF8(text).view());
}

} // namespace Qx::Program
