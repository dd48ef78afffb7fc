#pragma once

#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program::Farm {

/// A file that a job reads, with its content. It lies in the job's folder; that of an input may be a link.
struct HeldFile
{
    std::string kind;           ///< "input", "effect", "LUT", "texture" or "font"
    std::filesystem::path path; ///< from the job's folder
    std::uintmax_t bytes = 0;
    std::string digest; ///< SHA-256 in hexadecimal digits; empty in a job that lives for one run only
    std::string from;   ///< where it came from, for people
};

/// A part of the conversion.
struct PlannedPiece
{
    std::int64_t first = 0;  ///< number of its first frame among those that are converted, from 0
    std::int64_t frames = 0; ///< by the input's word; damage may leave fewer
    Segment segment;
};

/// A conversion in pieces, as its manifest job.json says. The manifest never changes once it is made: what is
/// done is told by the files of the pieces.
struct Job
{
    std::filesystem::path folder;       ///< absolute
    std::string program;                ///< the version of qxhost that has made it
    std::filesystem::path input;        ///< from the folder; may be the pattern of a sequence
    std::filesystem::path output;       ///< its name in the folder
    std::vector<std::string> arguments; ///< of "qxhost convert"; "{job}" begins the files of the folder
    std::vector<HeldFile> files;
    std::int64_t frames = 0;
    std::int64_t frameBytes = 0; ///< of a frame in memory, at most
    std::vector<PlannedPiece> pieces;

    std::filesystem::path manifest() const { return folder / "job.json"; }
    std::filesystem::path pieceFolder() const { return folder / "pieces"; }
    std::filesystem::path logFolder() const { return folder / "logs"; }
};

/// What stands for the job's folder in its arguments.
constexpr const char* folderWord = "{job}";

/// Reads a manifest; `file` is it or its folder. Throws Failure (input) if it is missing, malformed, of
/// another version, or names a file outside its folder, with what to do.
Job readJob(const std::filesystem::path& file);

/// Writes the manifest into the job's folder. Throws Failure (output).
void writeJob(const Job& job);

/// The options of the whole conversion, with the job's files and output. Throws Failure (input).
ConvertOptions optionsOf(const Job& job);

/// Writes a small file aside and gives it its name, synced. Throws Failure (output).
void writeWhole(const std::filesystem::path& file, const std::string& text);

} // namespace Qx::Program::Farm
