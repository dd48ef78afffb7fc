#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/farm/job/Job.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program::Farm {

// A piece is done when its record, pieces/0003.json, and the files that it names are there. Each attempt
// writes files of its own name; the record is renamed into place last. So two attempts at the same piece, on
// two machines that know nothing of each other, leave one whole result.

/// A file of a piece.
struct PieceFile
{
    std::filesystem::path path; ///< from the folder of pieces
    std::uintmax_t bytes = 0;
    std::string digest;
};

/// What has become of a piece. Times are the input's, in its units.
struct PieceRecord
{
    std::vector<PieceFile> files; ///< several if they are pictures
    std::int64_t frames = 0;
    Media::FrameTime first;
    Media::FrameTime last;
    std::vector<std::string> problems; ///< damage of the input, a line each
    std::vector<std::string> remarks;  ///< what there is to say of the whole in the end, a line each
};

/// The last attempt that failed.
struct PieceFailure
{
    int exitCode = 0;
    std::string machine;
    std::string message;
};

/// Empty if the piece has no record, or one that cannot be used.
std::optional<PieceRecord> readRecord(const Job& job, std::size_t piece);
std::optional<PieceFailure> readFailure(const Job& job, std::size_t piece);

/// Empty if the files of a record are there; or what is wrong with them. With `digests` they are read.
std::string problemWith(const Job& job, const PieceRecord& record, bool digests);

/// Whether the record is there, with files of the right size.
bool seemsDone(const Job& job, std::size_t piece);

/// The pieces that are not.
std::vector<std::size_t> missingPieces(const Job& job);

/// What is wrong with a piece, whose files are read; empty if it is done.
std::string problemWithPiece(const Job& job, std::size_t piece);

/// The pieces that are missing or damaged; the files of the others are read.
std::vector<std::size_t> piecesToMake(const Job& job);

/// "3, 5-7".
std::string numbersText(const std::vector<std::size_t>& numbers);

/// Makes pieces, one after the other, on one host, which it starts for the first that is not done.
class PieceMaker
{
public:
    /// `device` is the value of the option --device.
    PieceMaker(const Job& job, std::string device, bool quiet, Console& console);

    /// Makes a piece, unless it is done: then nothing happens. Throws Failure, unless somebody else has made
    /// the piece meanwhile; why it failed is also kept beside the pieces, if that is possible. The next piece
    /// can be made nevertheless.
    void make(std::size_t piece);

private:
    void makeAnew(std::size_t piece);
    bool othersHaveMade(std::size_t piece);
    void settle(std::size_t piece, const Failure& failure);

    const Job& job_;
    std::string device_;
    bool quiet_;
    Console& console_;
    std::unique_ptr<HostSession> host_;
};

/// Removes from the folder of pieces what no record names. No piece may be running.
void removeLeftovers(const Job& job);

} // namespace Qx::Program::Farm
