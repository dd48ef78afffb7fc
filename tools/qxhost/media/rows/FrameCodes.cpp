#include "tools/qxhost/media/rows/FrameCodes.h"

#include "tools/qxhost/media/rows/ComponentRows.h"

#include <algorithm>
#include <utility>

namespace Qx::Media {

std::optional<FrameCodes> FrameCodes::of(const Frame& frame)
{
    if (frame.empty()) {
        return {};
    }
    const auto format = static_cast<AVPixelFormat>(frame.picture()->format);
    if (!ComponentRows::unreadable(format).empty()) {
        return {};
    }
    auto rows = std::make_shared<const ComponentRows>(format);
    if (rows->isRgb() || rows->isGrey()) {
        return {};
    }
    return FrameCodes(frame, std::move(rows));
}

FrameCodes::FrameCodes(Frame frame, std::shared_ptr<const ComponentRows> rows)
    : frame_(std::move(frame)),
      rows_(std::move(rows)),
      chromaHeight_(AV_CEIL_RSHIFT(frame_.picture()->height, rows_->chromaShiftY()))
{
}

int FrameCodes::width() const
{
    return frame_.picture()->width;
}

int FrameCodes::height() const
{
    return frame_.picture()->height;
}

Coding FrameCodes::coding() const
{
    return {rows_->bits(), frame_.range()};
}

int FrameCodes::chromaRow(int y) const
{
    const int shift = rows_->chromaShiftY();
    const bool isOfFields = shift > 0 && frame_.time().fieldOrder != FieldOrder::progressive;
    const int row = isOfFields ? y / 2 >> shift << 1 | y % 2 : y >> shift;
    return std::min(row, chromaHeight_ - 1);
}

void FrameCodes::readComponent(int component, int row, int first, int count, std::uint16_t* codes) const
{
    rows_->read(*frame_.picture(), component, row, first, count, codes);
    if (!rows_->wide()) { // bytes have been written, and take more room from the last on
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(codes);
        for (int i = count - 1; i >= 0; --i) {
            codes[i] = bytes[i];
        }
    }
}

std::array<unsigned, 3> FrameCodes::at(int x, int y) const
{
    std::array<unsigned, 3> result{};
    for (int component = 0; component < 3; ++component) {
        std::uint16_t code = 0;
        const bool isLuma = component == 0;
        readComponent(component, isLuma ? y : chromaRow(y), isLuma ? x : x >> rows_->chromaShiftX(), 1,
                      &code);
        result.at(static_cast<std::size_t>(component)) = code;
    }
    return result;
}

void FrameCodes::read(int y, Row& row) const
{
    const int shift = rows_->chromaShiftX();
    for (int component = 0; component < 3; ++component) {
        std::vector<std::uint16_t>& codes = row.at(static_cast<std::size_t>(component));
        codes.resize(static_cast<std::size_t>(width()));
        if (component == 0) {
            readComponent(component, y, 0, width(), codes.data());
            continue;
        }
        readComponent(component, chromaRow(y), 0, AV_CEIL_RSHIFT(width(), shift), codes.data());
        for (int x = width() - 1; shift > 0 && x >= 0; --x) {
            codes[static_cast<std::size_t>(x)] = codes[static_cast<std::size_t>(x >> shift)];
        }
    }
}

} // namespace Qx::Media
