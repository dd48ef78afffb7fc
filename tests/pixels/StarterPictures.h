#pragma once

#include "tests/pixels/Picture.h"

/// The computed pictures of 192 x 108 pixels that docs/starter-effects.md shows effects on.
namespace Qx::Pixels {

/// A landscape by day with letters, patches of skin and other colours, and a ramp of greys.
Picture daylight();

/// The landscape by night.
Picture night();

/// A person before a green screen.
Picture greenScreen();

/// Two fields of a ball that moves.
Picture interlaced();

} // namespace Qx::Pixels
