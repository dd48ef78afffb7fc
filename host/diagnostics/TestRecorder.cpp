#include "host/diagnostics/TestRecorder.h"

#include "platform/Text.h"

#include <utility>

namespace Qx::Host {

TestRecorder::TestRecorder(std::function<void(const TestLine&)> listener) : listener_(std::move(listener)) {}

void TestRecorder::logLine(const LightweightString<wchar_t>& text, int category)
{
    lines_.push_back({std::string(toUTF8(text).view()), category, test_});
    if (listener_) {
        listener_(lines_.back());
    }
}

} // namespace Qx::Host
