#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Qx::Program {

using Json = nlohmann::ordered_json;

/// The value as text that ends in a line feed. Bytes that are not UTF-8 (a file's name may hold any) become
/// U+FFFD.
inline std::string jsonText(const Json& value)
{
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace Qx::Program
