#pragma once

#include "host/fonts/TextRenderer.h"

namespace Qx::Host::Text {

/// The platform's font on a device.
class Font final : public iFont
{
public:
    Font(std::shared_ptr<TextRenderer> renderer, std::shared_ptr<TextShaper> shaper)
        : renderer_(std::move(renderer)), shaper_(std::move(shaper))
    {
    }

    XY<int> measure(const LightweightString<wchar_t>& text) override;
    bool draw(Qx::Ptr<iGPUImage> target, const LightweightString<wchar_t>& text, XY<int> position,
              const NormalisedRGB& colour, eAlpha alpha) override;

private:
    bool isLine(const LightweightString<wchar_t>& text);
    bool complain(unsigned kind, const std::string& what);

    const std::shared_ptr<TextRenderer> renderer_;
    const std::shared_ptr<TextShaper> shaper_;
    std::atomic<unsigned> complaints_{0}; ///< what the log has already been told, a bit each
};

} // namespace Qx::Host::Text
