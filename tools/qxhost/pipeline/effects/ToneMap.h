#pragma once

#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <string>

namespace Qx::Program {

/// Of "--tone-map": the words and the techniques of qx-tone-map.fx.
enum class ToneMap
{
    bt2390,
    bt2446a
};

/// A step that makes pictures of BT.709 by that method; what it makes them of is told by fitToneMap().
EffectRequest toneMapRequest(ToneMap method);

/// Whether the codes stand for high dynamic range: PQ or HLG.
bool isHighDynamicRange(const Media::Colour& colour);

/// Whether a tag names a curve or primaries.
bool saysWhichColours(const Media::Colour& colour);

/// Why these colours differ from BT.709: "PQ (SMPTE ST 2084)", "BT.2020"; empty if they do not.
std::string beyondBt709(const Media::Colour& colour);

/// Gives the step the transfer characteristic, primaries and peak of these colours, before what the user set.
void fitToneMap(EffectRequest& step, const Media::Colour& colour);

/// The tags of what the step makes.
Media::Colour afterToneMap(Media::Colour colour);

} // namespace Qx::Program
