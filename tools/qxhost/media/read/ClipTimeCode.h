#pragma once

#include <string>

struct AVFormatContext;
struct AVFrame;
struct AVStream;

namespace Qx::Media {

/// The time code of a clip's first frame, from where containers and codecs keep it: the stream's metadata,
/// the file's, another stream's, or the frame itself. Empty if there is none.
std::string timeCodeOf(const AVFormatContext& input, const AVStream& stream, const AVFrame& first);

} // namespace Qx::Media
