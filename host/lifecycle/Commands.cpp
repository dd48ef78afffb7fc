#include "host/lifecycle/Commands.h"

#include "host/core/Immortal.h"
#include "platform/Commands.h"
#include "platform/Text.h"

#include <algorithm>
#include <mutex>

namespace Qx::Host {

namespace {

struct Registration
{
    const CommandRegistrar* owner;
    CommandRegistrar::Handler handler;
    RegisteredCommand command;
};

struct Registry
{
    std::mutex mutex;
    std::vector<Registration> registrations;
};

std::wstring textOf(const UIString& text)
{
    return std::wstring(
        (text.resource == UIString::noResource ? text.text : resourceStrW(text.resource)).view());
}

} // namespace

bool giveCommand(std::string_view name)
{
    CommandRegistrar::Handler handler = nullptr;
    {
        auto& registry = immortal<Registry>();
        const std::lock_guard lock(registry.mutex);
        const auto found = std::find_if(registry.registrations.rbegin(), registry.registrations.rend(),
                                        [&](const Registration& r) { return r.command.name == name; });
        handler = found != registry.registrations.rend() ? found->handler : nullptr;
    }
    if (handler != nullptr) {
        handler();
    }
    return handler != nullptr;
}

std::vector<RegisteredCommand> registeredCommands()
{
    auto& registry = immortal<Registry>();
    const std::lock_guard lock(registry.mutex);
    std::vector<RegisteredCommand> commands;
    for (const Registration& registration : registry.registrations) {
        commands.push_back(registration.command);
    }
    return commands;
}

} // namespace Qx::Host

using Qx::Host::immortal;
using Qx::Host::Registry;

CommandRegistrar::CommandRegistrar(const char* name, Handler handler, const UIString& displayText,
                                   const UIString& description, eCmdScope, const MapItem&)
    : name_(name)
{
    if (name == nullptr || handler == nullptr) {
        return;
    }
    auto& registry = immortal<Registry>();
    const std::lock_guard lock(registry.mutex);
    registry.registrations.push_back(
        {this, handler, {name, Qx::Host::textOf(displayText), Qx::Host::textOf(description)}});
}

CommandRegistrar::~CommandRegistrar()
{
    auto& registry = immortal<Registry>();
    const std::lock_guard lock(registry.mutex);
    std::erase_if(registry.registrations,
                  [this](const Qx::Host::Registration& r) { return r.owner == this; });
}
