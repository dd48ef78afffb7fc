#include "bench/native/NativeShader.h"

#include "bench/native/Translator.h"

#include <stdexcept>
#include <string>
#include <time.h>

#include <llvm-c/Analysis.h>
#include <llvm-c/LLJIT.h>
#include <llvm-c/Object.h>
#include <llvm-c/Orc.h>
#include <llvm-c/Target.h>
#include <llvm-c/TargetMachine.h>
#include <llvm-c/Transforms/PassBuilder.h>

namespace Qx::Bench {
namespace {

/// Of this thread's processor time.
double milliseconds()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
}

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

LLVMTargetMachineRef machineFor(const NativeOptions& options)
{
    LLVMInitializeNativeTarget();
    LLVMInitializeNativeAsmPrinter();
    const std::string triple = taken(LLVMGetDefaultTargetTriple());
    const std::string processor = options.wide ? taken(LLVMGetHostCPUName()) : "haswell";
    const std::string features = options.wide ? taken(LLVMGetHostCPUFeatures()) : "";
    LLVMTargetRef target = nullptr;
    char* message = nullptr;
    if (LLVMGetTargetFromTriple(triple.c_str(), &target, &message) != 0) {
        throw std::runtime_error(taken(message));
    }
    return LLVMCreateTargetMachine(target, triple.c_str(), processor.c_str(), features.c_str(),
                                   options.level >= 2 ? LLVMCodeGenLevelDefault : LLVMCodeGenLevelLess,
                                   LLVMRelocPIC, LLVMCodeModelSmall);
}

/// Bytes of code and constants.
std::size_t bytesOf(LLVMMemoryBufferRef object, LLVMContextRef context)
{
    char* message = nullptr;
    LLVMBinaryRef binary = LLVMCreateBinary(object, context, &message);
    if (binary == nullptr) {
        throw std::runtime_error(taken(message));
    }
    std::size_t bytes = 0;
    LLVMSectionIteratorRef section = LLVMObjectFileCopySectionIterator(binary);
    for (; LLVMObjectFileIsSectionIteratorAtEnd(binary, section) == 0; LLVMMoveToNextSection(section)) {
        const char* const given = LLVMGetSectionName(section);
        const std::string name = given != nullptr ? given : "";
        bytes += name.starts_with(".text") || name.starts_with(".rodata") ? LLVMGetSectionSize(section) : 0;
    }
    LLVMDisposeSectionIterator(section);
    LLVMDisposeBinary(binary);
    return bytes;
}

} // namespace

struct NativeShader::Code
{
    LLVMOrcLLJITRef jit = nullptr;
    ~Code()
    {
        if (jit != nullptr) {
            LLVMConsumeError(LLVMOrcDisposeLLJIT(jit));
        }
    }
};

NativeShader::NativeShader(const std::vector<std::uint32_t>& spirv, std::span<const NativeTexels> texels,
                           std::uint32_t targetBits, std::span<const std::byte> likely,
                           std::uint32_t likelyWidth, const NativeOptions& options)
    : owner_(std::make_unique<Code>())
{
    const double begin = milliseconds();
    LLVMTargetMachineRef machine = machineFor(options);
    LLVMContextRef context = LLVMContextCreate();
    LLVMModuleRef module = LLVMModuleCreateWithNameInContext("shader", context);
    const std::string triple = taken(LLVMGetTargetMachineTriple(machine));
    LLVMSetTarget(module, triple.c_str());
    LLVMTargetDataRef layout = LLVMCreateTargetDataLayout(machine);
    LLVMSetModuleDataLayout(module, layout);
    LLVMDisposeTargetData(layout);

    const NativeSource source{context, module, spirv, texels, targetBits, likely, likelyWidth};
    writeBorder(source);
    writeDraw(source, options);
    char* message = nullptr;
    if (LLVMVerifyModule(module, LLVMReturnStatusAction, &message) != 0) {
        throw std::runtime_error(taken(message));
    }
    LLVMDisposeMessage(message);
    cost_.translation = milliseconds() - begin;

    const double optimising = milliseconds();
    LLVMPassBuilderOptionsRef passes = LLVMCreatePassBuilderOptions();
    const std::string pipeline = options.level == 0 ? "function(sroa,early-cse,instcombine,early-cse)"
                                                    : "default<O" + std::to_string(options.level) + '>';
    check(LLVMRunPasses(module, pipeline.c_str(), machine, passes));
    LLVMDisposePassBuilderOptions(passes);
    cost_.optimisation = milliseconds() - optimising;

    const double generating = milliseconds();
    LLVMMemoryBufferRef object = nullptr;
    if (LLVMTargetMachineEmitToMemoryBuffer(machine, module, LLVMObjectFile, &message, &object) != 0) {
        throw std::runtime_error(taken(message));
    }
    cost_.bytes = bytesOf(object, context);
    LLVMDisposeModule(module);
    LLVMOrcLLJITBuilderRef builder = LLVMOrcCreateLLJITBuilder();
    LLVMOrcLLJITBuilderSetJITTargetMachineBuilder(
        builder, LLVMOrcJITTargetMachineBuilderCreateFromTargetMachine(machine));
    check(LLVMOrcCreateLLJIT(&owner_->jit, builder));
    check(LLVMOrcLLJITAddObjectFile(owner_->jit, LLVMOrcLLJITGetMainJITDylib(owner_->jit), object));
    LLVMOrcExecutorAddress address = 0;
    check(LLVMOrcLLJITLookup(owner_->jit, &address, "draw"));
    LLVMContextDispose(context);
    code_ = reinterpret_cast<decltype(code_)>(address);
    cost_.generation = milliseconds() - generating;
}

NativeShader::~NativeShader() = default;

} // namespace Qx::Bench
