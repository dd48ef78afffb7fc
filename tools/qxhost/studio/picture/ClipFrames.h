#pragma once

#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/pipeline/input/ColourChoice.h"
#include "tools/qxhost/pipeline/input/FrameInput.h"
#include "tools/qxhost/studio/picture/ClipFiles.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Qx::Program::Studio {

/// The frames of a clip by their numbers, which count from 0. Keeps frames that were decoded. One thread at a
/// time.
class ClipFrames
{
public:
    /// Opens the clip. Throws Failure (input) if it cannot be read, or its colours need a decision.
    /// `rotates`: frames are turned and flipped as players do. `filters` is a graph of FFmpeg's filters
    /// behind that, which keeps the number of frames; empty for none.
    ClipFrames(const std::filesystem::path& file, bool rotates, std::string filters = {});

    const std::filesystem::path& file() const { return options_.input; }
    const Media::StreamInfo& info() const { return packing_->info(); }
    const ColourChoice& colour() const { return colour_; }
    bool rotates() const { return options_.rotates; }
    /// Players turn or flip the frames, and these are as they lie in the file.
    bool isLeftUnturned() const { return info().orientation && !rotates(); }

    /// How many there are; empty while that is not known. Becomes exact when the end has been seen.
    std::optional<std::int64_t> count() const;

    /// A frame of the clip, and its place in it.
    struct Found
    {
        Media::Frame frame;
        std::int64_t index = 0;  ///< as asked, or the last one for what is beyond the end
        std::int64_t number = 0; ///< by its time, as effects see it
        double seconds = 0;      ///< since the first frame
    };

    /// The frame of that index. Throws Failure (input) if it cannot be decoded.
    Found at(std::int64_t index);

    /// Whether at() gives it without decoding.
    bool isKept(std::int64_t index) const { return kept_.contains(index); }

    /// Lets go of the frames that were kept.
    void forgetFrames();

    /// Whether a file of the clip has been replaced or written since it was read, or has returned; frames
    /// are read again then. While it is being written, or gone, it has not. To be asked now and then.
    bool forgetIfChanged();

    /// Which files of the clip cannot be read, for people; empty if all can. forgetIfChanged() finds them,
    /// and at() those that it needs.
    std::string losses() const { return files_.losses(); }

    /// For preparing and placing the frames that at() gives.
    iFrameInput& packing() { return *packing_; }

    /// What was damaged, a line each.
    std::vector<std::string> problems() const;

private:
    std::shared_ptr<iFrameInput> opened(std::int64_t index);
    void begin();
    void keep(std::int64_t index, Media::Frame frame);
    bool decodeTo(std::int64_t index);
    void requireFile(std::int64_t index);
    void requirePicture(bool isWhole);
    void requireEnd();
    [[noreturn]] void refuse(const std::string& text);
    Found found(const Media::Frame& frame, std::int64_t index) const;

    ClipFiles files_;
    ConvertOptions options_;
    std::string filters_;
    Media::StreamInfo unfiltered_;         ///< when it was opened first
    std::shared_ptr<iFrameInput> packing_; ///< opened first
    std::shared_ptr<iFrameInput> reader_;
    std::int64_t next_ = 0; ///< that the reader gives next
    std::int64_t last_ = 0; ///< asked for last
    std::optional<std::int64_t> end_;
    ColourChoice colour_;
    std::size_t mostKept_;
    std::map<std::int64_t, Media::Frame> kept_;
    std::list<std::int64_t> order_; ///< of what is kept, the one used last at the end
};

} // namespace Qx::Program::Studio
