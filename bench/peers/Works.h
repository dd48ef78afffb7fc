#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The work that is compared, described so that every participant does the same: input, output and test
/// frame.
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
    Look,      ///< RGB through a table of 33 points an edge, tetrahedral; of either content
    Grade,     ///< RGB through three-way colour correction with lift, gamma, gain and saturation
};

enum class ChromaFilter
{
    None, ///< the work has no chroma to filter
    Point,
    CatmullRom,
    Mitchell,
    Lanczos,
};

/// What a test frame shows.
enum class Content
{
    Scattered,  ///< codes that have nothing to do with each other
    Photograph, ///< computed: shapes of all sizes that hide each other, and a camera's noise
};

/// The location of the frames before and after.
enum class Place
{
    Device, ///< both in device memory
    Memory, ///< both in host memory; a device's transfers count
};

struct Work
{
    WorkKind kind = WorkKind::Decode;
    unsigned depth = 8; ///< bits of a component of RGB or 4:2:2
    ChromaFilter filter = ChromaFilter::None;
    Place place = Place::Device;
    Content content = Content::Scattered;

    bool operator==(const Work&) const = default;

    /// Its key between programs: "decode8.point.device".
    std::string key() const;

    /// For people: "4:2:2 to RGB, 8 bits, Point".
    std::string text() const;
};

/// All works, in device memory and in host memory.
const std::vector<Work>& allWorks();

/// Returns the work with that key, or an empty value.
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

/// The test frame: codes that video allows, or colours, opaque. Always the same.
std::vector<std::byte> sourceFrame(const Work& work);

} // namespace Qx::Bench
