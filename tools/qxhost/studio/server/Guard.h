#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Qx::Program::Studio {

// Who may ask, and for what. Pure functions.

/// 32 random bytes in hexadecimal, from the system's source. Throws Failure if there is none.
std::string makeToken();

/// Whether the text has the form of a token: 64 lower-case hexadecimal digits.
bool isToken(std::string_view text);

/// Whether the two are the same, in a time that depends on their lengths alone.
bool isSameToken(std::string_view given, std::string_view token);

/// What stands behind "/TOKEN/" in the target of a request, without a query; `allowed` is false if the token
/// is not this one.
struct TargetPath
{
    bool allowed = false;
    std::string path;
};
TargetPath pathBehind(std::string_view target, std::string_view token);

/// Whether a page may have been opened under that name of the server: its own addresses, or one of `names`,
/// with any port. `anyAddress`: or any address that is a number, which no other site's name can be.
bool isAllowedHost(std::string_view host, const std::vector<std::string>& names, bool anyAddress = false);

/// Whether the page that a request comes from has been loaded from the host that it asks.
bool isOwnOrigin(std::string_view origin, std::string_view host);

/// The text with its percent escapes replaced; empty if one of them is none.
std::string unescaped(std::string_view text);

} // namespace Qx::Program::Studio
