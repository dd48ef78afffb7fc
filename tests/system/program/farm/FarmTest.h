#pragma once

#include "tests/system/program/Program.h"

#include <string>
#include <vector>

namespace Qx::System {

/// Clips, and what FFmpeg says of them.
class FarmTest : public ProgramTest
{
protected:
    using Words = std::vector<std::string>;

    /// 50 frames of ProRes at 30000/1001 with drop-frame time code and a tone of PCM.
    void makeClip(const std::string& name) const;

    /// A hash of each packet of all streams with its times, and of what the container says of them.
    std::string packets(const std::string& file) const;

    /// The times of the packets of a kind of stream ("v" or "a"), and how long they last, in order of time.
    std::string times(const std::string& file, const std::string& kind) const;

    /// A hash of each decoded frame, or of all audio.
    std::string frameHashes(const std::string& file, const std::string& kind) const;

    /// Runs "qxhost convert INPUT OUTPUT" with the arguments; it must succeed.
    void convert(const std::string& input, const std::string& output, Words arguments) const;

    /// Makes the folder "film.job" of "clip.mov" and "graded.mov"; it must succeed.
    void makeJob(Words arguments) const;

    nlohmann::json status() const;

    /// Runs the program under a limit on the size of files, to which a software device's memory is far from.
    Outcome withFilesUpTo32MiB(const std::string& arguments) const;
};

} // namespace Qx::System
