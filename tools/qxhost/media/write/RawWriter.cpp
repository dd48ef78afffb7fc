#include "tools/qxhost/media/write/RawWriter.h"

#include "tools/qxhost/media/files/Names.h"

namespace Qx::Media {

Result<std::unique_ptr<iFrameWriter>> RawWriter::open(const std::filesystem::path& file,
                                                      const OutputSettings& settings)
{
    if (settings.standardOutput >= 0) {
        return std::unique_ptr<iFrameWriter>(
            new RawWriter(OutputFile::standardOutput(settings.standardOutput, 0), settings));
    }
    auto part = OutputFile::create(file, settings.force, settings.kept);
    if (!part) {
        return part.error();
    }
    return std::unique_ptr<iFrameWriter>(new RawWriter(std::move(part.value()), settings));
}

RawWriter::RawWriter(OutputFile part, const OutputSettings& settings)
    : part_(std::move(part)), layout_(*settings.stored)
{
    if (settings.audio && !settings.audio->tracks().empty()) {
        warnings_.emplace_back("audio is left out: raw files cannot hold it; --no-audio omits this warning");
    }
    if (!settings.timeCode.empty()) {
        warnings_.push_back("time code " + settings.timeCode +
                            " is left out: raw files cannot hold it; .mov, .mp4 and .mkv can");
    }
    if (settings.orientation) {
        warnings_.push_back(orientationIsLost(*settings.orientation));
    }
}

Status RawWriter::write(const void* rows, std::ptrdiff_t pitch, const FrameTime& /*time*/)
{
    const bool isReady = layout_.liesTheSame(pitch);
    if (!isReady) {
        frame_.resize(layout_.frameBytes());
        layout_.gather(rows, pitch, frame_.data());
    }
    if (Status status = part_.write(isReady ? rows : frame_.data(), layout_.frameBytes()); !status) {
        return status;
    }
    ++frames_;
    return {};
}

Status RawWriter::finish()
{
    if (frames_ == 0) {
        return Error{"cannot write " + part_.name() + ": there was no frame to write"};
    }
    Status status = part_.commit();
    done_ = static_cast<bool>(status);
    return status;
}

std::vector<std::filesystem::path> RawWriter::files() const
{
    return done_ && !part_.isStandardOutput() ? std::vector{part_.file()}
                                              : std::vector<std::filesystem::path>{};
}

} // namespace Qx::Media
