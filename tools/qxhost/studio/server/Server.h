#pragma once

#include "tools/qxhost/studio/server/Service.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace Qx::Program::Studio {

struct ServerOptions
{
    std::string host = "127.0.0.1"; ///< the address to listen on, or a name that stands for it
    std::uint16_t port = 0;         ///< 0: any that is free
    std::string token;              ///< isToken(); empty: a random one
    std::filesystem::path page;     ///< a directory of files in place of those compiled in; empty: none
};

/// Serves the page, its pictures and its WebSocket over HTTP to whoever knows the token, on one thread.
///
/// What a client can take is bounded: connections, bytes of a header and of a message, messages that wait,
/// and the time that a request or an answer may take.
class Server
{
public:
    static constexpr std::size_t mostConnections = 32;
    static constexpr std::size_t largestMessage = std::size_t{1} << 20U;

    /// Listens. Throws Failure (usage) if the host has no address or the port is taken.
    Server(const ServerOptions& options, iService& service);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// "http://127.0.0.1:8000/TOKEN/"
    const std::string& address() const;

    /// Whether it listens on this machine's own addresses alone.
    bool isLoopback() const;

    /// Serves until stop() is called.
    void run();

    /// Ends run(), after the windows have been told. Thread-safe.
    void stop();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Qx::Program::Studio
