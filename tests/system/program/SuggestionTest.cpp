#include "host/core/Suggestion.h"
#include "tools/qxhost/console/Wording.h"

#include <gtest/gtest.h>

namespace Qx::Program {

namespace {

using Host::closest;
using Host::didYouMean;

const std::vector<std::string> names{"gain", "gainRed", "gamma", "saturation"};

TEST(Suggestion, finds_swapped_missing_wrong_and_extra_letters)
{
    EXPECT_EQ(closest("gian", names), "gain");
    EXPECT_EQ(closest("gan", names), "gain");
    EXPECT_EQ(closest("gamme", names), "gamma");
    EXPECT_EQ(closest("saturatiion", names), "saturation");
    EXPECT_EQ(closest("GAINRED", names), "gainRed");
}

TEST(Suggestion, does_not_guess_wildly)
{
    EXPECT_EQ(closest("brightness", names), "");
    EXPECT_EQ(closest("", names), "");
    EXPECT_EQ(didYouMean("xyz", names), "");
    EXPECT_EQ(didYouMean("gian", names), " (did you mean gain?)");
}

TEST(Suggestion, lists_read_as_sentences)
{
    EXPECT_EQ(listed({}), "");
    EXPECT_EQ(listed({"a"}), "a");
    EXPECT_EQ(listed({"a", "b"}), "a and b");
    EXPECT_EQ(listed({"a", "b", "c"}), "a, b and c");
    EXPECT_EQ(listed({"a", "b", "c"}, "or"), "a, b or c");
}

} // namespace

} // namespace Qx::Program
