#include "python/Frame.h"
#include "python/OthersRun.h"
#include "python/Steps.h"

#include "Qx/Version.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/pipeline/burnin/BurnInPosition.h"
#include "tools/qxhost/pipeline/frames/FrameHost.h"

#include <cmath>
#include <pybind11/stl.h>
#include <utility>

namespace Qx::Python {

namespace py = pybind11;
using namespace py::literals;

namespace {

/// What Python's classes have in common: each is a chain of its own.
struct Step
{
    std::shared_ptr<Chain> chain;
};
struct Effect : Step
{
};
struct Lut : Step
{
};
struct Text : Step
{
};
struct Steps : Step
{
};

struct Device
{
    std::string name;
    bool isSoftware;
};

std::string wordOf(Media::Range range)
{
    return range == Media::Range::video ? "video" : "full";
}

std::vector<float> valuesOf(const std::string& name, const py::handle& value)
{
    std::vector<float> values;
    const bool isNumber = PyFloat_Check(value.ptr()) != 0 || PyLong_Check(value.ptr()) != 0;
    if (isNumber || !py::isinstance<py::iterable>(value)) {
        values.push_back(value.cast<float>());
    } else if (py::isinstance<py::str>(value)) {
        throw py::type_error(name + ": is a text: expected a number or a sequence of numbers");
    } else {
        for (const py::handle each : value) {
            values.push_back(each.cast<float>());
        }
    }
    for (const float number : values) {
        if (!std::isfinite(number)) {
            throw py::value_error(name + ": is not a finite number");
        }
    }
    if (values.empty()) {
        throw py::value_error(name + ": has no numbers");
    }
    return values;
}

Image::Filter filterNamed(const std::string& word)
{
    for (const auto& [name, filter] : {std::pair("point", Image::Filter::Point),
                                       {"catmullrom", Image::Filter::CatmullRom},
                                       {"mitchell", Image::Filter::Mitchell}}) {
        if (word == name) {
            return filter;
        }
    }
    throw py::value_error("filter: invalid value \"" + word + "\": expected point, catmullrom or mitchell");
}

/// The form of results; empty words keep what the frame has.
Program::FrameForm resultForm(const Frame& frame, const std::string& format, const std::string& range,
                              const std::string& matrix, bool isDrawn)
{
    Program::FrameForm form = frame.form;
    if (!format.empty()) {
        translating([&] { form.format = Program::parsePixelFormat("target", format); });
    }
    form.matrix = matrixNamed(matrix, frame.form.matrix);
    const bool wasYCbCr = frame.form.format.isYCrCb();
    const bool keepsCodes = !isDrawn && wasYCbCr && form.matrix == frame.form.matrix;
    if (!form.format.isYCrCb()) {
        form.range = rangeNamed(range, wasYCbCr ? Media::Range::full : frame.form.range);
    } else if (!keepsCodes) {
        form.range = rangeNamed(range, Media::Range::video);
        if (form.range != Media::Range::video) {
            throw py::value_error("range: YCbCr that is made of RGB has video range");
        }
    } else if (rangeNamed(range, form.range) != form.range) {
        throw py::value_error("range: YCbCr keeps the range of its codes");
    }
    return form;
}

std::shared_ptr<Frame> processed(Chain& chain, const std::shared_ptr<Frame>& frame,
                                 const std::vector<std::shared_ptr<Frame>>& more,
                                 const Program::FrameForm& form, const Chain::Moment& moment)
{
    const OthersRun others; // run while the device works
    return chain.process(*frame, more, form, moment);
}

std::vector<std::shared_ptr<Frame>> framesFor(const Chain& chain, const py::dict& given)
{
    std::vector<std::shared_ptr<Frame>> frames;
    for (const std::string& name : chain.inputs) {
        if (!given.contains(name)) {
            throw py::type_error("the input " + name + " is missing: give its frame, as in " + name +
                                 "=frame");
        }
        frames.push_back(frameOf(given[name.c_str()], {}));
    }
    if (given.size() != frames.size()) {
        throw py::type_error(frames.empty() ? "there are no inputs but the frame"
                                            : "there are other inputs than " + Program::listed(chain.inputs));
    }
    return frames;
}

std::shared_ptr<Frame> call(const Step& step, const py::object& array, const std::string& target,
                            const std::string& range, const std::string& matrix, std::int64_t number,
                            double seconds, double rate, const py::kwargs& inputs)
{
    const std::shared_ptr<Frame> frame = frameOf(array, {});
    const double frameSeconds = rate > 0 ? 1 / rate : 0;
    const Chain::Moment moment{number, seconds != 0 ? seconds : static_cast<double>(number) * frameSeconds,
                               frameSeconds};
    return processed(*step.chain, frame, framesFor(*step.chain, inputs),
                     resultForm(*frame, target, range, matrix, true), moment);
}

std::shared_ptr<Frame> convert(const py::object& array, const std::string& target, const std::string& format,
                               unsigned width, unsigned height, const std::string& range,
                               const std::string& matrix, const std::string& targetRange,
                               const std::string& targetMatrix, const std::string& filter)
{
    const Wish wish{format, width, height, range, matrix};
    std::shared_ptr<Frame> frame;
    translating([&] { frame = frameOf(array, wish); });
    Program::FrameSteps steps;
    steps.filter = filterNamed(filter);
    const Program::FrameForm form = resultForm(*frame, target, targetRange, targetMatrix, false);
    const OthersRun others;
    Chain chain(std::move(steps));
    return chain.process(*frame, {}, form, {});
}

std::shared_ptr<Chain> chainOf(Program::FrameSteps steps)
{
    const OthersRun others;
    return std::make_shared<Chain>(std::move(steps));
}

Effect makeEffect(const std::string& file, const std::string& technique,
                  const std::vector<std::string>& inputs, const std::map<std::string, std::string>& textures,
                  const py::kwargs& parameters)
{
    Program::FrameSteps steps;
    Program::EffectRequest request;
    request.file = file;
    request.technique = technique;
    for (const std::string& name : inputs) {
        request.textures.push_back({name, {}});
    }
    for (const auto& [name, path] : textures) {
        if (path.empty()) {
            throw py::value_error("textures: the file of " + name + " has no name");
        }
        request.textures.push_back({name, path});
    }
    for (const auto& [name, value] : parameters) {
        const std::string word = py::str(name);
        request.settings.push_back({word, valuesOf(word, value)});
    }
    steps.effects.push_back(std::move(request));
    return {{chainOf(std::move(steps))}};
}

Lut makeLut(const std::string& file)
{
    Program::FrameSteps steps;
    Program::EffectRequest request;
    request.file = Program::tableEffect;
    request.lut = file;
    steps.effects.push_back(std::move(request));
    return {{chainOf(std::move(steps))}};
}

Text makeText(const std::string& text, const std::string& font, int size, const py::object& position,
              const std::string& timeCode, int rate, const std::string& clip)
{
    const bool isWord = py::isinstance<py::str>(position);
    std::string word;
    if (isWord) {
        word = position.cast<std::string>();
    } else {
        const auto [x, y] = position.cast<std::pair<int, int>>();
        word = std::to_string(x) + ',' + std::to_string(y);
    }
    const auto place = Program::positionNamed(word);
    if (!place) {
        throw py::value_error("position: invalid value \"" + word + "\": expected " +
                              Program::listed(Program::positionWords(), "or") + ", or (x, y) in pixels");
    }
    if (text.empty() || size < 0) {
        throw py::value_error(text.empty() ? "text: is empty" : "size: is negative");
    }
    Program::FrameSteps steps;
    steps.text = {text, font, size, *place};
    steps.timeCode = timeCode;
    steps.rate = {rate, 1};
    steps.clip = clip;
    return {{chainOf(std::move(steps))}};
}

Steps makeSteps(const py::args& given)
{
    Program::FrameSteps all;
    for (const py::handle each : given) {
        const Program::FrameSteps& steps = each.cast<const Step&>().chain->steps();
        if (!all.text.text.empty()) {
            throw py::value_error("a text is drawn after everything else: make it the last step");
        }
        all.effects.insert(all.effects.end(), steps.effects.begin(), steps.effects.end());
        if (!steps.text.text.empty()) {
            all.text = steps.text;
            all.timeCode = steps.timeCode;
            all.rate = steps.rate;
            all.clip = steps.clip;
        }
    }
    for (Program::EffectRequest& request : all.effects) {
        for (Program::TextureFile& texture : request.textures) {
            texture.pictures.reset(); // the chain has frames of its own
        }
    }
    return {{chainOf(std::move(all))}};
}

void bindFrame(py::module_& module)
{
    py::class_<Frame, std::shared_ptr<Frame>>(module, "Frame", py::buffer_protocol(),
                                              "A frame in a pixel format, in memory that arrays share: "
                                              "numpy.asarray(frame), numpy.from_dlpack(frame) and\n"
                                              "memoryview(frame) copy nothing.")
        .def(py::init([](const py::object& array, const std::string& format, unsigned width, unsigned height,
                         const std::string& range, const std::string& matrix) {
                 const Wish wish{format, width, height, range, matrix};
                 std::shared_ptr<Frame> frame;
                 translating([&] { frame = frameOf(array, wish); });
                 return frame;
             }),
             "array"_a, py::kw_only(), "format"_a = "", "width"_a = 0, "height"_a = 0, "range"_a = "",
             "matrix"_a = "",
             "Copies an array that has the buffer protocol or DLPack. Without a format it holds R G B or R G "
             "B A,\n"
             "uint8 or uint16; `qxhost formats` lists the others. Width and height are those of the shape "
             "where it\n"
             "says them.")
        .def_buffer(&bufferOf)
        .def(
            "__dlpack__",
            [](const std::shared_ptr<Frame>& frame, const py::object&, const py::kwargs&) {
                return dlpackOf(frame);
            },
            "stream"_a = py::none(), "A capsule of DLPack that shares the frame's memory.")
        .def(
            "__dlpack_device__", [](const Frame&) { return std::pair(1, 0); }, "The processor: (1, 0).")
        .def_property_readonly(
            "format", [](const Frame& frame) { return frame.form.format.name(); }, "The pixel format.")
        .def_property_readonly(
            "width", [](const Frame& frame) { return frame.form.width; }, "Pixels.")
        .def_property_readonly(
            "height", [](const Frame& frame) { return frame.form.height; }, "Pixels.")
        .def_property_readonly(
            "range", [](const Frame& frame) { return wordOf(frame.form.range); }, "\"video\" or \"full\".")
        .def_property_readonly(
            "matrix", [](const Frame& frame) { return std::string(Media::infoOf(frame.form.matrix).word); },
            "\"bt601\", \"bt709\" or \"bt2020\".")
        .def_property_readonly(
            "shape", [](const Frame& frame) { return py::tuple(py::cast(frame.shape())); },
            "Of the array: (height, width, components) for RGB, (height, pairs, 4) for 4:2:2.")
        .def("__repr__", [](const Frame& frame) {
            return "<qxfx.Frame " + frame.form.format.name() + " " + std::to_string(frame.form.width) +
                   " x " + std::to_string(frame.form.height) + ">";
        });
}

void bindParameter(py::module_& module)
{
    py::class_<Parameter>(module, "Parameter", "A parameter of an effect.")
        .def_readonly("name", &Parameter::name)
        .def_readonly("type", &Parameter::type, "Such as \"float\" or \"float3\".")
        .def_readonly("default", &Parameter::defaults, "A number for each component.")
        .def_readonly("minimum", &Parameter::least, "Of the effect's annotations, or None.")
        .def_readonly("maximum", &Parameter::most, "Of the effect's annotations, or None.")
        .def_readonly("label", &Parameter::label)
        .def("__repr__",
             [](const Parameter& each) { return "<qxfx.Parameter " + each.name + ": " + each.type + ">"; });
}

void bindSteps(py::module_& module)
{
    py::class_<Step>(module, "Step",
                     "What can be done with a frame: an Effect, a Lut, a Text, or a Chain of them.")
        .def("__call__", &call, "frame"_a, py::kw_only(), "target"_a = "", "range"_a = "", "matrix"_a = "",
             "number"_a = 0, "seconds"_a = 0.0, "rate"_a = 0.0,
             "The frame after the step, in the pixel format `target` or its own. An array is R G B or R G B "
             "A.\n"
             "`number`, `seconds` and `rate` (frames a second) tell effects their place in time. Further "
             "inputs are\n"
             "named: step(frame, To=other). Other threads of Python run meanwhile.")
        .def_property_readonly(
            "inputs", [](const Step& step) { return step.chain->inputs; },
            "The textures that get a frame with each call.")
        .def_property_readonly(
            "warnings", [](const Step& step) { return step.chain->warnings(); },
            "What there is to know, a line each.");
    py::class_<Effect, Step>(module, "Effect", "An effect file.")
        .def(py::init(&makeEffect), "file"_a, "technique"_a = "", py::kw_only(),
             "inputs"_a = std::vector<std::string>(), "textures"_a = std::map<std::string, std::string>(),
             "Compiles the effect: an installed one's name, or a file. Values of its parameters are further "
             "keywords.\n"
             "`textures` names files for its textures, `inputs` those that get a frame with each call.\n"
             "Raises EffectError with the compiler's messages.")
        .def_property_readonly("techniques", [](const Effect& effect) { return effect.chain->techniques(0); })
        .def_property_readonly("parameters", [](const Effect& effect) { return effect.chain->parameters(0); })
        .def(
            "__setitem__",
            [](const Effect& effect, const std::string& name, const py::object& value) {
                std::vector<float> values = valuesOf(name, value);
                const OthersRun others;
                effect.chain->set(0, name, std::move(values));
            },
            "name"_a, "value"_a, "Sets a parameter for the frames that follow.");
    py::class_<Lut, Step>(module, "Lut", "A look-up table.")
        .def(py::init(&makeLut), "file"_a, "Reads a LUT file, or an installed LUT. Raises EffectError.");
    py::class_<Text, Step>(module, "Text", "A text, white on a translucent box.")
        .def(py::init(&makeText), "text"_a, py::kw_only(), "font"_a = "", "size"_a = 0,
             "position"_a = "bottom", "timecode"_a = "", "rate"_a = 25, "clip"_a = "",
             "A text with the fields {timecode}, {frame} and {clip}. `size` is in pixels, 0 by the picture's "
             "height;\n"
             "`position` a word such as \"top-left\", or (x, y).");
    py::class_<Steps, Step>(module, "Chain", "Steps one after the other, in the memory of the device.")
        .def(py::init(&makeSteps),
             "Takes effects and LUTs with the parameters that they were made with; a text is the last step.")
        .def(
            "set",
            [](const Steps& steps, std::size_t effect, const std::string& name, const py::object& value) {
                std::vector<float> values = valuesOf(name, value);
                if (effect >= steps.chain->steps().effects.size()) {
                    throw py::index_error("the chain has no effect " + std::to_string(effect));
                }
                const OthersRun others;
                steps.chain->set(effect, name, std::move(values));
            },
            "effect"_a, "name"_a, "value"_a,
            "Sets a parameter of the n-th effect or LUT, from 0, for the frames that follow.");
}

void bindDevice(py::module_& module)
{
    py::class_<Device>(module, "Device", "The GPU, or the software device, that draws for this process.")
        .def(py::init([](const std::string& name) {
                 const OthersRun others;
                 openDevice(name);
                 return Device{Program::frameDeviceName(), Program::frameDeviceIsSoftware()};
             }),
             "name"_a = "",
             "Opens the device: its number or a part of its name, else the one that the settings choose. The "
             "first\n"
             "device or step of a process decides. Raises DeviceError.")
        .def_readonly("name", &Device::name)
        .def_readonly("is_software", &Device::isSoftware, "Whether it computes on the processor.")
        .def("__repr__", [](const Device& device) { return "<qxfx.Device " + device.name + ">"; });
}

} // namespace

} // namespace Qx::Python

PYBIND11_MODULE(_qxfx, module)
{
    using namespace Qx::Python;
    module.attr("__version__") = QX_VERSION;
    auto& error = py::register_exception<Error>(module, "Error", PyExc_RuntimeError);
    py::register_exception<EffectError>(module, "EffectError", error);
    py::register_exception<DeviceError>(module, "DeviceError", error);
    bindFrame(module);
    bindParameter(module);
    bindSteps(module);
    bindDevice(module);
    module.def("convert", &convert, "frame"_a, "target"_a, py::kw_only(), "format"_a = "", "width"_a = 0,
               "height"_a = 0, "range"_a = "", "matrix"_a = "", "target_range"_a = "", "target_matrix"_a = "",
               "filter"_a = "catmullrom",
               "The frame in the pixel format `target`, each code the nearest, as `qxhost convert` makes it. "
               "`format`,\n"
               "`width`, `height`, `range` and `matrix` describe an array as in Frame().");
    py::module_::import("atexit").attr("register")(py::cpp_function([] {
        keepOthersOut();
        const OthersRun others;
        Qx::Program::stopFrameHost();
    }));
}
