#pragma once

#include "Qx/Ptr.h"
#include "Qx/iObject.h"
#include "platform/CriticalSection.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

/// The size policy of a Cache: from `Limit` entries on, each new entry evicts one.
template <std::size_t Limit>
struct SizeLimit
{
    /// Whether a new entry evicts one.
    static constexpr bool isReached(std::size_t entries) { return entries >= Limit; }
};

/// A cache of expensive values by key, with handles that count their users.
///
/// Each new value beyond the limit evicts the first one in key order that no handle refers to. Values in use
/// are never evicted, so the cache may exceed its limit. Thread-safe, except clear() and size().
template <class Key, class Value, class SizePolicy>
class Cache
{
    struct RefCountedValue
    {
        Value value;
        int useCount = 0; ///< live handles; negative if two threads created the same value
    };

    /// Shared with the handles, which may outlive the cache.
    struct State : iObject
    {
        CriticalSection lock;
        std::map<Key, RefCountedValue> entries; ///< guarded by lock
    };

public:
    /// A counted use of a value, shared through Qx::Ptr. The value is valid for the lifetime of the handle.
    class Result : public iObject
    {
    public:
        /// For the cache alone, which counts the use.
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

        const Value& value() const { return value_; } ///< the value, as long as the handle lives
        const Key& key() const { return key_; }       ///< the key that it was asked for by

    private:
        Qx::Ptr<State> cache_;
        Value value_;
        Key key_;
    };

    Cache() : state_(Qx::makePtr<State>()) {}

    /// Returns a handle to the value of `key`, never empty. If there is none, creates it with `make()`,
    /// without holding the lock. If another thread inserts a value for the key first, the caller still
    /// receives the one that it created.
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

    /// Removes all entries; handles keep their values. Takes no lock: no other thread may use the cache.
    void clear() { state_->entries.clear(); }

    /// Returns the number of entries. Takes no lock: no other thread may use the cache.
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
