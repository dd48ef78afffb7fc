#pragma once

#include "tools/qxhost/pipeline/look/Look.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Program::Studio {

/// The look that is edited, with the steps back and forth. Knows nothing of devices and windows.
class Editor
{
public:
    static constexpr std::size_t mostSteps = 500;
    static constexpr std::size_t mostLinks = 64;

    const Look& look() const { return look_; }

    /// Grows with every change of the look.
    std::uint64_t version() const { return version_; }

    bool canUndo() const { return !undo_.empty(); }
    bool canRedo() const { return !redo_.empty(); }

    /// Whether the look is another one than at the last markSaved().
    bool isChanged() const { return !(look_ == saved_); }
    void markSaved() { saved_ = look_; }

    /// Replaces the look as one step. Steps without an id get one.
    void replace(Look look);

    /// Begins with that look: there is nothing to undo.
    void start(Look look);

    /// Changes a copy of the look as one step. `gesture` names what is dragged; changes of the same gesture,
    /// one after the other, are one step until one without a name, or with another one. Returns whether
    /// anything changed.
    template <class Change>
    bool change(Change&& apply, const std::string& gesture = {})
    {
        Look next = look_;
        apply(next);
        return take(std::move(next), gesture);
    }

    /// The gesture is over: what comes is a step of its own.
    void endGesture() { gesture_.clear(); }

    bool undo();
    bool redo();

    std::uint64_t newId() { return ++lastId_; }

private:
    bool take(Look next, const std::string& gesture);

    Look look_;
    Look saved_;
    std::vector<Look> undo_;
    std::vector<Look> redo_;
    std::string gesture_;
    std::uint64_t version_ = 1;
    std::uint64_t lastId_ = 0;
};

} // namespace Qx::Program::Studio
