#include "tools/qxhost/studio/server/Guard.h"

#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <nettle/memops.h>
#include <sys/random.h>

namespace Qx::Program::Studio {

namespace {

constexpr std::size_t tokenBytes = 32;

std::string lowered(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return result;
}

bool areDigits(std::string_view text)
{
    return text.size() <= 5 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// The host without its port, in lower case; empty if it is malformed.
std::string nameOf(std::string_view host)
{
    const std::size_t end = host.starts_with('[') ? host.find(']') : host.find(':');
    if (host.starts_with('[') && end == std::string_view::npos) {
        return {};
    }
    const std::size_t length =
        end == std::string_view::npos ? host.size() : end + (host.starts_with('[') ? 1 : 0);
    const std::string_view rest = host.substr(length);
    if (!rest.empty() && (rest.front() != ':' || !areDigits(rest.substr(1)))) {
        return {};
    }
    return lowered(host.substr(0, length));
}

bool isNumber(std::string name)
{
    if (name.starts_with('[')) {
        name = name.substr(1, name.size() - 2);
    }
    in6_addr ignored{};
    return ::inet_pton(AF_INET, name.c_str(), &ignored) == 1 ||
           ::inet_pton(AF_INET6, name.c_str(), &ignored) == 1;
}

int digitOf(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char low = static_cast<char>(c | 0x20);
    return low >= 'a' && low <= 'f' ? low - 'a' + 10 : -1;
}

} // namespace

std::string makeToken()
{
    std::array<unsigned char, tokenBytes> bytes{};
    ssize_t got = 0;
    do {
        got = ::getrandom(bytes.data(), bytes.size(), 0);
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(bytes.size())) {
        throw Failure(ExitCode::failed,
                      std::string("no random numbers for the address of the page: ") + std::strerror(errno));
    }
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

bool isToken(std::string_view text)
{
    return text.size() == 2 * tokenBytes && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

bool isSameToken(std::string_view given, std::string_view token)
{
    return given.size() == token.size() && ::nettle_memeql_sec(given.data(), token.data(), token.size()) != 0;
}

TargetPath pathBehind(std::string_view target, std::string_view token)
{
    if (target.size() < token.size() + 2 || target.front() != '/' || target[token.size() + 1] != '/' ||
        !isSameToken(target.substr(1, token.size()), token)) {
        return {};
    }
    const std::string_view path = target.substr(token.size() + 2);
    return {true, std::string(path.substr(0, path.find('?')))};
}

bool isAllowedHost(std::string_view host, const std::vector<std::string>& names, bool anyAddress)
{
    const std::string name = nameOf(host);
    if (name.empty()) {
        return false;
    }
    return name == "127.0.0.1" || name == "localhost" || name == "[::1]" ||
           std::any_of(names.begin(), names.end(),
                       [&](const std::string& each) { return lowered(each) == name; }) ||
           (anyAddress && isNumber(name));
}

bool isOwnOrigin(std::string_view origin, std::string_view host)
{
    const std::string whole = lowered(origin);
    return whole == "http://" + lowered(host) || whole == "https://" + lowered(host);
}

std::string unescaped(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result.push_back(text[i]);
            continue;
        }
        const int high = i + 2 < text.size() ? digitOf(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? digitOf(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            return {};
        }
        result.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return result;
}

} // namespace Qx::Program::Studio
