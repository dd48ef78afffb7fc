#pragma once

#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"

#include <vulkan/vulkan_core.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// \file
/// The GPU service on an application's Vulkan device, and images that both use: see "Device sharing" in
/// docs/embedding.md.

namespace Qx::Host {

class GPUService;

/// What a Vulkan device was created with. Vulkan does not tell afterwards.
struct DeviceAbilities
{
    /// Queues of one family.
    struct Queues
    {
        std::uint32_t family = 0; ///< index of the family
        std::uint32_t count = 0;  ///< number of queues that were created
    };

    std::vector<std::string> features{};   ///< enabled features that the service knows, by their Vulkan names
    std::vector<std::string> extensions{}; ///< enabled device extensions
    std::vector<Queues> queues{};          ///< without those created with flags, such as protected ones
};

/// Reads from what a device is created with, the structures chained to it included, what it can do. Keeps no
/// pointer.
QX_API DeviceAbilities abilitiesOf(const VkDeviceCreateInfo& info);

/// The features that an application must enable to share that device, by the names of their members in
/// Vulkan's structures. All are features of Vulkan 1.3. A software device needs one more than a GPU.
QX_API std::vector<std::string> requiredFeatures(VkPhysicalDevice device);

/// Sets the required features in the application's structures: `features` and what is chained to it. Sets
/// nothing else, and leaves what is set. Returns the features for which the chain has no structure; with
/// VkPhysicalDeviceVulkan12Features and VkPhysicalDeviceVulkan13Features, or with the structure of each
/// feature, there are none.
QX_API std::vector<std::string> enableRequiredFeatures(VkPhysicalDevice device,
                                                       VkPhysicalDeviceFeatures2& features);

/// The extensions that an application must enable to share that device. None today, and none of the instance:
/// what the service needs is in Vulkan 1.3.
QX_API std::vector<const char*> requiredDeviceExtensions(VkPhysicalDevice device);

/// The extensions that the device has and the service can use, for exporting and importing images. Without
/// them the service works, and those functions fail.
QX_API std::vector<const char*> optionalDeviceExtensions(VkPhysicalDevice device);

/// A Vulkan device of the application, for the service to use. The application keeps ownership of everything
/// here: it destroys its device after it has shut the service down, and only if GPUService::holdsDevice() is
/// false then.
struct ApplicationDevice
{
    VkInstance instance = nullptr; ///< from the same Vulkan loader that this process links
    std::uint32_t apiVersion = 0;  ///< VkApplicationInfo::apiVersion of the instance; at least 1.3
    VkPhysicalDevice physicalDevice = nullptr; ///< one of the instance's
    VkDevice device = nullptr;                 ///< made from physicalDevice
    DeviceAbilities abilities{};               ///< from abilitiesOf()

    std::uint32_t queueFamily = 0; ///< a family that draws
    std::uint32_t queueIndex = 0;  ///< of the queue that the service submits to

    ///@{
    /// Called around each submission of the service to the queue, on any thread, if the application uses the
    /// queue too. Both or none. They must not call the service and must not throw, and no thread may call the
    /// service while it holds the lock.
    std::function<void()> lockQueue{};
    std::function<void()> unlockQueue{};
    ///@}
};

/// A moment on the device: `semaphore` is signalled. Null: no need to wait.
struct DevicePoint
{
    VkSemaphore semaphore = nullptr; ///< a binary or a timeline semaphore
    std::uint64_t value = 0;         ///< that a timeline semaphore has then; 0 for a binary one
};

/// The uses that an application's image must have been created with.
constexpr VkImageUsageFlags requiredImageUsage =
    VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT |
    VK_IMAGE_USAGE_TRANSFER_DST_BIT;

/// An image of the application: two dimensions, one level, one layer, one sample. Its memory stays the
/// application's.
///
/// The service reads texels in memory order, c0 c1 c2 c3: see iGPUImage. Whatever the components of `format`
/// are called, a picture in R G B A is described to the library as RGBA, one in B G R A as BGRA.
struct ApplicationImage
{
    VkImage image = nullptr; ///< on the device that is shared
    XY<int> size;            ///< in texels

    /// VK_FORMAT_R8G8B8A8_UNORM, VK_FORMAT_R16G16B16A16_UNORM or VK_FORMAT_A2R10G10B10_UNORM_PACK32; with
    /// VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT also the _SRGB form of the first, and B8G8R8A8 in both forms.
    VkFormat format = VK_FORMAT_UNDEFINED;

    VkImageCreateFlags flags = 0; ///< as created
    VkImageUsageFlags usage = 0;  ///< as created; at least requiredImageUsage
};

/// An image that the application may use from a moment on.
struct GivenImage
{
    VkImage image = nullptr;                          ///< owned by whoever created it
    VkFormat format = VK_FORMAT_UNDEFINED;            ///< as created
    VkImageLayout layout = VK_IMAGE_LAYOUT_UNDEFINED; ///< in which it is
    DevicePoint ready{}; ///< of the service: wait for it on the device or the host, never signal it
};

/// What the file descriptor of an image's memory is.
enum class MemoryHandle : std::uint32_t
{
    Opaque, ///< for the same device and driver alone: VK_KHR_external_memory_fd
    DmaBuf, ///< for other devices, drivers and interfaces of Linux too: VK_EXT_external_memory_dma_buf
};

/// Where a dma-buf has the texels, in the words of those who import one (EGL, V4L2, DRM).
struct DmaBufLayout
{
    /// DRM_FORMAT_ABGR8888, DRM_FORMAT_ABGR16161616 or DRM_FORMAT_ARGB2101010. importImage() does not read
    /// it.
    std::uint32_t fourcc = 0;
    std::uint64_t modifier = 0; ///< the order of the texels; 0, DRM_FORMAT_MOD_LINEAR: row after row
    std::uint64_t offset = 0;   ///< bytes before the first row
    std::uint64_t pitch = 0;    ///< bytes from one row to the next
};

/// Memory of an image as a file descriptor, and what another process or interface must know to import it: an
/// image of two dimensions, one level, one layer, one sample and one plane, with requiredImageUsage, bound at
/// offset 0 to memory of its own (a dedicated allocation). Opaque memory has optimal tiling. Plain data but
/// for `descriptor`, so that it can be sent through a socket.
///
/// Whoever passes the image on, and whoever receives it, records one and the same barrier: from the layout
/// GENERAL to SHADER_READ_ONLY_OPTIMAL. The other queue family is VK_QUEUE_FAMILY_EXTERNAL; for a dma-buf,
/// VK_QUEUE_FAMILY_FOREIGN_EXT on devices with VK_EXT_queue_family_foreign. ImageSharing does so.
struct ExportedImage
{
    int descriptor = -1;                             ///< owned by whoever holds this
    MemoryHandle handle = MemoryHandle::Opaque;      ///< what the descriptor is
    std::uint64_t bytes = 0;                         ///< size of the memory; of a dma-buf, it need not be set
    XY<int> size;                                    ///< in texels
    iGPUImage::eFormat format = iGPUImage::eARGB8;   ///< of the texels
    VkFormat vulkanFormat = VK_FORMAT_UNDEFINED;     ///< the same for Vulkan
    std::array<std::uint8_t, VK_UUID_SIZE> device{}; ///< VkPhysicalDeviceIDProperties::deviceUUID
    std::array<std::uint8_t, VK_UUID_SIZE> driver{}; ///< VkPhysicalDeviceIDProperties::driverUUID
    DmaBufLayout layout{};                           ///< of a dma-buf
};

/// Images of a service that an application uses too, by turns, or other processes.
///
/// At any time an image is the service's or has been given to the application, and only that one uses it. The
/// service refuses to draw with an image that is given, and to download it. Every function works on any
/// service with a device, and logs why it failed. Thread-safe.
class QX_API ImageSharing
{
public:
    /// The service must outlive this object.
    explicit ImageSharing(GPUService& service) : service_(service) {}

    /// Returns an image around the application's, which is in that layout from `ready` on. UNDEFINED: without
    /// contents. It is the service's from now on: have it given back before the application uses its image
    /// again or destroys it. The wait for a semaphore is submitted before this returns. Empty on failure.
    Qx::Ptr<iGPUImage> wrapImage(const ApplicationImage& image, VkImageLayout layout,
                                 const DevicePoint& ready);

    /// Gives any image of the service to the application, after everything that is recorded for it, and
    /// submits that. `layout` is what the application would like; GivenImage::layout is what it gets, which
    /// is GENERAL for images that a software device made and for those that can be exported. Take the image
    /// back before releasing it: one that is released while it is given keeps its memory until the service is
    /// shut down. Empty on failure.
    std::optional<GivenImage> giveImage(const Qx::Ptr<iGPUImage>& image, VkImageLayout layout);

    /// Takes an image back that was given. It is in `layout` from `ready` on: in GENERAL if it was given in
    /// GENERAL without having been asked for, else in any. Returns false on failure.
    bool takeImage(const Qx::Ptr<iGPUImage>& image, VkImageLayout layout, const DevicePoint& ready);

    /// Whether the device makes images of that format that can be exported with such a descriptor. Logs
    /// nothing.
    bool canExport(MemoryHandle handle, iGPUImage::eFormat format);

    /// Whether the device can have images of that format in memory with such a descriptor. It can without
    /// exporting any, as Mesa's software device does where there is no /dev/udmabuf. Logs nothing.
    bool canImport(MemoryHandle handle, iGPUImage::eFormat format);

    /// Creates an image whose memory can be exported with such a descriptor. Empty on failure, and if
    /// canExport() returns false.
    Qx::Ptr<iGPUImage> createExportableImage(XY<int> size, iGPUImage::eFormat format,
                                             MemoryHandle handle = MemoryHandle::Opaque);

    /// Gives an exportable image away with its memory, for another process or interface to import: blocks
    /// until the device has finished it. takeImage() takes it back, in the layout GENERAL, when the other one
    /// has finished and has passed it on in turn. Ownership of the descriptor passes to the caller. Empty on
    /// failure.
    std::optional<ExportedImage> exportImage(const Qx::Ptr<iGPUImage>& image);

    /// Returns an image in memory that was exported, by this process or another: opaque memory from the same
    /// device and driver, a dma-buf from any device or driver that has finished with it. It is the service's
    /// from now on; giveImage() gives it back, and GivenImage::ready says when
    /// the other process may use it. The descriptor stays the caller's, who may close it afterwards. Empty on
    /// failure.
    Qx::Ptr<iGPUImage> importImage(const ExportedImage& exported);

    /// Blocks until that moment of the service has come. For giving an image to what knows no semaphore of
    /// this device. Returns false if the device is lost.
    bool wait(const GivenImage& given);

private:
    GPUService& service_;
};

} // namespace Qx::Host
