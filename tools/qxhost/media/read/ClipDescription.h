#pragma once

#include "tools/qxhost/media/MediaTypes.h"

#include <string>
#include <utility>
#include <vector>

struct AVFormatContext;

namespace Qx::Media {

/// Names and values as the file has them, in its order.
using FileTags = std::vector<std::pair<std::string, std::string>>;

/// A stream of a file. Names are FFmpeg's.
struct StreamDescription
{
    int index = 0;
    std::string kind;   ///< "video", "audio", "subtitle", "data", "attachment" or "unknown"
    std::string codec;  ///< "prores", "pcm_s16le"
    int sampleRate = 0; ///< of audio; else 0
    int channels = 0;
    bool isCover = false; ///< a picture that belongs to audio
    FileTags tags;
};

struct ClipDescription
{
    FileTags tags;
    std::vector<StreamDescription> streams;
};

ClipDescription describeStreams(const AVFormatContext& input);

/// What the tags of a clip say of its colours, by FFmpeg's names; empty where they say nothing.
struct ColourTagNames
{
    std::string matrix;
    std::string primaries;
    std::string transfer;
};

ColourTagNames tagNames(const Colour& colour);

} // namespace Qx::Media
