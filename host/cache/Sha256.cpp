#include "host/cache/Sha256.h"

#include <nettle/sha2.h>

#include <cstdint>

namespace Qx::Host::Cache {

static_assert(SHA256_DIGEST_SIZE == std::tuple_size_v<Digest>);

Digest digestOf(std::span<const std::byte> bytes)
{
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
    Digest digest;
    sha256_digest(&context, digest.size(), reinterpret_cast<std::uint8_t*>(digest.data()));
    return digest;
}

Digest digestOf(std::string_view text)
{
    return digestOf(std::as_bytes(std::span(text)));
}

std::string hexadecimal(const Digest& digest)
{
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::byte byte : digest) {
        text += digits[std::to_integer<std::size_t>(byte >> 4)];
        text += digits[std::to_integer<std::size_t>(byte & std::byte{15})];
    }
    return text;
}

} // namespace Qx::Host::Cache
