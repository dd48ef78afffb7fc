#include "tests/system/program/studio/Browser.h"

#include <boost/asio.hpp>
#include <boost/beast.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>

namespace Qx::System {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using Tcp = asio::ip::tcp;
using Error = boost::system::error_code;

/// A test that waits for longer has failed.
constexpr int patience = 60000;

void limitWaiting(Tcp::socket& socket, int milliseconds)
{
    timeval time{};
    time.tv_sec = milliseconds / 1000;
    time.tv_usec = milliseconds % 1000 * 1000;
    ::setsockopt(socket.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    ::setsockopt(socket.native_handle(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

void connectTo(Tcp::socket& socket, std::uint16_t port)
{
    socket.connect({asio::ip::address_v4::loopback(), port});
    socket.set_option(Tcp::no_delay(true));
}

} // namespace

Address parseAddress(const std::string& address)
{
    const std::string scheme = "http://";
    const std::size_t slash = address.find('/', scheme.size());
    const std::string host = address.substr(scheme.size(), slash - scheme.size());
    return {host, static_cast<std::uint16_t>(std::stoi(host.substr(host.rfind(':') + 1))),
            address.substr(slash)};
}

struct Browser::Impl
{
    asio::io_context context;
    websocket::stream<Tcp::socket> stream{context};

    /// Reads a message. Pings, which the server sends to who is silent, prolong nothing.
    void read(beast::flat_buffer& buffer)
    {
        std::optional<Error> ended;
        stream.async_read(buffer, [&](Error error, std::size_t) { ended = error; });
        context.restart();
        context.run_for(std::chrono::milliseconds(patience));
        if (!ended) {
            stream.next_layer().close();
            context.run();
            throw std::runtime_error("the studio sends nothing that this window waits for");
        }
        if (*ended) {
            throw boost::system::system_error(*ended);
        }
    }
};

Browser::Browser(const std::string& text, const std::string& origin) : impl_(std::make_unique<Impl>())
{
    const Address address = parseAddress(text);
    connectTo(impl_->stream.next_layer(), address.port);
    limitWaiting(impl_->stream.next_layer(), patience);
    impl_->stream.set_option(websocket::stream_base::decorator([&](websocket::request_type& request) {
        if (origin != "none") {
            request.set(http::field::origin, origin.empty() ? "http://" + address.host : origin);
        }
    }));
    impl_->stream.read_message_max(std::size_t{64} << 20U);
    websocket::response_type response;
    Error error;
    impl_->stream.handshake(response, address.host, address.path + "socket", error);
    if (error) {
        throw std::runtime_error("refused with " + std::to_string(response.result_int()));
    }
}

Browser::~Browser() = default;
Browser::Browser(Browser&&) noexcept = default;

void Browser::send(const Json& message)
{
    sendText(message.dump());
}

void Browser::sendText(const std::string& text, bool isBinary)
{
    impl_->stream.binary(isBinary);
    impl_->stream.write(asio::buffer(text));
}

void Browser::receive()
{
    beast::flat_buffer buffer;
    impl_->read(buffer);
    const std::string bytes = beast::buffers_to_string(buffer.data());
    if (impl_->stream.got_text()) {
        Json message = Json::parse(bytes);
        if (message["is"] == "state") {
            state_ = message;
        }
        messages_.push_back(std::move(message));
        return;
    }
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        length |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes.at(i))) << (8 * i);
    }
    pictures_.push_back({Json::parse(bytes.substr(4, length)), bytes.substr(4 + length)});
    if (acknowledges_) {
        acknowledge(pictures_.back());
    }
}

void Browser::acknowledge(const SentPicture& picture)
{
    send({{"do", "shown"}, {"frame", picture.header["frame"]}, {"of", picture.header["of"]}});
}

Json Browser::ask(Json message)
{
    const int id = ++lastId_;
    message["id"] = id;
    send(message);
    while (true) {
        for (std::size_t i = 0; i < messages_.size(); ++i) {
            if (messages_[i].contains("id") && messages_[i]["id"] == id) {
                Json answer = messages_[i];
                messages_.erase(messages_.begin() + static_cast<std::ptrdiff_t>(i));
                return answer;
            }
        }
        std::erase_if(messages_, [](const Json& each) { return each["is"] == "state"; });
        receive();
    }
}

Json Browser::unasked()
{
    while (true) {
        const auto found = std::find_if(messages_.begin(), messages_.end(), [](const Json& each) {
            return each["is"] == "error" && each["id"].is_null();
        });
        if (found != messages_.end()) {
            Json error = *found;
            messages_.erase(found);
            return error;
        }
        receive();
    }
}

SentPicture Browser::picture(const std::function<bool(const Json&)>& holds)
{
    while (true) {
        while (!pictures_.empty()) {
            SentPicture next = std::move(pictures_.front());
            pictures_.erase(pictures_.begin());
            if (!holds || holds(next.header)) {
                return next;
            }
        }
        receive();
    }
}

Json Browser::state(const std::function<bool(const Json&)>& holds)
{
    while (state_.is_null() || !holds(state_)) {
        messages_.clear();
        receive();
    }
    return state_;
}

Json Browser::message(const std::string& is)
{
    while (true) {
        const auto found = std::find_if(messages_.begin(), messages_.end(),
                                        [&](const Json& each) { return each["is"] == is; });
        if (found != messages_.end()) {
            Json message = *found;
            messages_.erase(found);
            return message;
        }
        receive();
    }
}

int Browser::readToEnd()
{
    try {
        while (true) {
            receive();
        }
    } catch (const boost::system::system_error& error) {
        return error.code() == websocket::error::closed ? static_cast<int>(impl_->stream.reason().code) : 0;
    }
}

std::string exchanged(std::uint16_t port, const std::string& request)
{
    RawConnection connection(port);
    connection.send(request);
    return connection.receive(patience);
}

struct RawConnection::Impl
{
    asio::io_context context;
    Tcp::socket socket{context};
};

RawConnection::RawConnection(std::uint16_t port) : impl_(std::make_unique<Impl>())
{
    connectTo(impl_->socket, port);
    limitWaiting(impl_->socket, patience);
}

RawConnection::~RawConnection() = default;
RawConnection::RawConnection(RawConnection&&) noexcept = default;

bool RawConnection::send(const std::string& bytes)
{
    return ::send(impl_->socket.native_handle(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

std::string RawConnection::receive(int milliseconds)
{
    limitWaiting(impl_->socket, milliseconds);
    std::string text;
    std::array<char, 65536> buffer{};
    ssize_t got = 0;
    while ((got = ::recv(impl_->socket.native_handle(), buffer.data(), buffer.size(), 0)) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
}

} // namespace Qx::System
