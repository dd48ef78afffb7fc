#include "tools/qxhost/farm/pieces/Pieces.h"

#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/farm/job/Contents.h"
#include "tools/qxhost/farm/job/OutputKind.h"
#include "tools/qxhost/media/files/Names.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <random>
#include <set>
#include <unistd.h>

namespace Qx::Program::Farm {

namespace {

namespace fs = std::filesystem;

constexpr int recordVersion = 1;

fs::path recordFile(const Job& job, std::size_t piece)
{
    return job.pieceFolder() / fmt::format("{:04}.json", piece);
}

fs::path failureFile(const Job& job, std::size_t piece)
{
    return job.pieceFolder() / fmt::format("{:04}.failed.json", piece);
}

/// A name that no other attempt has.
std::string attemptName(std::size_t piece)
{
    std::random_device random;
    return fmt::format("{:04}-{:08x}{:08x}", piece, random(), random());
}

/// A node's name where Slurm has several on one machine.
std::string machineName()
{
    if (const char* node = std::getenv("SLURMD_NODENAME"); node != nullptr && *node != '\0') {
        return node;
    }
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "unknown";
}

Json describe(const Media::FrameTime& time)
{
    return {{"time", time.pts}, {"duration", time.duration}};
}

Media::FrameTime timeOf(const Json& json)
{
    return {.pts = json.at("time").get<std::int64_t>(), .duration = json.at("duration").get<std::int64_t>()};
}

Json describe(const PieceRecord& record, std::size_t piece)
{
    Json json{{"version", recordVersion},      {"piece", piece},
              {"frames", record.frames},       {"first", describe(record.first)},
              {"last", describe(record.last)}, {"problems", record.problems},
              {"remarks", record.remarks},     {"machine", machineName()}};
    json["files"] = Json::array();
    for (const PieceFile& file : record.files) {
        json["files"].push_back(
            {{"path", file.path.native()}, {"bytes", file.bytes}, {"sha256", file.digest}});
    }
    return json;
}

PieceRecord recordOf(const Json& json)
{
    PieceRecord record{.files = {},
                       .frames = json.at("frames").get<std::int64_t>(),
                       .first = timeOf(json.at("first")),
                       .last = timeOf(json.at("last")),
                       .problems = json.at("problems").get<std::vector<std::string>>(),
                       .remarks = json.at("remarks").get<std::vector<std::string>>()};
    for (const Json& each : json.at("files")) {
        record.files.push_back({each.at("path").get<std::string>(), each.at("bytes").get<std::uintmax_t>(),
                                each.at("sha256").get<std::string>()});
    }
    return record;
}

std::optional<Json> readJson(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    Json json = Json::parse(stream, nullptr, false);
    return json.is_object() ? std::optional(std::move(json)) : std::nullopt;
}

/// What an attempt writes; removed in the end unless it is kept.
class Attempt
{
public:
    Attempt(const Job& job, std::size_t piece, OutputKind kind)
        : folder_(job.pieceFolder()),
          name_(attemptName(piece)),
          kind_(kind),
          extension_(job.output.extension())
    {
        if (kind_ == OutputKind::pictures) {
            fs::create_directory(folder_ / name_);
        }
    }
    ~Attempt()
    {
        std::error_code ignored;
        if (!isKept_) {
            fs::remove_all(folder_ / (kind_ == OutputKind::pictures ? name_ : name_ + extension_.native()),
                           ignored);
        }
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;

    fs::path output() const
    {
        return kind_ == OutputKind::pictures ? folder_ / name_ / ("%08d" + extension_.native())
                                             : folder_ / (name_ + extension_.native());
    }

    /// In order, with their digests.
    std::vector<PieceFile> files() const
    {
        std::vector<fs::path> paths;
        if (kind_ != OutputKind::pictures) {
            paths.push_back(name_ + extension_.native());
        } else {
            for (const fs::directory_entry& entry : fs::directory_iterator(folder_ / name_)) {
                paths.push_back(fs::path(name_) / entry.path().filename());
            }
            std::sort(paths.begin(), paths.end());
        }
        std::vector<PieceFile> files;
        for (const fs::path& path : paths) {
            files.push_back({path, fs::file_size(folder_ / path), digestOf(folder_ / path)});
        }
        return files;
    }

    void keep() { isKept_ = true; }

private:
    fs::path folder_;
    std::string name_;
    OutputKind kind_;
    fs::path extension_;
    bool isKept_ = false;
};

ConvertOptions optionsOfPiece(const Job& job, std::size_t piece)
{
    ConvertOptions options = optionsOf(job);
    options.segment = job.pieces[piece].segment;
    options.audio = false;
    options.force = true;
    return options;
}

/// What could not be joined is better known now.
void requireJoinable(const fs::path& file, std::int64_t frames)
{
    const auto content = Media::examinePiece(file);
    if (!content) {
        throw Failure(ExitCode::output, content.text());
    }
    if (content.value().packets != frames) {
        throw Failure(
            ExitCode::output,
            fmt::format("{} has {} packets for {} frames; pieces of this codec and container cannot be "
                        "joined, use another",
                        file.string(), content.value().packets, frames));
    }
}

void keepFailure(const Job& job, std::size_t piece, const Failure& failure)
{
    try {
        writeWhole(failureFile(job, piece), jsonText({{"exitCode", static_cast<int>(failure.code())},
                                                      {"machine", machineName()},
                                                      {"message", failure.what()}}));
    } catch (const Failure&) {
        // The disk is full, say. The log has the message too.
    }
}

} // namespace

std::optional<PieceRecord> readRecord(const Job& job, std::size_t piece)
{
    const auto json = readJson(recordFile(job, piece));
    try {
        const bool isRight = json && json->value("version", 0) == recordVersion && json->at("piece") == piece;
        return isRight ? std::optional(recordOf(*json)) : std::nullopt;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

std::optional<PieceFailure> readFailure(const Job& job, std::size_t piece)
{
    const auto json = readJson(failureFile(job, piece));
    try {
        return json ? std::optional(PieceFailure{json->at("exitCode").get<int>(),
                                                 json->at("machine").get<std::string>(),
                                                 json->at("message").get<std::string>()})
                    : std::nullopt;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

std::string problemWith(const Job& job, const PieceRecord& record, bool digests)
{
    for (const PieceFile& file : record.files) {
        const fs::path path = job.pieceFolder() / file.path;
        const bool isPlain = file.path.is_relative() && file.path.lexically_normal() == file.path &&
                             *file.path.begin() != "..";
        std::error_code error;
        if (!isPlain) {
            return Media::quoted(file.path) + " leaves the folder of pieces";
        }
        if (!fs::is_regular_file(path, error)) {
            return Media::quoted(path) + " is missing";
        }
        if (fs::file_size(path, error) != file.bytes || error || (digests && digestOf(path) != file.digest)) {
            return Media::quoted(path) + " is damaged: it is not what was written";
        }
    }
    return record.files.empty() ? "its record names no file" : "";
}

bool seemsDone(const Job& job, std::size_t piece)
{
    const auto record = readRecord(job, piece);
    return record && problemWith(job, *record, false).empty();
}

std::vector<std::size_t> missingPieces(const Job& job)
{
    std::vector<std::size_t> missing;
    for (std::size_t i = 0; i < job.pieces.size(); ++i) {
        if (!seemsDone(job, i)) {
            missing.push_back(i);
        }
    }
    return missing;
}

std::string problemWithPiece(const Job& job, std::size_t piece)
{
    const auto record = readRecord(job, piece);
    return record ? problemWith(job, *record, true) : "is not done";
}

std::vector<std::size_t> piecesToMake(const Job& job)
{
    std::vector<std::size_t> pieces;
    for (std::size_t i = 0; i < job.pieces.size(); ++i) {
        if (!problemWithPiece(job, i).empty()) {
            pieces.push_back(i);
        }
    }
    return pieces;
}

std::string numbersText(const std::vector<std::size_t>& numbers)
{
    std::string text;
    for (std::size_t i = 0; i < numbers.size();) {
        std::size_t last = i;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) {
            ++last;
        }
        text += (text.empty() ? "" : ",") + std::to_string(numbers[i]) +
                (last > i ? "-" + std::to_string(numbers[last]) : "");
        i = last + 1;
    }
    return text;
}

PieceMaker::PieceMaker(const Job& job, std::string device, bool quiet, Console& console)
    : job_(job), device_(std::move(device)), quiet_(quiet), console_(console)
{
    console_.setQuiet(quiet_);
}

void PieceMaker::make(std::size_t piece)
{
    if (const auto record = readRecord(job_, piece)) {
        const std::string problem = problemWith(job_, *record, true);
        if (problem.empty()) {
            console_.note(fmt::format("piece {} is done", piece));
            return;
        }
        console_.note(fmt::format("piece {} is made again: {}", piece, problem));
    }
    try {
        makeAnew(piece);
    } catch (const Failure& failure) {
        settle(piece, failure);
    } catch (const fs::filesystem_error& error) {
        settle(piece, Failure(ExitCode::output, error.what()));
    }
}

bool PieceMaker::othersHaveMade(std::size_t piece)
{
    const auto record = readRecord(job_, piece);
    const bool isDone = record && problemWith(job_, *record, true).empty();
    if (isDone) {
        console_.note(fmt::format("piece {} has been made by somebody else meanwhile", piece));
    }
    return isDone;
}

void PieceMaker::settle(std::size_t piece, const Failure& failure)
{
    if (failure.code() == ExitCode::interrupted) {
        throw failure;
    }
    // Their join has removed what was written here, say.
    if (!othersHaveMade(piece)) {
        keepFailure(job_, piece, failure);
        throw failure;
    }
}

void PieceMaker::makeAnew(std::size_t piece)
{
    checkContents(job_, Reading::whatChanged);
    ConvertOptions options = optionsOfPiece(job_, piece);
    const OutputKind kind = kindOf(options);
    Attempt attempt(job_, piece, kind);
    options.output = attempt.output();
    options.device = device_;
    options.quiet = quiet_;
    const ConvertedSegment made = convertSegment(options, host_, console_);
    if (kind == OutputKind::clip) {
        requireJoinable(options.output, made.frames);
    }
    PieceRecord record{.files = attempt.files(),
                       .frames = made.frames,
                       .first = made.first,
                       .last = made.last,
                       .problems = made.problems,
                       .remarks = made.remarks};
    if (othersHaveMade(piece)) {
        return;
    }
    writeWhole(recordFile(job_, piece), jsonText(describe(record, piece)));
    attempt.keep();
    std::error_code ignored;
    fs::remove(failureFile(job_, piece), ignored);
}

void removeLeftovers(const Job& job)
{
    std::set<fs::path> named;
    for (std::size_t i = 0; i < job.pieces.size(); ++i) {
        named.insert(recordFile(job, i).filename());
        named.insert(failureFile(job, i).filename());
        if (const auto record = readRecord(job, i)) {
            for (const PieceFile& file : record->files) {
                named.insert(*file.path.begin());
            }
        }
    }
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(job.pieceFolder(), error)) {
        if (!named.contains(entry.path().filename())) {
            std::error_code ignored;
            fs::remove_all(entry.path(), ignored);
        }
    }
}

} // namespace Qx::Program::Farm
