#include "tools/qxhost/media/read/OpenedFiles.h"

#include <algorithm>
#include <fstream>
#include <string_view>
#include <vector>

extern "C" {
#include <libavutil/avstring.h>
}

namespace Qx::Media {

namespace {

namespace fs = std::filesystem;

// What FFmpeg knows lists by, whatever they are called.
constexpr std::string_view scriptMark = "ffconcat version 1.0";
constexpr std::string_view playlistMark = "#EXTM3U";

constexpr std::string_view manifestMark = "<MPD"; // not at the beginning

/// As much as FFmpeg looks at to tell what a file is.
std::string beginningOf(const fs::path& file)
{
    constexpr std::size_t bytes = 2048;
    std::string text(bytes, '\0');
    std::ifstream in(file, std::ios::binary);
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

/// Reads lists, one within the other.
class ListReader
{
public:
    explicit ListReader(FileSet& files) : files_(files) {}

    /// Returns false if a list leads back to itself.
    bool add(const fs::path& file);

private:
    void addEntry(std::string name);
    void addEntryOfScript(const std::string& line);
    void addEntryOfPlaylist(std::string line);

    FileSet& files_;
    std::vector<fs::path> within_; // the lists that are being read, the innermost last
    bool endless_ = false;
};

void ListReader::addEntry(std::string name)
{
    if (constexpr std::string_view scheme = "file:"; name.rfind(scheme, 0) == 0) {
        name.erase(0, scheme.size());
    }
    const fs::path entry = within_.back().parent_path() / name;
    add(entry);
    add(entry.lexically_normal()); // as FFmpeg shortens "link/../name"
}

/// "file NAME", where NAME may have quotes and backslashes.
void ListReader::addEntryOfScript(const std::string& line)
{
    constexpr const char* spaces = " \n\t\r";
    const std::size_t begin = line.find_first_not_of(spaces);
    const std::size_t end = line.find_first_of(spaces, begin);
    if (end == std::string::npos || line.compare(begin, end - begin, "file") != 0) {
        return;
    }
    const char* rest = line.c_str() + std::min(line.find_first_not_of(spaces, end), line.size());
    if (char* name = av_get_token(&rest, spaces)) {
        addEntry(name);
        av_free(name);
    }
}

/// NAME on a line of its own, or URI="NAME" in a line that begins with '#'.
void ListReader::addEntryOfPlaylist(std::string line)
{
    line.erase(line.find_last_not_of(" \t\r\n") + 1);
    if (line.rfind('#', 0) != 0) {
        addEntry(line);
        return;
    }
    constexpr std::string_view attribute = "URI=\"";
    if (const std::size_t at = line.find(attribute); at != std::string::npos) {
        const std::size_t begin = at + attribute.size();
        addEntry(line.substr(begin, line.find('"', begin) - begin));
    }
}

bool ListReader::add(const fs::path& file)
{
    std::error_code error;
    endless_ = endless_ || std::any_of(within_.begin(), within_.end(), [&](const fs::path& list) {
                   return fs::equivalent(file, list, error);
               });
    // Only regular files are looked into: a pipe would lose what is read from it.
    if (!files_.add(file) || !fs::is_regular_file(file, error)) {
        return !endless_;
    }
    const std::string beginning = beginningOf(file);
    if (beginning.find(manifestMark) != std::string::npos) {
        files_.addUnknown();
    }
    const bool isScript = beginning.rfind(scriptMark, 0) == 0;
    if (!isScript && beginning.rfind(playlistMark, 0) != 0) {
        return !endless_;
    }
    within_.push_back(file);
    std::ifstream in(file, std::ios::binary);
    for (std::string line; std::getline(in, line);) {
        if (isScript) {
            addEntryOfScript(line);
        } else if (!line.empty()) {
            addEntryOfPlaylist(line);
        }
    }
    within_.pop_back();
    return !endless_;
}

} // namespace

bool addWithNamedFiles(const fs::path& file, FileSet& files)
{
    return ListReader(files).add(file);
}

void OpenedFiles::follow(AVFormatContext& input)
{
    input.opaque = static_cast<SourceMessages*>(this);
    openByDefault_ = input.io_open;
    input.io_open = open;
}

int OpenedFiles::open(AVFormatContext* input, AVIOContext** stream, const char* url, int flags,
                      AVDictionary** options)
{
    if (input->opaque == nullptr) {
        return AVERROR(EPERM); // an input within an input, whose files would not be known
    }
    auto* self = static_cast<OpenedFiles*>(static_cast<SourceMessages*>(input->opaque));
    const int error = self->openByDefault_(input, stream, url, flags, options);
    if (error >= 0) {
        const char* name = url;
        av_strstart(url, "file:", &name);
        return addWithNamedFiles(name, *self->files_) ? error : AVERROR(ELOOP);
    }
    return error;
}

} // namespace Qx::Media
