#include "tools/qxhost/media/pieces/PieceJoiner.h"

#include "host/core/AsciiCase.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/pieces/PieceReader.h"
#include "tools/qxhost/media/write/ClipWriter.h"
#include "tools/qxhost/media/write/EncoderChoice.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <queue>
#include <string_view>

namespace Qx::Media {

namespace {

/// Times of decoding: packets whose order differs from that of their times by at most `depth` are decoded at
/// the time that is `depth` frames before theirs in order.
class DecodingTimes
{
public:
    DecodingTimes(int depth, std::int64_t frame) : depth_(depth), frame_(std::max<std::int64_t>(frame, 1)) {}

    std::int64_t next(std::int64_t pts)
    {
        first_ = given_ == 0 ? pts : first_;
        waiting_.push(pts);
        if (given_++ < depth_) {
            return first_ - (depth_ - given_ + 1) * frame_;
        }
        const std::int64_t time = waiting_.top();
        waiting_.pop();
        return time;
    }

private:
    int depth_;
    std::int64_t frame_;
    std::int64_t first_ = 0;
    std::int64_t given_ = 0;
    std::priority_queue<std::int64_t, std::vector<std::int64_t>, std::greater<>> waiting_;
};

bool sameExtradata(const AVCodecParameters& a, const AVCodecParameters& b)
{
    return a.extradata_size == b.extradata_size &&
           (a.extradata_size == 0 ||
            std::memcmp(a.extradata, b.extradata, static_cast<std::size_t>(a.extradata_size)) == 0);
}

/// Copies pieces one after the other.
class Joining
{
public:
    Joining(ClipWriter& writer, const OutputSettings& settings, const std::vector<Piece>& pieces, int depth,
            const JoiningContext& context)
        : writer_(writer),
          settings_(settings),
          context_(context),
          last_(pieces.back().last),
          frame_(av_rescale_q(1, av_inv_q(toAv(settings.frameRate)), writer.packetUnit())),
          times_(depth, frame_)
    {
    }

    /// Returns false if it is not to proceed.
    Result<bool> add(const Piece& piece, PieceReader& reader)
    {
        std::optional<std::int64_t> begin; // of the piece, in its own units
        const std::int64_t expected = std::max(writer_.packetTime(piece.first.pts), free_);
        std::int64_t count = 0;
        for (;; ++count) {
            auto packet = reader.next();
            if (!packet) {
                return packet.error();
            }
            if (!packet.value()) {
                break;
            }
            begin = begin.value_or(packet.value()->pts);
            if (packet.value()->pts < *begin) {
                return Error{quoted(piece.file) + " does not begin with its first frame"};
            }
            if (Status status = copy(*packet.value(), *begin, expected, reader.timeBase()); !status) {
                return Error{status.text()};
            }
            if (!context_.wantsToProceed(++copied_)) {
                return false;
            }
        }
        if (count != piece.frames) {
            return Error{quoted(piece.file) + " has " + std::to_string(count) + " frames, not " +
                         std::to_string(piece.frames)};
        }
        return true;
    }

private:
    Status copy(AVPacket& packet, std::int64_t begin, std::int64_t expected, AVRational unit)
    {
        const AVRational to = writer_.packetUnit();
        packet.pts = expected + av_rescale_q(packet.pts - begin, unit, to);
        packet.dts = times_.next(packet.pts);
        packet.duration = packet.duration > 0 ? av_rescale_q(packet.duration, unit, to) : frame_;
        if (packet.pts == writer_.packetTime(last_.pts) && last_.duration > 0) {
            packet.duration = writer_.packetDuration(last_.duration);
        }
        free_ = std::max(free_, packet.pts + 1);
        const std::int64_t end =
            first_ + av_rescale_q(packet.pts + packet.duration - firstTime_, to, toAv(settings_.timeBase));
        reached_ = std::min(std::max(reached_, end), last_.pts + last_.duration);
        if (Status status = writer_.copy(packet); !status) {
            return status;
        }
        context_.readAudioUpTo(reached_);
        return writer_.writeAudioUpTo(reached_);
    }

public:
    /// To be called first.
    void begin(const FrameTime& first)
    {
        writer_.begin(first);
        first_ = first.pts;
        firstTime_ = writer_.packetTime(first.pts);
        reached_ = first.pts;
    }

    Status finish()
    {
        const std::int64_t end = last_.pts + last_.duration;
        context_.readAudioUpTo(end);
        Status status = writer_.writeAudioUpTo(end);
        return status ? writer_.finish() : status;
    }

private:
    ClipWriter& writer_;
    const OutputSettings& settings_;
    const JoiningContext& context_;
    const FrameTime last_;       ///< of the whole
    const std::int64_t frame_;   ///< how long one is shown, as a rule
    std::int64_t first_ = 0;     ///< time of the first frame, the input's
    std::int64_t firstTime_ = 0; ///< the same in the output
    std::int64_t reached_ = 0;
    std::int64_t free_ = INT64_MIN; ///< times from here on are not taken, in the output
    std::int64_t copied_ = 0;
    DecodingTimes times_;
};

} // namespace

Result<PieceContent> examinePiece(const std::filesystem::path& file)
{
    auto reader = PieceReader::open(file);
    if (!reader) {
        return reader.error();
    }
    std::vector<std::int64_t> times;
    for (;;) {
        auto packet = reader.value()->next();
        if (!packet) {
            return packet.error();
        }
        if (!packet.value()) {
            break;
        }
        times.push_back(packet.value()->pts);
    }
    std::vector<std::int64_t> sorted = times;
    std::sort(sorted.begin(), sorted.end());
    PieceContent content{.packets = static_cast<std::int64_t>(times.size()), .reordering = 0};
    for (std::size_t i = 0; i < times.size(); ++i) {
        const auto rank = std::lower_bound(sorted.begin(), sorted.end(), times[i]) - sorted.begin();
        content.reordering = std::max(content.reordering, static_cast<int>(static_cast<long>(i) - rank));
    }
    if (!times.empty() && (times.front() != sorted.front() ||
                           std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end())) {
        return Error{quoted(file) + " has frames whose times cannot be told apart"};
    }
    return content;
}

Result<std::unique_ptr<iFrameWriter>> joinPieces(const std::filesystem::path& file,
                                                 const OutputSettings& settings,
                                                 const std::vector<Piece>& pieces,
                                                 const JoiningContext& context)
{
    auto first = PieceReader::open(pieces.front().file);
    if (!first) {
        return first.error();
    }
    auto writer = ClipWriter::openForPackets(file, settings, first.value()->parameters());
    if (!writer) {
        return writer.error();
    }
    int depth = writer.value()->reordering();
    for (const Piece& piece : pieces) {
        const auto content = examinePiece(piece.file);
        if (!content) {
            return content.error();
        }
        depth = std::max(depth, content.value().reordering);
    }
    Joining joining(*writer.value(), settings, pieces, depth, context);
    joining.begin(pieces.front().first);
    for (const Piece& piece : pieces) {
        auto reader = PieceReader::open(piece.file);
        if (!reader) {
            return reader.error();
        }
        if (!sameExtradata(reader.value()->parameters(), first.value()->parameters())) {
            return Error{quoted(piece.file) +
                         " was made by another version of the encoder than the first piece"};
        }
        const auto going = joining.add(piece, *reader.value());
        if (!going) {
            return going.error();
        }
        if (!going.value()) {
            return std::unique_ptr<iFrameWriter>();
        }
    }
    if (const Status status = joining.finish(); !status) {
        return Error{status.text()};
    }
    return std::unique_ptr<iFrameWriter>(std::move(writer.value()));
}

std::string whyNoPieces(const std::filesystem::path& file, const OutputSettings& settings)
{
    const std::string extension = Host::asciiLower(file.extension().native());
    const std::string name = extension.substr(std::min<std::size_t>(1, extension.size()));
    const AVOutputFormat* container = av_guess_format(nullptr, ("name." + name).c_str(), nullptr);
    constexpr std::array<std::string_view, 9> known{"mov", "mp4", "ipod",   "matroska", "webm",
                                                    "nut", "avi", "mpegts", "mxf"};
    if (!container || std::find(known.begin(), known.end(), container->name) == known.end()) {
        return "pieces of a file of type " + extension +
               " cannot be joined; use .mov, .mp4, .mkv, .mxf or pictures";
    }
    if (settings.stored || std::string_view(container->name) != "avi") {
        return {};
    }
    const auto codec = chooseClipEncoder(name, *container, settings);
    const AVCodecDescriptor* descriptor = codec ? avcodec_descriptor_get(codec.value()->id) : nullptr;
    const bool isApart = descriptor && (descriptor->props & AV_CODEC_PROP_REORDER) == 0;
    return isApart ? std::string()
                   : "pieces whose frames are stored in another order than they are shown cannot be joined "
                     "in .avi; use .mov or .mkv";
}

} // namespace Qx::Media
