#include "tools/qxhost/pipeline/effects/WideEffect.h"

#include "Qx/LightweightString.h"
#include "image/TechniqueApplication.h"
#include "platform/Text.h"
#include "tools/qxhost/media/Matrices.h"

#include <string>

namespace Qx::Program {

namespace {

const char* rangeWord(Image::GamutScaling range)
{
    return range == Image::GamutScaling::Video ? "Video_" : "Unscaled_";
}

const char* filterWord(Image::Filter filter)
{
    switch (filter) {
    case Image::Filter::Point:
        return "Point";
    case Image::Filter::Mitchell:
        return "Mitchell";
    case Image::Filter::CatmullRom:
    case Image::Filter::Lanczos:
        break;
    }
    return "CatmullRom";
}

bool draw(const char* effect, const std::string& technique, const Image::Surface& from, Image::Surface& to)
{
    const Image::Surface before = to; // drawing gives it the descriptions of its source
    const bool drawn = Image::applyTechnique(Image::getShader(fromUTF8(effect)), from, to, technique.c_str(),
                                             static_cast<float>(from.getWidth()));
    to.setDescriptions(before.getDescriptions());
    return drawn;
}

} // namespace

bool decodeWide(const Image::Surface& pairs, Image::Surface& picture, Image::GamutScaling range,
                Image::Filter filter)
{
    const bool drawn = draw(wideEffect,
                            std::string("YCrCb422_") + rangeWord(pairs.getGamutScaling()) + "BT2020_To_RGB_" +
                                rangeWord(range) + filterWord(filter),
                            pairs, picture);
    picture.setGamutScaling(range);
    return drawn;
}

bool decodeFullChroma(const Image::Surface& source, Image::Surface& picture, Media::Matrix matrix,
                      Media::Range from, Image::GamutScaling range)
{
    std::string name = Media::infoOf(matrix).name; // "BT.709"
    std::erase(name, '.');
    const std::string technique = std::string("YCrCb444_") +
                                  (from == Media::Range::video ? "Video_" : "Unscaled_") + name + "_To_RGB_" +
                                  (range == Image::GamutScaling::Video ? "Video" : "Unscaled");
    const bool drawn = draw(fullChromaEffect, technique, source, picture);
    picture.setGamutScaling(range);
    return drawn;
}

bool encodeWide(const Image::Surface& picture, Image::Surface& pairs)
{
    return draw(wideEffect,
                std::string("RGB_") + rangeWord(picture.getGamutScaling()) + "To_YCrCb422_Video_BT2020_Point",
                picture, pairs);
}

} // namespace Qx::Program
