#include "tools/qxhost/farm/job/Job.h"

#include "Qx/Version.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/CommandLine.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/OutputFile.h"
#include "tools/qxhost/media/filter/FrameDependence.h"
#include "tools/qxhost/pipeline/look/LookFile.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <string_view>

namespace Qx::Program::Farm {

namespace {

namespace fs = std::filesystem;

constexpr const char* formatName = "qxhost job";
constexpr int formatVersion = 1;
constexpr const char* makeAnew = "make the job anew with 'qxhost farm make'";

/// What is wrong with a manifest.
struct Malformed
{
    std::string problem;
};

[[noreturn]] void refuse(const fs::path& manifest, const std::string& text)
{
    throw Failure(ExitCode::input, manifest.string() + ": " + text);
}

/// Whether a path from a folder stays in it, by its words.
bool staysInside(const fs::path& path)
{
    return !path.empty() && path.is_relative() &&
           std::none_of(path.begin(), path.end(), [](const fs::path& part) { return part == ".."; });
}

/// The same by where links lead. What does not exist is refused later.
bool leadsInside(const fs::path& folder, const fs::path& path)
{
    std::error_code error;
    const fs::path base = fs::canonical(folder, error);
    const fs::path real = error ? fs::path() : fs::weakly_canonical(folder / path, error);
    return !error && staysInside(real.lexically_relative(base));
}

void checkPath(const Job& job, const fs::path& path, const std::string& what, bool mayBeLink)
{
    if (!staysInside(path) || (!mayBeLink && !leadsInside(job.folder, path))) {
        refuse(job.manifest(),
               fmt::format("{} {} leaves the job's folder; everything that a job uses lies in it: {}", what,
                           Media::quoted(path), makeAnew));
    }
}

Json describe(const Segment& segment)
{
    const auto time = [](const std::optional<std::int64_t>& value) { return value ? Json(*value) : Json(); };
    return {{"begin", time(segment.begin)}, {"end", time(segment.end)}, {"preroll", time(segment.preroll)}};
}

Json describe(const Job& job)
{
    Json json{{"format", formatName},
              {"version", formatVersion},
              {"program", job.program},
              {"input", job.input.native()},
              {"output", job.output.native()},
              {"arguments", job.arguments},
              {"frames", job.frames},
              {"frameBytes", job.frameBytes},
              {"firstTime", job.pieces.front().segment.firstOfAll},
              {"origin", job.pieces.front().segment.origin}};
    json["files"] = Json::array();
    for (const HeldFile& file : job.files) {
        json["files"].push_back({{"kind", file.kind},
                                 {"path", file.path.native()},
                                 {"bytes", file.bytes},
                                 {"sha256", file.digest},
                                 {"from", file.from}});
    }
    json["pieces"] = Json::array();
    for (const PlannedPiece& piece : job.pieces) {
        Json each{{"first", piece.first}, {"frames", piece.frames}};
        each.update(describe(piece.segment));
        json["pieces"].push_back(each);
    }
    return json;
}

/// A value of a manifest. Throws Malformed.
template <class Value>
Value valueOf(const Json& json, const char* key)
{
    try {
        return json.at(key).get<Value>();
    } catch (const Json::exception&) {
        throw Malformed{fmt::format("\"{}\" is missing, or is not what it should be", key)};
    }
}

std::optional<std::int64_t> timeIn(const Json& json, const char* key)
{
    return json.contains(key) && json.at(key).is_null() ? std::nullopt
                                                        : std::optional(valueOf<std::int64_t>(json, key));
}

void take(Job& job, const Json& json)
{
    job.program = valueOf<std::string>(json, "program");
    job.input = valueOf<std::string>(json, "input");
    job.output = valueOf<std::string>(json, "output");
    job.arguments = valueOf<std::vector<std::string>>(json, "arguments");
    job.frames = valueOf<std::int64_t>(json, "frames");
    job.frameBytes = valueOf<std::int64_t>(json, "frameBytes");
    for (const Json& each : valueOf<Json::array_t>(json, "files")) {
        job.files.push_back({valueOf<std::string>(each, "kind"), valueOf<std::string>(each, "path"),
                             valueOf<std::uintmax_t>(each, "bytes"), valueOf<std::string>(each, "sha256"),
                             valueOf<std::string>(each, "from")});
    }
    for (const Json& each : valueOf<Json::array_t>(json, "pieces")) {
        PlannedPiece piece{valueOf<std::int64_t>(each, "first"), valueOf<std::int64_t>(each, "frames"), {}};
        piece.segment = {.begin = timeIn(each, "begin"),
                         .end = timeIn(each, "end"),
                         .preroll = timeIn(each, "preroll"),
                         .frames = piece.frames,
                         .firstOfAll = valueOf<std::int64_t>(json, "firstTime"),
                         .origin = valueOf<std::int64_t>(json, "origin")};
        job.pieces.push_back(piece);
    }
}

/// The pieces must be all frames, each once.
void checkPieces(const Job& job)
{
    std::int64_t next = 0;
    std::optional<std::int64_t> end;
    for (std::size_t i = 0; i < job.pieces.size(); ++i) {
        const PlannedPiece& piece = job.pieces[i];
        const bool follows = i == 0 || (piece.segment.begin && piece.segment.begin == end);
        const bool isRight = piece.first == next && piece.frames > 0 && piece.frames <= job.frames - next &&
                             follows &&
                             (!piece.segment.preroll ||
                              (piece.segment.begin && *piece.segment.preroll < *piece.segment.begin));
        if (!isRight) {
            refuse(job.manifest(),
                   fmt::format("piece {} does not follow the one before it; {}", i, makeAnew));
        }
        next += piece.frames;
        end = piece.segment.end;
    }
    constexpr std::int64_t largestFrame = std::int64_t{1} << 40U;
    if (job.frameBytes < 0 || job.frameBytes > largestFrame) {
        refuse(job.manifest(), fmt::format("frames cannot have {} bytes; {}", job.frameBytes, makeAnew));
    }
    if (job.pieces.empty() || next != job.frames) {
        refuse(job.manifest(),
               fmt::format("its pieces have {} frames, the job {}; {}", next, job.frames, makeAnew));
    }
}

/// The options whose values are files, and what is before the name in them.
constexpr std::array<std::string_view, 5> fileOptions{
    "--effect=", "--lut=", "--look=", "--font=", "--texture="};

/// The part of an argument that is a file's name; empty if it has none.
std::string_view fileIn(std::string_view argument)
{
    for (const std::string_view option : fileOptions) {
        if (argument.starts_with(option)) {
            argument.remove_prefix(option.size());
            if (option == "--texture=") {
                argument.remove_prefix(std::min(argument.find('='), argument.size() - 1) + 1);
            }
            return argument;
        }
    }
    return {};
}

bool holds(const Job& job, const fs::path& path)
{
    return std::any_of(job.files.begin(), job.files.end(),
                       [&](const HeldFile& each) { return each.path == path; });
}

Look heldLook(const Job& job, const fs::path& path)
{
    try {
        return readLook(job.folder / path);
    } catch (const Failure& failure) {
        refuse(job.manifest(), fmt::format("{}; {}", failure.what(), makeAnew));
    }
}

/// The files that a look names are the job's too.
void checkLook(const Job& job, const fs::path& path)
{
    const auto checkFile = [&](const fs::path& file) {
        const fs::path relative = file.lexically_relative(job.folder);
        checkPath(job, relative, path.string() + ": the file", false);
        if (!holds(job, relative)) {
            refuse(job.manifest(), fmt::format("{}: {} is not among its files; {}", path.string(),
                                               relative.string(), makeAnew));
        }
    };
    for (const LookLink& link : heldLook(job, path).links) {
        checkFile(link.file);
        for (const LookTexture& texture : link.textures) {
            checkFile(texture.file);
        }
    }
}

/// Options that reach beyond the job's folder, and that 'farm make' has never written.
void refuseWhatReaches(const Job& job, const std::string& argument)
{
    constexpr std::string_view before = "--before=";
    const std::string filter =
        argument.starts_with(before) ? Media::dependentFilter(argument.substr(before.size())) : "";
    const std::string option = argument.substr(0, argument.find('='));
    constexpr std::array<std::string_view, 4> others{"--after", "--preset", "--segments", "--jobs"};
    // A job that lives for one run only has no digests; its pieces may read where it was made.
    const bool isKept = std::any_of(job.files.begin(), job.files.end(),
                                    [](const HeldFile& file) { return !file.digest.empty(); });
    if (!filter.empty() || (isKept && option == "--ocio") ||
        std::find(others.begin(), others.end(), option) != others.end()) {
        refuse(job.manifest(),
               fmt::format("{} may not be in a job: what {} does may depend on other files, or "
                           "write them; {}",
                           argument, filter.empty() ? option : "the filter " + filter, makeAnew));
    }
}

void checkArguments(const Job& job)
{
    for (const std::string& argument : job.arguments) {
        if (!argument.starts_with("--")) {
            refuse(job.manifest(), "\"" + argument + "\" is no option of 'qxhost convert'; " + makeAnew);
        }
        refuseWhatReaches(job, argument);
        const std::string_view file = fileIn(argument);
        // A typeface that is in no file of its own is named.
        if (file.empty() || (argument.starts_with("--font=") && file.find('/') == std::string_view::npos)) {
            continue;
        }
        const std::string prefix = std::string(folderWord) + "/";
        const fs::path path = file.starts_with(prefix) ? file.substr(prefix.size()) : file;
        if (!file.starts_with(prefix)) {
            refuse(job.manifest(), fmt::format("{} leaves the job's folder; {}", argument, makeAnew));
        }
        checkPath(job, path, argument.substr(0, argument.find('=')), false);
        if (!holds(job, path)) {
            refuse(job.manifest(), fmt::format("{} is not among its files; {}", argument, makeAnew));
        }
        if (argument.starts_with("--look=")) {
            checkLook(job, path);
        }
    }
}

void check(const Job& job)
{
    checkPath(job, job.input, "the input", true);
    if (!staysInside(job.output) || job.output.has_parent_path()) {
        refuse(job.manifest(),
               fmt::format("the output {} leaves the job's folder; {}", Media::quoted(job.output), makeAnew));
    }
    checkPath(job, "pieces", "the folder", false);
    for (const HeldFile& file : job.files) {
        checkPath(job, file.path, "the " + file.kind, file.kind == "input");
    }
    checkArguments(job);
    checkPieces(job);
}

Json parse(const fs::path& manifest)
{
    std::error_code error;
    std::ifstream stream;
    if (fs::is_regular_file(manifest, error)) { // others may keep the reader waiting
        stream.open(manifest, std::ios::binary);
    }
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (!stream.is_open() || stream.bad()) {
        refuse(manifest,
               "cannot be read; give the job.json that 'qxhost farm make' has written, or its folder");
    }
    try {
        return Json::parse(text);
    } catch (const Json::exception& problem) {
        refuse(manifest, fmt::format("is malformed: {}; {}", problem.what(), makeAnew));
    }
}

void checkFormat(const fs::path& manifest, const Json& json)
{
    if (!json.is_object() || json.value("format", Json()) != formatName) {
        refuse(manifest, "is no manifest of a job; give the job.json that 'qxhost farm make' has written");
    }
    if (json.value("version", Json()) != formatVersion) {
        refuse(manifest, fmt::format("has version {} of manifests; this qxhost reads version {}: {}",
                                     json.value("version", Json()).dump(), formatVersion, makeAnew));
    }
    if (json.value("program", Json()) != QX_VERSION) {
        refuse(manifest,
               fmt::format("was made by qxhost {}, and this is {}; use the same one on every machine, or {}",
                           json.value("program", Json()).dump(), QX_VERSION, makeAnew));
    }
}

} // namespace

void writeWhole(const fs::path& file, const std::string& text)
{
    if (const Media::Status status = Media::OutputFile::writeWhole(file, text, true); !status) {
        throw Failure(ExitCode::output, status.text());
    }
}

Job readJob(const fs::path& file)
{
    std::error_code error;
    const fs::path manifest =
        fs::absolute(fs::is_directory(file, error) ? file / "job.json" : file).lexically_normal();
    const Json json = parse(manifest);
    Job job;
    job.folder = manifest.parent_path();
    checkFormat(manifest, json);
    try {
        take(job, json);
    } catch (const Malformed& malformed) {
        refuse(manifest, fmt::format("is malformed: {}; {}", malformed.problem, makeAnew));
    }
    check(job);
    return job;
}

void writeJob(const Job& job)
{
    try {
        writeWhole(job.manifest(), describe(job).dump(2) + "\n");
    } catch (const Json::exception&) {
        throw Failure(ExitCode::input,
                      job.input.filename().string() +
                          ": a name in this job is not UTF-8, which a manifest cannot hold; rename the file");
    }
}

ConvertOptions optionsOf(const Job& job)
{
    std::vector<std::string> words{"convert"};
    for (const std::string& argument : job.arguments) {
        const std::string_view file = fileIn(argument);
        const std::string prefix = std::string(folderWord) + "/";
        words.push_back(file.starts_with(prefix) ? argument.substr(0, argument.size() - file.size()) +
                                                       (job.folder / file.substr(prefix.size())).native()
                                                 : argument);
    }
    words.insert(words.end(), {"--", (job.folder / job.input).native(), (job.folder / job.output).native()});
    try {
        const std::unique_ptr<Command> command = parseCommandLine(words);
        return dynamic_cast<const CommandWithOptions<ConvertOptions>&>(*command).options();
    } catch (const Failure& failure) {
        refuse(job.manifest(), fmt::format("its arguments cannot be used: {}; {}", failure.what(), makeAnew));
    }
}

} // namespace Qx::Program::Farm
