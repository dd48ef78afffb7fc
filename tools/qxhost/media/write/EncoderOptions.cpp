#include "tools/qxhost/media/write/EncoderOptions.h"

#include "host/core/Suggestion.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace Qx::Media {

namespace {

constexpr std::size_t mostNamed = 6;

/// Whether it is an option of encoders of this kind.
bool isForEncoders(const AVOption& option, AVMediaType kind)
{
    const int ofKind = kind == AVMEDIA_TYPE_AUDIO ? AV_OPT_FLAG_AUDIO_PARAM : AV_OPT_FLAG_VIDEO_PARAM;
    return option.type != AV_OPT_TYPE_CONST && (option.flags & AV_OPT_FLAG_ENCODING_PARAM) != 0 &&
           (option.flags & ofKind) != 0;
}

template <class Use>
void forEachOption(AVCodecContext& encoder, Use use)
{
    for (void* object :
         {encoder.codec->priv_class ? encoder.priv_data : nullptr, static_cast<void*>(&encoder)}) {
        for (const AVOption* option = nullptr; object && (option = av_opt_next(object, option));) {
            use(object, *option);
        }
    }
}

struct FoundOption
{
    void* object = nullptr;
    const AVOption* option = nullptr;
};

FoundOption findOption(AVCodecContext& encoder, const std::string& name)
{
    FoundOption found;
    forEachOption(encoder, [&](void* object, const AVOption& option) {
        if (!found.option && isForEncoders(option, encoder.codec->type) && name == option.name) {
            found = {object, &option};
        }
    });
    return found;
}

std::string numberText(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g", value);
    return text.data();
}

/// What an option takes: " (it takes fast, slow)".
std::string valuesOf(const FoundOption& found)
{
    std::string words;
    for (const AVOption* each = nullptr;
         found.option->unit != nullptr && (each = av_opt_next(found.object, each));) {
        if (each->type == AV_OPT_TYPE_CONST && each->unit != nullptr &&
            std::string_view(each->unit) == found.option->unit) {
            words += (words.empty() ? "" : ", ") + std::string(each->name);
        }
    }
    constexpr double boundless = 1e9;
    switch (found.option->type) {
    case AV_OPT_TYPE_INT:
    case AV_OPT_TYPE_INT64:
    case AV_OPT_TYPE_UINT64:
    case AV_OPT_TYPE_FLOAT:
    case AV_OPT_TYPE_DOUBLE:
        if (found.option->max < boundless) {
            words += (words.empty() ? "numbers from " : ", and numbers from ") +
                     numberText(found.option->min) + " to " + numberText(found.option->max);
        } else if (words.empty()) {
            words = "a number, such as 20 or 10M";
        }
        break;
    case AV_OPT_TYPE_BOOL:
        words = "0 and 1";
        break;
    default:
        break;
    }
    return words.empty() ? "" : "; it takes " + words;
}

} // namespace

std::string nearestWords(std::string_view word, const std::vector<std::string>& words)
{
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string& each : words) {
        constexpr std::size_t longest = 64;
        if (each.size() > longest || word.size() > longest) {
            continue;
        }
        const std::size_t distance = Host::editDistance(word, each);
        const bool isPart = word.size() > 2 && each.find(word) != std::string::npos;
        const bool isWhole = each.size() > 2 && word.find(each) != std::string::npos;
        if (isPart || isWhole || distance <= std::max<std::size_t>(1, word.size() / 3)) {
            near.emplace_back(distance, each);
        }
    }
    std::sort(near.begin(), near.end());
    near.erase(std::unique(near.begin(), near.end()), near.end());
    std::string text;
    for (std::size_t i = 0; i < std::min(near.size(), mostNamed); ++i) {
        text += (text.empty() ? "; near it are " : ", ") + near[i].second;
    }
    return text;
}

Status applyOptions(AVCodecContext& encoder, const EncoderOptions& options)
{
    for (const auto& [name, value] : options) {
        const std::string encoderName = encoder.codec->name;
        const FoundOption found = findOption(encoder, name);
        if (!found.option) {
            std::vector<std::string> names;
            forEachOption(encoder, [&](void* /*object*/, const AVOption& option) {
                if (isForEncoders(option, encoder.codec->type)) {
                    names.emplace_back(option.name);
                }
            });
            return Error{"encoder " + encoderName + " has no option \"" + name + "\"" +
                         nearestWords(name, names) + " ('ffmpeg -h encoder=" + encoderName +
                         "' lists them all)"};
        }
        if (av_opt_set(found.object, name.c_str(), value.c_str(), 0) < 0) {
            return Error{"encoder " + encoderName + " does not take \"" + value + "\" for its option " +
                         name + valuesOf(found)};
        }
    }
    return {};
}

Result<const AVCodec*> encoderNamed(const std::string& name, AVMediaType kind)
{
    const char* kindName = kind == AVMEDIA_TYPE_AUDIO ? "audio" : "video";
    const AVCodec* named = avcodec_find_encoder_by_name(name.c_str());
    if (!named || (named->capabilities & AV_CODEC_CAP_EXPERIMENTAL) != 0) {
        const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(name.c_str());
        const AVCodec* usual = codec ? avcodec_find_encoder(codec->id) : nullptr;
        named = usual ? usual : named;
    }
    if (named && named->type == kind) {
        return named;
    }
    std::vector<std::string> names;
    void* place = nullptr;
    while (const AVCodec* each = av_codec_iterate(&place)) {
        if (av_codec_is_encoder(each) != 0 && each->type == kind) {
            names.emplace_back(each->name);
        }
    }
    return Error{std::string("this FFmpeg has no ") + kindName + " encoder \"" + name + "\"" +
                 nearestWords(name, names) + " ('ffmpeg -encoders' lists them all)"};
}

} // namespace Qx::Media
