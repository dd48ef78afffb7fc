#pragma once

#include "tests/TemporaryDirectory.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/media/rows/FramePacker.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace Qx::Media::Test {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

inline bool has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

/// A directory for each test, and the ffmpeg program to make and judge files in it.
class MediaTest : public testing::Test
{
protected:
    fs::path at(const std::string& name) const { return directory_ / name; }

    static std::string quote(const fs::path& path)
    {
        std::string text(1, '\'');
        text += path.native();
        return text += '\'';
    }

    /// Runs ffmpeg with these arguments, in the test's directory.
    void ffmpeg(const std::string& arguments) const
    {
        std::string command = "cd ";
        command += quote(directory_);
        command += " && timeout 60 ffmpeg -nostdin -v error -y " + arguments;
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }

    /// The file's video as ffmpeg itself decodes it.
    Bytes decoded(const fs::path& file, const std::string& pixelFormat) const
    {
        ffmpeg("-i " + quote(file) + " -f rawvideo -pix_fmt " + pixelFormat + " judged.raw");
        return contents(at("judged.raw"));
    }

    /// What ffprobe says of the file's first video stream (or another), one "key=value" a line.
    std::string probe(const fs::path& file, const std::string& entries,
                      const std::string& stream = "v:0") const
    {
        std::string command = "ffprobe -v error -select_streams " + stream + " -show_entries " + entries +
                              " -of default=noprint_wrappers=1 " + quote(file) + " > " +
                              quote(at("probe.txt"));
        EXPECT_EQ(std::system(command.c_str()), 0);
        const Bytes text = contents(at("probe.txt"));
        return {text.begin(), text.end()};
    }

    static Bytes contents(const fs::path& file)
    {
        std::ifstream in(file, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }

    static void store(const fs::path& file, const Bytes& bytes)
    {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        ASSERT_TRUE(out.good());
    }

    static Bytes noise(std::size_t size, unsigned seed = 1)
    {
        std::mt19937 random(seed);
        Bytes bytes(size);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(random());
        }
        return bytes;
    }

    /// Random words of n bits.
    static Bytes noiseWords(std::size_t count, int bits, unsigned seed = 1)
    {
        Bytes bytes = noise(count * 2, seed);
        for (std::size_t i = 0; i < count; ++i) {
            const auto word =
                static_cast<std::uint16_t>((bytes[2 * i] | bytes[2 * i + 1] << 8) & ((1 << bits) - 1));
            std::memcpy(&bytes[2 * i], &word, 2);
        }
        return bytes;
    }

    static std::unique_ptr<ClipReader> open(const fs::path& file, bool audio = false)
    {
        ClipReader::Options options;
        options.keepAudio = audio;
        auto reader = ClipReader::open(file, options);
        EXPECT_TRUE(reader) << (reader ? "" : reader.text());
        return reader ? std::move(reader.value()) : nullptr;
    }

    static std::string openError(const fs::path& file)
    {
        auto reader = ClipReader::open(file, {});
        EXPECT_FALSE(reader);
        return reader ? std::string() : reader.text();
    }

    /// The reader's next frame as packed 4:2:2 of 8 bits, without padding.
    static Bytes packed8(ClipReader& reader) { return packed(reader, Depth::bits8); }

    static std::vector<std::uint16_t> packed16(ClipReader& reader)
    {
        const Bytes bytes = packed(reader, Depth::bits16);
        std::vector<std::uint16_t> words(bytes.size() / 2);
        std::memcpy(words.data(), bytes.data(), bytes.size());
        return words;
    }

    static Bytes packed(ClipReader& reader, Depth depth)
    {
        Frame frame;
        if (reader.next(frame) != ClipReader::Next::frame) {
            ADD_FAILURE() << "no frame: " << reader.failure();
            return {};
        }
        const StreamInfo& info = reader.info();
        const std::size_t pitch = FramePacker::rowBytes(info.width, depth);
        // Guard bytes around every row tell of writes past it.
        constexpr std::size_t guard = 32;
        Bytes memory((pitch + guard) * static_cast<std::size_t>(info.height), 0xa5);
        FramePacker packer({depth, info.colour.range, info.colour.matrix});
        const Status status = packer.pack(frame, memory.data(), static_cast<std::ptrdiff_t>(pitch + guard));
        EXPECT_TRUE(status) << status.text();
        Bytes rows;
        for (std::size_t y = 0; y < static_cast<std::size_t>(info.height); ++y) {
            const auto row = memory.begin() + static_cast<std::ptrdiff_t>(y * (pitch + guard));
            rows.insert(rows.end(), row, row + static_cast<std::ptrdiff_t>(pitch));
            for (std::size_t i = 0; i < guard; ++i) {
                EXPECT_EQ(memory[y * (pitch + guard) + pitch + i], 0xa5) << "row " << y << " runs over";
            }
        }
        return rows;
    }

    static OutputSettings settings(int width, int height, Depth depth = Depth::bits8)
    {
        OutputSettings made;
        made.width = width;
        made.height = height;
        made.depth = depth;
        made.colour.matrix = matrixForWidth(width);
        return made;
    }

    static std::unique_ptr<iFrameWriter> openWriter(const fs::path& file, const OutputSettings& settings)
    {
        auto writer = Media::openWriter(file, settings);
        EXPECT_TRUE(writer) << (writer ? "" : writer.text());
        return writer ? std::move(writer.value()) : nullptr;
    }

    static std::string writerError(const fs::path& file, const OutputSettings& settings)
    {
        auto writer = Media::openWriter(file, settings);
        EXPECT_FALSE(writer);
        return writer ? std::string() : writer.text();
    }

    /// Names in the test's directory, sorted.
    std::vector<std::string> listing() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory_)) {
            names.push_back(entry.path().filename().native());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    const Qx::Test::TemporaryDirectory temporary_;
    const fs::path directory_ = temporary_.path();
};

} // namespace Qx::Media::Test
