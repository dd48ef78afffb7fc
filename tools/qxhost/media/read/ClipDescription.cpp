#include "tools/qxhost/media/read/ClipDescription.h"

#include "tools/qxhost/media/Ffmpeg.h"

namespace Qx::Media {

namespace {

FileTags tagsOf(const AVDictionary* metadata)
{
    FileTags tags;
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(metadata, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        tags.emplace_back(entry->key, entry->value);
    }
    return tags;
}

/// FFmpeg's name of a number that came from a file.
template <class Tag>
std::string nameOf(int number, Tag count, const char* (*name)(Tag))
{
    constexpr int unspecified = 2; // in each of the tables of ITU-T H.273
    const bool isKnown = number >= 0 && number < static_cast<int>(count) && number != unspecified;
    const char* text = isKnown ? name(static_cast<Tag>(number)) : nullptr;
    return text != nullptr ? text : "";
}

} // namespace

ClipDescription describeStreams(const AVFormatContext& input)
{
    ClipDescription clip{tagsOf(input.metadata), {}};
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream& stream = *input.streams[i];
        const AVCodecParameters& parameters = *stream.codecpar;
        const char* kind = av_get_media_type_string(parameters.codec_type);
        StreamDescription described;
        described.index = static_cast<int>(i);
        described.kind = kind != nullptr ? kind : "unknown";
        described.codec = avcodec_get_name(parameters.codec_id);
        if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
            described.sampleRate = parameters.sample_rate;
            described.channels = parameters.ch_layout.nb_channels;
        }
        described.isCover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        described.tags = tagsOf(stream.metadata);
        clip.streams.push_back(std::move(described));
    }
    return clip;
}

ColourTagNames tagNames(const Colour& colour)
{
    return {.matrix = nameOf(colour.matrixTag, AVCOL_SPC_NB, av_color_space_name),
            .primaries = nameOf(colour.primariesTag, AVCOL_PRI_NB, av_color_primaries_name),
            .transfer = nameOf(colour.transferTag, AVCOL_TRC_NB, av_color_transfer_name)};
}

} // namespace Qx::Media
