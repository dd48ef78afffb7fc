#pragma once

#include "tests/pixels/Picture.h"

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// The effects of the starter set, `qx-*.fx`, as tests draw them.
namespace Qx::Pixels {

/// The values of parameters by name, one for each component or one for all. Parameters that are not named
/// have their defaults.
using Settings = std::map<std::string, std::vector<float>>;

/// Other pictures by the name of the texture that gets them.
using OtherPictures = std::map<std::string, Picture>;

/// A picture through a technique of "qx-NAME.fx", at its own depth. Fails the test and returns the picture
/// itself, without codes, if it cannot be drawn.
Picture through(const std::string& name, const std::string& technique, const Settings& settings,
                const Picture& source, const OtherPictures& others = {});

/// A pixel's components as parts of the range: red, green, blue, alpha.
using Colour = std::array<double, 4>;

Colour colourAt(const Picture& picture, int x, int y);

/// The colour of the pixel that is nearest to the place.
Colour clampedColourAt(const Picture& picture, int x, int y);

/// Returns each pixel's exact colour, as parts of the range.
using Reference = std::function<Colour(int x, int y)>;

/// Expects each code of `got` to be at most `tolerance` from the nearest one to the reference's.
void expectNear(const Picture& got, const Reference& exact, int tolerance);

/// Expects the very codes of the other picture.
void expectSame(const Picture& got, const Picture& wanted);

/// A picture whose pixels are those of the function, rounded.
Picture drawn(int width, int height, int depth, const Reference& colour);

/// Noise in every component, the same at every call.
Picture noise(int width, int height, int depth);

/// The same, opaque.
Picture opaqueNoise(int width, int height, int depth);

/// Two colours with straight alpha mixed.
Colour mixed(const Colour& first, const Colour& second, double share);

double lumaOf(const Colour& colour);

} // namespace Qx::Pixels
