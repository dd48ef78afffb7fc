#include "host/effects/worker/Channel.h"

#include "host/cache/Bytes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Qx::Host::Worker {

namespace {

constexpr std::uint32_t mark = 0x43467851; // "QxFC"
constexpr std::size_t headerBytes = 12;
constexpr int tickMilliseconds = 10;

} // namespace

Channel::~Channel()
{
    ::close(descriptor_);
}

void Channel::hangUp()
{
    ::shutdown(descriptor_, SHUT_RDWR);
}

bool Channel::stirs() const
{
    pollfd waiting{descriptor_, POLLIN | POLLRDHUP, 0};
    return ::poll(&waiting, 1, 0) != 0;
}

/// Returns false if patience ends. The next call on the descriptor tells whether the connection is broken.
bool Channel::waitFor(short events, const Patience& patience) const
{
    for (;;) {
        pollfd waiting{descriptor_, events, 0};
        const int ready = ::poll(&waiting, 1, patience ? tickMilliseconds : -1);
        // Checked even if frames arrive without end, so that they cannot evade the limits.
        if (patience && !patience()) {
            return false;
        }
        if (ready > 0 || (ready < 0 && errno != EINTR)) {
            return true;
        }
    }
}

bool Channel::send(FrameType type, std::span<const std::byte> payload, const Patience& patience)
{
    Cache::ByteWriter bytes;
    bytes.number(mark);
    bytes.enumeration(type);
    bytes.row(payload);
    const std::vector<std::byte>& all = bytes.bytes();
    for (std::size_t sent = 0; sent < all.size();) {
        const ssize_t count =
            ::send(descriptor_, all.data() + sent, all.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!waitFor(POLLOUT, patience)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

Channel::Answer Channel::readAll(std::span<std::byte> bytes, const Patience& patience)
{
    while (!bytes.empty()) {
        if (!waitFor(POLLIN, patience)) {
            return Answer::GaveUp;
        }
        const ssize_t count = ::recv(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
            return Answer::Closed;
        }
    }
    return Answer::Frame;
}

Channel::Answer Channel::receive(Frame& frame, std::size_t mostBytes, const Patience& patience)
{
    std::array<std::byte, headerBytes> header{};
    Answer answer = readAll(header, patience);
    if (answer != Answer::Frame) {
        return answer;
    }
    Cache::ByteReader reader(header);
    const bool marked = reader.number<std::uint32_t>() == mark;
    const auto type = reader.number<std::uint32_t>();
    const std::size_t length = reader.number<std::uint32_t>();
    if (!marked || type < static_cast<std::uint32_t>(FrameType::Hello) ||
        type > static_cast<std::uint32_t>(FrameType::Result) || length > mostBytes) {
        return Answer::Malformed;
    }
    frame.type = static_cast<FrameType>(type);
    frame.payload.clear();
    while (answer == Answer::Frame && frame.payload.size() < length) {
        constexpr std::size_t most = 1U << 20U;
        const std::size_t begin = frame.payload.size();
        frame.payload.resize(begin + std::min(most, length - begin));
        answer = readAll(std::span(frame.payload).subspan(begin), patience);
    }
    return answer;
}

} // namespace Qx::Host::Worker
