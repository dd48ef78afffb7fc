#include "tools/qxhost/media/write/RawWriter.h"

#include "host/files/WriteFile.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include <cerrno>
#include <system_error>

namespace Qx::Media {

Result<std::unique_ptr<iFrameWriter>> RawWriter::open(const std::filesystem::path& file,
                                                      const OutputSettings& settings)
{
    auto part = OutputFile::create(file, settings.force, settings.kept);
    if (!part) {
        return part.error();
    }
    Host::Descriptor descriptor([&] {
        const PartFiles::Guard guard;
        return Host::uninterrupted(
            [&] { return ::open(part.value().part().c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC); });
    }());
    if (!descriptor) {
        return Error{"cannot write " + quoted(file) + ": " + std::generic_category().message(errno)};
    }
    return std::unique_ptr<iFrameWriter>(
        new RawWriter(std::move(part.value()), std::move(descriptor), settings));
}

RawWriter::RawWriter(OutputFile part, Host::Descriptor descriptor, const OutputSettings& settings)
    : part_(std::move(part)),
      descriptor_(std::move(descriptor)),
      layout_(*settings.stored),
      frame_(layout_.frameBytes())
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

Error RawWriter::failure(int error) const
{
    return Error{"cannot write " + quoted(part_.file()) + ": " + std::generic_category().message(error)};
}

Status RawWriter::write(const void* rows, std::ptrdiff_t pitch, const FrameTime& /*time*/)
{
    layout_.gather(rows, pitch, frame_.data());
    if (const int error = Host::writeAll(descriptor_.number(), frame_.data(), frame_.size()); error != 0) {
        return failure(error);
    }
    ++frames_;
    return {};
}

Status RawWriter::finish()
{
    if (frames_ == 0) {
        return Error{"cannot write " + quoted(part_.file()) + ": there was no frame to write"};
    }
    Status status = part_.commit();
    done_ = static_cast<bool>(status);
    return status;
}

std::vector<std::filesystem::path> RawWriter::files() const
{
    return done_ ? std::vector{part_.file()} : std::vector<std::filesystem::path>{};
}

} // namespace Qx::Media
