// Audio that is encoded anew, judged by ffmpeg and ffprobe.

#include "tests/system/media/MediaFixture.h"

#include <cmath>
#include <functional>

namespace Qx::Media::Test {

namespace {

constexpr int rate = 48000;

/// Which frames are written.
struct Part
{
    std::int64_t first = 0;
    std::int64_t count = 0; ///< 0: all
};

class Audio : public MediaTest
{
protected:
    using Change = std::function<void(OutputSettings&)>;

    /// A clip of 64x48 at 25 frames a second with this audio.
    void makeClip(const std::string& name, const std::string& audio, double seconds,
                  const std::string& more) const
    {
        const std::string length = std::to_string(seconds);
        ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25:d=" + length + " " + audio + " -t " + length +
               " -c:v mjpeg -pix_fmt yuvj420p " + more + " " + name);
    }

    /// A tone that rises, so that a shift shows: "-f lavfi -i ...".
    static std::string chirp(int channels = 1)
    {
        std::string expressions;
        for (int i = 0; i < channels; ++i) {
            expressions += (i > 0 ? "|" : "") + std::string("0.4*sin(2*PI*(") + std::to_string(150 + 40 * i) +
                           "*t+1500*t*t))";
        }
        return "-f lavfi -i \"aevalsrc='" + expressions + "':s=48000\"";
    }

    /// Writes a clip's frames, as flat pictures, with its audio. Returns the error, or nothing.
    std::string convert(const std::string& from, const std::string& to, const Change& change = {},
                        const Part& part = {})
    {
        auto reader = open(at(from), true);
        if (!reader) {
            return "not opened";
        }
        const StreamInfo& info = reader->info();
        OutputSettings wanted = settings(info.width, info.height);
        wanted.frameRate = info.frameRate;
        wanted.timeBase = info.timeBase;
        wanted.force = true;
        wanted.beginsAtZero = part.first > 0;
        wanted.cutsAudio = part.first > 0 || part.count > 0;
        if (change) {
            change(wanted);
        }
        if (part.first > 0) {
            EXPECT_EQ(reader->skipTo({.frame = part.first, .pts = {}}).frame, part.first);
        }
        wanted.audio = reader->audio();
        auto writer = Media::openWriter(at(to), wanted);
        if (!writer) {
            return writer.text();
        }
        const Bytes rows(static_cast<std::size_t>(info.width) * 4 * static_cast<std::size_t>(info.height),
                         80);
        Frame frame;
        std::int64_t end = 0;
        for (std::int64_t n = 0;
             (part.count == 0 || n < part.count) && reader->next(frame) == ClipReader::Next::frame; ++n) {
            end = frame.time().pts + frame.time().duration;
            EXPECT_TRUE(writer.value()->write(rows.data(), info.width * 4, frame.time()));
        }
        if (part.count > 0) {
            reader->readAudioUpTo(end);
        }
        const Status finished = writer.value()->finish();
        tracks_ = writer.value()->audio();
        return finished.text();
    }

    /// A track as ffmpeg decodes it.
    std::vector<std::int16_t> samples(const std::string& file, int track = 0) const
    {
        ffmpeg("-i " + file + " -map 0:a:" + std::to_string(track) + " -f s16le judged.pcm");
        const Bytes bytes = contents(at("judged.pcm"));
        std::vector<std::int16_t> words(bytes.size() / 2);
        std::memcpy(words.data(), bytes.data(), words.size() * 2);
        return words;
    }

    /// By how many samples `late` lags behind `early`, as far as the two are alike.
    static int lag(const std::vector<std::int16_t>& early, const std::vector<std::int16_t>& late)
    {
        constexpr int farthest = 1500;
        constexpr int begin = 6000;
        constexpr int count = 2000;
        EXPECT_GE(std::min(early.size(), late.size()), static_cast<std::size_t>(begin + count + farthest));
        int best = -farthest;
        double bestSum = 0;
        for (int shift = -farthest; shift <= farthest; ++shift) {
            double sum = 0;
            for (int i = begin; i < begin + count; ++i) {
                const double product = static_cast<double>(early.at(static_cast<std::size_t>(i))) *
                                       late.at(static_cast<std::size_t>(i + shift));
                sum += product;
            }
            best = sum > bestSum ? shift : best;
            bestSum = std::max(sum, bestSum);
        }
        return best;
    }

    std::vector<WrittenAudio> tracks_; ///< of the last conversion
};

TEST_F(Audio, PcmBecomesAudioThatDeliveryContainersHold)
{
    makeClip("in.mov", chirp(2), 1, "-c:a pcm_s16le");
    const std::vector<std::pair<std::string, std::string>> cases{
        {"out.mp4", "aac"}, {"out.m4v", "aac"}, {"out.webm", "opus"}, {"out.ts", "aac"}};
    ffmpeg("-i in.mov -ac 1 -f s16le -map 0:a one.pcm");
    for (const auto& [name, codec] : cases) {
        ASSERT_EQ(convert("in.mov", name), "") << name;
        ASSERT_EQ(tracks_.size(), 1U);
        EXPECT_EQ(tracks_[0].codec, "pcm_s16le");
        EXPECT_EQ(tracks_[0].written, codec);
        EXPECT_FALSE(tracks_[0].isCopied);
        const std::string told =
            probe(at(name), "stream=codec_name,sample_rate,channels,channel_layout", "a:0");
        EXPECT_TRUE(has(told, "codec_name=" + codec + "\n")) << name << told;
        EXPECT_TRUE(has(told, "sample_rate=48000\n") && has(told, "channels=2\n")) << name << told;
        EXPECT_TRUE(has(told, "channel_layout=stereo\n")) << name << told;
    }
}

TEST_F(Audio, EncodedAudioBeginsWithThePictureToTheSample)
{
    makeClip("in.mov", chirp(), 1, "-c:a pcm_s16le");
    const auto whole = samples("in.mov");
    ASSERT_EQ(whole.size(), static_cast<std::size_t>(rate));
    for (const std::string name : {"out.mp4", "out.webm", "out.mkv"}) {
        ASSERT_EQ(
            convert("in.mov", name,
                    [&](OutputSettings& wanted) { wanted.audioCodec = name == "out.mkv" ? "opus" : ""; }),
            "");
        const auto made = samples(name);
        EXPECT_EQ(lag(whole, made), 0) << name;
        // The last packet may be padded: AAC has 1024 samples, Opus 960.
        EXPECT_GE(made.size(), whole.size()) << name;
        EXPECT_LT(made.size(), whole.size() + 1024) << name;
        for (const std::string stream : {"v:0", "a:0"}) {
            const std::string told = probe(at(name), "stream=start_time", stream);
            double start = -1;
            ASSERT_EQ(std::sscanf(told.c_str(), "start_time=%lf", &start), 1) << told;
            // Matroska rounds to milliseconds.
            EXPECT_NEAR(start, 0, name == "out.mp4" ? 0.0 : 0.0075) << name << " " << stream;
        }
    }
}

TEST_F(Audio, EncodedAudioOfAPartIsCutToTheSample)
{
    // Noise substitution would be other noise after a seek.
    const std::vector<std::pair<std::string, std::string>> sources{
        {"in.mp4", "-c:a aac -aac_pns 0"}, {"in.mkv", "-c:a aac -aac_pns 0"}, {"pcm.mov", "-c:a pcm_s16le"}};
    for (const auto& [name, codec] : sources) {
        makeClip(name, "-f lavfi -i anoisesrc=sample_rate=48000:seed=3:amplitude=0.3", 3, codec);
        const auto whole = samples(name);
        const auto toPcm = [](OutputSettings& wanted) { wanted.audioCodec = "pcm_s16be"; };
        ASSERT_EQ(convert(name, "part.mov", toPcm, {.first = 41, .count = 7}), "") << name;
        const auto part = samples("part.mov");
        // 0.28 s from 1.64 s on.
        ASSERT_EQ(part.size(), static_cast<std::size_t>(rate * 28 / 100)) << name;
        // Matroska rounds times to milliseconds; AAC's first 1024 samples are in front of the picture there.
        const int tolerance = name == "in.mkv" ? 48 : 0;
        const int begin = rate * 164 / 100 + (name == "in.mkv" ? 1024 : 0);
        int found = -1;
        for (int at = begin - tolerance; at <= begin + tolerance && found < 0; ++at) {
            bool isSame = true;
            for (std::size_t i = 0; i < part.size() && isSame; ++i) {
                isSame = std::abs(part[i] - whole.at(static_cast<std::size_t>(at) + i)) <= 1;
            }
            found = isSame ? at : found;
        }
        EXPECT_GE(found, 0) << name;
        EXPECT_TRUE(has(probe(at("part.mov"), "stream=start_time", "a:0"), "start_time=0.000000\n"));
        ASSERT_EQ(convert(name, "part.mp4", [](OutputSettings& wanted) { wanted.audioCodec = "aac"; },
                          {.first = 41, .count = 7}),
                  "");
        EXPECT_TRUE(has(probe(at("part.mp4"), "stream=start_time", "a:0"), "start_time=0.000000\n"));
    }
}

TEST_F(Audio, SeveralTracksKeepTheirOrderChannelsAndLanguages)
{
    makeClip("in.mov",
             chirp(6) + " " + chirp(1) +
                 " -map 0:v -map 1:a -map 2:a -channel_layout:a:0 5.1 "
                 "-metadata:s:a:0 language=ger -metadata:s:a:1 language=fra",
             0.6, "-c:a pcm_s24le");
    ASSERT_EQ(convert("in.mov", "out.mp4"), "");
    const auto told = [&](const std::string& stream) {
        return probe(at("out.mp4"), "stream=codec_name,channel_layout:stream_tags=language", stream);
    };
    EXPECT_EQ(told("a:0"), "codec_name=aac\nchannel_layout=5.1\nTAG:language=ger\n");
    EXPECT_EQ(told("a:1"), "codec_name=aac\nchannel_layout=mono\nTAG:language=fra\n");
    // Each channel has its own tone.
    for (int channel = 0; channel < 6; ++channel) {
        const std::string pan = "-af pan='mono|c0=c" + std::to_string(channel) + "'";
        ffmpeg("-i in.mov -map 0:a:0 " + pan + " -f wav -y one.wav");
        ffmpeg("-i out.mp4 -map 0:a:0 " + pan + " -f wav -y two.wav");
        if (channel != 3) { // the low frequencies' channel holds no more than those
            EXPECT_EQ(lag(samples("one.wav"), samples("two.wav")), 0) << channel;
        }
    }
}

TEST_F(Audio, IsCopiedWhereTheContainerHoldsIt)
{
    makeClip("aac.mp4", chirp(2), 0.6, "-c:a aac");
    makeClip("pcm.mov", chirp(2), 0.6, "-c:a pcm_s24le");
    for (const auto& [from, to] : {std::pair<std::string, std::string>{"aac.mp4", "a.mov"},
                                   {"aac.mp4", "a.mp4"},
                                   {"pcm.mov", "a.mkv"},
                                   {"pcm.mov", "b.mov"}}) {
        ASSERT_EQ(convert(from, to), "") << to;
        ASSERT_EQ(tracks_.size(), 1U);
        EXPECT_TRUE(tracks_[0].isCopied) << to;
        EXPECT_EQ(samples(to), samples(from)) << to;
    }
}

TEST_F(Audio, BecomesPcmOfItsDepthInContainersOfEditing)
{
    makeClip("in.webm", chirp(), 0.6, "-c:v libvpx -c:a libopus");
    ASSERT_EQ(convert("in.webm", "out.mov"), "");
    EXPECT_TRUE(has(probe(at("out.mov"), "stream=codec_name", "a:0"), "codec_name=pcm_s24le\n"));
    EXPECT_EQ(lag(samples("in.webm"), samples("out.mov")), 0);
    // MXF has 48 kHz alone.
    makeClip("in.mov", chirp(), 0.6, "-ar 44100 -c:a pcm_s16be");
    ASSERT_EQ(convert("in.mov", "out.mxf",
                      [](OutputSettings& wanted) {
                          wanted.encoder = "mpeg2video";
                          wanted.pixelFormat = "yuv422p";
                      }),
              "");
    const std::string told = probe(at("out.mxf"), "stream=codec_name,sample_rate", "a:0");
    EXPECT_EQ(told, "codec_name=pcm_s16le\nsample_rate=48000\n");
    ffmpeg("-i in.mov -ar 48000 judge.wav");
    EXPECT_NEAR(static_cast<double>(samples("out.mxf").size()),
                static_cast<double>(samples("judge.wav").size()), 1);
    EXPECT_EQ(lag(samples("judge.wav"), samples("out.mxf")), 0);
}

TEST_F(Audio, GapsAreSilentAndWhatFollowsStaysInPlace)
{
    makeClip("in.mkv", chirp() + " -af \"aselect='not(between(t,0.4,0.7))'\"", 1.4, "-c:a pcm_s16le");
    ffmpeg(chirp() + " -t 1.4 whole.wav");
    const auto whole = samples("whole.wav");
    ASSERT_EQ(convert("in.mkv", "out.mov", [](OutputSettings& wanted) { wanted.audioCodec = "pcm_s16be"; }),
              "");
    const auto made = samples("out.mov");
    ASSERT_GE(made.size(), static_cast<std::size_t>(rate));
    EXPECT_EQ(made[rate / 2], 0);
    EXPECT_EQ(made[rate * 6 / 10], 0);
    int farthest = 0;
    for (std::size_t i = rate * 8 / 10; i < static_cast<std::size_t>(rate); ++i) {
        // A millisecond's rounding moves it by up to 48 samples: judged by the nearest.
        int nearest = 1 << 16;
        for (std::size_t j = i - 48; j <= i + 48; ++j) {
            nearest = std::min(nearest, std::abs(made[i] - whole[j]));
        }
        farthest = std::max(farthest, nearest);
    }
    EXPECT_LE(farthest, 2000) << "of 13107";
    EXPECT_LE(std::abs(lag({whole.begin() + rate / 2 + 9000, whole.end()},
                           {made.begin() + rate / 2 + 9000, made.end()})),
              48);
}

TEST_F(Audio, WhatCannotBeWrittenIsNamed)
{
    makeClip("in.mov", chirp(), 0.2, "-c:a pcm_s16le");
    const auto with = [](const std::string& codec, const std::map<std::string, std::string>& options = {}) {
        return [codec, options](OutputSettings& wanted) {
            wanted.audioCodec = codec;
            wanted.audioOptions = options;
        };
    };
    const auto expectError = [&](const Change& change, const std::string& to,
                                 const std::vector<std::string>& parts) {
        const std::string error = convert("in.mov", to, change);
        for (const std::string& part : parts) {
            EXPECT_TRUE(has(error, part)) << error << "\nlacks " << part;
        }
        EXPECT_FALSE(fs::exists(at(to)));
    };
    expectError(with("acc"), "out.mp4",
                {"audio track 1 (pcm_s16le)", "no audio encoder \"acc\"", "aac", "ac3"});
    expectError(with("libx264"), "out.mp4", {"no audio encoder \"libx264\""});
    expectError(with("copy"), "out.webm", {"cannot be copied", ".webm does not hold it", "--no-audio"});
    expectError(with("vorbis"), "out.ts", {"audio track 1", ".ts cannot hold vorbis audio"});
    expectError(with("copy"), "out.ts", {"cannot be copied", ".ts does not hold it"});
    expectError(with("aac", {{"aac_codr", "fast"}}), "out.mp4", {"no option \"aac_codr\"", "aac_coder"});
    expectError(with("aac", {{"aac_coder", "slow"}}), "out.mp4", {"\"slow\"", "aac_coder", "twoloop"});
    expectError(with("", {{"b", "much"}}), "out.mp4", {"encoder aac", "\"much\"", "option b"});
}

TEST_F(Audio, OptionsReachTheEncoder)
{
    makeClip("in.mov", "-f lavfi -i anoisesrc=sample_rate=48000:seed=3", 1, "-c:a pcm_s16le");
    std::vector<std::uintmax_t> sizes;
    for (const std::string bits : {"32k", "160k"}) {
        ASSERT_EQ(convert("in.mov", "out.mp4",
                          [&](OutputSettings& wanted) {
                              wanted.audioOptions = {{"b", bits}};
                          }),
                  "");
        const std::string told = probe(at("out.mp4"), "stream=bit_rate", "a:0");
        int rateOf = 0;
        ASSERT_EQ(std::sscanf(told.c_str(), "bit_rate=%d", &rateOf), 1) << told;
        sizes.push_back(static_cast<std::uintmax_t>(rateOf));
    }
    EXPECT_GT(sizes[1], sizes[0] * 3);
}

} // namespace

} // namespace Qx::Media::Test
