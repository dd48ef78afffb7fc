#include "tools/qxhost/media/Ffmpeg.h"
#include "host/files/SystemError.h"
#include "tools/qxhost/media/filter/MessageCollector.h"

#include <array>
#include <cstdarg>

namespace Qx::Media {

namespace {

std::mutex messageMutex;
std::string lastMessage; // guarded by messageMutex

/// Where the messages of this object go, or null.
SourceMessages* messagesOf(void* context)
{
    const AVClass* kind = context ? *static_cast<const AVClass**>(context) : nullptr;
    if (kind && kind == avcodec_get_class()) {
        // Frame threads work on copies of the decoder's context, which share its opaque pointer.
        const auto* codec = static_cast<const AVCodecContext*>(context);
        return av_codec_is_decoder(codec->codec) ? static_cast<SourceMessages*>(codec->opaque) : nullptr;
    }
    if (kind && kind == avformat_get_class()) {
        return static_cast<SourceMessages*>(static_cast<const AVFormatContext*>(context)->opaque);
    }
    return nullptr;
}

void keepMessage(void* context, int level, const char* format, va_list arguments)
{
    if (level > AV_LOG_ERROR) {
        return;
    }
    std::array<char, 512> line{};
    int prefix = 1;
    av_log_format_line2(context, level, format, arguments, line.data(), static_cast<int>(line.size()),
                        &prefix);
    std::string text(line.data());
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) {
        text.pop_back();
    }
    // "[png @ 0x55...] text": the address is of no use to people.
    const auto address = text.find(" @ 0x");
    const auto bracket = text.find(']');
    if (address != std::string::npos && bracket != std::string::npos && address < bracket) {
        text.erase(address, bracket - address);
    }
    if (text.empty()) {
        return;
    }
    if (SourceMessages* own = messagesOf(context)) {
        own->add(std::move(text));
        return;
    }
    if (!MessageCollector::add(text)) {
        const std::lock_guard lock(messageMutex);
        lastMessage = std::move(text);
    }
}

} // namespace

std::string errorText(int code)
{
    constexpr int lastOfSystem = 4095; // FFmpeg's own numbers are beyond
    if (code < 0 && code >= -lastOfSystem) {
        return Host::systemProblem(AVUNERROR(code));
    }
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

void captureFfmpegLog()
{
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(keepMessage); });
}

std::string takeFfmpegMessage()
{
    const std::lock_guard lock(messageMutex);
    return std::exchange(lastMessage, {});
}

std::string ffmpegHint()
{
    const std::string message = takeFfmpegMessage();
    return message.empty() ? message : ": " + message;
}

} // namespace Qx::Media
