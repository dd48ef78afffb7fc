#pragma once

#include <memory>
#include <string>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

/// The pictures of a clip, decoded by FFmpeg to 8 bits of 4:2:2, in the order Y0 Cb Y1 Cr.
class Clip
{
public:
    /// Null, with the reason in `failure`.
    static std::unique_ptr<Clip> open(const std::string& file, std::string& failure);
    ~Clip();
    Clip(const Clip&) = delete;
    Clip& operator=(const Clip&) = delete;

    unsigned width() const;         ///< in pixels; even
    unsigned height() const;        ///< in pixels
    double framesPerSecond() const; ///< 25 if the clip does not say it
    bool isBT709() const;           ///< else BT.601; of the frame read last
    bool isFullRange() const;       ///< else video range; of the frame read last

    /// Decodes the next frame to `rows`, `pitch` bytes each. False at the end of the clip or if it is damaged
    /// there.
    bool read(unsigned char* rows, int pitch);

private:
    Clip() = default;
    bool decode();

    AVFormatContext* format_ = nullptr;
    AVCodecContext* codec_ = nullptr;
    AVPacket* packet_ = nullptr;
    AVFrame* frame_ = nullptr;
    SwsContext* scaler_ = nullptr;
    int stream_ = -1;
    bool ended_ = false;
};
