#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "Qx/iObject.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"

#include <array>
#include <cstddef>
#include <utility>

/// A parameter of an effect. Remains valid for the lifetime of the handle.
class QX_PLATFORM_API iShaderParam : public iObject
{
public:
    /// Sets all components to one value. Returns false if the parameter is not numeric.
    virtual bool setValue(float value) = 0;

    /// Sets the components in row-major order. Returns false if `count` differs from getComponentCount().
    virtual bool setValues(const float* values, std::size_t count) = 0;

    /// Returns the number of components.
    virtual std::size_t getComponentCount() const = 0;
};

/// A compiled effect: its techniques, their shared parameters, and the current technique.
///
/// Selecting a technique, setting parameters and rendering form one sequence. Not thread-safe: callers must
/// exclude each other for the whole sequence.
class QX_PLATFORM_API iShaderEffect : public iObject
{
public:
    /// A macro that is defined before the first line of an effect.
    struct CompilerDefinition
    {
        LightweightString<char> name;  ///< an identifier
        LightweightString<char> value; ///< what replaces it; may be empty
    };

    /// One bound input.
    struct Source
    {
        /// Binds `input` under a name, with the whole picture as its rectangle.
        Source(const LightweightString<char>& inputName, Qx::Ptr<iGPUResource> input)
            : resource(std::move(input)), name(inputName)
        {
        }

        Qx::Ptr<iGPUResource> resource; ///< the input
        LightweightString<char> name;   ///< name of the effect's texture parameter

        /// Left, top, right, bottom: the normalised rectangle of the input that maps to the whole target.
        std::array<float, 4> texCoords{0.0F, 0.0F, 1.0F, 1.0F};
    };

    /// Selects a technique by its case-sensitive name. Returns false if there is no such technique; the
    /// current one is then kept.
    virtual bool setTechnique(const LightweightString<char>& name) = 0;

    /// Returns the techniques in file order. The first is the initial current technique.
    virtual Qx::Vector<LightweightString<char>> getTechniqueNames() const = 0;

    /// Returns a parameter by name, or an empty pointer if the effect has no such parameter.
    virtual Qx::Ptr<iShaderParam> getParam(const char* name) = 0;

    /// Draws the current technique over the whole target. Returns without waiting for the device. The i-th
    /// source sets the i-th texture coordinate and binds its resource to the texture parameter of its name.
    /// Returns false if the draw could not be recorded: no target, a texture that the technique reads is not
    /// bound, the device is lost.
    virtual bool render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources) = 0;

    /// Sets a float parameter. Returns false if the effect has no such parameter or it is not numeric.
    bool setFloat(const LightweightString<char>& name, float value)
    {
        const Qx::Ptr<iShaderParam> param = getParam(name.c_str());
        return param && param->setValue(value);
    }
};

/// The result of compiling an effect file.
struct EffectCompileResult
{
    Qx::Ptr<iShaderEffect> effect; ///< empty on failure
    LightweightString<char>
        errors; ///< the compiler's messages, one per line; may contain warnings after a success
};
