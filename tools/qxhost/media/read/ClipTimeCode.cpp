#include "tools/qxhost/media/read/ClipTimeCode.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/timecode.h>
}

#include <array>
#include <cstdint>
#include <cstring>

namespace Qx::Media {

namespace {

std::string timeCodeIn(const AVDictionary* metadata)
{
    const AVDictionaryEntry* entry = av_dict_get(metadata, "timecode", nullptr, 0);
    return entry != nullptr ? entry->value : "";
}

/// Of the frame's side data, as SMPTE ST 12-1 packs it.
std::string packedTimeCode(const AVFrame& frame, AVRational rate)
{
    const AVFrameSideData* data = av_frame_get_side_data(&frame, AV_FRAME_DATA_S12M_TIMECODE);
    if (data == nullptr || data->size < 2 * sizeof(std::uint32_t)) {
        return {};
    }
    std::array<std::uint32_t, 2> words{};
    std::memcpy(words.data(), data->data, sizeof words);
    std::array<char, AV_TIMECODE_STR_SIZE> text{};
    return words[0] > 0 ? av_timecode_make_smpte_tc_string2(text.data(), rate, words[1], 0, 0)
                        : std::string();
}

} // namespace

std::string timeCodeOf(const AVFormatContext& input, const AVStream& stream, const AVFrame& first)
{
    std::string found = timeCodeIn(stream.metadata);
    if (found.empty()) {
        found = timeCodeIn(input.metadata);
    }
    for (unsigned i = 0; i < input.nb_streams && found.empty(); ++i) {
        found = timeCodeIn(input.streams[i]->metadata);
    }
    if (found.empty()) {
        found = timeCodeIn(first.metadata);
    }
    return found.empty() ? packedTimeCode(first, stream.avg_frame_rate) : found;
}

} // namespace Qx::Media
