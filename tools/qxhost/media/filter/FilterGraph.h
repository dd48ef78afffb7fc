#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct AVFilterContext;
struct AVFilterGraph;

namespace Qx::Media {

/// The graph that runs frames through one graph and then another. Either may be empty.
std::string joinGraphs(const std::string& first, const std::string& second);

/// Frames through a graph of FFmpeg's filters with one input and one output, in libavfilter's syntax.
///
/// Nothing is converted unsaid: where formats do not meet, zscale is put in, and a note says so; if it would
/// lose depth or chroma that nobody asked to lose, the graph is refused.
class FilterGraph
{
public:
    /// Frames on their way in or out.
    struct Form
    {
        int width = 0;
        int height = 0;
        AVPixelFormat format = AV_PIX_FMT_NONE;
        Rational timeBase{1, 1};
        Rational frameRate;            ///< num 0 if unknown
        Rational sampleAspect;         ///< num 0 if unknown
        Matrix matrix = Matrix::bt709; ///< of YCbCr that comes in
        Range range = Range::video;
        AVColorSpace matrixTag = AVCOL_SPC_UNSPECIFIED; ///< that frames come in with
    };

    /// A frame that comes out. Its time is in units of form().timeBase.
    struct Made
    {
        FramePtr frame;
        FrameTime time;
    };

    /// Checks a graph as far as that is possible without frames: its syntax, the names of filters and their
    /// options. `option` begins messages: "--before".
    static Status check(const std::string& text, const std::string& option);

    /// `target`: the only format that may come out, or AV_PIX_FMT_NONE for any.
    static Result<std::unique_ptr<FilterGraph>> make(const std::string& text, const std::string& option,
                                                     const Form& source, AVPixelFormat target);
    ~FilterGraph();
    FilterGraph(const FilterGraph&) = delete;
    FilterGraph& operator=(const FilterGraph&) = delete;

    /// Of the frames that come out.
    const Form& form() const { return form_; }

    /// What was put in, and warnings.
    const std::vector<std::string>& notes() const { return notes_; }

    /// Takes a frame in source form, with its time as pts; null: there are no more.
    Status push(FramePtr frame);

    /// The next frame that is finished; empty if the graph needs more, or has no more after the last.
    Result<std::optional<Made>> pull();

private:
    struct FreeGraph
    {
        void operator()(AVFilterGraph* graph) const;
    };
    using GraphPtr = std::unique_ptr<AVFilterGraph, FreeGraph>;

    /// Between these two filters zscale is put in.
    struct Joint
    {
        std::string from;
        std::string to;
    };

    FilterGraph(std::string text, std::string option, const Form& source, AVPixelFormat target);
    Status parse();
    Status configure();
    Status join(const std::string& messages, bool& again);
    Status judgeJoints();
    Status build(std::string& messages);
    Error refusal(const std::string& filter, AVPixelFormat given);
    bool runsOn(AVPixelFormat format) const;
    std::optional<Made> timed(FramePtr frame);

    std::string text_;
    std::string option_;
    Form source_;
    AVPixelFormat target_;
    GraphPtr graph_;
    AVFilterContext* in_ = nullptr;
    AVFilterContext* out_ = nullptr;
    std::vector<Joint> joints_;
    Form form_;
    std::vector<std::string> notes_;
    FramePtr held_; ///< until the next one says how long it is shown
    std::int64_t lastDuration_ = 0;
    std::int64_t end_ = 0; ///< of the last frame that went in
};

} // namespace Qx::Media
