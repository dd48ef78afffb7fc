#pragma once

#include "platform/Surface.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <functional>

namespace Qx::Program {

/// What comes out of a step.
using TakePicture = std::function<void(const Image::Surface& picture, const Media::FrameTime& time)>;

/// Makes of one picture on the GPU what the step says, in order of time: both its fields, or a smaller one.
/// Times are in units of the step's time base. Throws Failure (device).
void runStep(const PictureStep& step, const Image::Surface& picture, const Media::FrameTime& time,
             const TakePicture& take);

/// What the pictures have after the step, from what they have before it: size, frame rate, time base, pixel
/// aspect, field order. Throws Failure (usage, input) for sizes of which nothing can be made.
Media::StreamInfo afterStep(const ConvertOptions& options, const Media::StreamInfo& info);

/// Pictures that the step makes of each.
int picturesEach(const PictureStep& step);

} // namespace Qx::Program
