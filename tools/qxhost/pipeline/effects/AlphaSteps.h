#pragma once

#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// What alpha is taken to be in an input that does not say: premultiplied in OpenEXR, as its specification
/// has it, else straight.
Media::AlphaKind alphaOf(const Media::StreamInfo& info);

/// What alpha is written as.
Media::AlphaKind alphaFor(const std::filesystem::path& output);

const char* nameOf(Media::AlphaKind kind);

/// Puts in what makes alpha straight for the effects between, and as the output has it. Returns notes.
std::vector<std::string> fitAlpha(ConvertOptions& options, const Media::StreamInfo& info);

} // namespace Qx::Program
