#include "tools/qxhost/studio/session/NamedLinks.h"

#include "QxFxResources/Manager.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"

#include <fstream>

namespace Qx::Program::Studio {

namespace {

/// Text has no bytes of 0. Clips and pictures have.
bool isText(const std::filesystem::path& file)
{
    constexpr std::size_t enough = 65536;
    std::string bytes(enough, ' ');
    std::ifstream in(file, std::ios::binary);
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes.find('\0') == std::string::npos;
}

} // namespace

LookLink linkNamed(const std::string& word)
{
    LookLink link;
    link.kind = hasLutExtension(word) ? LookLink::Kind::lut : LookLink::Kind::effect;
    link.file = word;
    std::error_code error;
    const bool isLut = link.kind == LookLink::Kind::lut;
    const bool isPath = isLut ? std::filesystem::is_regular_file(word, error) : !isCatalogued(word);
    if (isPath) {
        if (!isLut && !std::filesystem::is_regular_file(word, error)) {
            static_cast<void>(obtainEffect(word)); // says which there are
        }
        if (!isLut && !isText(word)) {
            throw Failure(
                ExitCode::effect,
                word + ": is no effect and no LUT; expected the text of an effect, such as cc3.fx, or a "
                       "LUT, such as film.cube. One clip is shown, the first that is named");
        }
        link.file = std::filesystem::absolute(word).lexically_normal().string();
    } else if (isLut && !std::filesystem::is_regular_file(lutPath(word), error)) {
        throw Failure(ExitCode::effect, word +
                                            ": there is no LUT and no file of this name; 'qxhost lut list' "
                                            "shows those that are installed");
    }
    return link;
}

std::vector<std::filesystem::path> cataloguedFiles(LookLink::Kind kind)
{
    if (kind == LookLink::Kind::lut) {
        return listedLuts();
    }
    std::vector<std::filesystem::path> files;
    for (const FxResources::ShaderEffectInfo& info : FxResources::Manager::instance().effects()) {
        files.emplace_back(narrow(info.getFullPath()));
    }
    return files;
}

LookLink catalogueLink(LookLink::Kind kind, const std::string& name)
{
    for (const std::filesystem::path& file : cataloguedFiles(kind)) {
        if (file.filename() == name || file == name) {
            LookLink link;
            link.kind = kind;
            const bool isFirst = (kind == LookLink::Kind::lut ? lutPath(file.filename().string())
                                                              : effectPath(file.filename().string())) == file;
            link.file = isFirst ? file.filename().string() : file.string();
            return link;
        }
    }
    throw Failure(ExitCode::usage, "\"name\": there is no " +
                                       std::string(kind == LookLink::Kind::lut ? "LUT" : "effect") + " \"" +
                                       name + "\" in the catalogue");
}

std::filesystem::path fileOfLink(const LookLink& link)
{
    if (std::filesystem::path(link.file).is_absolute()) {
        return link.file;
    }
    return link.kind == LookLink::Kind::lut ? lutPath(link.file) : effectPath(link.file);
}

} // namespace Qx::Program::Studio
