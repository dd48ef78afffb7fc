#pragma once

#include "platform/Surface.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <functional>

namespace Qx::Program {

/// Receives a picture that a step produced.
using TakePicture = std::function<void(const Image::Surface& picture, const Media::FrameTime& time)>;

/// Runs a step on one picture on the GPU and passes on the results in order of time: both fields, or a
/// smaller picture.
/// Times are in units of the step's time base. Throws Failure (device).
void runStep(const PictureStep& step, const Image::Surface& picture, const Media::FrameTime& time,
             const TakePicture& take);

/// The properties of the pictures after the step, given those before it: size, frame rate, time base, pixel
/// aspect, field order. Throws Failure (usage, input) if the size does not suit the step.
Media::StreamInfo afterStep(const ConvertOptions& options, const Media::StreamInfo& info);

/// Number of pictures that the step produces for each.
int picturesEach(const PictureStep& step);

} // namespace Qx::Program
