#include "host/effects/worker/Protocol.h"

#include <gtest/gtest.h>

#include <array>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace Qx::WorkerTests {

namespace {

using namespace Host::Worker;

CompileRequest someRequest()
{
    CompileRequest request;
    request.file = "some/effect.fx";
    request.directory = "/some/where";
    request.options.definitions = {{"A", "1"}, {"B", ""}};
    request.options.includeDirectories = {"/x", "/y z"};
    return request;
}

TEST(ProtocolTest, RequestsArriveAsTheyWereSent)
{
    const auto arrived = decodeRequest(encode(someRequest()));
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->file, someRequest().file);
    EXPECT_EQ(arrived->directory, someRequest().directory);
    EXPECT_EQ(arrived->options.definitions, someRequest().options.definitions);
    EXPECT_EQ(arrived->options.includeDirectories, someRequest().options.includeDirectories);
}

TEST(ProtocolTest, NothingIsReadFromPartsOfARequest)
{
    const std::vector<std::byte> whole = encode(someRequest());
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(decodeRequest(std::span(whole).first(length))) << length;
    }
}

TEST(ProtocolTest, EndlessNamesStillFitTheirFrame)
{
    const Step step{Stage::Drawing, std::string(1 << 20, 't'), std::string(1 << 20, 'p')};
    const std::vector<std::byte> bytes = encode(step);
    EXPECT_LE(bytes.size(), mostReportBytes);
    ASSERT_TRUE(decodeStep(bytes));
    EXPECT_EQ(decodeStep(bytes)->stage, Stage::Drawing);
}

TEST(ProtocolTest, AStageThatIsNoneIsNoStep)
{
    std::vector<std::byte> bytes = encode(Step{});
    bytes[0] = std::byte{3};
    EXPECT_FALSE(decodeStep(bytes));
}

/// The two ends of one connection.
class ChannelTest : public testing::Test
{
protected:
    ChannelTest()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        other_ = ends[0];
        channel_ = std::make_unique<Channel>(ends[1]);
    }
    ~ChannelTest() override { closeOther(); }

    void closeOther()
    {
        if (other_ >= 0) {
            ::close(other_);
        }
        other_ = -1;
    }

    void say(const std::string& bytes) const
    {
        ASSERT_EQ(::send(other_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    Channel::Answer hear(std::size_t most = 1000) { return channel_->receive(frame_, most); }

    Channel& channel() { return *channel_; }
    const Frame& frame() const { return frame_; }

private:
    int other_ = -1;
    std::unique_ptr<Channel> channel_;
    Frame frame_;
};

using namespace std::string_literals;

TEST_F(ChannelTest, AFrameIsAMarkATypeALengthAndThePayload)
{
    say("QxFC\x04\0\0\0\x02\0\0\0ab"s);
    ASSERT_EQ(hear(), Channel::Answer::Frame);
    EXPECT_EQ(frame().type, FrameType::Step);
    EXPECT_EQ(frame().payload, (std::vector{std::byte{'a'}, std::byte{'b'}}));
}

TEST_F(ChannelTest, AnotherMarkIsNoFrame)
{
    say("QxFD\x04\0\0\0\0\0\0\0"s);
    EXPECT_EQ(hear(), Channel::Answer::Malformed);
}

TEST_F(ChannelTest, TypesThatAreNoneAreNoFrames)
{
    say("QxFC\x07\0\0\0\0\0\0\0"s);
    EXPECT_EQ(hear(), Channel::Answer::Malformed);
    say("QxFC\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(hear(), Channel::Answer::Malformed);
}

TEST_F(ChannelTest, AFrameIsNotLongerThanTheReceiverTakes)
{
    say("QxFC\x04\0\0\0\x03\0\0\0abc"s);
    EXPECT_EQ(hear(2), Channel::Answer::Malformed);
}

TEST_F(ChannelTest, HalfAFrameIsNone)
{
    say("QxFC\x04\0\0\0\x03\0\0\0ab"s);
    closeOther();
    EXPECT_EQ(hear(), Channel::Answer::Closed);
}

TEST_F(ChannelTest, PatienceEndsAWait)
{
    Frame frame;
    EXPECT_EQ(channel().receive(frame, 10, [] { return false; }), Channel::Answer::GaveUp);
    const std::vector<std::byte> large(std::size_t{8} << 20U);
    EXPECT_FALSE(
        channel().send(FrameType::Compile, large, [] { return false; })); // the other end does not read
}

TEST_F(ChannelTest, SendingToNobodyIsAFailureAndNoSignal)
{
    closeOther();
    EXPECT_FALSE(channel().send(FrameType::Hello, {}));
}

TEST_F(ChannelTest, HangingUpWakesAReader)
{
    std::thread other([this] { channel().hangUp(); });
    EXPECT_EQ(hear(), Channel::Answer::Closed);
    other.join();
}

} // namespace

} // namespace Qx::WorkerTests
