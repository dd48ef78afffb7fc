#pragma once

#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/media/rows/FramePacker.h"

#include <optional>

namespace Qx::Program {

/// The depth of frames on their way to the GPU where pictures are made of them, of the depth `pictures`.
/// `chosen` is the user's choice, if there is one.
Media::Depth uploadDepth(const Media::StreamInfo& info, Media::Depth pictures,
                         std::optional<Media::Depth> chosen = {});

/// The bits of their codes, which are of that range; 0: all of a sample.
int uploadBits(const Media::StreamInfo& info, Media::Depth upload, Media::Range range);

} // namespace Qx::Program
