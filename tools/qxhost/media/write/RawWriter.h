#pragma once

#include "tools/qxhost/media/files/OutputFile.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <memory>

namespace Qx::Media {

/// A raw file: unconverted frames one after the other, without a container.
class RawWriter final : public iFrameWriter
{
public:
    /// settings.stored must be set.
    static Result<std::unique_ptr<iFrameWriter>> open(const std::filesystem::path& file,
                                                      const OutputSettings& settings);

    Status write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time) override;
    Status finish() override;
    const std::vector<std::string>& warnings() const override { return warnings_; }
    std::string description() const override { return layout_.name + ", raw frames"; }
    std::vector<std::filesystem::path> files() const override;

private:
    RawWriter(OutputFile part, const OutputSettings& settings);

    OutputFile part_;
    const StoredLayout layout_;
    std::vector<std::byte> frame_;
    std::vector<std::string> warnings_;
    std::int64_t frames_ = 0;
    bool done_ = false;
};

} // namespace Qx::Media
