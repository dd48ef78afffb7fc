#pragma once

#include "tools/qxhost/media/files/NumberedNames.h"
#include "tools/qxhost/media/files/OutputFile.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/media/write/VideoEncoder.h"

#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Media {

/// Whether this extension (lower case) is one of pictures.
bool isPictureExtension(const std::string& extension);

/// All of these.
std::vector<std::string> pictureExtensions();

/// The encoder of that kind of picture, or the one that the settings name for it.
Result<const AVCodec*> choosePictureEncoder(const std::string& extension, const OutputSettings& settings);

/// One picture, or a numbered sequence of them. Standard output gets them one after the other.
class PictureWriter final : public iFrameWriter
{
public:
    /// The extension (lower case) tells the kind of picture.
    static Result<std::unique_ptr<iFrameWriter>>
    open(const std::filesystem::path& file, const std::string& extension, const OutputSettings& settings);

    Status write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time) override;
    Status finish() override;
    const std::vector<std::string>& warnings() const override { return warnings_; }
    std::string description() const override { return encoder_.description(); }
    std::vector<std::filesystem::path> files() const override;

private:
    PictureWriter(const std::filesystem::path& file, const OutputSettings& settings, VideoEncoder encoder);
    Status take(const AVPacket& packet);
    long numberFor(const AVPacket& packet);
    Status complete(OutputFile picture);
    Status awaitCompletion();

    const std::filesystem::path file_;
    const NumberedNames names_;
    const bool force_;
    const std::shared_ptr<const FileSet> kept_;
    VideoEncoder encoder_;
    std::vector<std::string> warnings_;
    std::optional<OutputFile> first_; // of a name without a number, until a second frame decides its name
    long taken_ = 0;
    const long firstNumber_;
    const bool numbersByTime_;
    const AVRational frames_; // a second
    std::int64_t firstTime_ = 0;
    long number_ = 0; // of the picture before
    std::filesystem::path firstDone_;
    std::filesystem::path lastDone_;
    std::filesystem::path completing_;
    std::future<Status> completion_; // of the picture before
};

} // namespace Qx::Media
