#pragma once

#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <CLI/CLI.hpp>
#include <string>

namespace Qx::Program {

// Arguments that the commands share which convert. Their targets must live as long as the command.

/// Adds INPUT and OUTPUT. `output` describes the latter.
void addFiles(CLI::App& app, ConvertOptions& options, const std::string& output);

/// Adds the options that pick frames: those for the first to the group, and for the others too if `withEnd`.
void addRange(CLI::App& app, FrameRangeOptions& range, const std::string& group, bool withEnd);

/// Throws Failure (usage) if options say the same in different ways.
void checkRange(const CLI::App& app);

void addColour(CLI::App& app, ConvertOptions& options);

void addAlphaAndDither(CLI::App& app, ConvertOptions& options);

/// "--dither" may stand without its word: such ones get the usual one, and words that follow it are joined to
/// it. Other words stay as they are.
void settleDither(std::vector<std::string>& words);

/// What "--size" stands for in a command.
enum class SizeOption
{
    ofInput, ///< the size of raw frames
    ofOutput ///< something else; raw frames then have "--raw-size"
};

void addRawInput(CLI::App& app, RawInputOptions& raw, SizeOption sizeOption);

/// Adds the options for numbered pictures.
void addSequence(CLI::App& app, SequenceOptions& sequence);

void addOutput(CLI::App& app, ConvertOptions& options);

/// Adds the options for the audio of a clip.
void addAudio(CLI::App& app, ConvertOptions& options);

/// Adds "--device", "--quiet", "--json" and "--help".
void addOther(CLI::App& app, ConvertOptions& options);

/// Completes the pixel formats by the files' names. Throws Failure (usage) if a file is missing or the
/// options of its frames contradict each other.
void checkFiles(const CLI::App& app, ConvertOptions& options);

} // namespace Qx::Program
