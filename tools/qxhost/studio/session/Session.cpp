#include "tools/qxhost/studio/session/Session.h"

#include "tools/qxhost/studio/session/Worker.h"

#include <utility>

namespace Qx::Program::Studio {

Session::Session(const SessionOptions& options, Console& console)
    : worker_(std::make_unique<Worker>(options, console))
{
}

Session::~Session() = default;

void Session::stop()
{
    worker_->stop();
}

void Session::opened(const WindowPtr& window)
{
    worker_->post([this, window] { worker_->open(window); });
}

void Session::message(const WindowPtr& window, std::string text)
{
    worker_->post([this, window, text = std::move(text)] { worker_->take(window, text); });
}

void Session::closed(const WindowPtr& window)
{
    worker_->post([this, window] { worker_->close(window); });
}

void Session::picture(const std::string& path, TakeJpeg done)
{
    worker_->post([this, path, done = std::move(done)] { worker_->answerPicture(path, done); });
}

} // namespace Qx::Program::Studio
