#include "tools/qxhost/studio/server/Server.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/studio/server/Guard.h"
#include "tools/qxhost/studio/server/PageFiles.h"

#include <algorithm>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/beast.hpp>
#include <chrono>
#include <deque>
#include <fmt/format.h>
#include <memory>
#include <set>
#include <utility>

namespace Qx::Program::Studio {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using Tcp = asio::ip::tcp;
using Error = boost::system::error_code;
using Request = http::request<http::string_body>;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t largestHeader = 16384;
constexpr std::size_t largestBody = 1024;
constexpr std::size_t mostWaiting = 64;                     ///< messages of a window
constexpr std::size_t mostBacklog = std::size_t{32} << 20U; ///< bytes; a window is not read beyond it
constexpr std::size_t mostRefused = 64;                     ///< connections that are told 503
constexpr seconds requestTime{10};                          ///< for a request, and between two
constexpr seconds answerTime{30};
constexpr seconds silentTime{60}; ///< of a window that answers no ping
constexpr milliseconds farewellTime{300};

std::string_view viewOf(beast::string_view text)
{
    return {text.data(), text.size()};
}

/// What connections share. Lives on the server's thread.
struct Shared
{
    iService& service;
    std::string token;
    std::vector<std::string> names; ///< of the server, beside its own
    bool anyAddress = false;
    PageFiles page;
    std::set<class Window*> windows{};
    std::size_t connections = 0;
};

using SharedPtr = std::shared_ptr<Shared>;

/// Counts a connection for as long as it lives.
class Place
{
public:
    explicit Place(SharedPtr shared) : shared_(std::move(shared)) { ++shared_->connections; }
    ~Place()
    {
        if (shared_) {
            --shared_->connections;
        }
    }
    Place(Place&&) = default;
    Place& operator=(Place&&) = delete;

private:
    SharedPtr shared_;
};

/// An object of the server that another thread may be the last to let go: it ends on the server's own.
template <class T, class... More>
std::shared_ptr<T> madeForServer(Tcp::socket&& socket, More&&... more)
{
    const Tcp::socket::executor_type server = socket.get_executor();
    return std::shared_ptr<T>(new T(std::move(socket), std::forward<More>(more)...), [server](T* made) {
        asio::dispatch(server, [owned = std::unique_ptr<T>(made)] {});
    });
}

void setHeaders(http::fields& fields)
{
    fields.set("Content-Security-Policy",
               "default-src 'self'; img-src 'self' blob: data:; style-src 'self' 'unsafe-inline'; "
               "connect-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'");
    fields.set("Referrer-Policy", "no-referrer");
    fields.set("X-Content-Type-Options", "nosniff");
    fields.set("Cache-Control", "no-store");
    fields.set("Cross-Origin-Resource-Policy", "same-origin");
}

/// A WebSocket.
class Window final : public iWindow, public std::enable_shared_from_this<Window>
{
public:
    Window(Tcp::socket&& socket, SharedPtr shared, Place place)
        : stream_(std::move(socket)), shared_(std::move(shared)), place_(std::move(place))
    {
    }
    ~Window() override = default;

    void accept(const Request& request)
    {
        websocket::stream_base::timeout times{};
        times.handshake_timeout = requestTime;
        times.idle_timeout = silentTime;
        times.keep_alive_pings = true;
        stream_.set_option(times);
        stream_.set_option(websocket::stream_base::decorator(
            [](websocket::response_type& response) { setHeaders(response); }));
        stream_.read_message_max(Server::largestMessage);
        stream_.auto_fragment(false);
        stream_.async_accept(request, [self = shared_from_this()](const Error& error) {
            if (!error) {
                self->begin();
            }
        });
    }

    void send(std::shared_ptr<const std::string> text, Kind kind) override
    {
        queue({std::move(text), kind, false});
    }

    void sendBytes(std::shared_ptr<const std::string> bytes) override
    {
        queue({std::move(bytes), Kind::answer, true});
    }

    std::size_t backlog() const override { return backlog_; }

    void taken() override
    {
        asio::post(stream_.get_executor(), [self = shared_from_this()] {
            --self->waiting_;
            self->read();
        });
    }

    /// The server ends.
    void bid()
    {
        if (!isOpen_ || isClosing_) {
            return;
        }
        isClosing_ = true;
        if (outgoing_.empty()) {
            sayGoodbye();
        }
    }

private:
    struct Outgoing
    {
        std::shared_ptr<const std::string> bytes;
        Kind kind = Kind::answer;
        bool isBinary = false;
    };

    void begin()
    {
        isOpen_ = true;
        shared_->windows.insert(this);
        shared_->service.opened(shared_from_this());
        read();
    }

    void end()
    {
        if (!isOpen_) {
            return;
        }
        isOpen_ = false;
        shared_->windows.erase(this);
        shared_->service.closed(shared_from_this());
        for (const Outgoing& each : outgoing_) {
            backlog_ -= each.bytes->size();
        }
        outgoing_.clear();
        Error ignored;
        beast::get_lowest_layer(stream_).socket().close(ignored);
    }

    void sayGoodbye()
    {
        stream_.async_close(websocket::close_code::going_away, [self = shared_from_this()](const Error&) {});
    }

    void read()
    {
        if (!isOpen_ || isReading_ || waiting_ >= mostWaiting || backlog_ >= mostBacklog) {
            return;
        }
        isReading_ = true;
        stream_.async_read(incoming_, [self = shared_from_this()](const Error& error, std::size_t) {
            self->isReading_ = false;
            if (error || !self->stream_.got_text()) {
                self->end();
                return;
            }
            std::string text = beast::buffers_to_string(self->incoming_.data());
            self->incoming_.consume(self->incoming_.size());
            if (self->incoming_.capacity() > largestBody * 64) {
                self->incoming_.shrink_to_fit();
            }
            ++self->waiting_;
            self->shared_->service.message(self->shared_from_this(), std::move(text));
            self->read();
        });
    }

    void queue(Outgoing outgoing)
    {
        backlog_ += outgoing.bytes->size();
        asio::post(stream_.get_executor(),
                   [self = shared_from_this(), outgoing = std::move(outgoing)]() mutable {
                       self->append(std::move(outgoing));
                   });
    }

    void append(Outgoing outgoing)
    {
        if (!isOpen_) {
            backlog_ -= outgoing.bytes->size();
            return;
        }
        if (outgoing.kind != Kind::answer && !outgoing_.empty()) {
            const auto older = std::find_if(outgoing_.begin() + 1, outgoing_.end(),
                                            [&](const Outgoing& each) { return each.kind == outgoing.kind; });
            if (older != outgoing_.end()) {
                backlog_ -= older->bytes->size();
                *older = std::move(outgoing);
                return;
            }
        }
        outgoing_.push_back(std::move(outgoing));
        if (outgoing_.size() == 1) {
            write();
        }
    }

    void write()
    {
        const Outgoing& next = outgoing_.front();
        stream_.binary(next.isBinary);
        stream_.async_write(asio::buffer(*next.bytes),
                            [self = shared_from_this(), bytes = next.bytes](const Error& error, std::size_t) {
                                self->written(error);
                            });
    }

    void written(const Error& error)
    {
        if (error || !isOpen_) {
            end();
            return;
        }
        backlog_ -= outgoing_.front().bytes->size();
        outgoing_.pop_front();
        if (!outgoing_.empty()) {
            write();
        } else if (isClosing_) {
            sayGoodbye();
        }
        read();
    }

    websocket::stream<beast::tcp_stream> stream_;
    SharedPtr shared_;
    Place place_;
    beast::flat_buffer incoming_;
    std::deque<Outgoing> outgoing_; ///< the first is being written
    std::atomic<std::size_t> backlog_{0};
    std::size_t waiting_ = 0;
    bool isOpen_ = false;
    bool isReading_ = false;
    bool isClosing_ = false;
};

/// A connection that asks for files and pictures, or becomes a window.
class Connection : public std::enable_shared_from_this<Connection>
{
public:
    Connection(Tcp::socket&& socket, SharedPtr shared)
        : stream_(std::move(socket)), shared_(std::move(shared)), place_(shared_)
    {
    }

    void read()
    {
        parser_.emplace();
        parser_->header_limit(largestHeader);
        parser_->body_limit(largestBody);
        stream_.expires_after(requestTime);
        http::async_read(stream_, buffer_, *parser_,
                         [self = shared_from_this()](const Error& error, std::size_t) {
                             if (!error) {
                                 self->answer();
                             } else {
                                 self->refuseMalformed(error);
                             }
                         });
    }

private:
    void refuseMalformed(const Error& error)
    {
        if (error == http::error::end_of_stream || error == beast::error::timeout ||
            error.category() != http::make_error_code(http::error::end_of_stream).category()) {
            close();
            return;
        }
        const http::status status = error == http::error::header_limit
                                        ? http::status::request_header_fields_too_large
                                    : error == http::error::body_limit ? http::status::payload_too_large
                                                                       : http::status::bad_request;
        refuse(status);
    }

    void answer()
    {
        const Request& request = parser_->get();
        const std::string_view host = viewOf(request[http::field::host]);
        if (request.count(http::field::host) > 1) {
            return refuse(http::status::bad_request);
        }
        if (!isAllowedHost(host, shared_->names, shared_->anyAddress)) {
            return refuse(http::status::forbidden);
        }
        const TargetPath path = pathBehind(viewOf(request.target()), shared_->token);
        if (!path.allowed) {
            return refuse(http::status::not_found);
        }
        if (request.method() != http::verb::get && request.method() != http::verb::head) {
            return refuse(http::status::method_not_allowed);
        }
        if (path.path == "socket") {
            return openWindow(request, host);
        }
        if (path.path.starts_with("still/") || path.path.starts_with("thumbnail/")) {
            return answerPicture(unescaped(path.path));
        }
        std::optional<PageFile> file = shared_->page.find(path.path);
        if (!file) {
            return refuse(http::status::not_found);
        }
        send(http::status::ok, std::move(file->bytes), file->type);
    }

    void openWindow(const Request& request, std::string_view host)
    {
        if (request.method() != http::verb::get || !websocket::is_upgrade(request)) {
            return refuse(http::status::not_found);
        }
        if (request.count(http::field::origin) != 1 ||
            !isOwnOrigin(viewOf(request[http::field::origin]), host)) {
            return refuse(http::status::forbidden);
        }
        stream_.expires_never();
        madeForServer<Window>(stream_.release_socket(), shared_, std::move(place_))->accept(request);
    }

    void answerPicture(const std::string& path)
    {
        stream_.expires_never();
        shared_->service.picture(path, [self = shared_from_this()](std::optional<std::string> jpeg) {
            asio::post(self->stream_.get_executor(), [self, jpeg = std::move(jpeg)]() mutable {
                if (jpeg) {
                    self->send(http::status::ok, std::move(*jpeg), "image/jpeg");
                } else {
                    self->refuse(http::status::not_found);
                }
            });
        });
    }

    /// Says nothing but the status, and ends the connection.
    void refuse(http::status status)
    {
        isLast_ = true;
        send(status, {}, {});
    }

    void send(http::status status, std::string bytes, std::string_view type)
    {
        const Request& request = parser_->get();
        const bool isHead = request.method() == http::verb::head;
        response_ = {status, 11};
        setHeaders(response_);
        if (!type.empty()) {
            response_.set(http::field::content_type, beast::string_view(type.data(), type.size()));
        }
        if (status == http::status::method_not_allowed) {
            response_.set(http::field::allow, "GET, HEAD");
        }
        response_.keep_alive(!isLast_ && request.keep_alive());
        response_.content_length(bytes.size());
        if (!isHead) {
            response_.body() = std::move(bytes);
        }
        stream_.expires_after(answerTime);
        serializer_.emplace(response_);
        const auto done = [self = shared_from_this()](const Error& error, std::size_t) {
            if (error || !self->response_.keep_alive()) {
                self->close();
            } else {
                self->read();
            }
        };
        if (isHead) {
            http::async_write_header(stream_, *serializer_, done);
        } else {
            http::async_write(stream_, *serializer_, done);
        }
    }

    void close()
    {
        Error ignored;
        stream_.socket().shutdown(Tcp::socket::shutdown_send, ignored);
    }

    beast::tcp_stream stream_;
    SharedPtr shared_;
    Place place_;
    beast::flat_buffer buffer_{2 * largestHeader};
    std::optional<http::request_parser<http::string_body>> parser_;
    http::response<http::string_body> response_;
    std::optional<http::response_serializer<http::string_body>> serializer_;
    bool isLast_ = false;
};

/// Tells one connection too many that it is.
class Refusal : public std::enable_shared_from_this<Refusal>
{
public:
    Refusal(Tcp::socket&& socket, std::shared_ptr<std::size_t> count)
        : stream_(std::move(socket)), count_(std::move(count))
    {
        ++*count_;
    }
    ~Refusal() { --*count_; }
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;

    void tell()
    {
        stream_.expires_after(seconds(1));
        asio::async_write(stream_, asio::buffer(text),
                          [self = shared_from_this()](const Error&, std::size_t) {
                              Error ignored;
                              self->stream_.socket().shutdown(Tcp::socket::shutdown_send, ignored);
                          });
    }

private:
    static constexpr std::string_view text = "HTTP/1.1 503 Service Unavailable\r\nConnection: "
                                             "close\r\nRetry-After: 1\r\nContent-Length: 0\r\n\r\n";

    beast::tcp_stream stream_;
    std::shared_ptr<std::size_t> count_;
};

std::string bracketed(const std::string& host)
{
    return host.find(':') != std::string::npos ? "[" + host + "]" : host;
}

} // namespace

struct Server::Impl
{
    Impl(const ServerOptions& options, iService& service)
        : shared(std::make_shared<Shared>(Shared{.service = service,
                                                 .token = options.token.empty() ? makeToken() : options.token,
                                                 .names = {bracketed(options.host)},
                                                 .page = PageFiles(options.page)}))
    {
        listen(options);
    }

    void listen(const ServerOptions& options)
    {
        Tcp::resolver resolver(context);
        Error error;
        const auto found = resolver.resolve(options.host, std::to_string(options.port),
                                            Tcp::resolver::passive | Tcp::resolver::numeric_service, error);
        if (error || found.empty()) {
            throw Failure(ExitCode::usage, "--host " + options.host + ": is no address of this machine");
        }
        const Tcp::endpoint endpoint = *found.begin();
        acceptor.open(endpoint.protocol(), error);
        if (!error) {
            acceptor.set_option(Tcp::acceptor::reuse_address(true), error);
            acceptor.bind(endpoint, error);
        }
        if (!error) {
            acceptor.listen(asio::socket_base::max_listen_connections, error);
        }
        if (error) {
            throw Failure(ExitCode::usage,
                          fmt::format("{}:{}: cannot be listened on: {}; choose another --port, or none",
                                      bracketed(options.host), options.port, error.message()));
        }
        const Tcp::endpoint bound = acceptor.local_endpoint();
        isLoopback = bound.address().is_loopback();
        shared->anyAddress = bound.address().is_unspecified();
        address = fmt::format("http://{}:{}/{}/", bracketed(options.host), bound.port(), shared->token);
        acceptNext();
    }

    void acceptNext()
    {
        acceptor.async_accept([this](const Error& error, Tcp::socket socket) {
            if (error == asio::error::operation_aborted) {
                return;
            }
            if (error) { // such as too many open files: what is open may end
                pause.expires_after(milliseconds(100));
                pause.async_wait([this](const Error& stopped) {
                    if (!stopped) {
                        acceptNext();
                    }
                });
                return;
            }
            Error ignored;
            socket.set_option(Tcp::no_delay(true), ignored);
            if (shared->connections < mostConnections) {
                madeForServer<Connection>(std::move(socket), shared)->read();
            } else if (*refused < mostRefused) {
                std::make_shared<Refusal>(std::move(socket), refused)->tell();
            }
            acceptNext();
        });
    }

    void end()
    {
        Error ignored;
        acceptor.close(ignored);
        pause.cancel();
        for (Window* const window : std::set<Window*>(shared->windows)) {
            window->bid();
        }
        farewell.expires_after(shared->windows.empty() ? milliseconds(0) : farewellTime);
        farewell.async_wait([this](const Error&) { context.stop(); });
    }

    SharedPtr shared;
    std::shared_ptr<std::size_t> refused = std::make_shared<std::size_t>(0);
    asio::io_context context{1};
    Tcp::acceptor acceptor{context};
    asio::steady_timer pause{context};
    asio::steady_timer farewell{context};
    std::string address;
    bool isLoopback = false;
};

Server::Server(const ServerOptions& options, iService& service)
    : impl_(std::make_unique<Impl>(options, service))
{
}

Server::~Server() = default;

const std::string& Server::address() const
{
    return impl_->address;
}

bool Server::isLoopback() const
{
    return impl_->isLoopback;
}

void Server::run()
{
    impl_->context.run();
}

void Server::stop()
{
    asio::post(impl_->context, [this] { impl_->end(); });
}

} // namespace Qx::Program::Studio
