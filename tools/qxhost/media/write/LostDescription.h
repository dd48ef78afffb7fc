#pragma once

#include "tools/qxhost/media/write/FrameWriter.h"

#include <filesystem>
#include <string>
#include <vector>

struct AVCodecContext;

namespace Qx::Media {

/// What a complete clip does not tell of its frames though it was to: time code, pixel aspect, field order,
/// colour tags. A line each, with what could hold it. The file is read back for it, because neither container
/// nor codec says beforehand what survives in the two together.
///
/// `video` says which colours were meant, `extension` what the file will be called ("avi"). A file that
/// cannot be read back, which FFmpeg can write and not read, gives no lines.
std::vector<std::string> lostDescription(const std::filesystem::path& clip, const OutputSettings& settings,
                                         const AVCodecContext& video, const std::string& extension);

} // namespace Qx::Media
