#include "host/fonts/TextPainter.h"

#include "host/fonts/Typeface.h"
#include "platform/Text.h"

namespace Qx::Host::Text {

namespace {

LightweightString<wchar_t> wide(const std::string& text)
{
    return fromUTF8(LightweightString<char>(std::string_view(text)));
}

} // namespace

TextPainter::TextPainter(std::shared_ptr<TextShaper> shaper) : shaper_(std::move(shaper)) {}

TextPainter::~TextPainter() = default;

std::unique_ptr<TextPainter> TextPainter::open(const std::string& typeface, int size, int style)
{
    auto shaper = openTypeface(wide(typeface), size, style);
    return shaper != nullptr ? std::unique_ptr<TextPainter>(new TextPainter(std::move(shaper))) : nullptr;
}

XY<int> TextPainter::measure(const std::string& text) const
{
    return {shaper_->shape(wide(text).view()).width, shaper_->ascent() + shaper_->descent()};
}

std::string TextPainter::fitted(const std::string& text, int width) const
{
    const LightweightString<wchar_t> all = wide(text);
    std::wstring cut(all.view().substr(0, TextShaper::longestLine / 2));
    if (cut.size() == all.length() && shaper_->shape(cut).width <= width) {
        return text;
    }
    while (!cut.empty() && shaper_->shape(cut + L'\u2026').width > width) {
        cut.resize(cut.size() > 200 ? cut.size() / 2 : cut.size() - 1);
    }
    cut += L'\u2026';
    return std::string(toUTF8(LightweightString<wchar_t>(std::wstring_view(cut))).view());
}

void TextPainter::paint(const std::string& text, XY<int> corner,
                        const std::function<void(int x, int y, float coverage)>& cover) const
{
    for (const PlacedGlyph& placed : shaper_->shape(wide(text).view()).glyphs) {
        const Face::Pen pen = Face::penAt(placed.x);
        const GlyphBitmap bitmap = placed.face->draw(placed.glyph, pen.phase);
        const int left = corner.x + static_cast<int>(pen.pixel) + bitmap.left;
        const int top = corner.y + shaper_->ascent() - placed.y - bitmap.top;
        for (int i = 0; i < bitmap.width * bitmap.height; ++i) {
            const std::uint8_t alpha = bitmap.texels[static_cast<std::size_t>(i) * 4];
            cover(left + i % bitmap.width, top + i / bitmap.width, static_cast<float>(alpha) / 255.0F);
        }
    }
}

} // namespace Qx::Host::Text
