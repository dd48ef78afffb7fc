#include "tools/qxhost/studio/session/Editor.h"

#include <utility>

namespace Qx::Program::Studio {

bool Editor::take(Look next, const std::string& gesture)
{
    const bool goesOn = !gesture.empty() && gesture == gesture_;
    gesture_ = gesture;
    if (next == look_) {
        return false;
    }
    if (!goesOn) {
        undo_.push_back(look_);
        if (undo_.size() > mostSteps) {
            undo_.erase(undo_.begin());
        }
    }
    redo_.clear();
    look_ = std::move(next);
    ++version_;
    return true;
}

void Editor::replace(Look look)
{
    for (LookLink& link : look.links) {
        link.id = newId();
    }
    take(std::move(look), {});
}

void Editor::start(Look look)
{
    replace(std::move(look));
    undo_.clear();
    markSaved();
}

bool Editor::undo()
{
    endGesture();
    if (undo_.empty()) {
        return false;
    }
    redo_.push_back(std::exchange(look_, std::move(undo_.back())));
    undo_.pop_back();
    ++version_;
    return true;
}

bool Editor::redo()
{
    endGesture();
    if (redo_.empty()) {
        return false;
    }
    undo_.push_back(std::exchange(look_, std::move(redo_.back())));
    redo_.pop_back();
    ++version_;
    return true;
}

} // namespace Qx::Program::Studio
