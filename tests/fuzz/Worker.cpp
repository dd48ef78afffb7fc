#include "host/effects/worker/Protocol.h"
#include "tests/fuzz/Targets.h"

#include <sys/socket.h>
#include <unistd.h>

namespace Qx::Fuzz {
namespace {

using namespace Host::Worker;

/// A decoded payload is encoded and decoded to the same.
template <class Value>
void check(std::span<const std::byte> payload, std::optional<Value> (*decode)(std::span<const std::byte>))
{
    if (const auto value = decode(payload)) {
        const std::vector<std::byte> once = encode(*value);
        const auto again = decode(once);
        promise(again.has_value(), "what is encoded is not understood");
        promise(encode(*again) == once, "what is encoded is understood otherwise");
    }
}

void checkPayload(std::span<const std::byte> payload)
{
    check(payload, decodeHello);
    check(payload, decodeReady);
    check(payload, decodeRequest);
    check(payload, decodeStep);
}

} // namespace

void worker(Input input)
{
    constexpr std::size_t mostBytes = 64U << 10U; // that a socket takes without a reader
    const std::span<const std::byte> bytes = std::as_bytes(input.first(std::min(input.size(), mostBytes)));
    std::array<int, 2> ends{};
    promise(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "there is no connection");
    Channel channel(ends[0]);
    const ssize_t sent = ::send(ends[1], bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::close(ends[1]);
    promise(sent == static_cast<ssize_t>(bytes.size()), "the connection does not take the input");
    Frame frame;
    std::size_t taken = 0;
    Channel::Answer answer{};
    while ((answer = channel.receive(frame, mostReportBytes)) == Channel::Answer::Frame) {
        taken += frame.payload.size();
        promise(taken <= bytes.size(), "more came than was sent");
        checkPayload(frame.payload);
    }
    promise(answer == Channel::Answer::Closed || answer == Channel::Answer::Malformed,
            "the other end is not gone");
    checkPayload(bytes); // payloads without a frame
}

} // namespace Qx::Fuzz
