#include "tools/qxhost/pipeline/input/ColourChoice.h"

#include "tools/qxhost/console/Failure.h"

namespace Qx::Program {

namespace {

// Rec. ITU-T H.273, table 4.
constexpr int matrixTagBT709 = 1;
constexpr int matrixTagBT470BG = 5; // the matrix of BT.601, 625 lines
constexpr int matrixTagBT601 = 6;

bool tagAgrees(int tag, Media::Matrix matrix)
{
    return matrix == Media::Matrix::bt709 ? tag == matrixTagBT709
                                          : tag == matrixTagBT601 || tag == matrixTagBT470BG;
}

std::string guessNote(const ConvertOptions& options, const Media::StreamInfo& info,
                      const ColourChoice& choice)
{
    const std::string matrix = std::string(nameOf(choice.matrix)) + " (the picture is " +
                               (info.width > 720 ? "" : "not ") + "wider than 720 pixels)";
    const std::string range = std::string(nameOf(choice.range)) + " range";
    const std::string file = options.input.string();
    if (!choice.rangeGuessed) {
        return file + ": has no tag for its matrix; assuming " + matrix + "; --matrix overrides";
    }
    if (!choice.matrixGuessed) {
        return file + ": has no tag for its range; assuming " + range + "; --range overrides";
    }
    return file + ": has no tags for its matrix and range; assuming " + matrix + " and " + range +
           "; --matrix and --range override";
}

} // namespace

const char* nameOf(Media::Range range)
{
    return range == Media::Range::video ? "video" : "full";
}

const char* nameOf(Media::Matrix matrix)
{
    return matrix == Media::Matrix::bt601 ? "BT.601" : "BT.709";
}

ColourChoice chooseColour(const ConvertOptions& options, const Media::StreamInfo& info)
{
    const Media::Colour& tagged = info.colour;
    if (!tagged.unsupported.empty() && !options.matrix) {
        throw Failure(ExitCode::input, options.input.string() +
                                           ": its colours are neither BT.601 nor BT.709 (" +
                                           tagged.unsupported +
                                           "); to convert it as if they were, add --matrix bt709 or bt601");
    }
    ColourChoice choice;
    choice.range = options.range.value_or(tagged.range);
    choice.matrix = options.matrix.value_or(tagged.matrix);
    choice.rangeGuessed = !options.range && tagged.rangeGuessed;
    choice.matrixGuessed = !options.matrix && tagged.matrixGuessed;
    choice.forWriting = tagged;
    choice.forWriting.range = choice.range;
    choice.forWriting.matrix = choice.matrix;
    if (!tagged.fromRgb && !tagAgrees(tagged.matrixTag, choice.matrix)) {
        choice.forWriting.matrixTag = choice.matrix == Media::Matrix::bt709 ? matrixTagBT709 : matrixTagBT601;
    }
    if (choice.rangeGuessed || choice.matrixGuessed) {
        choice.notes.push_back(guessNote(options, info, choice));
    }
    if (!tagged.unsupported.empty()) {
        choice.notes.push_back(options.input.string() + ": " + tagged.unsupported + "; converting it as " +
                               nameOf(choice.matrix) + " all the same, so its colours will be off");
    }
    return choice;
}

} // namespace Qx::Program
