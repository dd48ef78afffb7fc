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

/// A parameter of an effect.
class QX_PLATFORM_API iShaderParam : public iObject
{
public:
    /// Sets every component to one number; false when the parameter is none that holds numbers.
    virtual bool setValue(float value) = 0;

    /// Sets the components in their order, rows first; false when `count` is not their number.
    virtual bool setValues(const float* values, std::size_t count) = 0;

    /// Numbers that the parameter holds.
    virtual std::size_t getComponentCount() const = 0;
};

/// A compiled effect: techniques, the parameters they share, and the current technique.
///
/// Technique, parameters and render form a sequence: callers keep other threads out while they go through it.
class QX_PLATFORM_API iShaderEffect : public iObject
{
public:
    /// A macro that is defined before the first line of an effect.
    struct CompilerDefinition
    {
        LightweightString<char> name;
        LightweightString<char> value;
    };

    /// One bound input.
    struct Source
    {
        Source(const LightweightString<char>& inputName, Qx::Ptr<iGPUResource> input)
            : resource(std::move(input)), name(inputName)
        {
        }

        Qx::Ptr<iGPUResource> resource;
        LightweightString<char> name; ///< the effect's texture parameter

        /// Left, top, right, bottom: the normalised rectangle of the input that spans the target.
        std::array<float, 4> texCoords{0.0F, 0.0F, 1.0F, 1.0F};
    };

    /// Selects a technique by name, letter case included; false when there is none, and the current one
    /// stays.
    virtual bool setTechnique(const LightweightString<char>& name) = 0;

    /// The techniques in the file's order. The first is current at the start.
    virtual Qx::Vector<LightweightString<char>> getTechniqueNames() const = 0;

    /// A parameter by name; empty when the effect has none of that name.
    virtual Qx::Ptr<iShaderParam> getParam(const char* name) = 0;

    /// Draws the current technique over the whole target and returns without waiting for the device. The i-th
    /// source sets the i-th texture coordinate and binds its resource to the texture of its name. False when
    /// it cannot be drawn (no target, a texture that the technique reads is not bound, the device is lost).
    virtual bool render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources) = 0;

    /// Sets a float parameter; false when the effect has none of that name.
    bool setFloat(const LightweightString<char>& name, float value)
    {
        const Qx::Ptr<iShaderParam> param = getParam(name.c_str());
        return param && param->setValue(value);
    }
};

/// What compiling an effect file gives.
struct EffectCompileResult
{
    Qx::Ptr<iShaderEffect> effect;  ///< empty when it failed
    LightweightString<char> errors; ///< the compiler's text, lines; may hold warnings of a success
};
