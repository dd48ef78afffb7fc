#pragma once

#include "tools/qxhost/media/filter/FilterGraph.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/media/rows/FloatPicture.h"

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Media {

/// The frames of a clip through a graph of filters, from the reader's next frame on. Frames of floats go
/// through as such if the graph takes them, and else as codes, which a note says; those that come out have
/// codes, and floats beside them, as the reader's have.
class FilteredClip
{
public:
    using Next = ClipReader::Next;

    /// Gives the clip's next frame, as ClipReader::next() does.
    using Source = std::function<Next(Frame& frame)>;

    /// Reads as many frames as the graph needs for its first one. `info` describes the clip.
    static Result<std::unique_ptr<FilteredClip>> make(const std::string& text, const std::string& option,
                                                      const StreamInfo& info, Source source);

    /// Of the frames that come out.
    const StreamInfo& info() const { return info_; }

    const std::vector<std::string>& notes() const { return notes_; }

    /// What codes could not hold of frames of floats that have come out.
    const ClippedNumbers& clipped() const { return clipped_; }

    /// The next frame that comes out. What failed, if not the source, failure() says.
    Next next(Frame& frame);

    /// Empty if it was the source.
    const std::string& failure() const { return failure_; }

private:
    FilteredClip(std::string text, std::string option, const StreamInfo& info, Source source);
    Next feed();
    Status give(FilterGraph::Made made);
    Status prepare(const Frame& frame, FramePtr& picture);
    FramePtr forGraph(const Frame& frame, bool asFloats) const;
    FramePtr inPlanes(const AVFrame& frame) const;
    Status startGraph(const AVFrame& frame);
    void describe(const AVFrame& first);
    Next fail(const std::string& text);

    std::string text_;
    std::string option_;
    const StreamInfo clip_;
    Source source_;
    StreamInfo info_;
    std::unique_ptr<FilterGraph> graph_;
    FilterGraph::Form sourceForm_;
    AVPixelFormat planar_ =
        AV_PIX_FMT_NONE; ///< what frames are laid out as for the graph, if not as they are
    std::vector<std::string> notes_;
    std::deque<FilterGraph::Made> made_; ///< of a graph that another one has followed, or the first
    bool hasEnded_ = false;              ///< the source
    bool takesFloats_ = true;            ///< the graph, of frames of floats
    ClippedNumbers clipped_;
    std::string failure_;
};

} // namespace Qx::Media
