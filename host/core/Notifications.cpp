#include "platform/Notifications.h"

#include "host/core/Immortal.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>

namespace {

constexpr std::uint32_t lutListChangedId = 1;

struct NamedTypes
{
    std::mutex mutex;
    std::map<std::string, std::uint32_t, std::less<>> ids;
    std::uint32_t nextId = lutListChangedId + 1;
};

} // namespace

NotifyMsgTypeDictionary& NotifyMsgTypeDictionary::instance()
{
    return Qx::Host::immortal<NotifyMsgTypeDictionary>();
}

NotifyMsgType NotifyMsgTypeDictionary::lutListChanged() const
{
    return {lutListChangedId};
}

NotifyMsgType NotifyMsgTypeDictionary::lookUp(const LightweightString<char>& name)
{
    auto& named = Qx::Host::immortal<NamedTypes>();
    const std::lock_guard lock(named.mutex);
    const auto [entry, isNew] = named.ids.try_emplace(std::string(name.view()), named.nextId);
    if (isNew) {
        ++named.nextId;
    }
    return {entry->second};
}

Notifier::Notifier() = default;
Notifier::~Notifier() = default;

void Notifier::addListener(Listener listener, void* context)
{
    const CriticalSectionScope scope(lock_);
    const auto isSame = [&](const Record& r) { return r.listener == listener && r.context == context; };
    if (listener != nullptr && std::none_of(listeners_.begin(), listeners_.end(), isSame)) {
        listeners_.push_back({listener, context});
    }
}

void Notifier::removeListener(Listener listener, void* context)
{
    const CriticalSectionScope scope(lock_);
    std::erase_if(listeners_,
                  [&](const Record& r) { return r.listener == listener && r.context == context; });
}

// The lock is not held while listeners run: a listener that waits for a thread which adds one would never
// return.
void Notifier::issueNotification(const NotifyMsg& message, int) const
{
    Qx::Vector<Record> current;
    {
        const CriticalSectionScope scope(lock_);
        current = listeners_;
    }
    for (const Record& record : current) {
        {
            const CriticalSectionScope scope(lock_);
            const auto isSame = [&](const Record& r) {
                return r.listener == record.listener && r.context == record.context;
            };
            if (std::none_of(listeners_.begin(), listeners_.end(), isSame)) {
                continue; // an earlier listener removed it
            }
        }
        record.listener(record.context, message);
    }
}
