#pragma once

#include "python/Frame.h"

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Qx::Python {

/// Why a frame cannot be processed.
class Error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};
class EffectError : public Error
{
public:
    using Error::Error;
};
class DeviceError : public Error
{
public:
    using Error::Error;
};

/// Runs `work`; a Failure inside becomes one of the errors above, or std::invalid_argument.
void translating(const std::function<void()>& work);

/// Starts the host with its device, which Python's end stops. Throws DeviceError.
void openDevice(const std::string& name);

/// A parameter of an effect, for people.
struct Parameter
{
    std::string name;
    std::string type;
    std::vector<double> defaults;
    std::optional<double> least;
    std::optional<double> most;
    std::string label;
};

/// Steps that frames are taken through, one after the other.
class Chain
{
public:
    explicit Chain(Program::FrameSteps steps);

    /// A step alone, for those that make it.
    const Program::FrameSteps& steps() const { return steps_; }

    /// The names of the textures that frames are given for, in the order of the inputs.
    std::vector<std::string> inputs;

    const std::vector<std::string>& warnings() const { return warnings_; }
    std::vector<std::string> techniques(std::size_t effect) const;
    std::vector<Parameter> parameters(std::size_t effect) const;

    /// Values for the frames that follow. Throws EffectError if there is no such parameter.
    void set(std::size_t effect, const std::string& name, std::vector<float> values);

    /// A place in time.
    struct Moment
    {
        std::int64_t number = 0;
        double seconds = 0;
        double frameSeconds = 0;
    };

    /// The frame in that form. `more` are the frames of the inputs. Without Python's lock.
    std::shared_ptr<Frame> process(const Frame& frame, const std::vector<std::shared_ptr<Frame>>& more,
                                   const Program::FrameForm& to, const Moment& moment);

private:
    Program::FrameSteps steps_;
    std::map<std::string, std::shared_ptr<Program::PicturesOfCaller>> pictures_;
    std::unique_ptr<Program::FrameProcessor> processor_;
    std::vector<std::string> warnings_;
};

} // namespace Qx::Python
