#pragma once

#include "host/luts/ColourSpaces.h"
#include "platform/ImageFormat.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/pipeline/formats/PixelFormat.h"
#include "tools/qxhost/pipeline/look/KeyFrames.h"
#include "tools/qxhost/pipeline/options/BurnInOptions.h"
#include "tools/qxhost/pipeline/options/DateTime.h"
#include "tools/qxhost/pipeline/options/FilterOptions.h"
#include "tools/qxhost/pipeline/options/FrameRangeOptions.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Qx::Program {

/// One "--set NAME=VALUE[,VALUE...]".
struct ParameterSetting
{
    std::string name;
    std::vector<float> values; ///< at least one, all finite
};

class iTextureFile;

/// One "--texture NAME=FILE", or a texture whose pictures another program gives.
struct TextureFile
{
    std::string name;                         ///< of the effect's texture
    std::filesystem::path file;               ///< a picture or a clip
    std::shared_ptr<iTextureFile> pictures{}; ///< if it is set, there is no file
};

/// The effect that draws tables.
constexpr const char* tableEffect = "LUT.fx";

/// One "--effect FILE" or "--lut FILE" with its further options, or "--look FILE", which stands for several.
struct EffectRequest
{
    std::string file;      ///< a name of the catalogue, or a path
    std::string technique; ///< empty: the file's first
    std::vector<ParameterSetting> settings;
    std::string lut; ///< of "--lut", a LUT of the catalogue or a path; the effect is then the one for tables
    std::vector<TextureFile> textures{};
    bool mapsTones = false;                        ///< of "--tone-map"
    std::optional<Host::ColourSpaceChange> ocio{}; ///< of "--ocio"; the effect is then the one for tables
    std::vector<KeyedParameter> keyed{};           ///< parameters that change with the frames
    std::filesystem::path look{};                  ///< of "--look", if it stands for one, or comes from one

    /// Whether the effect draws a table: of a LUT, or of colour spaces.
    bool hasTable() const { return ocio || !lut.empty(); }

    /// Whether it stands for the steps of a look that has yet to be read; all else is empty then.
    bool isLook() const { return !look.empty() && file.empty(); }
};

/// The user's description of a raw input, which holds nothing but frames.
struct RawInputOptions
{
    std::optional<PixelFormat> format; ///< empty: the input is a clip or picture
    unsigned width = 0;                ///< pixels; 0: not given
    unsigned height = 0;
    const char* sizeOption = "--size";        ///< the option by which the command takes them
    std::int64_t rowBytes = 0;                ///< from a row to the next in the file; 0: the format's own
    std::optional<Media::Rational> frameRate; ///< empty: 25
};

/// The user's description of an input of numbered pictures, and of the numbers of pictures written.
struct SequenceOptions
{
    std::optional<std::int64_t> startNumber; ///< the first picture that is read; empty: the lowest number
    Media::MissingPictures missing = Media::MissingPictures::end;
    std::optional<std::int64_t> renumber; ///< the first picture written; empty: the input's number, or 1
};

/// "qxhost fields": every frame becomes its two fields.
struct SeparateFields
{
    std::optional<Media::FieldOrder> order; ///< which was first in time; empty: as tagged in the input
};

/// "qxhost thumbnail": a frame becomes one small picture.
struct ShrinkPicture
{
    unsigned width = 0; ///< largest, in pixels
    unsigned height = 0;
    bool stretch = false; ///< to exactly that size, whatever the shape
};

/// The step after the effects.
using PictureStep = std::variant<std::monostate, SeparateFields, ShrinkPicture>;

/// A part of a conversion, whose other parts are converted elsewhere. Times are the input's, in its units.
struct Segment
{
    std::optional<std::int64_t> begin;   ///< the first frame's; empty: where the conversion begins
    std::optional<std::int64_t> end;     ///< no frame at or after it; empty: where the conversion ends
    std::optional<std::int64_t> preroll; ///< runs effects from this earlier frame on, without writing it
    std::int64_t frames = 0;             ///< that there should be
    std::int64_t firstOfAll = 0;         ///< of the first frame of the whole conversion
    std::int64_t origin = 0;             ///< from which the times of the whole output count
};

/// The options of "qxhost convert", and of the commands that convert in a particular way.
struct ConvertOptions
{
    std::filesystem::path input;
    std::filesystem::path output;

    RawInputOptions raw;
    SequenceOptions sequence;
    std::optional<PixelFormat> format; ///< of the frames written; empty: the encoder's own
    std::int64_t outputRowBytes = 0;   ///< from a row to the next in a raw file; 0: the format's own
    PictureStep step;

    std::optional<Media::Range> range; ///< of the input, overriding its tags
    std::optional<Media::Matrix> matrix;
    std::optional<Media::Range> outputRange; ///< of the RGB that leaves the conversion
    Image::Filter filter = Image::Filter::CatmullRom;
    std::optional<Media::Depth> depth;
    std::vector<EffectRequest> effects; ///< in the order in which they run

    std::optional<DateTime> date; ///< of the clip's beginning, for effects and texts; empty: now

    std::vector<BurnInOptions> burnIns; ///< drawn in this order, after the effects
    FilterOptions filters;

    FrameRangeOptions picked;       ///< the frames that are converted
    std::optional<Segment> segment; ///< of these

    bool rotates = false;                  ///< shows pictures as players would
    std::optional<Media::AlphaKind> alpha; ///< of the input; empty: as is usual for its kind
    Media::Dither dither = Media::Dither::none;

    std::string container; ///< of standard output, or its pictures, by their extension; empty: nut
    std::string codec;
    std::string pixelFormat;
    std::string profile;                             ///< of the codec; empty: by the pixel format
    Media::RateWish rate;                            ///< how large the encoder may make the output
    std::map<std::string, std::string> videoOptions; ///< of the encoder, FFmpeg's names
    bool audio = true;
    std::string
        audioCodec; ///< "copy", FFmpeg's name of an encoder, or empty: copied if the output can hold it
    std::map<std::string, std::string> audioOptions; ///< of the audio encoders
    bool force = false;
    std::string device;
    bool quiet = false;
    bool progress = true; ///< shown, unless quiet
    bool json = false;

    bool readsStandardInput() const { return input == Media::standardName; }
    bool writesStandardOutput() const { return output == Media::standardName; }
    bool dithers() const { return dither != Media::Dither::none; }
    /// The output with an extension that says what it is, also for standard output.
    std::filesystem::path namedOutput() const
    {
        return writesStandardOutput() ? std::filesystem::path("standard output." + container) : output;
    }
    /// For messages.
    std::string inputName() const { return readsStandardInput() ? "standard input" : input.string(); }
    std::string outputName() const { return writesStandardOutput() ? "standard output" : output.string(); }
};

} // namespace Qx::Program
