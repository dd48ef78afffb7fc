#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Qx::Program::Studio {

/// A browser's window, as what it shows sees it. Thread-safe.
class iWindow
{
public:
    /// What a message replaces if that waits to be sent still: one of the same kind.
    enum class Kind
    {
        answer, ///< replaces nothing
        state,
        catalogue,
        scopes
    };

    virtual ~iWindow() = default;

    virtual void send(std::shared_ptr<const std::string> text, Kind kind) = 0;
    virtual void sendBytes(std::shared_ptr<const std::string> bytes) = 0;

    /// Bytes that wait to be sent.
    virtual std::size_t backlog() const = 0;

    /// One of the messages has been dealt with: another may be read.
    virtual void taken() = 0;
};

using WindowPtr = std::shared_ptr<iWindow>;

/// What the windows of a server show. Called on the server's thread; must not block.
class iService
{
public:
    virtual ~iService() = default;

    virtual void opened(const WindowPtr& window) = 0;
    /// A message of the window, at most of Server::largestMessage bytes. Calls taken() later.
    virtual void message(const WindowPtr& window, std::string text) = 0;
    virtual void closed(const WindowPtr& window) = 0;

    /// A picture by its path behind the token, "still/3.jpg". Calls `done` once, on any thread, with a JPEG,
    /// or with nothing if there is no such picture.
    using TakeJpeg = std::function<void(std::optional<std::string>)>;
    virtual void picture(const std::string& path, TakeJpeg done) = 0;
};

} // namespace Qx::Program::Studio
