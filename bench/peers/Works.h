#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The work that is compared, described so that every participant does the same: what comes in, what must
/// come out, and the test frame.
///
/// Frames are 1920 x 1080 and lie in memory without padding. 4:2:2 is Y0 Cb Y1 Cr, RGB is R G B A; both have
/// 8 or 16 bits a component. 16-bit 4:2:2 of the test frames holds 10-bit codes at the top, so that a
/// participant of ten bits can take part. v210 is rows of 128-byte blocks. Colours are video-range BT.709 on
/// the side of 4:2:2 and full-range RGB on the other; chroma is sited on the even pixel.
namespace Qx::Bench {

inline constexpr int frameWidth = 1920;
inline constexpr int frameHeight = 1080;

enum class WorkKind
{
    Decode,    ///< 4:2:2 to RGB
    Encode,    ///< RGB to 4:2:2
    FromV210,  ///< v210 to 16-bit 4:2:2
    ToV210,    ///< 16-bit 4:2:2 to v210
    V210ToRGB, ///< v210 to 16-bit RGB
    Look,      ///< RGB through a table of 33 points an edge, tetrahedral
};

enum class ChromaFilter
{
    None, ///< the work has no chroma to filter
    Point,
    CatmullRom,
    Mitchell,
    Lanczos,
};

/// Where the frames are before and after.
enum class Place
{
    Device, ///< in the device's memory, both
    Memory, ///< in the computer's memory, both; a device's transfers count
};

struct Work
{
    WorkKind kind = WorkKind::Decode;
    unsigned depth = 8; ///< bits of a component of RGB or 4:2:2
    ChromaFilter filter = ChromaFilter::None;
    Place place = Place::Device;

    bool operator==(const Work&) const = default;

    /// What names it between programs: "decode8.point.device".
    std::string key() const;

    /// For people: "4:2:2 to RGB, 8 bits, Point".
    std::string text() const;
};

/// All, those in the device's memory and those in the computer's.
const std::vector<Work>& allWorks();

/// The work of that key; empty when there is none.
std::optional<Work> workOf(std::string_view key);

/// The layout of a frame.
enum class FrameLayout
{
    Video, ///< 4:2:2
    Colour,
    V210,
};

FrameLayout sourceLayout(WorkKind kind);
FrameLayout resultLayout(WorkKind kind);

/// Bytes of a row and of a whole frame.
std::size_t rowBytes(FrameLayout layout, unsigned depth);
std::size_t frameBytes(FrameLayout layout, unsigned depth);

/// The test frame: scattered codes that video allows, or scattered colours, opaque. Always the same.
std::vector<std::byte> sourceFrame(const Work& work);

} // namespace Qx::Bench
