#include "tests/TemporaryDirectory.h"
#include "tests/fuzz/Targets.h"
#include "tools/qxhost/media/read/RawReader.h"

#include <algorithm>
#include <vector>

namespace Qx::Fuzz {
namespace {

using namespace Media;

/// One to three planes of up to 16 rows, from three bytes each.
StoredLayout layoutOf(Input input)
{
    StoredLayout layout;
    layout.name = "fuzz";
    const std::size_t planes = 1 + input[0] % 3U;
    for (std::size_t i = 0; i < planes; ++i) {
        const std::uint8_t* bytes = &input[1 + 3 * i];
        const std::size_t used = 1 + bytes[1];
        layout.planes.push_back({1 + bytes[0] % 16, used, used + bytes[2]});
    }
    return layout;
}

} // namespace

void raw(Input input)
{
    constexpr std::size_t headerBytes = 10;
    if (input.size() < headerBytes) {
        return;
    }
    static const Test::TemporaryDirectory directory;
    const StoredLayout layout = layoutOf(input);
    const Input content = input.subspan(headerBytes);
    const auto file = directory.write("frames", textOf(content));
    auto opened = RawReader::open(file, layout, 1, 1);
    promise(static_cast<bool>(opened) == (content.size() >= layout.frameBytes()),
            "frames that are not there, or are not found");
    if (!opened) {
        promise(!opened.text().empty(), "refused without a cause");
        return;
    }
    RawReader& reader = *opened.value();
    const std::size_t frames = content.size() / layout.frameBytes();
    promise(static_cast<std::size_t>(reader.frameCount()) == frames, "a wrong count of frames");
    promise(reader.remainder().empty() == (content.size() % layout.frameBytes() == 0),
            "a remainder that is not told");
    std::size_t pitch = 0;
    for (const StoredLayout::Plane& plane : layout.planes) {
        pitch = std::max(pitch, plane.usedBytes);
    }
    std::vector<std::byte> rows(pitch * static_cast<std::size_t>(layout.rows()));
    std::vector<std::byte> again(layout.frameBytes());
    for (std::size_t i = 0; i < frames; ++i) {
        promise(static_cast<bool>(reader.read(static_cast<std::int64_t>(i), rows.data(),
                                              static_cast<std::ptrdiff_t>(pitch))),
                "a frame that cannot be read");
        layout.gather(rows.data(), static_cast<std::ptrdiff_t>(pitch), again.data());
        const std::uint8_t* stored = content.data() + i * layout.frameBytes();
        const std::byte* kept = again.data();
        for (const StoredLayout::Plane& plane : layout.planes) {
            for (int row = 0; row < plane.rows; ++row) {
                promise(std::equal(kept, kept + plane.usedBytes, reinterpret_cast<const std::byte*>(stored)),
                        "a row that is not the file's");
                stored += plane.rowBytes;
                kept += plane.rowBytes;
            }
        }
    }
    promise(!reader.read(static_cast<std::int64_t>(frames), rows.data(), static_cast<std::ptrdiff_t>(pitch)),
            "a frame beyond the end");
}

} // namespace Qx::Fuzz
