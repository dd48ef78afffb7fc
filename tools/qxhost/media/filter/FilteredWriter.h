#pragma once

#include "tools/qxhost/media/write/FrameWriter.h"

#include <filesystem>
#include <memory>
#include <string>

namespace Qx::Media {

/// Whether such filters behind a conversion take frames of floats, and make such.
bool filtersTakeFloats(const OutputSettings& settings, const std::string& text);

/// Opens a writer, as openWriter() does, that runs frames through a graph of filters before it encodes them.
/// Filters get planar RGB of the full depth, or of floats with `settings.floats`. Changes the settings to
/// those of the frames that come out. settings.stored must be empty.
Result<std::unique_ptr<iFrameWriter>> openFilteredWriter(const std::filesystem::path& file,
                                                         OutputSettings& settings, const std::string& text,
                                                         const std::string& option);

} // namespace Qx::Media
