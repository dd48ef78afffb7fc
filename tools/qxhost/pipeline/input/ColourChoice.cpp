#include "tools/qxhost/pipeline/input/ColourChoice.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/pipeline/input/FrameInput.h"

namespace Qx::Program {

namespace {

[[noreturn]] void refuseColours(const ConvertOptions& options, const std::string& cause)
{
    std::vector<std::string> names;
    std::vector<std::string> words;
    for (const Media::MatrixInfo& info : Media::matrices()) {
        names.emplace_back(info.name);
        words.emplace_back(info.word);
    }
    throw Failure(ExitCode::input, options.inputName() + ": unsupported colours (" + cause + "): expected " +
                                       listed(names, "or") + "; to convert it all the same, add --matrix " +
                                       listed(words, "or"));
}

std::string guessNote(const ConvertOptions& options, const ColourChoice& choice)
{
    // Of the clip's own picture, which filters may have made another.
    const bool isWide = choice.matrix == Media::Matrix::bt709;
    const std::string why = choice.matrix == Media::Matrix::bt2020
                                ? "as its primaries are"
                                : std::string("the picture is ") + (isWide ? "" : "not ") + "wider than " +
                                      std::to_string(Media::standardDefinitionWidth) + " pixels";
    const std::string matrix = std::string(nameOf(choice.matrix)) + " (" + why + ")";
    const std::string range = std::string(nameOf(choice.range)) + " range";
    const std::string file = options.inputName();
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
    switch (range) {
    case Media::Range::video:
        break;
    case Media::Range::full:
        return "full";
    }
    return "video";
}

const char* nameOf(Media::Matrix matrix)
{
    return Media::infoOf(matrix).name;
}

ColourChoice chooseColour(const ConvertOptions& options, const Media::StreamInfo& info)
{
    const Media::Colour& tagged = info.colour;
    if (!tagged.unsupported.empty() && !options.matrix) {
        refuseColours(options, tagged.unsupported);
    }
    ColourChoice choice;
    choice.range = options.range.value_or(holdsRgb(info) ? tagged.rgbRange : tagged.range);
    choice.matrix = options.matrix.value_or(tagged.matrix);
    choice.rangeGuessed = !options.range && tagged.rangeGuessed;
    choice.matrixGuessed = !options.matrix && tagged.matrixGuessed;
    choice.forWriting = tagged;
    choice.forWriting.range = choice.range;
    choice.forWriting.matrix = choice.matrix;
    if (!tagged.fromRgb) {
        choice.forWriting.matrixTag = Media::writtenTag(choice.matrix, tagged.matrixTag);
    }
    if (choice.rangeGuessed || choice.matrixGuessed) {
        choice.notes.push_back(guessNote(options, choice));
    }
    if (!tagged.unsupported.empty()) {
        choice.notes.push_back(options.inputName() + ": " + tagged.unsupported + "; converting it as " +
                               nameOf(choice.matrix) + " all the same; its colours will be wrong");
    }
    return choice;
}

} // namespace Qx::Program
