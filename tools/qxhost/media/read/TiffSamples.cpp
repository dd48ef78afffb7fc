#include "tools/qxhost/media/read/TiffSamples.h"

#include <algorithm>
#include <optional>

namespace Qx::Media {

namespace {

/// Numbers of a TIFF file (TIFF 6.0, sections 2 and 19), each empty if it lies outside.
class TiffReader
{
public:
    explicit TiffReader(std::span<const std::uint8_t> file) : file_(file)
    {
        constexpr std::uint8_t big = 'M';
        isBig_ = !file.empty() && file.front() == big;
    }

    std::optional<std::uint32_t> number(std::size_t at, std::size_t bytes) const
    {
        if (at > file_.size() || bytes > file_.size() - at) {
            return std::nullopt;
        }
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < bytes; ++i) {
            value = value << 8U | file_[isBig_ ? at + i : at + bytes - 1 - i];
        }
        return value;
    }

    /// The largest of the numbers of 16 bits that the first picture has under that tag.
    std::optional<std::uint32_t> largest(std::uint32_t tag) const
    {
        constexpr std::size_t entryBytes = 12;
        constexpr std::size_t mostSamples = 64;
        const std::size_t directory = number(4, 4).value_or(0);
        const std::size_t entries = number(directory, 2).value_or(0);
        for (std::size_t i = 0; i < entries; ++i) {
            const std::size_t entry = directory + 2 + i * entryBytes;
            if (number(entry, 2) != tag) {
                continue;
            }
            const std::size_t count = std::min<std::size_t>(number(entry + 4, 4).value_or(0), mostSamples);
            const std::size_t first = count <= 2 ? entry + 8 : number(entry + 8, 4).value_or(0);
            std::optional<std::uint32_t> most;
            for (std::size_t sample = 0; sample < count; ++sample) {
                most = std::max(most, number(first + 2 * sample, 2));
            }
            return most;
        }
        return std::nullopt;
    }

    bool isTiff() const
    {
        constexpr std::uint32_t little = 0x4949;
        constexpr std::uint32_t big = 0x4D4D;
        constexpr std::uint32_t version = 42;
        return number(0, 2) == (isBig_ ? big : little) && number(2, 2) == version;
    }

private:
    std::span<const std::uint8_t> file_;
    bool isBig_ = false;
};

} // namespace

std::string unreadableSamples(std::span<const std::uint8_t> tiff)
{
    constexpr std::uint32_t bitsTag = 258;
    constexpr std::uint32_t formatTag = 339;
    enum Format : std::uint32_t
    {
        whole = 1,
        signedWhole = 2,
        floats = 3,
        unknown = 4
    };
    constexpr std::uint32_t mostBits = 16;
    const TiffReader file(tiff);
    if (!file.isTiff()) {
        return {};
    }
    const std::uint32_t bits = file.largest(bitsTag).value_or(1);
    const std::uint32_t format = file.largest(formatTag).value_or(whole);
    const std::string size = std::to_string(bits) + "-bit ";
    if (format == floats) {
        return size + "floats";
    }
    if (format == signedWhole) {
        return size + "signed whole numbers";
    }
    if (format > unknown) {
        return size + "complex numbers";
    }
    return bits > mostBits ? size + "whole numbers" : "";
}

} // namespace Qx::Media
