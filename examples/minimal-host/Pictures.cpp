#include "Pictures.h"

#include <algorithm>
#include <utility>

namespace {

std::size_t bytesOf(XY<int> size, iGPUImage::eFormat format)
{
    const std::size_t texel = format == iGPUImage::eARGB16 ? 8 : 4;
    return static_cast<std::size_t>(size.x) * static_cast<std::size_t>(size.y) * texel;
}

} // namespace

HostPicture::HostPicture(XY<int> size, iGPUImage::eFormat format, std::shared_ptr<Texels> texels)
    : size_(size),
      format_(format),
      texels_(texels ? std::move(texels) : std::make_shared<Texels>(bytesOf(size, format)))
{
}

std::size_t HostPicture::getPitch() const
{
    return bytesOf({size_.x, 1}, format_);
}

GpuPicture::GpuPicture(XY<int> size, eFormat format, const Texels* from)
    : size_(size),
      format_(format),
      texels_(from != nullptr ? std::make_shared<Texels>(*from)
                              : std::make_shared<Texels>(bytesOf(size, format)))
{
}

Qx::Vector<LightweightString<char>> Negative::getTechniqueNames() const
{
    Qx::Vector<LightweightString<char>> names;
    names.emplace_back("Negative");
    return names;
}

bool Negative::render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources)
{
    // The library binds the picture to "Input" twice; a host's images are its own kind.
    auto* const to = dynamic_cast<GpuPicture*>(target.get());
    const auto* const from =
        sources.empty() ? nullptr : dynamic_cast<const GpuPicture*>(sources[0].resource.get());
    if (to == nullptr || from == nullptr || to->texels()->size() != from->texels()->size()) {
        return false;
    }
    for (std::size_t i = 0; i < to->texels()->size(); ++i) {
        const bool isAlpha = i % 4 == 0;
        const unsigned char code = (*from->texels())[i];
        (*to->texels())[i] = static_cast<unsigned char>(isAlpha ? code : 255 - code);
    }
    return true;
}
