#include "tests/pixels/TenBitFrames.h"

#include <algorithm>
#include <array>
#include <random>

namespace Qx::Pixels {

namespace {

using Bytes = std::vector<std::byte>;
using Codes = std::vector<std::uint16_t>;

void appendLittleEndian(Bytes& bytes, std::uint32_t value, int count)
{
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<std::byte>(value >> (8 * i)));
}

/// Chroma comes first in words of three.
Codes chromaFirst(const Codes& row)
{
    Codes result;
    for (std::size_t i = 0; i + 3 < row.size(); i += 4)
        result.insert(result.end(), {row[i + 1], row[i], row[i + 3], row[i + 2]});
    return result;
}

template <class PackWord>
Bytes inWordsOfThree(const Codes& row, PackWord packWord)
{
    Codes components = chromaFirst(row);
    components.resize((components.size() + 11) / 12 * 12); // of whole groups of 6 pixels
    Bytes bytes;
    for (std::size_t i = 0; i < components.size(); i += 3)
        appendLittleEndian(bytes, packWord(components[i], components[i + 1], components[i + 2]), 4);
    return bytes;
}

template <class PackRow>
Rows eachRow(const TenBitCodes& codes, PackRow packRow)
{
    Rows rows;
    std::transform(codes.rows.begin(), codes.rows.end(), std::back_inserter(rows), packRow);
    return rows;
}

} // namespace

TenBitCodes TenBitCodes::random(unsigned width, unsigned height)
{
    TenBitCodes codes{width, {}};
    std::mt19937 generator(width * 104729 + height);
    codes.rows.resize(height, Codes(codes.pairs() * 4));
    for (Codes& row : codes.rows)
        std::generate(row.begin(), row.end(), [&] { return static_cast<std::uint16_t>(generator() % 1024); });
    return codes;
}

TenBitCodes TenBitCodes::everyCode()
{
    TenBitCodes codes{2048, {{}}};
    for (unsigned code = 0; code < 1024; ++code) {
        for (const unsigned factor : {1U, 3U, 5U, 7U}) // odd: each runs through all codes
            codes.rows[0].push_back(static_cast<std::uint16_t>(code * factor % 1024));
    }
    return codes;
}

Rows packV210(const TenBitCodes& codes)
{
    return eachRow(codes, [](const Codes& row) {
        return inWordsOfThree(
            row, [](std::uint32_t a, std::uint32_t b, std::uint32_t c) { return a | b << 10 | c << 20; });
    });
}

Rows packDvs(const TenBitCodes& codes)
{
    return eachRow(codes, [](const Codes& row) {
        return inWordsOfThree(row, [](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
            return a >> 2 | b >> 2 << 8 | c >> 2 << 16 | ((a & 3) | (b & 3) << 2 | (c & 3) << 4) << 24;
        });
    });
}

Rows packM101(const TenBitCodes& codes)
{
    return eachRow(codes, [](Codes row) {
        row.resize((row.size() + 31) / 32 * 32); // of whole blocks of 16 pixels
        Bytes bytes;
        for (std::size_t block = 0; block < row.size(); block += 32) {
            for (std::size_t i = 0; i < 32; ++i)
                bytes.push_back(static_cast<std::byte>(row[block + i] >> 2));
            for (std::size_t i = 0; i < 32; i += 4) {
                const Codes pair(row.begin() + static_cast<std::ptrdiff_t>(block + i),
                                 row.begin() + static_cast<std::ptrdiff_t>(block + i + 4));
                bytes.push_back(static_cast<std::byte>((pair[0] & 3) | (pair[1] & 3) << 2 |
                                                       (pair[2] & 3) << 4 | (pair[3] & 3) << 6));
            }
        }
        return bytes;
    });
}

Rows as16Bits(const TenBitCodes& codes)
{
    return eachRow(codes, [](const Codes& row) {
        Bytes bytes;
        for (const std::uint16_t code : row)
            appendLittleEndian(bytes, std::uint32_t{code} * 64, 2);
        return bytes;
    });
}

Rows as8Bits(const TenBitCodes& codes, bool rounded)
{
    return eachRow(codes, [rounded](const Codes& row) {
        Bytes bytes;
        for (const std::uint16_t code : row)
            bytes.push_back(static_cast<std::byte>(std::min((code + (rounded ? 2 : 0)) / 4, 255)));
        return bytes;
    });
}

} // namespace Qx::Pixels
