#pragma once

#include "platform/Api.h"

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace Qx::Host::Cache {

/// SHA-256 (FIPS 180-4, 6.2). It names contents, so that no forged file can pass for another.
using Digest = std::array<std::byte, 32>;

QX_LOCAL Digest digestOf(std::span<const std::byte> bytes);
QX_LOCAL Digest digestOf(std::string_view text);

/// 64 hexadecimal digits, lower case.
QX_LOCAL std::string hexadecimal(const Digest& digest);

} // namespace Qx::Host::Cache
