#include "host/gpu/drawing/Recorder.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

// Enough for a submission of its own while the device is busy with earlier ones.
constexpr std::uint64_t dueBytes = 32U << 20;
constexpr std::uint32_t dueOperations = 64;

// Enough for an idle device not to wait for more.
constexpr std::uint64_t dueBytesWhenIdle = 256U << 10;

using Clock = std::chrono::steady_clock;

/// A point that a submission waits for before it begins, or signals at its end.
VkSemaphoreSubmitInfo submitInfo(const DevicePoint& point)
{
    VkSemaphoreSubmitInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_SUBMIT_INFO;
    info.semaphore = point.semaphore;
    info.value = point.value;
    info.stageMask = VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT;
    return info;
}

} // namespace

bool Recorder::create()
{
    return createTimeline(timeline_) && (!device_.has(Lane::Uploads) || createTimeline(uploadTimeline_)) &&
           (!device_.has(Lane::Downloads) || createTimeline(downloadTimeline_));
}

bool Recorder::createTimeline(VkSemaphore& timeline)
{
    VkSemaphoreTypeCreateInfo type{};
    type.sType = VK_STRUCTURE_TYPE_SEMAPHORE_TYPE_CREATE_INFO;
    type.semaphoreType = VK_SEMAPHORE_TYPE_TIMELINE;
    VkSemaphoreCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO;
    info.pNext = &type;
    return device_.succeeded(vkCreateSemaphore(device_.handle(), &info, nullptr, &timeline),
                             "creating the timeline");
}

std::uint64_t Recorder::completed()
{
    std::uint64_t value = 0;
    std::uint64_t downloaded = 0;
    VkResult result = hostQueue_.valueOf(timeline_, value);
    if (result == VK_SUCCESS && downloadTimeline_ != nullptr) {
        result = hostQueue_.valueOf(downloadTimeline_, downloaded);
    }
    if (result != VK_SUCCESS) {
        device_.succeeded(result, "asking for the device's progress");
        return completed_;
    }
    value = downloads_.finished(value, downloaded);
    std::uint64_t known = completed_.load();
    while (known < value && !completed_.compare_exchange_weak(known, value)) {
    }
    return std::max(known, value);
}

void Recorder::retire()
{
    const std::uint64_t done = completed();
    while (!pending_.empty() && pending_.front()->value() <= done) {
        inFlightBytes_ -= pending_.front()->bytes;
        if (timing_ && pending_.front()->value() > timing_->after) {
            addTo(*timing_, *pending_.front());
        }
        free_.push_back(std::move(pending_.front()));
        pending_.pop_front();
    }
    while (!deferred_.empty() && deferred_.front().value <= done) {
        deferred_.front().destroy();
        deferred_.pop_front();
    }
}

bool Recorder::makeRoom(std::uint64_t bytes)
{
    for (;;) {
        std::uint64_t oldest = 0;
        {
            const std::lock_guard lock(mutex_);
            if (device_.isLost()) {
                return false;
            }
            retire();
            if (inFlightBytes_ + bytes <= inFlightLimit_) {
                return true;
            }
            if (pending_.empty() && (open_ == nullptr || !submitOpen())) {
                return !device_.isLost();
            }
            oldest = pending_.front()->value();
        }
        if (!wait(oldest)) {
            return false;
        }
    }
}

Batch* Recorder::openBatch()
{
    if (device_.isLost()) {
        return nullptr;
    }
    if (open_ == nullptr) {
        retire();
        std::unique_ptr<Batch> batch = takeBatch();
        if (!batch->begin(lastValue_ + 1, timing_.has_value())) {
            batch->destroy();
            return nullptr;
        }
        ++lastValue_;
        open_ = std::move(batch);
    }
    return open_.get();
}

/// One that is not in use.
std::unique_ptr<Batch> Recorder::takeBatch()
{
    if (free_.empty()) {
        return std::make_unique<Batch>(device_, memory_);
    }
    std::unique_ptr<Batch> batch = std::move(free_.back());
    free_.pop_back();
    return batch;
}

/// Everything that was recorded before goes ahead, with what the textures need. Null on failure.
std::unique_ptr<Batch> Recorder::batchOnHost(std::span<Texture* const> textures)
{
    if (device_.isLost() || textures.empty()) {
        return nullptr;
    }
    for (Texture* const texture : textures) {
        if (texture->use.layout == VK_IMAGE_LAYOUT_GENERAL) {
            continue;
        }
        Batch* const before = openBatch();
        if (before == nullptr) {
            return nullptr;
        }
        before->bringToHost(*texture);
        before->flush();
        ++before->operations;
    }
    if (open_ != nullptr && !submitOpen()) {
        return nullptr;
    }
    retire();
    std::unique_ptr<Batch> batch = takeBatch();
    batch->beginOnHost(lastValue_ + 1);
    return batch;
}

std::uint64_t Recorder::recordedOnHost(std::unique_ptr<Batch> batch, HostWork work, std::uint64_t bytes)
{
    const std::uint64_t value = batch->value();
    pending_.push_back(std::move(batch));
    try {
        hostQueue_.push(timeline_, value, std::move(work), &pending_.back()->hostStamps());
    } catch (...) {
        // Resources remember uses that will never happen.
        device_.markLost("the host has no memory or thread for its work");
        free_.push_back(std::move(pending_.back()));
        pending_.pop_back();
        return 0;
    }
    pending_.back()->bytes = bytes;
    inFlightBytes_ += bytes;
    lastValue_ = value;
    lastSubmitted_ = value;
    lastOnHost_ = value;
    ++submitted_;
    return value;
}

/// Work that was recorded before goes ahead, in a batch of its own.
Batch* Recorder::batchAfter(const DevicePoint& point)
{
    if (open_ != nullptr && open_->operations > 0 && !submitOpen()) {
        return nullptr;
    }
    Batch* const batch = openBatch();
    if (batch != nullptr && point.semaphore != nullptr) {
        batch->waits.push_back(submitInfo(point));
    }
    return batch;
}

std::uint64_t Recorder::recorded(std::uint64_t bytes, Submit submit)
{
    open_->bytes += bytes;
    ++open_->operations;
    inFlightBytes_ += bytes;
    const std::uint64_t value = open_->value();
    if ((submit == Submit::Now || isDue(*open_)) && !submitOpen()) {
        return 0;
    }
    return value;
}

bool Recorder::isDue(const Batch& batch) const
{
    if (batch.bytes >= dueBytes || batch.operations >= dueOperations) {
        return true;
    }
    return batch.bytes >= dueBytesWhenIdle &&
           (pending_.empty() || pending_.back()->value() <= completed_.load());
}

bool Recorder::submitOpen()
{
    std::unique_ptr<Batch> batch = std::move(open_);
    if (!batch->end()) {
        // Resources remember uses that will never happen; nothing recorded later could be trusted.
        device_.markLost("a batch could not be recorded");
        inFlightBytes_ -= batch->bytes;
        free_.push_back(std::move(batch));
        return false;
    }
    if (lastOnHost_ > completed_.load()) {
        batch->waits.push_back(submitInfo({timeline_, lastOnHost_}));
    }
    if (batch->uploads() != nullptr) {
        batch->waits.push_back(submitInfo({uploadTimeline_, batch->value()}));
    }
    if (batch->drawsAfterDownloads != 0) {
        batch->waits.push_back(submitInfo({downloadTimeline_, batch->drawsAfterDownloads}));
    }
    if (!submitParts(*batch)) {
        device_.markLost("work could not be submitted");
        inFlightBytes_ -= batch->bytes;
        free_.push_back(std::move(batch));
        return false;
    }
    lastSubmitted_ = batch->value();
    barriers_ += batch->barriers;
    ++submitted_;
    pending_.push_back(std::move(batch));
    return true;
}

/// Every part is submitted after those that it waits for.
bool Recorder::submitParts(const Batch& batch)
{
    const std::uint64_t value = batch.value();
    if (batch.uploads() != nullptr) {
        std::vector waits{submitInfo({timeline_, batch.uploadsAfter})};
        if (downloadTimeline_ != nullptr) {
            waits.push_back(submitInfo({downloadTimeline_, downloads_.upTo(batch.uploadsAfter)}));
        }
        if (!submitPart(Lane::Uploads, batch.uploads(), {uploadTimeline_, value}, waits)) {
            return false;
        }
    }
    if (batch.downloads() != nullptr) {
        downloads_.add(value); // before anybody can see that the batch is drawn
    }
    if (!submitPart(Lane::Drawing, batch.commands(), {timeline_, value}, batch.waits)) {
        return false;
    }
    const VkSemaphoreSubmitInfo drawn = submitInfo({timeline_, value});
    return batch.downloads() == nullptr ||
           submitPart(Lane::Downloads, batch.downloads(), {downloadTimeline_, value}, {&drawn, 1});
}

bool Recorder::submitPart(Lane lane, VkCommandBuffer commandBuffer, const DevicePoint& end,
                          std::span<const VkSemaphoreSubmitInfo> waits)
{
    VkCommandBufferSubmitInfo commands{};
    commands.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_SUBMIT_INFO;
    commands.commandBuffer = commandBuffer;
    const VkSemaphoreSubmitInfo signal = submitInfo(end);
    VkSubmitInfo2 info{};
    info.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO_2;
    info.waitSemaphoreInfoCount = static_cast<std::uint32_t>(waits.size());
    info.pWaitSemaphoreInfos = waits.data();
    info.commandBufferInfoCount = 1;
    info.pCommandBufferInfos = &commands;
    info.signalSemaphoreInfoCount = 1;
    info.pSignalSemaphoreInfos = &signal;
    if (!device_.succeeded(device_.submit(lane, info), "submitting work")) {
        return false;
    }
    transfers_ += lane != Lane::Drawing ? 1 : 0;
    return true;
}

bool Recorder::submit(std::uint64_t value)
{
    const std::lock_guard lock(mutex_);
    return !device_.isLost() && (open_ == nullptr || open_->value() > value || submitOpen());
}

VkResult Recorder::waitOnce(std::uint64_t value, std::chrono::nanoseconds limit)
{
    const std::array timelines{timeline_, downloadTimeline_};
    const std::array values{value, downloads_.upTo(value)};
    VkSemaphoreWaitInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_WAIT_INFO;
    info.semaphoreCount = downloadTimeline_ != nullptr ? 2 : 1;
    info.pSemaphores = timelines.data();
    info.pValues = values.data();
    const auto end = Clock::now() + limit;
    if (!hostQueue_.wait(value, limit)) {
        return VK_TIMEOUT;
    }
    const auto left = std::max<std::chrono::nanoseconds>(end - Clock::now(), std::chrono::nanoseconds(0));
    return vkWaitSemaphores(device_.handle(), &info, static_cast<std::uint64_t>(left.count()));
}

bool Recorder::wait(std::uint64_t value)
{
    if (device_.isLost()) {
        return false;
    }
    if (completed_.load() >= value) {
        return true;
    }
    {
        const std::lock_guard lock(mutex_);
        // Work that is worth a submission goes too, so that the device does not idle after that value.
        const bool goesAlong = open_ != nullptr && open_->bytes >= dueBytesWhenIdle;
        if (open_ != nullptr && (open_->value() <= value || goesAlong) && !submitOpen()) {
            return false;
        }
    }
    auto progressed = Clock::now();
    std::uint64_t seen = completed();
    while (seen < value) {
        if (device_.isLost()) {
            return false;
        }
        const VkResult result = waitOnce(value, std::chrono::milliseconds(200));
        if (result != VK_SUCCESS && result != VK_TIMEOUT) {
            device_.succeeded(result, "waiting for the device");
            device_.markLost("waiting for it failed");
            return false;
        }
        const std::uint64_t now = completed();
        if (now > seen) {
            seen = now;
            progressed = Clock::now();
        } else if (Clock::now() - progressed > stallLimit_) {
            device_.markLost("it finished nothing for " + std::to_string(stallLimit_.count()) + " ms");
        }
    }
    return true;
}

bool Recorder::waitForAll()
{
    std::uint64_t last = 0;
    {
        const std::lock_guard lock(mutex_);
        last = lastValue_;
    }
    return wait(last);
}

bool Recorder::drain(std::chrono::milliseconds limit)
{
    std::uint64_t last = 0;
    {
        const std::lock_guard lock(mutex_);
        if (open_ != nullptr && !device_.isLost()) {
            submitOpen();
        }
        last = lastSubmitted_;
    }
    if (last == 0) {
        return true; // there may be no timeline either, if it could not be made
    }
    const VkResult result = waitOnce(last, limit);
    return result == VK_SUCCESS || result == VK_ERROR_DEVICE_LOST;
}

std::uint64_t Recorder::ticksBetween(std::uint64_t begin, std::uint64_t end) const
{
    const std::uint32_t bits = device_.timerBits();
    const std::uint64_t counting = bits < 64 ? (std::uint64_t{1} << bits) - 1 : ~std::uint64_t{0};
    return (end - begin) & counting;
}

void Recorder::addTo(Timing& timing, const Batch& batch) const
{
    const std::optional<Batch::Stamps> stamps = batch.stamps();
    if (!stamps) {
        timing.whole = false;
        return;
    }
    const std::uint64_t busy = ticksBetween(stamps->begin, stamps->end);
    timing.busy += busy;
    for (PassTiming& pass : timing.passes) {
        if (batch.value() > pass.after && batch.value() <= pass.upTo) {
            pass.busy += busy;
        }
    }
    timing.first = timing.batches == 0 ? stamps->begin : timing.first;
    timing.last = stamps->end;
    ++timing.batches;
}

bool Recorder::startTimer(bool tellsPasses)
{
    const std::lock_guard lock(mutex_);
    if (device_.timerBits() == 0 || timing_ || (open_ != nullptr && !submitOpen())) {
        return false;
    }
    Timing timing;
    timing.after = lastValue_;
    timing.tellsPasses = tellsPasses;
    timing_ = timing;
    return true;
}

bool Recorder::timesPasses()
{
    const std::lock_guard lock(mutex_);
    return timing_ && timing_->tellsPasses;
}

bool Recorder::beginPass()
{
    const std::lock_guard lock(mutex_);
    if (open_ != nullptr && !submitOpen()) {
        return false;
    }
    if (timing_) {
        timing_->passes.push_back({lastValue_, ~std::uint64_t{0}, 0});
    }
    return true;
}

bool Recorder::endPass()
{
    const std::lock_guard lock(mutex_);
    if (open_ != nullptr && !submitOpen()) {
        return false;
    }
    if (timing_ && !timing_->passes.empty()) {
        timing_->passes.back().upTo = lastValue_;
    }
    return true;
}

std::optional<GPUPassTimes> Recorder::stopTimer()
{
    const bool finished = waitForAll();
    const std::lock_guard lock(mutex_);
    if (finished) {
        retire();
    }
    const std::optional<Timing> timing = std::exchange(timing_, std::nullopt);
    if (!timing || !finished || !timing->whole) {
        return std::nullopt;
    }
    const auto milliseconds = [this](std::uint64_t ticks) {
        return static_cast<double>(ticks) * static_cast<double>(device_.limits().timestampPeriod) / 1e6;
    };
    GPUPassTimes times{{milliseconds(timing->busy), milliseconds(ticksBetween(timing->first, timing->last)),
                        timing->batches},
                       {}};
    for (const PassTiming& pass : timing->passes) {
        times.milliseconds.push_back(milliseconds(pass.busy));
    }
    return times;
}

void Recorder::later(std::function<void()> destroy)
{
    const std::lock_guard lock(mutex_);
    deferred_.push_back({lastValue_, std::move(destroy)});
}

void Recorder::destroy()
{
    hostQueue_.stop();
    const std::lock_guard lock(mutex_);
    for (Deferred& deferred : deferred_) {
        deferred.destroy();
    }
    deferred_.clear();
    for (auto& batch : pending_) {
        batch->destroy();
    }
    for (auto& batch : free_) {
        batch->destroy();
    }
    if (open_ != nullptr) {
        open_->destroy();
    }
    pending_.clear();
    free_.clear();
    open_.reset();
    inFlightBytes_ = 0;
    for (VkSemaphore* const timeline : {&timeline_, &uploadTimeline_, &downloadTimeline_}) {
        vkDestroySemaphore(device_.handle(), *timeline, nullptr);
        *timeline = nullptr;
    }
}

} // namespace Qx::Host::Vulkan
