// A frame that is gone to is the one that decoding everything gives, and costs no more than the first.

#include "tests/system/media/MediaFixture.h"
#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/read/EntrySearch.h"

#include <functional>
#include <ostream>

namespace Qx::Media::Test {
namespace {

/// What is compared of a frame: each byte of its picture, and its time.
struct Shown
{
    Bytes picture;
    std::int64_t pts = 0;
    std::int64_t duration = 0;

    bool operator==(const Shown&) const = default;
};

Shown shownOf(const Frame& frame)
{
    const AVFrame& picture = *frame.picture();
    const auto format = static_cast<AVPixelFormat>(picture.format);
    const int size = av_image_get_buffer_size(format, picture.width, picture.height, 1);
    Shown shown{Bytes(static_cast<std::size_t>(std::max(size, 0))), frame.time().pts, frame.time().duration};
    av_image_copy_to_buffer(shown.picture.data(), size, picture.data, picture.linesize, format, picture.width,
                            picture.height, 1);
    return shown;
}

std::vector<Shown> everyFrame(ClipReader& reader)
{
    std::vector<Shown> all;
    Frame frame;
    while (reader.next(frame) == ClipReader::Next::frame) {
        all.push_back(shownOf(frame));
    }
    return all;
}

struct Clip
{
    const char* name;
    std::vector<std::string> made; ///< the arguments of ffmpeg, a run each
    const char* file;
    /// Packets between two key frames; 0 if it is decoded from the start.
    int keyFrames;
    int frames = 60;
    std::size_t cutPercent = 0; ///< of its bytes, from its beginning
    bool isTwice = false;       ///< its bytes, one time after the other
    bool mayHideLast = false;   ///< as FFmpeg 7 does with an MP4 file whose times end with its last frame

    friend void PrintTo(const Clip& clip, std::ostream* out) { *out << clip.name; }
};

class Seek : public MediaTest, public testing::WithParamInterface<Clip>
{
protected:
    static std::unique_ptr<ClipReader> openWith(const fs::path& file, int threads)
    {
        auto reader = ClipReader::open(file, {.threads = threads});
        EXPECT_TRUE(reader) << (reader ? "" : reader.text());
        return reader ? std::move(reader.value()) : nullptr;
    }
};

TEST_P(Seek, GivesTheFramesThatDecodingEverythingGives)
{
    const Clip& clip = GetParam();
    for (const std::string& arguments : clip.made) {
        ffmpeg(arguments);
    }
    if (clip.cutPercent > 0 || clip.isTwice) {
        Bytes bytes = contents(at(clip.file));
        bytes.erase(bytes.begin(),
                    bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() * clip.cutPercent / 100));
        const Bytes once = bytes;
        bytes.insert(bytes.end(), once.begin(), clip.isTwice ? once.end() : once.begin());
        store(at(clip.file), bytes);
    }
    const auto whole = openWith(at(clip.file), 1);
    ASSERT_TRUE(whole);
    const std::int64_t firstPts = whole->info().firstPts;
    const std::vector<Shown> all = everyFrame(*whole);
    const std::size_t hidden = clip.mayHideLast && all.size() < static_cast<std::size_t>(clip.frames) ? 1 : 0;
    ASSERT_EQ(all.size() + hidden, static_cast<std::size_t>(clip.frames));
    // ffmpeg gives the same.
    const Bytes theirs = [&] {
        ffmpeg("-i " + quote(at(clip.file)) + " -vsync passthrough -f rawvideo judged.raw");
        return contents(at("judged.raw"));
    }();
    ASSERT_EQ(theirs.size(), all.size() * all[0].picture.size());
    const auto beyond = openWith(at(clip.file), 1);
    ASSERT_TRUE(beyond);
    EXPECT_EQ(beyond->skipTo({.frame = 1000, .pts = {}}).frame, static_cast<std::int64_t>(all.size()));
    Frame none;
    EXPECT_EQ(beyond->next(none), ClipReader::Next::end) << beyond->failure();
    for (const std::size_t k :
         {1U, 2U, 9U, 11U, 12U, 13U, 22U, 24U, 33U, 35U, 37U, 44U, 49U, 58U, 59U, 60U, 62U, 70U}) {
        if (k >= all.size()) {
            break;
        }
        for (const bool byTime : {false, true}) {
            const int threads = byTime ? 3 : 1;
            const auto reader = openWith(at(clip.file), threads);
            ASSERT_TRUE(reader);
            const std::string what = std::string(clip.name) + ", frame " + std::to_string(k);
            SeekTarget target{.frame = static_cast<std::int64_t>(k), .pts = {}};
            if (byTime) {
                target.pts = all[k - 1].pts + 1;
            }
            const ClipPlace place = reader->skipTo(target);
            EXPECT_EQ(place.frame, static_cast<std::int64_t>(k)) << what;
            EXPECT_EQ(place.pts, all[k].pts) << what;
            EXPECT_EQ(reader->info().firstPts, firstPts);
            // Up to the key frame, the frame, and what is stored before it and shown later.
            if (clip.keyFrames > 0 && threads == 1 && k + 10 < all.size()) {
                EXPECT_LE(reader->packetsDecoded(), 2 * clip.keyFrames + 8) << what;
            }
            Frame frame;
            for (std::size_t i = k; i < std::min(k + 4, all.size()); ++i) {
                ASSERT_EQ(reader->next(frame), ClipReader::Next::frame) << what << reader->failure();
                const Shown shown = shownOf(frame);
                ASSERT_TRUE(shown == all[i]) << what << ", shown " << i << ", pts " << shown.pts << " for "
                                             << all[i].pts << " by time " << byTime;
                ASSERT_TRUE(
                    std::equal(shown.picture.begin(), shown.picture.end(),
                               theirs.begin() + static_cast<std::ptrdiff_t>(i * shown.picture.size())))
                    << what;
            }
            EXPECT_LE(reader->problemCount(), whole->problemCount())
                << what << ": " << reader->problems().front();
        }
    }
}

#define SOURCE "-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 60 "
#define OPEN_H264                                                                                            \
    SOURCE "-pix_fmt yuv420p -c:v libx264 -preset veryfast -bf 3 -b_strategy 0 -g 12 -x264-params "          \
           "open-gop=1:threads=1 "
#define VP8 SOURCE "-c:v libvpx -cpu-used 8 -auto-alt-ref 1 -lag-in-frames 16 -g 12 -b:v 100k "
#define OPEN_MPEG2 SOURCE "-c:v mpeg2video -bf 2 -b_strategy 0 -g 12 "
#define OPEN_HEVC                                                                                            \
    SOURCE "-c:v libx265 -preset ultrafast -x265-params "                                                    \
           "log-level=none:keyint=12:min-keyint=12:open-gop=1:bframes=3 "

INSTANTIATE_TEST_SUITE_P(
    Clips, Seek,
    testing::Values(
        Clip{"h264_open_gop_mp4", {OPEN_H264 "a.mp4"}, "a.mp4", 12},
        Clip{"h264_open_gop_mov", {OPEN_H264 "a.mov"}, "a.mov", 12},
        Clip{"h264_open_gop_mkv", {OPEN_H264 "a.mkv"}, "a.mkv", 12},
        Clip{"h264_open_gop_ts", {OPEN_H264 "a.ts"}, "a.ts", 12},
        Clip{"h264_open_gop_fragments", {OPEN_H264 "-movflags +frag_keyframe+empty_moov a.mp4"}, "a.mp4", 12},
        Clip{"h264_bare", {OPEN_H264 "a.h264"}, "a.h264", 0},
        Clip{"h264_in_avi", {OPEN_H264 "a.avi"}, "a.avi", 0},
        Clip{
            "h264_refreshed_in_parts",
            {SOURCE
             "-pix_fmt yuv420p -c:v libx264 -preset veryfast -bf 0 -g 12 -x264-params intra-refresh=1 a.mp4"},
            "a.mp4",
            0},
        Clip{"h264_fields",
             {SOURCE "-pix_fmt yuv420p -flags +ildct+ilme -c:v libx264 -preset veryfast -bf 2 -g 12 a.ts"},
             "a.ts",
             0},
        Clip{"hevc_open_gop", {OPEN_HEVC "a.mp4"}, "a.mp4", 12},
        Clip{"hevc_open_gop_ts", {OPEN_HEVC "a.ts"}, "a.ts", 12},
        Clip{"mpeg2_open_gop_ts", {OPEN_MPEG2 "a.ts"}, "a.ts", 12},
        Clip{"mpeg2_open_gop_mxf", {OPEN_MPEG2 "a.mxf"}, "a.mxf", 12},
        Clip{"mpeg2_open_gop_mov", {OPEN_MPEG2 "a.mov"}, "a.mov", 12},
        Clip{"prores_mov", {SOURCE "-c:v prores a.mov"}, "a.mov", 1},
        Clip{"mjpeg_avi", {SOURCE "-c:v mjpeg a.avi"}, "a.avi", 1},
        Clip{"ffv1_mkv", {SOURCE "-c:v ffv1 -g 12 a.mkv"}, "a.mkv", 12},
        Clip{
            "vp9_webm", {SOURCE "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 12 a.webm"}, "a.webm", 12},
        Clip{"vp8_with_frames_that_are_not_shown", {VP8 "-pass 1 a.webm", VP8 "-pass 2 a.webm"}, "a.webm", 0},
        Clip{"mpeg4_mp4", {SOURCE "-c:v mpeg4 -bf 2 -g 12 a.mp4"}, "a.mp4", 0},
        Clip{"an_edit_list_that_begins_between_key_frames",
             {OPEN_H264 "whole.mp4", "-ss 0.6 -i whole.mp4 -c copy a.mp4"},
             "a.mp4",
             12,
             45},
        Clip{"the_frame_rate_varies",
             {"-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 60 -vf setpts=N*N/25/TB -vsync vfr -pix_fmt "
              "yuv420p "
              "-c:v libx264 -bf 3 -g 12 -x264-params open-gop=1 a.mkv"},
             "a.mkv",
             12},
        Clip{"the_frame_rate_varies_in_mp4",
             {"-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 60 -vf setpts=N*N/25/TB -vsync vfr -pix_fmt "
              "yuv420p "
              "-c:v libx264 -bf 3 -g 12 -x264-params open-gop=1 a.mp4"},
             "a.mp4",
             12,
             60,
             0,
             false,
             true},
        Clip{"one_key_frame_only",
             {SOURCE "-pix_fmt yuv420p -c:v libx264 -preset veryfast -bf 3 -g 1000 a.mkv"},
             "a.mkv",
             0},
        Clip{"mpeg2_cut_between_key_frames", {OPEN_MPEG2 "a.ts"}, "a.ts", 12, 36, 30},
        Clip{"h264_cut_between_key_frames", {OPEN_H264 "a.ts"}, "a.ts", 12, 36, 30},
        Clip{"joined_streams", {OPEN_MPEG2 "a.mpg"}, "a.mpg", 0, 120, 0, true},
        Clip{"numbered_pictures", {SOURCE "a_%03d.png"}, "a_%03d.png", 1}),
    [](const auto& test) { return std::string(test.param.name); });

using SeekInDamage = MediaTest;

TEST_F(SeekInDamage, NeverHangsAndTellsWhatItMet)
{
    ffmpeg(OPEN_H264 "a.mp4");
    ffmpeg(OPEN_MPEG2 "a.ts");
    for (const std::string name : {"a.mp4", "a.ts"}) {
        const Bytes sound = contents(at(name));
        for (unsigned seed = 0; seed < 15; ++seed) {
            std::mt19937 random(seed);
            Bytes hurt = sound;
            for (int i = 0; i < 20; ++i) {
                hurt[random() % hurt.size()] = static_cast<std::uint8_t>(random());
            }
            store(at("hurt"), hurt);
            auto opened = ClipReader::open(at("hurt"), {.threads = 1});
            if (!opened) {
                continue;
            }
            ClipReader& reader = *opened.value();
            const std::int64_t place = reader.skipTo({.frame = 40, .pts = {}}).frame;
            EXPECT_LE(place, 40) << name << " " << seed;
            Frame frame;
            int frames = 0;
            while (frames < 1000 && reader.next(frame) == ClipReader::Next::frame) {
                ++frames;
            }
            EXPECT_LT(frames, 100) << name << " " << seed;
            EXPECT_TRUE(place == 40 || frames == 0) << name << " " << seed;
            // What decoding everything loses without a word, seeking may lose too.
            const auto whole = open(at("hurt"));
            ASSERT_TRUE(whole);
            const auto all = static_cast<std::int64_t>(everyFrame(*whole).size());
            EXPECT_TRUE(place + frames == all || reader.problemCount() > 0 || !reader.failure().empty())
                << name << " " << seed << ": " << place + frames << " frames of " << all << " and not a word";
        }
    }
}

TEST_F(SeekInDamage, WhatIsBeforeTheKeyFrameDoesNotCountAndWhatIsAfterItDoes)
{
    ffmpeg(SOURCE "-c:v mpeg2video -bf 0 -g 12 whole.mkv");
    const Bytes sound = contents(at("whole.mkv"));
    for (const double part : {0.4, 0.9}) {
        Bytes hurt = sound;
        const auto place = static_cast<std::ptrdiff_t>(static_cast<double>(hurt.size()) * part);
        std::fill(hurt.begin() + place, hurt.begin() + place + 300, std::uint8_t{0xff});
        store(at("hurt.mkv"), hurt);
        auto reader = open(at("hurt.mkv"));
        ASSERT_TRUE(reader);
        reader->skipTo({.frame = 40, .pts = {}});
        Frame frame;
        while (reader->next(frame) == ClipReader::Next::frame) {
        }
        EXPECT_EQ(reader->problemCount() > 0, part > 0.5) << part;
    }
}

PacketPtr packetAt(std::int64_t pts, bool isKey = false)
{
    PacketPtr packet(av_packet_alloc());
    packet->pts = pts;
    packet->flags = isKey ? AV_PKT_FLAG_KEY : 0;
    return packet;
}

TEST(EntrySearch, StopsWhereTimesGoBackAndKeepsWhatItHasFound)
{
    EntrySearch search({.frame = 100, .pts = {}}, {1, 25}, 0, {});
    for (const std::int64_t pts : {0, 1, 2, 3, 4, 5}) {
        EXPECT_TRUE(search.addVideo(packetAt(pts, pts % 2 == 0)));
    }
    EXPECT_FALSE(search.addVideo(packetAt(0, true)));
    ASSERT_TRUE(search.entry());
    EXPECT_EQ(search.entry()->frame, 2);
    EXPECT_EQ(search.takePackets().size(), 5U);
}

TEST(EntrySearch, StopsSoonAfterTheFrameThoughNoKeyFrameComes)
{
    EntrySearch search({.frame = 5, .pts = {}}, {1, 25}, 0, {});
    std::int64_t packets = 0;
    while (packets < 1000 && search.addVideo(packetAt(packets, packets == 0))) {
        ++packets;
    }
    EXPECT_LT(packets, 100);
    ASSERT_TRUE(search.entry());
    EXPECT_EQ(search.entry()->frame, 0);
}

TEST(EntrySearch, KeepsTheSoundFromTheKeyFrameOn)
{
    EntrySearch search({.frame = 3, .pts = {}}, {1, 25}, 0, {});
    for (const std::int64_t pts : {0, 1, 2, 3, 4}) {
        PacketPtr sound = packetAt(40 * pts - 20);
        sound->duration = 40;
        search.addOther(std::move(sound), {1, 1000});
        search.addVideo(packetAt(pts, true));
    }
    search.endOfStream();
    ASSERT_TRUE(search.entry());
    EXPECT_EQ(search.entry()->frame, 3);
    EXPECT_EQ(search.takePackets().size(), 6U)
        << "two frames, and the sound that ends less than a tenth of a second before the first";
}

} // namespace
} // namespace Qx::Media::Test
