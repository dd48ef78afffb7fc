#include "tools/qxhost/media/PictureWriter.h"

#include "tools/qxhost/media/Names.h"

#include <array>
#include <string_view>

namespace Qx::Media {

namespace {

struct PictureKind
{
    std::string_view extension;
    const char* encoder;
};

constexpr std::array kinds{
    PictureKind{"png", "png"},      PictureKind{"tif", "tiff"},  PictureKind{"tiff", "tiff"},
    PictureKind{"bmp", "bmp"},      PictureKind{"jpg", "mjpeg"}, PictureKind{"jpeg", "mjpeg"},
    PictureKind{"ppm", "ppm"},      PictureKind{"dpx", "dpx"},   PictureKind{"tga", "targa"},
    PictureKind{"webp", "libwebp"},
};

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

} // namespace

const char* pictureEncoder(const std::string& extension)
{
    for (const PictureKind& kind : kinds) {
        if (kind.extension == extension) {
            return kind.encoder;
        }
    }
    return nullptr;
}

NumberedNames::NumberedNames(const std::filesystem::path& pattern) : directory_(pattern.parent_path())
{
    const std::string name = pattern.filename().native();
    std::string* part = &before_;
    int numbers = 0;
    for (std::size_t at = 0; at < name.size(); ++at) {
        std::size_t end = at + 1;
        while (name[at] == '%' && end < name.size() && isDigit(name[end])) {
            ++end;
        }
        if (name[at] == '%' && end < name.size() && name[end] == 'd' && end - at <= 3) {
            digits_ = end > at + 1 ? std::stoi(name.substr(at + 1, end - at - 1)) : 1;
            part = &after_;
            ++numbers;
            at = end;
        } else if (name[at] == '%' && at + 1 < name.size() && name[at + 1] == '%') {
            *part += '%';
            ++at;
        } else {
            *part += name[at];
        }
    }
    isPattern_ = numbers == 1;
    if (!isPattern_) {
        before_ = pattern.stem().native() + "_";
        after_ = pattern.extension().native();
        digits_ = 5;
    }
}

std::filesystem::path NumberedNames::name(long number) const
{
    std::string digits = std::to_string(number);
    if (digits.size() < static_cast<std::size_t>(digits_)) {
        digits.insert(0, static_cast<std::size_t>(digits_) - digits.size(), '0');
    }
    return directory_ / (before_ + digits + after_);
}

Result<std::unique_ptr<iFrameWriter>> PictureWriter::open(const std::filesystem::path& file,
                                                          const OutputSettings& settings, const char* encoder)
{
    const std::string name = settings.encoder.empty() ? encoder : settings.encoder;
    const AVCodec* codec = avcodec_find_encoder_by_name(name.c_str());
    if (!codec || codec->type != AVMEDIA_TYPE_VIDEO) {
        return Error{"cannot write " + quoted(file) + ": this FFmpeg has no encoder \"" + name + "\""};
    }
    auto made = VideoEncoder::make(*codec, settings, toAv(settings.timeBase), false);
    if (!made) {
        return Error{"cannot write " + quoted(file) + ": " + made.text()};
    }
    // Made now, so that a place that cannot be written is found before the work begins.
    const NumberedNames names(file);
    auto first = OutputFile::create(names.isPattern() ? names.name(1) : file, settings.force);
    if (!first) {
        return first.error();
    }
    std::unique_ptr<PictureWriter> writer(new PictureWriter(file, settings, std::move(made.value())));
    writer->first_ = std::move(first.value());
    return std::unique_ptr<iFrameWriter>(std::move(writer));
}

PictureWriter::PictureWriter(const std::filesystem::path& file, const OutputSettings& settings,
                             VideoEncoder encoder)
    : file_(file), names_(file), force_(settings.force), encoder_(std::move(encoder))
{
    if (encoder_.dropsAlpha()) {
        warnings_.push_back("alpha is left out: " + encoder_.description() + " cannot hold it");
    }
    if (settings.audio && !settings.audio->tracks().empty()) {
        warnings_.emplace_back("audio is left out: pictures cannot hold it");
    }
}

Status PictureWriter::write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time)
{
    return encoder_.encode(rows, pitch, time, [this](const AVPacket& packet) { return take(packet); });
}

Status PictureWriter::complete(OutputFile& picture)
{
    Status status = picture.commit();
    if (status) {
        lastDone_ = picture.file();
        firstDone_ = firstDone_.empty() ? lastDone_ : firstDone_;
    }
    return status;
}

Status PictureWriter::take(const AVPacket& packet)
{
    ++taken_;
    const auto size = static_cast<std::size_t>(packet.size);
    if (taken_ == 1) {
        if (Status status = first_->write(packet.data, size); !status || !names_.isPattern()) {
            return status;
        }
        return complete(*first_);
    }
    if (taken_ == 2 && !names_.isPattern()) {
        if (Status status = first_->retarget(names_.name(1)); !status) {
            return status;
        }
        if (Status status = complete(*first_); !status) {
            return status;
        }
    }
    auto picture = OutputFile::create(names_.name(taken_), force_);
    if (!picture) {
        return picture.error();
    }
    if (Status status = picture.value().write(packet.data, size); !status) {
        return status;
    }
    return complete(picture.value());
}

Status PictureWriter::finish()
{
    if (Status status = encoder_.flush([this](const AVPacket& packet) { return take(packet); }); !status) {
        return status;
    }
    if (taken_ == 0) {
        return Error{"cannot write " + quoted(file_) + ": there was no frame to write"};
    }
    return taken_ == 1 && !names_.isPattern() ? complete(*first_) : Status();
}

std::vector<std::filesystem::path> PictureWriter::files() const
{
    if (firstDone_.empty()) {
        return {};
    }
    return firstDone_ == lastDone_ ? std::vector{firstDone_} : std::vector{firstDone_, lastDone_};
}

} // namespace Qx::Media
