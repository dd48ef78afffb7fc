#pragma once

#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <string>
#include <vector>

namespace Qx::Program {

/// Whether the alpha of the input goes to the writer. Thumbnails have none.
bool keepsAlpha(const ConvertOptions& options, const Media::StreamInfo& info);

/// What a conversion with these options does not keep of the input, a line each for the user.
std::vector<std::string> inputNotes(const ConvertOptions& options, const Media::StreamInfo& info);

/// How frames of the input come to the GPU, for people: "4:2:2, with unchanged codes".
std::string wayToGpu(const Media::StreamInfo& info);

} // namespace Qx::Program
