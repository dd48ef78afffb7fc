#include "platform/StartEnv.h"

#include "host/core/Immortal.h"
#include "host/lifecycle/StartArguments.h"
#include "platform/Text.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace Qx::Host {

namespace {

struct Arguments
{
    std::mutex mutex;
    std::vector<std::wstring> texts;
};

} // namespace

void setStartArguments(int count, const char* const* arguments)
{
    std::vector<std::wstring> texts;
    for (int i = 1; i < count && arguments != nullptr && arguments[i] != nullptr; ++i) {
        texts.emplace_back(fromUTF8(arguments[i]).view());
    }
    auto& known = immortal<Arguments>();
    const std::lock_guard lock(known.mutex);
    known.texts.swap(texts);
}

} // namespace Qx::Host

StartEnv& StartEnv::programEnv()
{
    return Qx::Host::immortal<StartEnv>();
}

int StartEnv::arg(const wchar_t* name) const
{
    auto& known = Qx::Host::immortal<Qx::Host::Arguments>();
    const std::lock_guard lock(known.mutex);
    return name != nullptr && std::count(known.texts.begin(), known.texts.end(), name) != 0 ? 1 : 0;
}
