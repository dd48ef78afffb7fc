#include "host/gpu/GPUService.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/studio/session/Worker.h"

#include <algorithm>
#include <chrono>

namespace Qx::Program::Studio {

namespace {

using Clock = std::chrono::steady_clock;

/// Bytes that may wait for a window before it gets no more counts.
constexpr std::size_t mostWaitingBytes = std::size_t{4} << 20U;
constexpr std::size_t mostKinds = 5;
constexpr double mostOften = 30; ///< a second
constexpr double usualRate = 10;

} // namespace

/// What a window wants of scopes; they are sent by sendScopes().
Json Session::Worker::doScopes(Client& client, const Message& message)
{
    Scopes wanted;
    wanted.kinds = scopeKinds(message.texts("kinds", mostKinds));
    const std::string of = message.has("of") ? message.text("of") : "after";
    if (of != "after" && of != "before") {
        throw Failure(ExitCode::usage, "\"of\": expected \"after\" or \"before\"");
    }
    wanted.ofBefore = of == "before";
    const double rate = message.has("rate") ? message.number("rate", 0.1, mostOften) : usualRate;
    wanted.period = std::chrono::milliseconds(static_cast<int>(1000 / rate));
    client.scopes = wanted;
    return {};
}

bool Session::Worker::wantsScopes(const Client& client) const
{
    return client.scopes.kinds.any() && client.scopes.version != pictureVersion_ &&
           client.window->backlog() <= mostWaitingBytes;
}

/// When the next counts are due; never, if no window waits for any.
std::optional<Clock::time_point> Session::Worker::nextScopes() const
{
    std::optional<Clock::time_point> next;
    for (const Client& client : clients_) {
        if (wantsScopes(client)) {
            const Clock::time_point due = client.scopes.sentAt + client.scopes.period;
            next = next ? std::min(*next, due) : due;
        }
    }
    return next;
}

void Session::Worker::presentScopes()
{
    const Clock::time_point now = Clock::now();
    for (Client& client : clients_) {
        if (wantsScopes(client) && client.scopes.sentAt + client.scopes.period <= now) {
            drawFrame();
            sendScopes(client);
            client.scopes.version = pictureVersion_;
            client.scopes.sentAt = Clock::now();
        }
    }
}

void Session::Worker::sendScopes(Client& client)
{
    const Image::Surface& picture = client.scopes.ofBefore ? projector_.before() : projector_.after();
    if (!problem_.empty() || !picture.getGPUSurface()) {
        return; // the problem is told by the state
    }
    const ClipFrames& clip = projector_.clip();
    const Scene& scene = projector_.scene();
    const ScopeSignal signal{clip.colour().forWriting, clip.info().bitsPerComponent, scene.range(),
                             scene.bits()};
    const Host::ScopeRequest request = scopeRequest(signal, scopeSizes(client.scopes.kinds));
    const std::optional<Host::ScopeCounts> counts =
        Host::gpuService().countScopes(picture.getGPUSurface(), request);
    if (!counts) {
        problem_ = "the device cannot count scopes";
        changed();
        return;
    }
    Json message = scopeMessage(client.scopes.kinds, signal, request, *counts);
    message["is"] = "scopes";
    message["frame"] = projector_.frame();
    message["of"] = client.scopes.ofBefore ? "before" : "after";
    tell(client, message, iWindow::Kind::scopes);
}

} // namespace Qx::Program::Studio
