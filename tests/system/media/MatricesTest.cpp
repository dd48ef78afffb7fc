#include "tools/qxhost/media/Matrices.h"

#include <gtest/gtest.h>

#include <set>

namespace Qx::Media {

namespace {

TEST(Matrices, EachIsFoundByItselfAndByItsTags)
{
    std::set<std::string> words;
    std::set<Image::ColourSpace> spaces;
    std::set<int> tags;
    for (const MatrixInfo& info : matrices()) {
        SCOPED_TRACE(info.name);
        EXPECT_EQ(&infoOf(info.matrix), &info);
        EXPECT_TRUE(words.insert(info.word).second) << "a second matrix of this word";
        EXPECT_TRUE(spaces.insert(info.colourSpace).second) << "a second matrix of this colour space";
        EXPECT_NE(info.tags.front(), 0) << "files need a tag";
        for (const int tag : info.tags) {
            if (tag != 0) {
                EXPECT_TRUE(tags.insert(tag).second) << tag << " stands for two matrices";
                EXPECT_EQ(matrixOfTag(tag), info.matrix);
                EXPECT_EQ(writtenTag(info.matrix, tag), tag) << "a tag that fits is kept";
            }
        }
        EXPECT_EQ(writtenTag(info.matrix, 2), info.tags.front()) << "2 is unspecified";
    }
}

TEST(Matrices, TagsOfOthersStandForNone)
{
    for (const int tag : {0, 2, 4, 7, 255, -1}) {
        EXPECT_EQ(matrixOfTag(tag), std::nullopt) << tag;
    }
    EXPECT_EQ(writtenTag(Matrix::bt709, 6), 1) << "a tag of another matrix";
}

TEST(Matrices, StandardDefinitionEndsAt720)
{
    EXPECT_EQ(matrixForWidth(720), Matrix::bt601);
    EXPECT_EQ(matrixForWidth(721), Matrix::bt709);
}

} // namespace

} // namespace Qx::Media
