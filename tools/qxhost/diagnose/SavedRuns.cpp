#include "tools/qxhost/diagnose/SavedRuns.h"

#include "host/settings/Directories.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/diagnose/ReportJson.h"
#include "tools/qxhost/media/files/OutputFile.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <system_error>
#include <vector>

namespace Qx::Diagnosis {

namespace fs = std::filesystem;

using Program::ExitCode;
using Program::Failure;

namespace {

constexpr const char* ending = ".json";
constexpr std::uintmax_t largest = std::uintmax_t{64} << 20U; ///< bytes; a run has some dozens of KiB

fs::path directory()
{
    const fs::path state = Host::userStateDirectory();
    return state.empty() ? state : state / "diagnose";
}

std::vector<fs::path> savedRuns()
{
    std::vector<fs::path> runs;
    std::error_code error;
    for (fs::directory_iterator entry(directory(), error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().extension() == ending && !entry->path().filename().string().starts_with('.')) {
            runs.push_back(entry->path());
        }
    }
    std::sort(runs.begin(), runs.end()); // their names begin with the date
    return runs;
}

std::string suggestion(const std::vector<fs::path>& runs)
{
    if (runs.empty()) {
        return "no run is kept yet; --save keeps one";
    }
    std::string text = "kept runs, the last first:";
    constexpr std::size_t most = 5;
    for (std::size_t i = 0; i < std::min(most, runs.size()); ++i) {
        text += " " + runs[runs.size() - 1 - i].stem().string();
    }
    return text;
}

fs::path fileOf(const std::string& name)
{
    const std::vector<fs::path> runs = savedRuns();
    if (name == "last") {
        if (runs.empty()) {
            throw Failure(ExitCode::input, name + ": " + suggestion(runs));
        }
        return runs.back();
    }
    std::error_code ignored;
    if (fs::exists(name, ignored)) {
        return name;
    }
    for (const fs::path& run : runs) {
        if (run.filename() == name || run.stem() == name) {
            return run;
        }
    }
    throw Failure(ExitCode::input, name + ": is neither a file nor a kept run; " + suggestion(runs));
}

std::string read(const fs::path& file)
{
    std::error_code error;
    if (!fs::is_regular_file(file, error)) {
        throw Failure(ExitCode::input, file.string() + ": is no file that holds a run");
    }
    if (fs::file_size(file, error) > largest && !error) {
        throw Failure(ExitCode::input, file.string() + ": is far too large to be a run");
    }
    std::ifstream in(file, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(in), {});
    if (!in) {
        throw Failure(ExitCode::input, file.string() + ": cannot be read");
    }
    return text;
}

} // namespace

std::string fileNameOf(const Report& report)
{
    constexpr std::size_t secondsEnd = 19; // of "2026-11-21T07:13:01+00:00"
    constexpr std::size_t longest = 40;
    std::string name = report.date.substr(0, secondsEnd) + "_";
    for (const char c : report.device.name.substr(0, report.device.name.find('('))) {
        const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (plain) {
            name += c;
        } else if (!name.ends_with('-') && !name.ends_with('_')) {
            name += '-';
        }
    }
    std::replace(name.begin(), name.end(), ':', '-');
    name = name.substr(0, longest + secondsEnd);
    name.erase(name.find_last_not_of("-_") + 1);
    return name + ending;
}

void writeFile(const fs::path& file, const std::string& text, bool force)
{
    Media::OutputFile::clearAbandoned(file);
    Media::Result<Media::OutputFile> output = Media::OutputFile::create(file, force);
    if (!output) {
        throw Failure(ExitCode::output, output.text());
    }
    if (const Media::Status status = output.value().write(text.data(), text.size()); !status) {
        throw Failure(ExitCode::output, status.text());
    }
    if (const Media::Status status = output.value().commit(); !status) {
        throw Failure(ExitCode::output, status.text());
    }
}

fs::path saveRun(const Report& report)
{
    const fs::path place = directory();
    std::error_code error;
    if (place.empty() || (fs::create_directories(place, error), error)) {
        throw Failure(
            ExitCode::output,
            fmt::format("{}: cannot be made ({}), so the run is not kept; --json FILE writes it elsewhere",
                        place.empty() ? "a directory for runs" : place.string(),
                        place.empty() ? "there is no home directory" : error.message()));
    }
    const fs::path name = fileNameOf(report);
    fs::path file = place / name;
    for (int i = 2; fs::exists(file, error); ++i) {
        file = place / fmt::format("{}_{}{}", name.stem().string(), i, ending);
    }
    writeFile(file, Program::jsonText(toJson(report)), false);
    return file;
}

NamedReport loadRun(const std::string& name)
{
    const fs::path file = fileOf(name);
    return {file.stem().string(), reportFrom(read(file), file.string())};
}

} // namespace Qx::Diagnosis
