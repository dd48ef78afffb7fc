#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/Ptr.h"

#include <cstddef>
#include <utility>

namespace Qx {

/// A shared, reference-counted vector: copies refer to the same list, and every holder sees a change. Storage
/// comes from the host's allocator. Not synchronised: readers and writers of one list need a lock.
template <class T>
class LightweightVector
{
public:
    LightweightVector() : shared_(makePtr<Shared>()) {}

    std::size_t size() const noexcept { return shared_->items.size(); }   ///< number of items
    bool empty() const noexcept { return shared_->items.empty(); }        ///< whether there are none
    void push_back(T item) { shared_->items.push_back(std::move(item)); } ///< appends an item
    void clear() noexcept { Vector<T>().swap(shared_->items); }           ///< also frees the storage

    const T& operator[](std::size_t i) const noexcept { return shared_->items[i]; } ///< i less than size()
    auto begin() const noexcept { return shared_->items.cbegin(); }                 ///< the first item
    auto end() const noexcept { return shared_->items.cend(); }                     ///< behind the last item

private:
    struct Shared : iObject
    {
        Vector<T> items;
    };

    Ptr<Shared> shared_;
};

} // namespace Qx

using Qx::LightweightVector;
