#include "host/luts/LUTReader.h"

#include "host/core/AsciiCase.h"
#include "host/core/Printable.h"
#include "host/files/ReadFile.h"
#include "host/luts/Baking.h"
#include "host/luts/ColourIOFile.h"
#include "host/luts/CubeFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <exception>
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
        return errno == ENOENT ? "there is no such file" : std::generic_category().message(errno);
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
    return ::access(file.c_str(), R_OK) == 0 ? std::string() : std::generic_category().message(errno);
}

std::string curvesOf(std::size_t points)
{
    return "curves of " + std::to_string(points) + " points";
}

std::string tableOf(int edge)
{
    return "a 3D table of " + std::to_string(edge) + " points an edge";
}

std::optional<LUTReading> readCube(std::string_view text, Refusal& refusal)
{
    const std::optional<CubeFile> cube = parseCube(text, refusal);
    if (!cube) {
        return std::nullopt;
    }
    LUTReading reading;
    reading.facts.title = printable(cube->title);
    reading.facts.remarks = cube->remarks;
    if (cube->curves.empty()) {
        reading.facts.contents = tableOf(cube->table->getSize());
        reading.table = cube->table;
        return reading;
    }
    reading.facts.contents = curvesOf(cube->curves.size());
    std::vector<int> sizes{static_cast<int>(cube->curves.size())};
    if (cube->table) {
        reading.facts.contents += ", then " + tableOf(cube->table->getSize());
        sizes.push_back(cube->table->getSize());
    }
    const Evaluation evaluate = [&cube](Colour* colours, std::size_t count) {
        throughCurves(*cube, colours, count);
        for (std::size_t i = 0; i < count && cube->table; ++i) {
            colours[i] = lookUp(*cube->table, colours[i]);
        }
    };
    const Baked baked = bake(evaluate, cube->curvesDomain, sizes, cube->curves.size());
    if (!std::isfinite(baked.error)) {
        refusal.cause = "its numbers are too large";
        return std::nullopt;
    }
    reading.facts.baked = true;
    reading.facts.error = baked.error;
    reading.table = baked.table;
    return reading;
}

std::optional<LUTReading> readAny(const std::filesystem::path& file, Refusal& refusal)
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
    return extension == "cube" ? readCube(*text, refusal) : readThroughColourIO(file, *text, refusal);
}

std::string failureText(const std::filesystem::path& file, const Refusal& refusal)
{
    const std::string line = refusal.line > 0 ? ":" + std::to_string(refusal.line) : "";
    return printable(file.native()) + line + ": " + refusal.cause;
}

} // namespace

LUTReading readLUT(const std::filesystem::path& file)
{
    Refusal refusal;
    try {
        if (std::optional<LUTReading> reading = readAny(file, refusal)) {
            return *reading;
        }
    } catch (const std::exception& failure) {
        refusal = {0, failure.what()};
    }
    LUTReading failed;
    failed.failure = failureText(file, refusal);
    return failed;
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
