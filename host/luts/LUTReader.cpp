#include "host/luts/LUTReader.h"
#include "host/files/SystemError.h"

#include "host/core/AsciiCase.h"
#include "host/core/Printable.h"
#include "host/files/ReadFile.h"
#include "host/luts/Baking.h"
#include "host/luts/ColourIOFile.h"
#include "host/luts/CubeFile.h"
#include "host/luts/Source.h"
#include "host/luts/StepBuilding.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <exception>
#include <fmt/format.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Host {

namespace {

using namespace Luts;

std::string extensionOf(const std::filesystem::path& file)
{
    const std::string name = file.filename().native();
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::string() : asciiLower(name.substr(dot + 1));
}

/// Why the file cannot be read at all; empty if it can. Opening anything but a regular file may block for
/// ever, so that is checked first.
std::string obstacle(const std::filesystem::path& file)
{
    struct stat status = {};
    if (::stat(file.c_str(), &status) != 0) {
        return errno == ENOENT ? "there is no such file" : systemProblem(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return "this is a directory, not a LUT file";
    }
    if (!S_ISREG(status.st_mode)) {
        return "this is not a regular file (a pipe, socket or device)";
    }
    if (status.st_size == 0) {
        return "the file is empty";
    }
    if (static_cast<std::uint64_t>(status.st_size) > mostLUTBytes) {
        return "the file has " + std::to_string(status.st_size) + " bytes: expected at most " +
               std::to_string(mostLUTBytes);
    }
    return ::access(file.c_str(), R_OK) == 0 ? std::string() : systemProblem(errno);
}

std::string curvesOf(std::size_t points)
{
    return "curves of " + std::to_string(points) + " points";
}

std::string tableOf(int edge)
{
    return "a 3D table of " + std::to_string(edge) + " points an edge";
}

std::optional<Source> readCube(std::string_view text, Refusal& refusal)
{
    const std::optional<CubeFile> cube = parseCube(text, refusal);
    if (!cube) {
        return std::nullopt;
    }
    Source source;
    source.facts.title = printable(cube->title);
    source.facts.remarks = cube->remarks;
    if (!cube->curves.empty()) {
        source.facts.contents = curvesOf(cube->curves.size());
        source.domain = cube->curvesDomain;
        source.sizes.push_back(static_cast<int>(cube->curves.size()));
        source.knots = cube->curves.size();
        LUTCurves curves;
        curves.points = cube->curves;
        curves.domain = cube->curvesDomain;
        source.parts.emplace_back(LUTStep(std::move(curves)));
    }
    if (cube->table) {
        source.facts.contents += (cube->curves.empty() ? "" : ", then ") + tableOf(cube->table->getSize());
        source.sizes.push_back(cube->table->getSize());
        source.parts.emplace_back(LUTStep(LUTTable{cube->table, false}));
        if (cube->curves.empty()) {
            source.table = cube->table;
        }
    }
    source.evaluate = [cube = *cube](Colour* colours, std::size_t count) {
        if (!cube.curves.empty()) {
            throughCurves(cube, colours, count);
        }
        for (std::size_t i = 0; i < count && cube.table; ++i) {
            colours[i] = lookUp(*cube.table, colours[i]);
        }
    };
    return source;
}

std::optional<Source> readAny(const std::filesystem::path& file, Wanted wanted, Refusal& refusal)
{
    const std::string extension = extensionOf(file);
    const std::vector<std::string> known = lutExtensions();
    refusal.cause = obstacle(file);
    if (refusal.cause.empty() && std::find(known.begin(), known.end(), extension) == known.end()) {
        refusal.cause = extension.empty() ? "the name has no extension"
                                          : "unknown LUT extension ." + printable(extension);
    }
    if (!refusal.cause.empty()) {
        return std::nullopt;
    }
    const std::optional<std::string> text = readFile(file, mostLUTBytes);
    if (!text) {
        refusal.cause = "it cannot be read";
        return std::nullopt;
    }
    return extension == "cube"
               ? readCube(*text, refusal)
               : readThroughColourIO(file.filename().native(), extension, *text, wanted, refusal);
}

std::optional<LUTReading> asSteps(const Source& source, Refusal& refusal)
{
    return readingOf(source, {largestLUTError, LUTInput::Codes}, refusal);
}

std::optional<LUTReading> asStepsOfFloats(const Source& source, Refusal& refusal)
{
    return readingOf(source, {largestLUTError, LUTInput::Floats}, refusal);
}

std::optional<LUTTableReading> asTable(const Source& source, Refusal& refusal)
{
    LUTTableReading reading;
    reading.facts = source.facts;
    reading.table = source.table;
    if (source.table) {
        return reading;
    }
    const Baked baked = bake(source.evaluate, source.domain, source.sizes, source.knots);
    if (!std::isfinite(baked.error)) {
        refusal.cause = "some of its colours are not finite, or too large";
        return std::nullopt;
    }
    reading.baked = true;
    reading.error = baked.error;
    reading.table = baked.table;
    return reading;
}

std::string failureText(const std::filesystem::path& file, const Refusal& refusal)
{
    const std::string line = refusal.line > 0 ? ":" + std::to_string(refusal.line) : "";
    return printable(file.native()) + line + ": " + refusal.cause;
}

/// Reads the file and gives `use` what was found; the failure if either has one.
template <class Reading>
Reading readInto(const std::filesystem::path& file, Wanted wanted,
                 std::optional<Reading> (*use)(const Source& source, Refusal& refusal))
{
    Reading failed;
    try {
        Refusal refusal;
        try {
            if (const std::optional<Source> source = readAny(file, wanted, refusal)) {
                if (std::optional<Reading> reading = use(*source, refusal)) {
                    return *std::move(reading);
                }
            }
        } catch (const std::exception& failure) {
            refusal = {0, failure.what()};
        }
        failed.failure = failureText(file, refusal);
    } catch (const std::exception&) {
        failed.failure = "out of memory"; // short enough to need none itself
    }
    return failed;
}

} // namespace

LUTReading readLUT(const std::filesystem::path& file, LUTInput input)
{
    return readInto(file, Wanted::Steps, input == LUTInput::Codes ? asSteps : asStepsOfFloats);
}

LUTReading readLUT(const std::filesystem::path& file)
{
    return readLUT(file, LUTInput::Codes);
}

LUTTableReading readLUTTable(const std::filesystem::path& file)
{
    return readInto(file, Wanted::Table, asTable);
}

std::string lutErrorInCodes(double error)
{
    const double codes = error * 1023.0;
    return (codes < 10.0 ? fmt::format("{:.2g}", codes) : fmt::format("{:.0f}", codes)) + " codes of 10 bits";
}

std::vector<std::string> lutExtensions()
{
    std::vector<std::string> extensions = colourIOExtensions();
    if (std::find(extensions.begin(), extensions.end(), "cube") == extensions.end()) {
        extensions.emplace_back("cube");
    }
    std::sort(extensions.begin(), extensions.end());
    return extensions;
}

} // namespace Qx::Host
