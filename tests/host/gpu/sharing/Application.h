#pragma once

#include "host/gpu/DeviceSharing.h"
#include "tests/host/gpu/GpuFixture.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Qx::GpuTests {

/// An application that uses Vulkan itself: an instance with the validation layer, a device of the kind that
/// the tests run on, and one queue. Failures of Vulkan end the test with an exception. Its functions may be
/// called on any thread.
class Application
{
public:
    /// What the application leaves out or does otherwise.
    struct Ways
    {
        std::string withoutFeature{}; ///< one of requiredFeatures()
        bool withExtensions = true;   ///< optionalDeviceExtensions() are enabled
        std::uint32_t apiVersion = VK_API_VERSION_1_3;
    };

    Application() : Application(Ways()) {}
    explicit Application(const Ways& ways);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /// Its device, for sharing, with the lock of its queue.
    const Host::ApplicationDevice& shared() const { return shared_; }

    /// Warnings and errors of the validation layer, those of the service included.
    std::uint64_t messages() const { return messages_; }
    std::string lastMessage();

    /// Submissions that were made under its lock by others.
    std::uint64_t locked() const { return locked_; }

    /// An image of the application. It is destroyed with the application.
    Host::ApplicationImage makeImage(XY<int> size, VkFormat format, VkImageCreateFlags flags = 0);

    /// Copies texels into an image on the device and leaves it in that layout; what it held is lost. The
    /// device need not have finished: the result says when it has, and a binary semaphore if one is given.
    Host::DevicePoint write(const Host::ApplicationImage& image, const Bytes& bytes, VkImageLayout layout,
                            VkSemaphore binary = nullptr);

    /// Waits on the device until the image is ready, and reads its texels. It is left in its layout.
    Bytes read(const Host::GivenImage& given, XY<int> size, std::size_t bytesPerTexel);

    /// Clears a small image of its own and waits for it.
    void work();

private:
    struct Buffer
    {
        VkBuffer buffer = nullptr;
        VkDeviceMemory memory = nullptr;
        void* mapped = nullptr;
    };

    static VkBool32 VKAPI_CALL onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT severity,
                                         VkDebugUtilsMessageTypeFlagsEXT types,
                                         const VkDebugUtilsMessengerCallbackDataEXT* data, void* self);
    void makeInstance(std::uint32_t apiVersion);
    void makeDevice(const Ways& ways);
    Buffer makeBuffer(VkDeviceSize bytes);
    VkDeviceMemory allocate(const VkMemoryRequirements& requirements, VkMemoryPropertyFlags wanted);
    /// Records and submits; returns the value that the application's timeline has once it is done.
    std::uint64_t submit(const std::function<void(VkCommandBuffer)>& record, const Host::DevicePoint& after,
                         VkSemaphore binary = nullptr);
    void wait(std::uint64_t value);

    Host::ApplicationDevice shared_;
    VkDebugUtilsMessengerEXT messenger_ = nullptr;
    VkQueue queue_ = nullptr;
    VkSemaphore timeline_ = nullptr;
    std::mutex queueMutex_; // the lock of the queue
    std::mutex mutex_;      // guards all below
    std::uint64_t value_ = 0;
    std::vector<VkCommandPool> pools_;
    std::vector<VkImage> images_;
    std::vector<VkBuffer> buffers_;
    std::vector<VkDeviceMemory> memories_;
    std::mutex messageMutex_; // a message may come while another lock is held
    std::string message_;     // guarded by messageMutex_
    std::atomic<std::uint64_t> messages_{0};
    std::atomic<std::uint64_t> locked_{0};
};

} // namespace Qx::GpuTests
