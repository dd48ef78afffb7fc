#pragma once

#include "platform/Surface.h"

namespace Qx::Program {

/// Runs a technique of "null.fx" over a surface into another that has a GPU image. Throws Failure (device,
/// effect) when it cannot be had or was not drawn.
void applyNullEffect(const char* technique, const Image::Surface& from, Image::Surface& to);

} // namespace Qx::Program
