#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/studio/server/Service.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Program::Studio {

struct SessionOptions
{
    std::filesystem::path clip;
    std::vector<std::string> effects; ///< and LUTs, as named on the command line, in their order
    std::filesystem::path look;       ///< to begin with; empty: the effects
    std::filesystem::path looks;      ///< the folder of looks; empty: the current directory
    bool rotates = false;             ///< shows pictures as players would
};

/// What all windows of the page share: the clip, the look, the place in the clip, whether it plays. Draws on
/// a thread of its own and sends each window what that shows. Needs a HostSession.
class Session final : public iService
{
public:
    /// Opens the clip, compiles the effects and draws the first frame. Throws Failure.
    Session(const SessionOptions& options, Console& console);
    ~Session() override;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Ends the thread and lets go of the windows, which must happen before their server goes. What windows
    /// call afterwards does nothing.
    void stop();

    void opened(const WindowPtr& window) override;
    void message(const WindowPtr& window, std::string text) override;
    void closed(const WindowPtr& window) override;
    void picture(const std::string& path, TakeJpeg done) override;

private:
    class Worker;
    std::unique_ptr<Worker> worker_;
};

} // namespace Qx::Program::Studio
