#include "tools/qxhost/ColourChoice.h"

#include "tools/qxhost/Failure.h"

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
    std::string guesses;
    if (choice.matrixGuessed) {
        guesses += std::string(nameOf(choice.matrix)) + " (the picture is " + std::to_string(info.width) +
                   " pixels wide; --matrix)";
    }
    if (choice.rangeGuessed) {
        guesses += std::string(guesses.empty() ? "" : " and ") + nameOf(choice.range) + " range (--range)";
    }
    return options.input.string() + ": says nothing of its " +
           (choice.matrixGuessed && choice.rangeGuessed ? "matrix and range"
            : choice.matrixGuessed                      ? "matrix"
                                                        : "range") +
           "; assuming " + guesses;
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
