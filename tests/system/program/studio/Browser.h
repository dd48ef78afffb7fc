#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Qx::System {

using Json = nlohmann::json;

/// A picture that the studio sent.
struct SentPicture
{
    Json header;
    std::string jpeg;
};

/// The parts of "http://HOST:PORT/TOKEN/".
struct Address
{
    std::string host; ///< with the port
    std::uint16_t port = 0;
    std::string path; ///< "/TOKEN/"
};

Address parseAddress(const std::string& address);

/// A window of the page, without the page: its WebSocket.
class Browser
{
public:
    /// Connects. Throws std::runtime_error, with the status if the server refuses.
    explicit Browser(const std::string& address, const std::string& origin = {});
    ~Browser();
    Browser(Browser&&) noexcept;

    /// Sends a message without waiting for its answer.
    void send(const Json& message);
    void sendText(const std::string& text, bool isBinary = false);

    /// Sends a message and returns its answer, or the error. States and pictures that come meanwhile are
    /// kept, and pictures are acknowledged.
    Json ask(Json message);

    /// Waits for an error that answers no message.
    Json unasked();

    /// Waits for a picture for which this holds; those before are dropped. Each is acknowledged.
    SentPicture picture(const std::function<bool(const Json& header)>& holds = {});

    /// Waits for a state for which this holds.
    Json state(const std::function<bool(const Json& state)>& holds);
    const Json& lastState() const { return state_; }

    /// Waits for a message of that kind.
    Json message(const std::string& is);

    /// Pictures that were received and not asked for.
    std::vector<SentPicture>& pictures() { return pictures_; }

    /// From now on, pictures are acknowledged by nobody.
    void acknowledgeNothing() { acknowledges_ = false; }
    void acknowledge(const SentPicture& picture);

    /// Reads until the server closes the connection. Returns the code of the closing frame, or 0 without one.
    int readToEnd();

private:
    struct Impl;
    void receive();

    std::unique_ptr<Impl> impl_;
    Json state_;
    std::vector<Json> messages_;
    std::vector<SentPicture> pictures_;
    int lastId_ = 0;
    bool acknowledges_ = true;
};

/// Sends bytes to the port and returns what comes back until the server closes the connection.
std::string exchanged(std::uint16_t port, const std::string& request);

/// A connection that is held open.
class RawConnection
{
public:
    explicit RawConnection(std::uint16_t port);
    ~RawConnection();
    RawConnection(RawConnection&&) noexcept;

    /// Returns false if the connection is closed.
    bool send(const std::string& bytes);
    /// What comes until the connection is closed, or nothing comes for that time.
    std::string receive(int milliseconds);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Qx::System
