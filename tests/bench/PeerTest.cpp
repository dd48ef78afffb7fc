#include "bench/comparison/Peer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace Qx::Bench {
namespace {

/// A participant in the words of the shell.
class Script
{
public:
    explicit Script(const std::string& text)
        : path_(std::filesystem::temp_directory_path() / ("qx-peer-" + std::to_string(::getpid())))
    {
        std::ofstream(path_) << "#!/bin/sh\n" << text;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
    }
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;
    ~Script()
    {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }

    std::string name() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

constexpr const char* introduction = R"(printf 'identity\tA peer\tprocessor\tthe processor\n'
printf 'offer\tdecode8.point.memory\tone thread\t\n'
printf 'offer\tdecode8.point.memory\tother\tnot the same\n'
printf 'open\n'
)";

TEST(Peer, TellsWhoItIsAndWhatItOffers)
{
    const Script script(std::string(introduction) + "read line\n");
    const Peer peer(script.name(), {});
    EXPECT_TRUE(peer.alive());
    EXPECT_EQ(peer.name(), "A peer");
    EXPECT_EQ(peer.device(), "processor");
    ASSERT_EQ(peer.offers().size(), 2U);
    EXPECT_EQ(peer.offers()[0].remark, "");
    EXPECT_EQ(peer.offers()[1].remark, "not the same");
}

TEST(Peer, PreparesAndRuns)
{
    const Script script(std::string(introduction) +
                        "read line; echo ready; read line; printf 'ran\\t30\\t0.5\\ta note\\n'; read line\n");
    Peer peer(script.name(), {});
    EXPECT_TRUE(peer.prepare("decode8.point.memory", "one thread"));
    const auto ran = peer.run(0.5);
    ASSERT_TRUE(ran);
    EXPECT_EQ(ran->amount, 30);
    EXPECT_EQ(ran->seconds, 0.5);
    EXPECT_EQ(ran->note, "a note");
}

TEST(Peer, SaysWhyItRefused)
{
    const Script script(std::string(introduction) + "read line; printf 'refused\\tno table\\n'; read line\n");
    Peer peer(script.name(), {});
    EXPECT_FALSE(peer.prepare("decode8.point.memory", "one thread"));
    EXPECT_EQ(peer.failure(), "no table");
    EXPECT_TRUE(peer.alive());
}

TEST(Peer, ThatDiesIsDeadForGood)
{
    const Script script(std::string(introduction) + "read line; exit 3\n");
    Peer peer(script.name(), {});
    EXPECT_FALSE(peer.prepare("decode8.point.memory", "one thread"));
    EXPECT_FALSE(peer.alive());
    EXPECT_EQ(peer.failure(), "it ended");
    EXPECT_FALSE(peer.run(1));
}

TEST(Peer, ThatSpeaksNonsenseOrIsNotThereTakesNoPart)
{
    const Script script("echo hello\nread line\n");
    EXPECT_FALSE(Peer(script.name(), {}).alive());
    EXPECT_FALSE(Peer("/nonexistent/peer", {}).alive());
}

TEST(Programs, GetTheirVariablesAndWriteTheirOutput)
{
    const Script script("echo \"$QX_TEST_WORD\"\n[ \"$1\" = fine ]\n");
    const std::string output = script.name() + ".out";
    EXPECT_TRUE(runProgram({script.name(), "fine"}, {"QX_TEST_WORD=hello"}, output));
    std::ifstream in(output);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "hello");
    EXPECT_FALSE(runProgram({script.name(), "wrong"}, {}, output));
    std::filesystem::remove(output);
}

} // namespace
} // namespace Qx::Bench
