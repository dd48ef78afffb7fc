#include "tests/pixels/Judge.h"
#include "tests/pixels/StarterEffects.h"
#include "tests/pixels/StarterPictures.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

// The pictures of docs/starter-effects.md are what the effects draw. A variable writes them anew:
//   QX_WRITE_THUMBNAILS=1 build/release/bin/qx_starter_effects_tests --gtest_filter='*Thumbnails*'
// Look at them before they are committed.

namespace Qx::Pixels {
namespace {

struct Thumbnail
{
    std::string file;
    Picture picture;
};

std::vector<Thumbnail> thumbnails()
{
    const Picture day = daylight();
    const Picture screen = greenScreen();
    const Picture fields = interlaced();
    std::vector<Thumbnail> all{
        {"daylight", day}, {"night", night()}, {"green-screen", screen}, {"interlaced", fields}};
    const auto add = [&](const std::string& name, const std::string& technique, const Settings& settings,
                         const Picture& source, const OtherPictures& others = {}) {
        all.push_back({"qx-" + name, through(name, technique, settings, source, others)});
    };
    add("blur", "Blur", {{"radius", {3}}}, day);
    add("sharpen", "Sharpen", {{"amount", {1.5F}}}, day);
    add("glow", "Glow", {}, day);
    add("vignette", "Vignette", {}, day);
    add("grain", "Grain", {}, day);
    add("chroma-key", "OverPicture", {}, screen, {{"Background", night()}});
    add("crop", "Crop", {{"left", {16}}, {"right", {16}}, {"top", {6}}, {"bottom", {6}}, {"softness", {8}}},
        day);
    add("transform", "Transform", {}, day);
    add("dissolve", "Dissolve", {}, day, {{"To", night()}});
    add("wipe", "Wipe", {{"angle", {25}}}, day, {{"To", night()}});
    add("white-balance", "WhiteBalance", {}, day);
    add("curves", "Curves", {}, day);
    add("colour-wheels", "ColourWheels", {}, day);
    add("scopes", "Parade", {}, day);
    add("guides", "Guides", {{"thickness", {1}}}, day);
    add("tone-map", "BT2446A", {{"transfer", {2}}}, night());
    add("deinterlace", "EdgeDirected", {}, fields);
    return all;
}

TEST(StarterThumbnails, AreWhatTheEffectsDraw)
{
    const std::filesystem::path folder = QX_THUMBNAILS_FOLDER;
    const bool write = std::getenv("QX_WRITE_THUMBNAILS") != nullptr;
    for (const Thumbnail& thumbnail : thumbnails()) {
        const std::filesystem::path file = folder / (thumbnail.file + ".png");
        if (write) {
            ASSERT_TRUE(writePng(file, thumbnail.picture)) << file;
        }
        const auto committed = readPng(file);
        ASSERT_TRUE(committed) << file << " cannot be read";
        ASSERT_EQ(committed->width, thumbnail.picture.width) << file;
        ASSERT_EQ(committed->height, thumbnail.picture.height) << file;
        // Drivers compute pow, exp and cos with small differences, which may cross the middle between two
        // codes.
        std::string where;
        EXPECT_LE(farthestApart(thumbnail.picture, *committed, 0, where), 1)
            << file << ": " << where << "\n"
            << leaveBehind("thumbnail", thumbnail.picture, *committed);
    }
}

TEST(StarterThumbnails, AreSmall)
{
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QX_THUMBNAILS_FOLDER))
        bytes += entry.file_size();
    EXPECT_LT(bytes, 400U * 1024);
}

} // namespace
} // namespace Qx::Pixels
