#include "host/native/NativeCode.h"

#include "host/effects/spirv/ShaderChecks.h"
#include "host/native/ParsedShader.h"
#include "host/native/Translator.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <stdexcept>
#include <time.h>

#include <llvm-c/Analysis.h>
#include <llvm-c/LLJIT.h>
#include <llvm-c/Orc.h>
#include <llvm-c/Target.h>
#include <llvm-c/TargetMachine.h>
#include <llvm-c/Transforms/PassBuilder.h>
#include <llvm/Config/llvm-config.h>

namespace Qx::Host::Native {
namespace {

constexpr std::uint32_t mostPeriod = 64;

/// Frees what LLVM's C interface allocates.
std::string taken(char* message)
{
    std::string text = message != nullptr ? message : "";
    LLVMDisposeMessage(message);
    return text;
}

void check(LLVMErrorRef error)
{
    if (error != nullptr) {
        char* message = LLVMGetErrorMessage(error);
        const std::string text = message;
        LLVMDisposeErrorMessage(message);
        throw std::runtime_error(text);
    }
}

/// Of processor time of this thread.
double milliseconds()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
}

void initialize()
{
    static std::once_flag once;
    std::call_once(once, [] {
        LLVMInitializeNativeTarget();
        LLVMInitializeNativeAsmPrinter();
    });
}

bool hasFeature(const char* name)
{
    const std::string features = "," + taken(LLVMGetHostCPUFeatures()) + ",";
    return features.find("," + std::string(name) + ",") != std::string::npos;
}

/// What make() makes on its way.
struct Work
{
    LLVMTargetMachineRef machine = nullptr;
    LLVMContextRef context = LLVMContextCreate();
    LLVMModuleRef module = LLVMModuleCreateWithNameInContext("shader", context);

    explicit Work(const Options& options)
    {
        const std::string triple = taken(LLVMGetDefaultTargetTriple());
        LLVMTargetRef found = nullptr;
        char* message = nullptr;
        if (LLVMGetTargetFromTriple(triple.c_str(), &found, &message) != 0) {
            const std::string text = taken(message);
            free();
            throw std::runtime_error(text);
        }
        const std::string processor = options.wide ? taken(LLVMGetHostCPUName()) : "haswell";
        const std::string features = options.wide ? taken(LLVMGetHostCPUFeatures()) : "";
        machine = LLVMCreateTargetMachine(found, triple.c_str(), processor.c_str(), features.c_str(),
                                          options.level >= 2 ? LLVMCodeGenLevelDefault : LLVMCodeGenLevelLess,
                                          LLVMRelocPIC, LLVMCodeModelSmall);
        LLVMSetTarget(module, triple.c_str());
        LLVMTargetDataRef layout = LLVMCreateTargetDataLayout(machine);
        LLVMSetModuleDataLayout(module, layout);
        LLVMDisposeTargetData(layout);
    }
    ~Work() { free(); }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

private:
    void free() const
    {
        LLVMDisposeModule(module);
        LLVMContextDispose(context);
        if (machine != nullptr) {
            LLVMDisposeTargetMachine(machine);
        }
    }
};

void verify(LLVMModuleRef module)
{
    char* message = nullptr;
    const bool isBroken = LLVMVerifyModule(module, LLVMReturnStatusAction, &message) != 0;
    const std::string text = taken(message);
    if (isBroken) {
        throw std::runtime_error(text);
    }
}

void optimize(const Work& work, int level)
{
    LLVMPassBuilderOptionsRef passes = LLVMCreatePassBuilderOptions();
    const std::string pipeline = level == 0 ? "function(sroa,early-cse,instcombine,early-cse)"
                                            : "default<O" + std::to_string(level) + '>';
    LLVMErrorRef error = LLVMRunPasses(work.module, pipeline.c_str(), work.machine, passes);
    LLVMDisposePassBuilderOptions(passes);
    check(error);
}

std::vector<std::byte> emitted(const Work& work)
{
    char* message = nullptr;
    LLVMMemoryBufferRef buffer = nullptr;
    if (LLVMTargetMachineEmitToMemoryBuffer(work.machine, work.module, LLVMObjectFile, &message, &buffer) !=
        0) {
        throw std::runtime_error(taken(message));
    }
    const auto* const begin = reinterpret_cast<const std::byte*>(LLVMGetBufferStart(buffer));
    std::vector<std::byte> object(begin, begin + LLVMGetBufferSize(buffer));
    LLVMDisposeMemoryBuffer(buffer);
    return object;
}

/// Code without `Options::wide` is for all processors with AVX2, the first of which had these.
void checkProcessor()
{
    for (const char* feature : {"+avx2", "+bmi", "+bmi2", "+f16c", "+fma", "+lzcnt", "+movbe"}) {
        if (!hasFeature(feature)) {
            refuse(std::string("it needs a processor with ") + (feature + 1) + ", which this one lacks");
        }
    }
}

void checkInput(const Shader& shader, const std::vector<std::uint32_t>& spirv, const Options& options)
{
    std::string problem;
    if (!Effects::validate(spirv, problem)) {
        refuse("it is no valid shader: " + problem);
    }
    if (shader.texels.size() > Frame::mostBuffers) {
        refuse("it has more than " + std::to_string(Frame::mostBuffers) + " bindings");
    }
    const auto isKnown = [](const Texels& t) {
        const bool hasFour = t.componentBits * 4 == t.bytes * 8; // components
        return t.bytes == 0 ||
               (hasFour && (t.componentBits == 8 || t.componentBits == 16 || t.componentBits == 32));
    };
    if (!std::all_of(shader.texels.begin(), shader.texels.end(), isKnown) ||
        (shader.targetBits != 8 && shader.targetBits != 16)) {
        refuse("texels have four components of 8 or 16 bits, those that are read also of 32");
    }
    if ((options.lanes != 8 && options.lanes != 16) || options.period == 0 || options.period > mostPeriod) {
        refuse("8 or 16 lanes and periods from 1 to " + std::to_string(mostPeriod) + " are possible, not " +
               std::to_string(options.lanes) + " and " + std::to_string(options.period));
    }
}

Made make(const Shader& shader, const Options& options)
{
    initialize();
    Made made;
    try {
        const double begin = milliseconds();
        const std::vector<std::uint32_t> spirv(shader.spirv.begin(), shader.spirv.end());
        checkProcessor();
        checkInput(shader, spirv, options);
        const ParsedShader parsed(spirv);
        const Work work(options);
        const Source source{work.context,      work.module,  parsed,           shader.texels,
                            shader.targetBits, shader.usual, shader.usualWidth};
        writeDraws(source);
        writeBorder(source);
        made.repetitions = writeDraw(source, options);
        verify(work.module);
        const double translated = milliseconds();
        optimize(work, options.level);
        const double optimised = milliseconds();
        made.object = emitted(work);
        made.cost = {translated - begin, optimised - translated, milliseconds() - optimised,
                     made.object.size()};
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& problem) {
        made.problem = problem.what();
    }
    return made;
}

std::string target()
{
    return std::string("code 2, LLVM ") + LLVM_VERSION_STRING + " " + taken(LLVMGetHostCPUName()) + " " +
           taken(LLVMGetHostCPUFeatures());
}

std::string compiler()
{
    return "LLVM " LLVM_VERSION_STRING;
}

std::uint32_t lanes()
{
    static const bool isWide = hasFeature("+avx512f") && hasFeature("+avx512bw") && hasFeature("+avx512vl");
    return isWide ? 16 : 8;
}

/// Code that LLVM has loaded.
class LoadedCode final : public Code
{
public:
    explicit LoadedCode(std::span<const std::byte> object)
    {
        check(LLVMOrcCreateLLJIT(&jit_, nullptr));
        LLVMMemoryBufferRef buffer = LLVMCreateMemoryBufferWithMemoryRangeCopy(
            reinterpret_cast<const char*>(object.data()), object.size(), "shader");
        try {
            check(LLVMOrcLLJITAddObjectFile(jit_, LLVMOrcLLJITGetMainJITDylib(jit_), buffer));
            find("draw", draw_);
            find("draws", draws_);
        } catch (...) {
            dispose();
            throw;
        }
    }
    ~LoadedCode() override { dispose(); }

private:
    template <class Function>
    void find(const char* name, Function*& function) const
    {
        LLVMOrcExecutorAddress address = 0;
        check(LLVMOrcLLJITLookup(jit_, &address, name));
        function =
            reinterpret_cast<Function*>(address); // NOLINT(performance-no-int-to-ptr): as LLVM gives it
    }
    void dispose() const { LLVMConsumeError(LLVMOrcDisposeLLJIT(jit_)); }

    LLVMOrcLLJITRef jit_ = nullptr;
};

std::unique_ptr<Code> load(std::span<const std::byte> object, std::string& problem)
{
    initialize();
    try {
        return std::make_unique<LoadedCode>(object);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& failure) {
        problem = failure.what();
        return nullptr;
    }
}

} // namespace
} // namespace Qx::Host::Native

extern "C" [[gnu::visibility("default")]] const Qx::Host::Native::Library qx_native_library;
const Qx::Host::Native::Library qx_native_library{&Qx::Host::Native::make, &Qx::Host::Native::target,
                                                  &Qx::Host::Native::compiler, &Qx::Host::Native::lanes,
                                                  &Qx::Host::Native::load};
