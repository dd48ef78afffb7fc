#include "tools/qxhost/pipeline/effects/LutFile.h"

#include "host/core/AsciiCase.h"
#include "host/settings/Directories.h"
#include "lut/LUTManager.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/Log.h"
#include "platform/OS.h"
#include "platform/Settings.h"
#include "platform/Text.h"
#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <string_view>
#include <unistd.h>

namespace Qx::Program {

namespace {

std::filesystem::path asPath(const LightweightString<wchar_t>& text)
{
    return std::filesystem::path(std::string(toUTF8(text).view()));
}

LightweightString<wchar_t> asText(const std::filesystem::path& path)
{
    return fromUTF8(LightweightString<char>(std::string_view(path.native())));
}

/// As the catalogue reads it, without the dot.
std::string extensionOf(const std::filesystem::path& file)
{
    return std::string(toUTF8(getExtension(asText(file))).view());
}

bool isLutExtension(const std::string& extension)
{
    const std::vector<std::string> known = Host::lutExtensions();
    return std::find(known.begin(), known.end(), extension) != known.end();
}

/// Of what the option read; `name` is what a failure of the device names.
LutOnGpu uploaded(const Host::LUTReading& reading, const char* option, const std::string& name)
{
    if (reading.steps.empty()) {
        Log("%s\n", reading.failure.c_str());
        throw Failure(ExitCode::effect, option + reading.failure);
    }
    const Qx::Ptr<iHostImage3D> table = Host::singleTable(reading.steps);
    LutOnGpu lut{OS().gpu().upload3DImage(table ? table : Host::packed(reading.steps)),
                 Host::techniqueFor(reading.steps)};
    if (!lut.image) {
        throw Failure(ExitCode::effect, name + ": not enough GPU memory for this LUT");
    }
    return lut;
}

/// The text as a file among the user's caches, by its contents: the compiled effect is then found again.
std::filesystem::path keptEffect(const std::string& text)
{
    const std::filesystem::path folder = Host::userCacheDirectory() / "colour-spaces";
    const std::filesystem::path file = folder / fmt::format("{:016x}.fx", std::hash<std::string>()(text));
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const std::filesystem::path part = folder / fmt::format(".{}.{}", file.filename().string(), ::getpid());
    std::ofstream stream(part, std::ios::binary);
    stream << text;
    stream.close();
    std::filesystem::rename(part, file, error);
    if (!stream || error) {
        std::filesystem::remove(part, error);
        throw Failure(ExitCode::effect,
                      "--ocio: cannot write " + file.string() +
                          ", the effect that draws the change; is the disk full? XDG_CACHE_HOME "
                          "names another place");
    }
    return file;
}

} // namespace

std::filesystem::path lutPath(const std::string& nameOrPath)
{
    std::error_code ignored;
    if (std::filesystem::exists(nameOrPath, ignored)) {
        return nameOrPath;
    }
    for (const std::filesystem::path& file : listedLuts()) {
        if (file.filename() == nameOrPath) {
            return file;
        }
    }
    return nameOrPath;
}

LutOnGpu obtainLut(const std::string& nameOrPath, Host::LUTInput input)
{
    const std::filesystem::path file = lutPath(nameOrPath);
    return uploaded(Host::readLUT(file, input), "--lut ", file.string());
}

ColourSpaceDrawing obtainColourSpaceChange(const Host::ColourSpaceChange& change,
                                           std::vector<std::string>& warnings, Host::LUTInput input)
{
    const Host::ColourSpaceReading reading = Host::readColourSpaceChange(change, input);
    if (!reading.effect.empty()) {
        return keptEffect(reading.effect);
    }
    if (reading.steps.error > Host::largestLUTError) {
        warnings.push_back(fmt::format("--ocio {}: colours may be off by {}: it holds {}", wordsOf(change),
                                       Host::lutErrorInCodes(reading.steps.error),
                                       reading.steps.facts.contents));
    }
    return uploaded(reading.steps, "--ocio ", wordsOf(change));
}

std::string wordsOf(const Host::ColourSpaceChange& change)
{
    const std::string display =
        change.display + (change.display.empty() || change.view.empty() ? "" : ", " + change.view);
    return fmt::format("{}: {} to {}", change.config.string(), change.from.empty() ? display : change.from,
                       change.to.empty() ? display : change.to);
}

Host::LUTReading readLut(const std::string& nameOrPath)
{
    Host::LUTReading reading = Host::readLUT(lutPath(nameOrPath));
    if (reading.steps.empty()) {
        throw Failure(ExitCode::input, reading.failure);
    }
    return reading;
}

std::vector<std::filesystem::path> listedLuts()
{
    std::vector<std::filesystem::path> files;
    const LightweightVector<LightweightString<wchar_t>> luts = LUTManager::instance().getLUTs();
    for (std::size_t i = 0; i < luts.size(); ++i) {
        files.push_back(asPath(luts[i]));
    }
    return files;
}

std::vector<std::filesystem::path> lutDirectories()
{
    return {asPath(getLUTDirectory(iSettings::User)), asPath(getLUTDirectory(iSettings::Machine))};
}

bool hasLutExtension(const std::filesystem::path& file)
{
    return isLutExtension(Host::asciiLower(extensionOf(file)));
}

std::string whyNotListed(const std::filesystem::path& file)
{
    const std::string ending = extensionOf(file);
    if (isLutExtension(ending)) {
        return {};
    }
    if (hasLutExtension(file)) {
        return "the catalogue lists lower-case extensions only; rename it to ." + Host::asciiLower(ending);
    }
    return ending.empty() ? "its name has no extension" : "unknown LUT extension ." + ending;
}

} // namespace Qx::Program
