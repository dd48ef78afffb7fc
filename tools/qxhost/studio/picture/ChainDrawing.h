#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/Supplies.h"
#include "host/effects/framework/Diagnostic.h"
#include "host/effects/framework/EffectInput.h"
#include "platform/Surface.h"
#include "tools/qxhost/pipeline/effects/EffectChain.h"
#include "tools/qxhost/pipeline/look/Look.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program::Studio {

/// Why a step is not drawn as its file says.
struct LinkError
{
    std::string text;
    std::vector<Host::Diagnostic> messages; ///< of the compiler
};

/// What is known of a step that has been compiled, or could not be.
struct LinkStatus
{
    /// Of what is drawn, which after a broken save is what was good before; null if nothing is.
    const Host::CompiledEffect* compiled = nullptr;
    std::string technique; ///< that is drawn
    std::optional<LinkError> error;
    std::optional<std::string> failure; ///< of the last draw
    std::vector<std::string> warnings;
    std::map<std::string, std::string> refused; ///< parameters that could not be set, each with the reason
    std::optional<double> milliseconds;         ///< of the device, for the last draw that was measured
    std::vector<double> passMilliseconds;       ///< the same for each pass; empty if they are not known
};

/// Draws a look: each step by itself, so that a change to one compiles no other. For the thread that draws.
class ChainDrawing
{
public:
    /// `input` is what pictures consist of.
    explicit ChainDrawing(Host::LUTInput input) : input_(input) {}

    /// Compiles what is new in the look and forgets what has left it. A step that cannot be compiled stays
    /// as it was, or is left out.
    void fit(const Look& look);

    /// The picture after all steps that are on, with the values of that frame. Steps that read frames before
    /// have them from the draws before. Call fit() first. Throws Failure (device).
    Image::Surface draw(const Look& look, const Image::Surface& picture, const Host::FrameFacts& facts,
                        bool measures);

    /// How many frames before a frame the look needs.
    int framesBefore(const Look& look) const;

    /// Whether the look, or a step of it, draws over its own results, and so needs all frames before.
    bool isRecursive(const Look& look) const;
    bool isRecursive(const LookLink& link) const;

    /// The next frame is not the one after the last.
    void forgetFrames();

    const LinkStatus& status(std::uint64_t id) const;

    /// Whether the step has been compiled, and its last draw succeeded.
    bool isDrawn(std::uint64_t id) const;

    /// Grows when a draw finds something out that the status of a step says.
    std::uint64_t news() const { return news_; }

    /// Compiles the steps again whose files have changed since. Returns whether there were any.
    bool recompileChanged();

private:
    struct Link
    {
        LookLink made; ///< what was compiled, or tried: all but its parameters
        std::unique_ptr<EffectChain> chain;
        std::map<std::string, std::vector<float>> applied; ///< values set since
        std::vector<Host::EffectInput> inputs;
        std::uint64_t stamp = 0;
        bool isSure = true; ///< the files did not change while they were compiled
        LinkStatus status;
    };

    void compile(Link& link, const LookLink& wanted) const;
    static void examine(Link& link);
    static bool areFilesSame(const Link& link);
    void apply(Link& link, const LookLink& wanted, std::int64_t frame);
    void set(Link& link, const std::string& name, const std::vector<float>& values);

    Host::LUTInput input_;
    std::map<std::uint64_t, Link> links_;
    std::uint64_t news_ = 0;
};

} // namespace Qx::Program::Studio
