#pragma once

#include "tests/system/program/Program.h"
#include "tests/system/program/studio/Browser.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Qx::System {

/// A studio that shows a clip, in a directory of its own.
class StudioTest : public ProgramTest
{
protected:
    /// Starts it with these arguments behind "studio", and waits for its address.
    void start(const std::vector<std::string>& arguments);

    /// Ends it with Ctrl-C; the exit code has to be 0.
    void stop();

    Browser window() const { return Browser(address_); }

    /// A GET of a path behind the token, with the status as a number and the body.
    struct Reply
    {
        int status = 0;
        std::string headers;
        std::string body;
    };
    Reply get(const std::string& path, const std::string& method = "GET") const;
    /// A whole request, as it stands.
    Reply ask(const std::string& request) const;
    /// The head of a request with these lines behind the first.
    std::string head(const std::string& method, const std::string& target,
                     const std::string& lines = "") const;

    bool becomes(const std::function<bool()>& condition) const;

    /// Of the program: open descriptors, and KiB of memory in use.
    std::size_t descriptors() const;
    std::size_t memory() const;

    /// 25 frames of moving colours, H.264 with B frames.
    void makeClip(const std::string& name = "clip.mp4", const std::string& size = "320x180",
                  const std::string& pixelFormat = "yuv420p");

    /// The last problem of a state; empty without one.
    static std::string problemOf(const Json& state);

    /// An effect that multiplies by a parameter.
    static std::string dimming(const std::string& factor = "amount");

    std::unique_ptr<Running> program_;
    std::string address_;
    Address parts_;
};

} // namespace Qx::System
