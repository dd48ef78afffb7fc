#include "host/surfaces/RowGeometry.h"
#include "tests/fuzz/Targets.h"

#include <algorithm>
#include <cstring>

namespace Qx::Fuzz {
namespace {

using namespace Host;

template <typename Value>
Value take(Input& input)
{
    Value value{};
    const std::size_t bytes = std::min(sizeof value, input.size());
    if (bytes != 0) {
        std::memcpy(&value, input.data(), bytes);
    }
    input = input.subspan(bytes);
    return value;
}

Image::Core::Data description(Input input)
{
    Image::Core::Data data;
    data.width = take<std::uint32_t>(input);
    data.height = take<std::uint32_t>(input);
    data.rowPitch = take<decltype(data.rowPitch)>(input);
    data.format = static_cast<Image::Format>(take<std::underlying_type_t<Image::Format>>(input));
    data.bitsPerComponent = take<std::uint16_t>(input);
    data.bitsPerPixel = take<std::uint16_t>(input);
    return data;
}

void check(const Image::Core::Data& data, const RowGeometry& geometry)
{
    const std::uint64_t texel = bytesPerTexel(geometry.texels);
    promise(geometry.rowBytes > 0 && geometry.rows >= data.height, "rows that hold nothing");
    promise(geometry.pitch % texel == 0, "a pitch that is no whole number of texels");
    promise(geometry.pitch >= data.rowPitch, "a pitch below the description's");
    const XY<int> size = geometry.imageSize();
    promise(size.x > 0 && size.y > 0, "an image without a size");
    promise(static_cast<std::uint64_t>(size.x) * texel == geometry.pitch &&
                static_cast<std::uint64_t>(size.y) == geometry.rows,
            "an image that is not its rows");
    promise(geometry.pitch <= static_cast<std::uint64_t>(PTRDIFF_MAX) / geometry.rows,
            "an image beyond the address space");
}

} // namespace

void rowGeometry(Input input)
{
    const Image::Core::Data data = description(input);
    const auto anyPitch = rowGeometryAtAnyPitch(data);
    const auto strict = rowGeometryOf(data);
    promise(!strict || anyPitch, "a geometry that is only there when asked strictly");
    if (anyPitch) {
        check(data, *anyPitch);
    }
    if (strict) {
        check(data, *strict);
        promise(strict->pitch >= strict->rowBytes, "a pitch that a row does not fit into");
    }
    bitsPerPixelOf(data);
}

} // namespace Qx::Fuzz
