#include "tools/qxhost/media/StoredLayout.h"

#include <algorithm>
#include <cstring>

namespace Qx::Media {

namespace {

/// Copies what both rows hold and zeroes the rest of the target.
void copyRow(const std::byte* from, std::byte* to, std::size_t used, std::size_t target)
{
    const std::size_t copied = std::min(used, target);
    std::memcpy(to, from, copied);
    std::memset(to + copied, 0, target - copied);
}

} // namespace

std::size_t StoredLayout::frameBytes() const
{
    std::size_t bytes = 0;
    for (const Plane& plane : planes) {
        bytes += plane.rowBytes * static_cast<std::size_t>(plane.rows);
    }
    return bytes;
}

int StoredLayout::rows() const
{
    int count = 0;
    for (const Plane& plane : planes) {
        count += plane.rows;
    }
    return count;
}

bool StoredLayout::liesTheSame(std::ptrdiff_t pitch) const
{
    return std::all_of(planes.begin(), planes.end(), [&](const Plane& plane) {
        return plane.rowBytes == static_cast<std::size_t>(pitch) && plane.usedBytes == plane.rowBytes;
    });
}

void StoredLayout::gather(const void* rows, std::ptrdiff_t pitch, std::byte* frame) const
{
    const auto* from = static_cast<const std::byte*>(rows);
    for (const Plane& plane : planes) {
        const std::size_t used = std::min(plane.usedBytes, static_cast<std::size_t>(pitch));
        for (int row = 0; row < plane.rows; ++row) {
            copyRow(from, frame, used, plane.rowBytes);
            from += pitch;
            frame += plane.rowBytes;
        }
    }
}

void StoredLayout::scatter(const std::byte* frame, void* rows, std::ptrdiff_t pitch) const
{
    auto* to = static_cast<std::byte*>(rows);
    for (const Plane& plane : planes) {
        for (int row = 0; row < plane.rows; ++row) {
            copyRow(frame, to, plane.usedBytes, static_cast<std::size_t>(pitch));
            to += pitch;
            frame += plane.rowBytes;
        }
    }
}

} // namespace Qx::Media
