#pragma once

#include "Qx/Ptr.h"
#include "Qx/iObject.h"
#include "platform/CriticalSection.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

/// The size policy of a Cache: one entry is given up for a new one once there are so many.
template <std::size_t Limit>
struct SizeLimit
{
    static constexpr bool isReached(std::size_t entries) { return entries >= Limit; }
};

/// Values that are costly to make, by key, and handles that count who uses them.
///
/// A new value takes the place of the first one in key order that no handle refers to; values in use are
/// never given up, so the cache may outgrow its limit. Any thread, apart from what is said of clear().
template <class Key, class Value, class SizePolicy>
class Cache
{
    struct RefCountedValue
    {
        Value value;
        int useCount = 0; ///< live handles; below zero when two threads made the same value
    };

    /// Shared with the handles, which may outlive the cache.
    struct State : iObject
    {
        CriticalSection lock;
        std::map<Key, RefCountedValue> entries; ///< guarded by lock
    };

public:
    /// A counted use of a value, shared through Qx::Ptr. The value stays valid as long as the handle does.
    class Result : public iObject
    {
    public:
        Result(Qx::Ptr<State> cache, Value value, Key key)
            : cache_(std::move(cache)), value_(std::move(value)), key_(std::move(key))
        {
        }

        ~Result() override
        {
            const CriticalSectionScope inside(cache_->lock);
            if (const auto found = cache_->entries.find(key_); found != cache_->entries.end()) {
                --found->second.useCount;
            }
        }

        const Value& value() const { return value_; }
        const Key& key() const { return key_; }

    private:
        Qx::Ptr<State> cache_;
        Value value_;
        Key key_;
    };

    Cache() : state_(Qx::makePtr<State>()) {}

    /// The value of that key; `make()` makes it when there is none, without the lock. Who made it gets that
    /// one, also when another thread was first to put one of the key into the cache.
    template <class Make>
    Qx::Ptr<Result> get(const Key& key, Make make) const
    {
        {
            const CriticalSectionScope inside(state_->lock);
            if (const auto found = state_->entries.find(key); found != state_->entries.end()) {
                ++found->second.useCount;
                return Qx::makePtr<Result>(state_, found->second.value, key);
            }
        }
        const Value value = make();
        const CriticalSectionScope inside(state_->lock);
        if (SizePolicy::isReached(state_->entries.size())) {
            evictOne();
        }
        state_->entries.emplace(key, RefCountedValue{value, 1});
        return Qx::makePtr<Result>(state_, value, key);
    }

    /// Forgets every entry; handles keep their values. It takes no lock: no other thread may be using the
    /// cache.
    void clear() { state_->entries.clear(); }

    /// Entries now. It takes no lock either.
    std::size_t size() const { return state_->entries.size(); }

private:
    void evictOne() const
    {
        const CriticalSectionScope inside(state_->lock);
        auto& entries = state_->entries;
        const auto unused = std::find_if(entries.begin(), entries.end(),
                                         [](const auto& entry) { return entry.second.useCount <= 0; });
        if (unused != entries.end()) {
            entries.erase(unused);
        }
    }

    Qx::Ptr<State> state_;
};
