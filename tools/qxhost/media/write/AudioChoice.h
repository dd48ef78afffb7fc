#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"

#include <string>

namespace Qx::Media {

/// Whether files of this kind hold audio of this codec such that players find it.
bool holdsAudio(const AVOutputFormat& container, AVCodecID codec);

/// Whether they also are a usual place for it, so that it is copied there.
bool suitsAudio(const AVOutputFormat& container, AVCodecID codec);

/// Whether files of this kind hold audio at all.
bool holdsAnyAudio(const AVOutputFormat& container);

/// The encoder for a track that cannot be copied: PCM of the track's depth for containers of editing, AAC or
/// Opus for those of delivery, else what FFmpeg prefers.
Result<const AVCodec*> chooseAudioEncoder(const AVOutputFormat& container, const AVCodecParameters& track);

/// The only sample rate of the container, or 0.
int onlySampleRate(const AVOutputFormat& container);

} // namespace Qx::Media
