#pragma once

#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace Qx::Media {

/// A part of a clip, which a writer with the same settings has made. Times are the input's, in its units.
struct Piece
{
    std::filesystem::path file;
    std::int64_t frames = 0;
    FrameTime first;
    FrameTime last;
};

/// What a piece holds.
struct PieceContent
{
    std::int64_t packets = 0;
    int reordering = 0; ///< the most packets that are stored before one that is shown before them
};

/// Reads a piece as it will be joined. Fails if that is not possible.
Result<PieceContent> examinePiece(const std::filesystem::path& file);

/// Where the audio of the whole comes from, and who watches.
struct JoiningContext
{
    std::function<void(std::int64_t pts)> readAudioUpTo;      ///< into settings.audio
    std::function<bool(std::int64_t packets)> wantsToProceed; ///< asked after each packet
};

/// Joins the pieces of a clip, in order, into one file, without decoding: packets as they are, with the times
/// that they would have had in one run, and the audio of the whole. Returns the finished writer, or null if
/// it was not to proceed.
Result<std::unique_ptr<iFrameWriter>> joinPieces(const std::filesystem::path& file,
                                                 const OutputSettings& settings,
                                                 const std::vector<Piece>& pieces,
                                                 const JoiningContext& context);

/// Empty, or why pieces of such a file cannot be joined, for people.
std::string whyNoPieces(const std::filesystem::path& file, const OutputSettings& settings);

} // namespace Qx::Media
