#include "tools/qxhost/farm/pieces/Joining.h"

#include "host/files/SystemError.h"
#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/farm/job/Contents.h"
#include "tools/qxhost/farm/job/OutputKind.h"
#include "tools/qxhost/farm/pieces/Pieces.h"
#include "tools/qxhost/media/files/FileSet.h"
#include "tools/qxhost/media/files/HeldFile.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/NumberedNames.h"
#include "tools/qxhost/media/files/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <memory>
#include <numeric>
#include <set>
#include <unistd.h>
#include <vector>

namespace Qx::Program::Farm {

namespace {

namespace fs = std::filesystem;

using Records = std::vector<PieceRecord>;

fs::path joinedFile(const Job& job)
{
    return job.folder / "joined.json";
}

/// All pieces, whole. Throws Failure (input).
Records wholePieces(const Job& job)
{
    Records records;
    std::vector<std::size_t> bad;
    std::string why;
    for (std::size_t i = 0; i < job.pieces.size(); ++i) {
        if (const std::string problem = problemWithPiece(job, i); !problem.empty()) {
            bad.push_back(i);
            why += fmt::format("piece {}: {}\n", i, problem);
        } else {
            records.push_back(*readRecord(job, i));
        }
    }
    if (!bad.empty()) {
        throw Failure(
            ExitCode::input,
            fmt::format("{}: pieces {} of 0-{} are missing or damaged; 'qxhost farm resume' makes them",
                        job.manifest().string(), numbersText(bad), job.pieces.size() - 1),
            why);
    }
    return records;
}

void throwStopped(const fs::path& output)
{
    throw Failure(ExitCode::interrupted, "interrupted; " + output.string() + " was not completed");
}

void require(const Media::Status& status)
{
    if (!status) {
        throw Failure(ExitCode::output, status.text());
    }
}

/// What a job is made of, where it lies and where it came from, which its output does not replace.
std::vector<fs::path> pathsRead(const Job& job)
{
    std::vector<fs::path> paths;
    for (const HeldFile& file : job.files) {
        paths.push_back(job.folder / file.path);
        paths.emplace_back(file.from);
    }
    return paths;
}

std::shared_ptr<const Media::FileSet> filesRead(const Job& job)
{
    const auto files = std::make_shared<Media::FileSet>();
    for (const fs::path& path : pathsRead(job)) {
        files->add(path);
    }
    return files;
}

/// Appends a file of a piece, which has just been read. Throws Failure.
void append(const Job& job, const PieceFile& file, Media::OutputFile& to, const std::atomic<bool>& stopped)
{
    const fs::path from = job.pieceFolder() / file.path;
    std::uintmax_t left = file.bytes;
    std::ifstream stream(from, std::ios::binary);
    std::vector<char> part(std::size_t{4} << 20U);
    while (stream) {
        stream.read(part.data(), static_cast<std::streamsize>(part.size()));
        const auto count = static_cast<std::size_t>(stream.gcount());
        if (count > left) {
            break;
        }
        left -= count;
        require(to.write(part.data(), count));
        if (stopped) {
            throwStopped(to.file());
        }
    }
    if (!stream.eof() || left > 0) {
        throw Failure(ExitCode::input, "cannot read " + Media::quoted(from) +
                                           " as it was written: it has changed while the pieces were joined");
    }
}

void joinRaw(const Job& job, const Records& records, const ConvertOptions& options,
             const std::atomic<bool>& stopped)
{
    auto out = Media::OutputFile::create(options.output, options.force, filesRead(job));
    if (!out) {
        throw Failure(ExitCode::output, out.text());
    }
    for (const PieceRecord& record : records) {
        append(job, record.files.front(), out.value(), stopped);
    }
    require(out.value().commit());
}

/// Gives a file a name in place of what has it.
void takeName(const fs::path& from, const fs::path& to)
{
    const int error = ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    ::unlink(from.c_str()); // rename(2) leaves two names of one file alone
    if (error != 0) {
        throw Failure(ExitCode::output,
                      "cannot write " + Media::quoted(to) + ": " + Host::systemProblem(error));
    }
}

/// What joined.json says.
struct Joined
{
    fs::path file; ///< of pictures, the first
    std::uintmax_t bytes = 0;
    std::string digest; ///< empty where an earlier version has joined

    bool hasItsSize() const
    {
        std::error_code error;
        const std::uintmax_t now = fs::file_size(file, error);
        return !error && now == bytes;
    }
};

std::optional<Joined> readJoined(const Job& job)
{
    std::ifstream stream(joinedFile(job), std::ios::binary);
    const Json json = Json::parse(stream, nullptr, false);
    try {
        return Joined{job.folder / json.at("file").get<std::string>(), json.at("bytes").get<std::uintmax_t>(),
                      json.value("sha256", "")};
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

/// A picture takes its name in the sequence: the same file where the file system can do that, else a copy.
/// What had the name before stays until then.
void place(const Job& job, const PieceFile& file, const fs::path& to, bool force,
           const std::atomic<bool>& stopped)
{
    const fs::path from = job.pieceFolder() / file.path;
    const fs::path name = force ? Media::unfinishedName(to) : to;
    if (::link(from.c_str(), name.c_str()) == 0) {
        if (force) {
            takeName(name, to);
        }
        return;
    }
    if (!force && errno == EEXIST) {
        throw Failure(ExitCode::output, to.string() + ": exists; --force replaces it");
    }
    auto out = Media::OutputFile::create(to, force);
    if (!out) {
        throw Failure(ExitCode::output, out.text());
    }
    append(job, file, out.value(), stopped);
    require(out.value().commit(Media::OutputFile::DirectorySync::Later));
}

/// The numbers that the pictures get, in their order: those that the pieces gave them, if these go on from
/// piece to piece, as the numbers of a sequence do; else consecutive ones from the first.
std::vector<long> pictureNumbers(const Records& records)
{
    std::vector<long> numbers;
    for (const PieceRecord& record : records) {
        for (const PieceFile& file : record.files) {
            numbers.push_back(std::strtol(file.path.stem().c_str(), nullptr, 10));
        }
    }
    const bool goOn =
        std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()) == numbers.end();
    if (!goOn) {
        std::iota(numbers.begin(), numbers.end(), numbers.front());
    }
    return numbers;
}

/// Of each picture of the pieces, its name in the sequence.
class PictureNames
{
public:
    PictureNames(const Records& records, const fs::path& output)
        : output_(output), names_(output), numbers_(pictureNumbers(records)), next_(numbers_.begin())
    {
    }

    const std::vector<long>& numbers() const { return numbers_; }
    fs::path of(long number) const
    {
        const bool isOne = numbers_.size() == 1 && !names_.isPattern();
        return isOne ? output_ : names_.name(number);
    }
    fs::path first() const { return of(numbers_.front()); }
    fs::path takeNext() { return of(*next_++); }

private:
    fs::path output_;
    Media::NumberedNames names_;
    std::vector<long> numbers_;
    std::vector<long>::const_iterator next_;
};

/// What is wrong with the first joined picture that is not the piece's.
std::string problemWithPictures(const Records& records, const fs::path& output)
{
    PictureNames names(records, output);
    for (const PieceRecord& record : records) {
        for (const PieceFile& file : record.files) {
            const fs::path name = names.takeNext();
            std::error_code error;
            if (!fs::is_regular_file(name, error) || digestOf(name) != file.digest) {
                return name.filename().string() + ": is missing or damaged: it is not what was written";
            }
        }
    }
    return {};
}

void joinPictures(const Job& job, const Records& records, const ConvertOptions& options,
                  const std::atomic<bool>& stopped)
{
    PictureNames names(records, options.output);
    const auto kept = filesRead(job);
    std::error_code error;
    for (const long number : names.numbers()) {
        const fs::path name = names.of(number);
        if (kept->contains(name)) {
            throw Failure(ExitCode::output, Media::OutputFile::wouldReplaceInput(name, *kept).text);
        }
        if (!options.force && fs::exists(name, error)) {
            throw Failure(ExitCode::output, name.string() + ": exists; --force replaces it");
        }
    }
    for (const PieceRecord& record : records) {
        for (const PieceFile& file : record.files) {
            place(job, file, names.takeNext(), options.force, stopped);
            if (stopped) {
                throwStopped(options.output);
            }
        }
    }
    require(Media::OutputFile::syncDirectory(names.first()));
}

std::vector<Media::Piece> clipPieces(const Job& job, const Records& records)
{
    std::vector<Media::Piece> pieces;
    for (const PieceRecord& record : records) {
        pieces.push_back(
            {job.pieceFolder() / record.files.front().path, record.frames, record.first, record.last});
    }
    return pieces;
}

void joinAs(OutputKind kind, const Job& job, const Records& records, const ConvertOptions& options,
            const std::atomic<bool>& stopped, Console& console)
{
    if (kind == OutputKind::clip) {
        joinSegments(options, clipPieces(job, records), pathsRead(job), stopped, console);
        return;
    }
    if (kind == OutputKind::rawFile) {
        joinRaw(job, records, options, stopped);
    } else {
        joinPictures(job, records, options, stopped);
    }
}

/// What is told of the input in one run is told here, once all is joined.
ExitCode tellProblems(const Job& job, const Records& records, const fs::path& output, Console& console)
{
    std::set<std::string> remarks;
    for (const PieceRecord& record : records) {
        remarks.insert(record.remarks.begin(), record.remarks.end());
    }
    for (const std::string& remark : remarks) {
        console.note(remark);
    }
    bool isWhole = true;
    for (std::size_t i = 0; i < records.size(); ++i) {
        for (const std::string& problem : records[i].problems) {
            console.error(fmt::format("piece {}: {}", i, problem));
            isWhole = false;
        }
    }
    if (!isWhole) {
        console.error(job.input.filename().string() + ": is damaged or incomplete; " + output.string() +
                      " holds what could be read of it");
    }
    return isWhole ? ExitCode::ok : ExitCode::input;
}

fs::path firstFile(OutputKind kind, const fs::path& output, const Records& records)
{
    return kind != OutputKind::pictures ? output : PictureNames(records, output).first();
}

} // namespace

bool isJoined(const Job& job)
{
    const std::optional<Joined> joined = readJoined(job);
    return joined && joined->hasItsSize();
}

std::string problemWithJoined(const Job& job)
{
    const std::optional<Joined> joined = readJoined(job);
    if (!joined) {
        return {};
    }
    if (!joined->hasItsSize()) {
        return joined->file.filename().string() + ": is missing, or not of the size that it was written with";
    }
    const ConvertOptions options = optionsOf(job);
    if (kindOf(options) != OutputKind::pictures) {
        return joined->digest.empty() || digestOf(joined->file) == joined->digest
                   ? ""
                   : joined->file.filename().string() + ": is damaged: it is not what was written";
    }
    Records records;
    for (std::size_t i = 0; i < job.pieces.size(); ++i) {
        const auto record = readRecord(job, i);
        if (!record) {
            return {};
        }
        records.push_back(*record);
    }
    return problemWithPictures(records, options.output);
}

ExitCode joinJob(const Job& job, const JoinOptions& wanted, const std::atomic<bool>& stopped,
                 Console& console)
{
    console.setQuiet(wanted.quiet);
    if (wanted.output.empty() && !wanted.force && isJoined(job)) {
        console.note(
            fmt::format("{}: is joined already; --force joins it again", (job.folder / job.output).string()));
        return ExitCode::ok;
    }
    checkContents(job, Reading::whatChanged, &stopped);
    const Records records = wholePieces(job);
    ConvertOptions options = optionsOf(job);
    const OutputKind kind = kindOf(options);
    options.output = wanted.output.empty() ? job.folder / job.output : wanted.output;
    if (options.output.extension() != job.output.extension()) {
        throw Failure(ExitCode::output, options.output.string() + ": the pieces are made for " +
                                            job.output.extension().string() +
                                            " files; choose a name that ends so");
    }
    // In the job's folder there can only be what a join has left that was killed before it could note it.
    options.force = wanted.force || wanted.output.empty();
    options.quiet = wanted.quiet;
    joinAs(kind, job, records, options, stopped, console);
    if (wanted.output.empty()) {
        const fs::path first = firstFile(kind, options.output, records);
        writeWhole(joinedFile(job), jsonText({{"file", first.filename().native()},
                                              {"bytes", fs::file_size(first)},
                                              {"sha256", digestOf(first)}}));
    }
    removeLeftovers(job);
    return tellProblems(job, records, options.output, console);
}

} // namespace Qx::Program::Farm
