#include "tools/qxhost/media/filter/MessageCollector.h"

namespace Qx::Media {

namespace {

thread_local std::string* collected = nullptr;

} // namespace

MessageCollector::MessageCollector()
{
    collected = &text_;
}

MessageCollector::~MessageCollector()
{
    collected = nullptr;
}

bool MessageCollector::add(const std::string& message)
{
    constexpr std::size_t most = 1000;
    if (collected != nullptr && collected->size() < most) {
        *collected += (collected->empty() ? "" : "; ") + message;
    }
    return collected != nullptr;
}

} // namespace Qx::Media
