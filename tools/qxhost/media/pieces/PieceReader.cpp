#include "tools/qxhost/media/pieces/PieceReader.h"

#include "tools/qxhost/media/files/Names.h"

#include <utility>

namespace Qx::Media {

Result<std::unique_ptr<PieceReader>> PieceReader::open(const std::filesystem::path& file)
{
    captureFfmpegLog();
    std::unique_ptr<PieceReader> reader(new PieceReader(file));
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    AVFormatContext* raw = nullptr;
    takeFfmpegMessage();
    int error = avformat_open_input(&raw, ("file:" + file.native()).c_str(), nullptr, &options);
    av_dict_free(&options);
    reader->input_.reset(raw);
    error = error < 0 ? error : avformat_find_stream_info(raw, nullptr);
    if (error < 0) {
        return Error{"cannot read " + quoted(file) + ": " + errorText(error) + ffmpegHint()};
    }
    const int video = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (video < 0) {
        return Error{quoted(file) + " has no video"};
    }
    reader->stream_ = raw->streams[video];
    return reader;
}

Result<PacketPtr> PieceReader::next()
{
    PacketPtr packet(av_packet_alloc());
    if (!packet) {
        return Error{"out of memory"};
    }
    for (;;) {
        const int error = av_read_frame(input_.get(), packet.get());
        if (error == AVERROR_EOF) {
            return PacketPtr();
        }
        if (error < 0) {
            return Error{"cannot read " + quoted(file_) + ": " + errorText(error) + ffmpegHint()};
        }
        if (packet->stream_index == stream_->index) {
            break;
        }
        av_packet_unref(packet.get());
    }
    packet->pts = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    if (packet->pts == AV_NOPTS_VALUE || (packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
        return Error{quoted(file_) + (packet->pts == AV_NOPTS_VALUE ? " has a frame without a time"
                                                                    : " is damaged or cut short")};
    }
    av_packet_free_side_data(packet.get());
    return packet;
}

} // namespace Qx::Media
