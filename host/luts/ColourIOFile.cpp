#include "host/luts/ColourIOFile.h"

#include "host/core/Printable.h"
#include "host/files/ReadFile.h"
#include "host/files/WriteFile.h"
#include "host/luts/CLFText.h"
#include "host/luts/ColourIOSource.h"
#include "host/luts/Numbers.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Host::Luts {

namespace {

/// A directory of its own among the temporary files, removed with the object.
class OwnDirectory
{
public:
    OwnDirectory() : path_((std::filesystem::temp_directory_path() / "qxhost-lut-XXXXXX").native())
    {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "cannot make " + path_);
        }
    }

    ~OwnDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    OwnDirectory(const OwnDirectory&) = delete;
    OwnDirectory& operator=(const OwnDirectory&) = delete;

    std::filesystem::path operator/(const std::string& name) const
    {
        return std::filesystem::path(path_) / name;
    }

private:
    std::string path_;
};

/// A text as a file that OpenColorIO opens by its path. So a file is read once, and '$' and '%', which mean
/// variables in its paths, do not matter. The name stays otherwise: the extension tells the kind, and
/// "12to16f" in it the depth of a .lut file.
class TextAsFile
{
public:
    TextAsFile(std::string_view text, std::string name) : memory_(::memfd_create("qxhost-lut", MFD_CLOEXEC))
    {
        const int error = memory_ ? writeAll(memory_.number(), text.data(), text.size()) : errno;
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), "no memory for a file");
        }
        std::replace_if(
            name.begin(), name.end(), [](char c) { return c == '$' || c == '%'; }, '_');
        const std::filesystem::path file = directory_ / name;
        std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(memory_.number()), file);
        path_ = file.native();
    }

    const std::string& path() const { return path_; }

private:
    Descriptor memory_;
    OwnDirectory directory_;
    std::string path_;
};

/// Files are looked up by path in a cache of OpenColorIO's that does not notice changes.
struct WithoutCache
{
    WithoutCache() { OCIO::ClearAllCaches(); }
    ~WithoutCache() { OCIO::ClearAllCaches(); }
    WithoutCache(const WithoutCache&) = delete;
    WithoutCache& operator=(const WithoutCache&) = delete;
};

std::string inOneLine(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\n' || c == '\t' || c == '\r';
        if (!blank) {
            result += c;
        } else if (!result.empty() && result.back() != ' ') {
            result += ' ';
        }
    }
    constexpr std::size_t most = 400;
    if (result.size() > most) {
        result = result.substr(0, most) + "...";
    }
    while (!result.empty() && (result.back() == ' ' || result.back() == '.')) {
        result.pop_back();
    }
    return printable(result);
}

/// The line in "At line (3): ", "Error on line 3" and their like; 0 if there is none.
std::size_t lineIn(const std::string& message)
{
    for (const std::string_view mark : {"At line (", "at line (", "on line ", "line number ", "At line "}) {
        const std::size_t at = message.find(mark);
        const char* digits = at == std::string::npos ? nullptr : message.c_str() + at + mark.size();
        if (digits != nullptr && *digits >= '0' && *digits <= '9') {
            return std::strtoul(digits, nullptr, 10);
        }
    }
    return 0;
}

/// What a reader said, without what the message begins with anyway: the path and the line.
std::string bareCause(const std::string& said, const std::string& path)
{
    std::string cause = inOneLine(said);
    if (path.empty()) {
        return cause; // no reader has said anything
    }
    for (const std::string& place :
         {" (" + path + ")", " '" + path + "'", " \"" + path + "\"", " file " + path, " " + path, path}) {
        cause = replaced(cause, place, "");
    }
    for (const std::string_view mark : {"At line (", "At line "}) {
        const std::size_t at = cause.find(mark);
        const std::size_t digits = at == std::string::npos ? at : at + mark.size();
        const std::size_t end = cause.find_first_not_of("0123456789", std::min(digits, cause.size()));
        const std::size_t colon = end == std::string::npos ? end : cause.find(": ", end);
        if (colon != std::string::npos && colon <= end + 1) {
            // What stands before says only that something is wrong, unless the rest quotes the line alone.
            if (cause.compare(colon + 2, 1, "'") != 0) {
                cause.erase(0, colon + 2);
            } else {
                cause.erase(at, colon + 2 - at);
            }
        } else if (at != std::string::npos && at > 2 &&
                   (end == std::string::npos || end + 1 >= cause.size())) {
            cause.erase(cause.find_last_not_of(" .", at - 1) + 1);
        }
    }
    constexpr std::string_view errorMark = "Error is: ";
    if (const std::size_t at = cause.find(errorMark); at != std::string::npos) {
        cause.erase(0, at + errorMark.size());
    }
    return cause;
}

/// The core of a message: OpenColorIO names the path, the advice to its developers and, one after the other,
/// what every reader of the extension said.
Refusal refusalFrom(const std::string& message, const std::string& path)
{
    constexpr std::string_view readerMark = "' failed with: ";
    constexpr std::string_view buildMark = "with this error: ";
    Refusal refusal;
    refusal.line = lineIn(message);
    std::vector<std::string> said;
    for (std::size_t at = message.find(readerMark); at != std::string::npos;) {
        const std::size_t begin = at + readerMark.size();
        at = message.find(readerMark, begin);
        // The next reader's name stands before its mark.
        const std::size_t end = at == std::string::npos ? at : message.rfind('\'', at - 1);
        std::string text =
            bareCause(message.substr(begin, end == std::string::npos ? end : end - begin), path);
        if (std::find(said.begin(), said.end(), text) == said.end()) {
            said.push_back(std::move(text));
        }
    }
    constexpr std::size_t most = 1000; // a text that a message quotes may look like many readers'
    for (const std::string& text : said) {
        if (!refusal.cause.empty() && refusal.cause.size() + text.size() > most) {
            refusal.cause += "; and more";
            break;
        }
        refusal.cause += (refusal.cause.empty() ? "" : "; or: ") + text;
    }
    if (said.empty()) {
        const std::size_t at = message.rfind(buildMark);
        refusal.cause =
            bareCause(at == std::string::npos ? message : message.substr(at + buildMark.size()), path);
    }
    return refusal;
}

std::size_t lineOfNonFinite(std::string_view text)
{
    constexpr std::string_view separators = " \t\r\n<>\"'={}(),;";
    std::size_t line = 1;
    for (std::size_t begin = 0; begin < text.size(); ++line) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        for (std::size_t at = begin; at < end;) {
            const std::size_t wordEnd = std::min(text.find_first_of(separators, at), end);
            const std::string_view word = text.substr(at, wordEnd - at);
            const std::optional<float> value = beginsNumber(word) ? number(word) : std::nullopt;
            if (value && !std::isfinite(*value)) {
                return line;
            }
            at = wordEnd + 1;
        }
        begin = end + 1;
    }
    return 0;
}
OCIO::ConstProcessorRcPtr processorFor(const std::string& path)
{
    const OCIO::FileTransformRcPtr transform = OCIO::FileTransform::Create();
    transform->setSrc(path.c_str());
    transform->setInterpolation(OCIO::INTERP_BEST); // tetrahedral in tables, linear in curves
    transform->setCCCId("0");                       // of a collection of corrections the first
    return plainConfig()->getProcessor(transform);
}

std::optional<Source> read(const TextAsFile& file, std::string_view text, Wanted wanted, Refusal& refusal)
{
    const WithoutCache fresh;
    std::optional<Source> source = sourceOf(processorFor(file.path()), wanted, refusal);
    if (!source && refusal.cause == notFinite) {
        refusal.line = lineOfNonFinite(text);
    }
    return source;
}

} // namespace

std::optional<Source> readThroughColourIO(const std::string& name, const std::string& extension,
                                          std::string_view text, Wanted wanted, Refusal& refusal)
{
    std::string path;
    try {
        refusal.cause = obstacleInXML(text);
        if (!refusal.cause.empty()) {
            return std::nullopt;
        }
        const std::string plain = extension == "clf" || extension == "ctf" ? asKnownCLF(text) : std::string();
        refusal.cause = obstacleInXML(plain);
        if (!refusal.cause.empty()) {
            return std::nullopt;
        }
        const TextAsFile file(plain.empty() ? text : plain, name);
        path = file.path();
        return read(file, text, wanted, refusal);
    } catch (const std::exception& failure) {
        refusal = refusalFrom(failure.what(), path);
        if (static_cast<std::ptrdiff_t>(refusal.line) > std::count(text.begin(), text.end(), '\n') + 1) {
            refusal.line = 0; // from the text that the message quotes
        }
        return std::nullopt;
    }
}

std::vector<std::string> colourIOExtensions()
{
    std::vector<std::string> extensions;
    for (int i = 0; i < OCIO::FileTransform::GetNumFormats(); ++i) {
        std::string extension = OCIO::FileTransform::GetFormatExtensionByIndex(i);
        if (std::find(extensions.begin(), extensions.end(), extension) == extensions.end()) {
            extensions.push_back(std::move(extension));
        }
    }
    return extensions;
}

} // namespace Qx::Host::Luts
