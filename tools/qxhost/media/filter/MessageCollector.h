#pragma once

#include <string>

namespace Qx::Media {

/// Collects FFmpeg's error messages of this thread while it lives, instead of the last one alone. One at a
/// time.
class MessageCollector
{
public:
    MessageCollector();
    ~MessageCollector();
    MessageCollector(const MessageCollector&) = delete;
    MessageCollector& operator=(const MessageCollector&) = delete;

    /// Those so far, separated by "; ".
    const std::string& text() const { return text_; }

    /// Adds a message to this thread's collector. False if there is none.
    static bool add(const std::string& message);

private:
    std::string text_;
};

} // namespace Qx::Media
