#include "tests/pixels/Gpu.h"
#include "tests/pixels/Judge.h"
#include "tests/pixels/Zimg.h"

#include <gtest/gtest.h>

namespace Qx::Pixels {
namespace {

class SecondOpinion : public testing::TestWithParam<int>
{
};

TEST_P(SecondOpinion, ZimgMakesTheSamePicture)
{
    const int depth = GetParam();
    for (const Conversion& conversion : allConversions()) {
        SCOPED_TRACE(conversion.technique());
        const Layout layout = conversion.direction == Direction::Decode ? Layout::Packed422 : Layout::Rgb;
        const Picture source = naturalPicture(layout, depth, 320, 90);
        const auto ours = convert(conversion, source, depth);
        const Picture theirs = convertByZimg(conversion, source);
        ASSERT_TRUE(ours);
        ASSERT_EQ(theirs.codes.size(), ours->codes.size());
        std::string where;
        EXPECT_LE(farthestApart(*ours, theirs, edgeOfZimg, where), depth == 8 ? 1 : 2)
            << where << "\n"
            << leaveBehind("zimg." + conversion.technique(), *ours, theirs);
    }
}

INSTANTIATE_TEST_SUITE_P(Depths, SecondOpinion, testing::Values(8, 16), testing::PrintToStringParamName());

} // namespace
} // namespace Qx::Pixels
