#include "host/fonts/Typeface.h"

#include "host/core/Immortal.h"
#include "host/core/Printable.h"
#include "platform/Log.h"
#include "platform/Text.h"

#include <set>

namespace Qx::Host::Text {

namespace {

struct Said
{
    std::mutex mutex;
    std::set<std::string> sentences;
};

void sayOnce(const std::string& sentence)
{
    auto& said = immortal<Said>();
    const std::lock_guard lock(said.mutex);
    if (said.sentences.insert(sentence).second) {
        Log("Fonts: %s\n", sentence.c_str());
    }
}

/// Null, with the reason, on failure.
std::shared_ptr<TextShaper> tryTypeface(const std::string& name, int size, int style, std::string& failure,
                                        std::string& remark)
{
    if (name.empty()) {
        failure = "a font needs the name of a typeface";
        return nullptr;
    }
    if (size < smallestFont || size > largestFont) {
        failure = "invalid font size " + std::to_string(size) + ": expected " + std::to_string(smallestFont) +
                  " to " + std::to_string(largestFont) + " pixels";
        return nullptr;
    }
    const auto files = FontFiles::find(name, style, failure);
    if (files == nullptr) {
        return nullptr;
    }
    remark = files->substitution();
    return TextShaper::create(files, size, failure);
}

} // namespace

std::string whyNoTypeface(const std::string& typeface, int size, std::string& remark)
{
    std::string failure;
    return tryTypeface(typeface, size, 0, failure, remark) != nullptr ? std::string() : failure;
}

std::string fileOfTypeface(const std::string& typeface)
{
    std::string failure;
    const auto files = FontFiles::find(typeface, 0, failure);
    if (files == nullptr) {
        return {};
    }
    const FontFile& file = files->first();
    return file.index == 0 && !file.bold && !file.slant ? file.path : std::string();
}

std::shared_ptr<TextShaper> openTypeface(const LightweightString<wchar_t>& typeface, int size, int style)
{
    const std::string name(toUTF8(typeface).view());
    std::string failure;
    std::string remark;
    std::shared_ptr<TextShaper> shaper = tryTypeface(name, size, style, failure, remark);
    if (shaper == nullptr) {
        Log("Fonts: \"%s\": %s\n", printable(name).c_str(), failure.c_str());
    } else if (!remark.empty()) {
        sayOnce(remark);
    }
    return shaper;
}

} // namespace Qx::Host::Text
