#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/files/FileSet.h"

#include <filesystem>
#include <memory>

namespace Qx::Media {

/// Adds a file to the set, and if it is a list (a concat script or an HLS playlist, whatever it is called)
/// the files that it names, and those that these name in turn. FFmpeg opens them as late as it needs them, or
/// never; they belong to the input all the same. A DASH manifest makes their names from patterns: it adds
/// unknown ones. Returns false if a list leads back to itself, which a demuxer would follow without end.
bool addWithNamedFiles(const std::filesystem::path& file, FileSet& files);

/// Keeps account of the files that a demuxer opens, and of its messages. It must outlive the input.
class OpenedFiles : public SourceMessages
{
public:
    OpenedFiles() : files_(std::make_shared<FileSet>()) {}

    /// From now on the input sends its messages here, and each file that it opens is added to the set. To be
    /// called before avformat_open_input(); takes the input's `opaque` and `io_open`.
    void follow(AVFormatContext& input);

    const std::shared_ptr<FileSet>& files() const { return files_; }

private:
    static int open(AVFormatContext* input, AVIOContext** stream, const char* url, int flags,
                    AVDictionary** options);

    std::shared_ptr<FileSet> files_;
    decltype(AVFormatContext::io_open) openByDefault_ = nullptr;
};

} // namespace Qx::Media
