#pragma once

#include "platform/ImageFormat.h"

#include <cstdint>

/// The description of a frame beside its pixels. A frame carries two records of one layout: four attributes
/// (the fourth is an 8-bit flag), three numbers and a flag.
namespace Qx::Image {

/// The frame as a picture in time.
class FrameDescription
{
public:
    TransparencyType getTransparency() const { return transparency_; } ///< the meaning of alpha
    void setTransparency(TransparencyType v) { transparency_ = v; }    ///< See getTransparency().
    float getPixelAspect() const { return pixelAspect_; }              ///< width of a pixel over its height
    void setPixelAspect(float v) { pixelAspect_ = v; }                 ///< See getPixelAspect().
    Raster getRaster() const { return raster_; }                       ///< the lines that it consists of
    void setRaster(Raster v) { raster_ = v; }                          ///< See getRaster().
    std::uint8_t getRepeated() const { return repeated_; } ///< 1 if the picture repeats the previous one
    void setRepeated(std::uint8_t v) { repeated_ = v; }    ///< See getRepeated().

    std::uint32_t frameNumber = 0;        ///< in the clip, from 0
    std::uint32_t frameRateNumerator = 0; ///< frames per second are numerator / denominator; 0 / 0 is unknown
    std::uint32_t frameRateDenominator = 0; ///< see the numerator
    bool dropFrame = false;                 ///< the time code uses drop-frame counting (SMPTE ST 12-1)

    /// Compares all members.
    friend bool operator==(const FrameDescription&, const FrameDescription&) = default;

private:
    TransparencyType transparency_ = TransparencyType::Unknown;
    float pixelAspect_ = 1.0F;
    Raster raster_ = Raster::Frame;
    std::uint8_t repeated_ = 0;
};

/// The frame as a video signal.
class SignalDescription
{
public:
    Polarity getPolarity() const { return polarity_; }             ///< the field order
    void setPolarity(Polarity v) { polarity_ = v; }                ///< See getPolarity().
    ColourSpace getColourSpace() const { return colourSpace_; }    ///< the matrix of YCrCb
    void setColourSpace(ColourSpace v) { colourSpace_ = v; }       ///< See getColourSpace().
    GamutScaling getGamutScaling() const { return gamutScaling_; } ///< the range of codes
    void setGamutScaling(GamutScaling v) { gamutScaling_ = v; }    ///< See getGamutScaling().

    /// 1 if colour space and gamut scaling were guessed and not read from the material.
    std::uint8_t getGuessed() const { return guessed_; }
    void setGuessed(std::uint8_t v) { guessed_ = v; } ///< See getGuessed().

    /// Code points of Rec. ITU-T H.273, tables 2, 3 and 4. 2 is unspecified.
    std::uint32_t colourPrimaries = 2;
    std::uint32_t transferCharacteristics = 2; ///< table 3
    std::uint32_t matrixCoefficients = 2;      ///< table 4
    bool interlacedChroma = false;             ///< chroma is subsampled within each field

    /// Compares all members.
    friend bool operator==(const SignalDescription&, const SignalDescription&) = default;

private:
    Polarity polarity_ = Polarity::Progressive;
    ColourSpace colourSpace_ = ColourSpace::Unknown;
    GamutScaling gamutScaling_ = GamutScaling::Unknown;
    std::uint8_t guessed_ = 0;
};

/// Both records. They are copied together when a surface is derived from another.
struct ImageDescriptions
{
    FrameDescription frame;   ///< the picture in time
    SignalDescription signal; ///< the video signal

    /// Compares all members.
    friend bool operator==(const ImageDescriptions&, const ImageDescriptions&) = default;
};

namespace Core {

/// The memory layout of an image.
class Data
{
public:
    Data() = default;
    /// All other members have their defaults.
    Data(std::uint32_t w, std::uint32_t h, Format f, std::uint16_t perComponent, std::uint16_t perPixel)
        : width(w), height(h), bitsPerComponent(perComponent), bitsPerPixel(perPixel), format(f)
    {
    }

    Format getDataFormat() const { return format; }                        ///< as `format`
    std::uint16_t getBitsPerComponent() const { return bitsPerComponent; } ///< as `bitsPerComponent`

    std::uint32_t width = 0;            ///< in pixels
    std::uint32_t height = 0;           ///< in lines
    std::uint16_t bitsPerComponent = 0; ///< 1 to 16
    std::uint16_t bitsPerPixel = 0;     ///< 0: derived from the format
    Format format = UnknownFormat;      ///< the pixel format
    std::uint8_t topDown = 1;           ///< 1: the first row in memory is the top line of the picture
    std::uint32_t rowPitch = 0;         ///< bytes from one row to the next; 0: rows have no padding

    /// Compares all members.
    friend bool operator==(const Data&, const Data&) = default;
};

} // namespace Core

} // namespace Qx::Image
