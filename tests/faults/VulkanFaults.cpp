// Makes the n-th Vulkan call that can fail return an error. Preloaded into a program, whose calls of the
// loader it takes.
//
// QX_VULKAN_FAULT=RESULT:N   RESULT is DEVICE_MEMORY, HOST_MEMORY or LOST; N counts from 1, 0 fails none
// QX_FAULT_PROGRAM, QX_FAULT_LOG as in FileFaults.cpp

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <string>
#include <vulkan/vulkan.h>

namespace {

std::string variable(const char* name)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing sets variables here
    return value != nullptr ? value : "";
}

struct Plan
{
    VkResult result = VK_SUCCESS;
    long n = 0;
    std::string log;

    Plan()
    {
        const std::string fault = variable("QX_VULKAN_FAULT");
        const std::string wanted = variable("QX_FAULT_PROGRAM");
        const std::size_t colon = fault.find(':');
        if (colon == std::string::npos || (!wanted.empty() && wanted != program_invocation_short_name)) {
            n = -1;
            return;
        }
        const std::string name = fault.substr(0, colon);
        result = name == "LOST"          ? VK_ERROR_DEVICE_LOST
                 : name == "HOST_MEMORY" ? VK_ERROR_OUT_OF_HOST_MEMORY
                                         : VK_ERROR_OUT_OF_DEVICE_MEMORY;
        n = std::atol(fault.c_str() + colon + 1);
        log = variable("QX_FAULT_LOG");
    }
};

std::atomic<long> count{0};
std::atomic<bool> lost{false};

/// A device that is lost does nothing any more; this one must not either.
void stop(VkDevice device)
{
    vkDeviceWaitIdle(device);
}

void stop(VkQueue queue)
{
    vkQueueWaitIdle(queue);
}

/// Other calls cannot lose the device.
template <class Handle>
void stop(Handle)
{
}

/// Whether this call is to fail. A lost device stays lost.
template <class Handle>
bool fails(const char* name, bool canLose, Handle handle, VkResult& result)
{
    static const Plan& plan = *new Plan;
    if (plan.n < 0 || (plan.result == VK_ERROR_DEVICE_LOST && !canLose)) {
        return false;
    }
    const bool now = ++count == plan.n;
    if (!plan.log.empty()) {
        if (std::FILE* file = std::fopen(plan.log.c_str(), "ae")) {
            std::fprintf(file, "%s%s\n", now ? "fired " : "", name);
            std::fclose(file);
        }
    }
    result = plan.result;
    if (now && result == VK_ERROR_DEVICE_LOST) {
        lost = true; // first, so that other threads submit nothing meanwhile
        stop(handle);
    }
    return now || lost;
}

} // namespace

#define QX_CALL(name, canLose, parameters, arguments)                                                        \
    extern "C" VKAPI_ATTR VkResult VKAPI_CALL name parameters                                                \
    {                                                                                                        \
        static const auto next = reinterpret_cast<decltype(&::name)>(::dlsym(RTLD_NEXT, #name));             \
        VkResult result = VK_SUCCESS;                                                                        \
        return fails(#name, canLose, a, result) ? result : next arguments;                                   \
    }
#define QX_CREATE(what)                                                                                      \
    QX_CALL(vkCreate##what, false,                                                                           \
            (VkDevice a, const Vk##what##CreateInfo* b, const VkAllocationCallbacks* c, Vk##what* d),        \
            (a, b, c, d))

QX_CREATE(Buffer)
QX_CREATE(BufferView)
QX_CREATE(CommandPool)
QX_CREATE(DescriptorPool)
QX_CREATE(DescriptorSetLayout)
QX_CREATE(Image)
QX_CREATE(ImageView)
QX_CREATE(PipelineCache)
QX_CREATE(PipelineLayout)
QX_CREATE(QueryPool)
QX_CREATE(Sampler)
QX_CREATE(Semaphore)
QX_CREATE(ShaderModule)
QX_CALL(vkCreateInstance, false,
        (const VkInstanceCreateInfo* a, const VkAllocationCallbacks* b, VkInstance* c), (a, b, c))
QX_CALL(vkCreateDevice, true,
        (VkPhysicalDevice a, const VkDeviceCreateInfo* b, const VkAllocationCallbacks* c, VkDevice* d),
        (a, b, c, d))
QX_CALL(vkCreateGraphicsPipelines, false,
        (VkDevice a, VkPipelineCache b, std::uint32_t c, const VkGraphicsPipelineCreateInfo* d,
         const VkAllocationCallbacks* e, VkPipeline* f),
        (a, b, c, d, e, f))
QX_CALL(vkAllocateMemory, false,
        (VkDevice a, const VkMemoryAllocateInfo* b, const VkAllocationCallbacks* c, VkDeviceMemory* d),
        (a, b, c, d))
QX_CALL(vkMapMemory, false,
        (VkDevice a, VkDeviceMemory b, VkDeviceSize c, VkDeviceSize d, VkMemoryMapFlags e, void** f),
        (a, b, c, d, e, f))
QX_CALL(vkBindBufferMemory, false, (VkDevice a, VkBuffer b, VkDeviceMemory c, VkDeviceSize d), (a, b, c, d))
QX_CALL(vkBindImageMemory, false, (VkDevice a, VkImage b, VkDeviceMemory c, VkDeviceSize d), (a, b, c, d))
QX_CALL(vkAllocateCommandBuffers, false,
        (VkDevice a, const VkCommandBufferAllocateInfo* b, VkCommandBuffer* c), (a, b, c))
QX_CALL(vkAllocateDescriptorSets, false,
        (VkDevice a, const VkDescriptorSetAllocateInfo* b, VkDescriptorSet* c), (a, b, c))
QX_CALL(vkBeginCommandBuffer, false, (VkCommandBuffer a, const VkCommandBufferBeginInfo* b), (a, b))
QX_CALL(vkEndCommandBuffer, false, (VkCommandBuffer a), (a))
QX_CALL(vkResetCommandPool, false, (VkDevice a, VkCommandPool b, VkCommandPoolResetFlags c), (a, b, c))
QX_CALL(vkQueueSubmit2, true, (VkQueue a, std::uint32_t b, const VkSubmitInfo2* c, VkFence d), (a, b, c, d))
QX_CALL(vkWaitSemaphores, true, (VkDevice a, const VkSemaphoreWaitInfo* b, std::uint64_t c), (a, b, c))
QX_CALL(vkGetSemaphoreCounterValue, true, (VkDevice a, VkSemaphore b, std::uint64_t* c), (a, b, c))
QX_CALL(vkGetQueryPoolResults, true,
        (VkDevice a, VkQueryPool b, std::uint32_t c, std::uint32_t d, std::size_t e, void* f, VkDeviceSize g,
         VkQueryResultFlags h),
        (a, b, c, d, e, f, g, h))
QX_CALL(vkGetPipelineCacheData, false, (VkDevice a, VkPipelineCache b, std::size_t* c, void* d), (a, b, c, d))
QX_CALL(vkMergePipelineCaches, false,
        (VkDevice a, VkPipelineCache b, std::uint32_t c, const VkPipelineCache* d), (a, b, c, d))
QX_CALL(vkEnumeratePhysicalDevices, false, (VkInstance a, std::uint32_t* b, VkPhysicalDevice* c), (a, b, c))
QX_CALL(vkEnumerateInstanceLayerProperties, false, (std::uint32_t * a, VkLayerProperties* b), (a, b))
QX_CALL(vkGetPhysicalDeviceImageFormatProperties, false,
        (VkPhysicalDevice a, VkFormat b, VkImageType c, VkImageTiling d, VkImageUsageFlags e,
         VkImageCreateFlags f, VkImageFormatProperties* g),
        (a, b, c, d, e, f, g))
