#include "python/Frame.h"

#include "host/surfaces/FormatTable.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/media/Matrices.h"

#include <algorithm>
#include <cstring>
#include <dlpack/dlpack.h>
#include <fmt/format.h>
#include <limits>
#include <numeric>
#include <utility>

namespace Qx::Python {

namespace py = pybind11;

namespace {

using Host::FormatKind;
using Host::Packing;
using Host::Planes;
using Program::FrameForm;
using Program::PixelFormat;

/// An array as it came: its elements in C order.
struct Elements
{
    std::vector<std::size_t> shape;
    std::size_t itemBytes = 1;
    bool isWhole = true; ///< elements are unsigned whole numbers
    std::vector<std::byte> bytes;
};

std::size_t productOf(const std::vector<std::size_t>& shape)
{
    return std::accumulate(shape.begin(), shape.end(), std::size_t{1}, std::multiplies<>());
}

std::string shapeText(const std::vector<std::size_t>& shape)
{
    return fmt::format("({})", fmt::join(shape, ", "));
}

Elements elementsOfBuffer(const py::object& array)
{
    Py_buffer view{};
    if (PyObject_GetBuffer(array.ptr(), &view, PyBUF_FULL_RO) != 0) {
        throw py::error_already_set();
    }
    Elements elements;
    elements.itemBytes = static_cast<std::size_t>(view.itemsize);
    elements.shape.assign(view.shape, view.shape + view.ndim);
    const std::string format = view.format != nullptr ? view.format : "B";
    const char kind = format.empty() ? 'B' : format.back();
    const bool isForeign = format.front() == '>' || format.front() == '!';
    elements.isWhole =
        std::string("BHc").find(kind) != std::string::npos && !isForeign && elements.itemBytes <= 2;
    elements.bytes.resize(static_cast<std::size_t>(view.len));
    const int failed = PyBuffer_ToContiguous(elements.bytes.data(), &view, view.len, 'C');
    PyBuffer_Release(&view);
    if (failed != 0) {
        throw py::error_already_set();
    }
    return elements;
}

/// Copies an array with strides, dimension by dimension.
void copyStrided(const DLTensor& tensor, int dimension, const std::byte* from, std::byte*& to,
                 std::size_t item)
{
    if (dimension == tensor.ndim) {
        std::memcpy(to, from, item);
        to += item;
        return;
    }
    std::int64_t stride = 1;
    if (tensor.strides != nullptr) {
        stride = tensor.strides[dimension];
    } else {
        for (int i = dimension + 1; i < tensor.ndim; ++i) {
            stride *= tensor.shape[i];
        }
    }
    for (std::int64_t i = 0; i < tensor.shape[dimension]; ++i) {
        copyStrided(tensor, dimension + 1, from + i * stride * static_cast<std::int64_t>(item), to, item);
    }
}

/// The shape of a tensor whose elements this process can address.
std::vector<std::size_t> shapeOf(const DLTensor& tensor, std::size_t itemBytes)
{
    std::vector<std::size_t> shape;
    std::size_t bytes = itemBytes;
    bool isPossible = true;
    for (int i = 0; i < tensor.ndim; ++i) {
        const std::int64_t length = tensor.shape[i];
        const auto count = static_cast<std::size_t>(length);
        isPossible = isPossible && length >= 0 &&
                     (count == 0 || bytes <= std::numeric_limits<std::ptrdiff_t>::max() / count);
        bytes *= std::max<std::size_t>(count, 1);
        shape.push_back(count);
    }
    if (!isPossible || (tensor.data == nullptr && productOf(shape) != 0)) {
        throw py::value_error("the array's shape is impossible: a length is negative, its memory larger than "
                              "any, or there is none");
    }
    return shape;
}

Elements elementsOfTensor(const py::object& array)
{
    const py::capsule capsule = array.attr("__dlpack__")();
    auto* const managed = static_cast<DLManagedTensor*>(PyCapsule_GetPointer(capsule.ptr(), "dltensor"));
    if (managed == nullptr) {
        throw py::error_already_set();
    }
    const DLTensor& tensor = managed->dl_tensor;
    if (tensor.device.device_type != kDLCPU && tensor.device.device_type != kDLCUDAHost) {
        throw py::type_error("the array is in the memory of a device; copy it to the processor's first");
    }
    Elements elements;
    const DLDataType& type = tensor.dtype;
    elements.isWhole = type.code == kDLUInt && type.lanes == 1 && (type.bits == 8 || type.bits == 16);
    if (!elements.isWhole) {
        return elements; // nothing reads the others
    }
    elements.itemBytes = type.bits / 8U;
    elements.shape = shapeOf(tensor, elements.itemBytes);
    elements.bytes.resize(productOf(elements.shape) * elements.itemBytes);
    std::byte* to = elements.bytes.data();
    if (!elements.bytes.empty()) {
        copyStrided(tensor, 0, static_cast<const std::byte*>(tensor.data) + tensor.byte_offset, to,
                    elements.itemBytes);
    }
    return elements; // the capsule, which still owns the tensor, frees it
}

Elements elementsOf(const py::object& array)
{
    if (PyObject_CheckBuffer(array.ptr()) != 0) {
        return elementsOfBuffer(array);
    }
    if (py::hasattr(array, "__dlpack__")) {
        return elementsOfTensor(array);
    }
    throw py::type_error(
        "a frame is an array: expected an object with the buffer protocol or DLPack, such as "
        "numpy.ndarray");
}

/// Components of a pixel, or of a pair of 4:2:2, whose samples an array can hold; 0: none.
std::size_t componentsOf(const PixelFormat& format)
{
    const Host::RowLayout& layout = format.info->layout(format.bits);
    const std::size_t sample = format.isDeep() ? 2 : 1;
    return layout.packing == Packing::Samples ? layout.blockBytes / sample : 0;
}

PixelFormat formatOfShape(const Elements& elements)
{
    const bool isPicture = elements.shape.size() == 3 && (elements.shape[2] == 3 || elements.shape[2] == 4);
    if (!isPicture) {
        throw py::value_error(
            "the array has the shape " + shapeText(elements.shape) +
            ": expected (height, width, 3) or (height, width, 4); for other formats name it, as "
            "in format=\"yuy2\"");
    }
    const unsigned bits = elements.itemBytes == 1 ? 8 : 16;
    return {Host::findFormat(elements.shape[2] == 4 ? Image::RGBA : Image::BGR3), bits};
}

std::pair<unsigned, unsigned> sizeOf(const Elements& elements, const PixelFormat& format, const Wish& wish)
{
    const auto number = [](std::size_t value) { return static_cast<unsigned>(value); };
    const std::size_t components = componentsOf(format);
    const bool isThree = elements.shape.size() == 3;
    if (wish.width != 0 && wish.height != 0) {
        return {wish.width, wish.height};
    }
    if (format.info->planes == Planes::ThreeFull && isThree && elements.shape[0] == 3) {
        return {number(elements.shape[2]), number(elements.shape[1])};
    }
    if (format.info->planes == Planes::One && components != 0 && isThree && elements.shape[2] == components) {
        const std::size_t block = format.info->layout(format.bits).blockPixels;
        const unsigned width = number(elements.shape[1] * block);
        return {wish.width != 0 ? wish.width : width, number(elements.shape[0])};
    }
    throw py::value_error(
        fmt::format("the array has the shape {}, which does not say the size of a frame of {}; give "
                    "width and height",
                    shapeText(elements.shape), format.name()));
}

void checkElements(const Elements& elements)
{
    if (!elements.isWhole) {
        throw py::type_error(
            "the array's elements are not codes: expected uint8 or uint16 of this machine's byte "
            "order; scale and round others first, as in (x * 255 + 0.5).astype(\"uint8\")");
    }
}

std::string wordsOfMatrices()
{
    std::vector<std::string> words;
    for (const Media::MatrixInfo& info : Media::matrices()) {
        words.emplace_back(info.word);
    }
    return Program::listed(words, "or");
}

/// What a capsule of DLPack keeps.
struct Exported
{
    DLManagedTensor tensor{};
    std::shared_ptr<Frame> frame;
    std::vector<std::int64_t> shape;
};

void freeUnused(PyObject* capsule)
{
    if (PyCapsule_IsValid(capsule, "dltensor") != 0) {
        auto* const tensor = static_cast<DLManagedTensor*>(PyCapsule_GetPointer(capsule, "dltensor"));
        tensor->deleter(tensor);
    }
}

} // namespace

std::vector<std::size_t> Frame::shape() const
{
    const std::size_t height = form.height;
    const std::size_t components = componentsOf(form.format);
    if (form.format.info->planes == Planes::ThreeFull) {
        return {3, height, form.width};
    }
    if (layout.planes.size() != 1) {
        return {bytes.size()};
    }
    if (components != 0) {
        const std::size_t rowItems = layout.planes.front().rowBytes / itemBytes();
        return {height, rowItems / components, components};
    }
    return {height, layout.planes.front().rowBytes};
}

std::size_t Frame::itemBytes() const
{
    const bool hasSamples = componentsOf(form.format) != 0;
    return hasSamples && form.format.isDeep() && layout.planes.size() != 2 ? 2 : 1;
}

Frame makeFrame(const FrameForm& form)
{
    Frame frame;
    frame.form = form;
    try {
        frame.layout = Program::storedLayout(form.format, form.width, form.height, 0, "width");
    } catch (const Program::Failure& failure) {
        throw py::value_error(failure.what());
    }
    frame.bytes.resize(frame.layout.frameBytes());
    return frame;
}

Media::Range rangeNamed(const std::string& word, Media::Range otherwise)
{
    if (!word.empty() && word != "video" && word != "full") {
        throw py::value_error("range: invalid value \"" + word + "\": expected video or full");
    }
    return word.empty() ? otherwise : word == "video" ? Media::Range::video : Media::Range::full;
}

Media::Matrix matrixNamed(const std::string& word, Media::Matrix otherwise)
{
    for (const Media::MatrixInfo& info : Media::matrices()) {
        if (word == info.word) {
            return info.matrix;
        }
    }
    if (!word.empty()) {
        throw py::value_error("matrix: invalid value \"" + word + "\": expected " + wordsOfMatrices());
    }
    return otherwise;
}

std::shared_ptr<Frame> frameOf(const py::object& array, const Wish& wish)
{
    if (py::isinstance<Frame>(array)) {
        return array.cast<std::shared_ptr<Frame>>();
    }
    Elements elements = elementsOf(array);
    checkElements(elements);
    FrameForm form;
    form.format =
        wish.format.empty() ? formatOfShape(elements) : Program::parsePixelFormat("format", wish.format);
    std::tie(form.width, form.height) = sizeOf(elements, form.format, wish);
    form.range = rangeNamed(wish.range, form.format.isYCrCb() ? Media::Range::video : Media::Range::full);
    form.matrix = matrixNamed(wish.matrix, Media::matrixForWidth(static_cast<int>(form.width)));
    if (form.width == 0 || form.height == 0) {
        throw py::value_error("the array has the shape " + shapeText(elements.shape) +
                              ": a frame has pixels");
    }
    auto frame = std::make_shared<Frame>(makeFrame(form));
    const bool isOtherItem = elements.itemBytes != 1 && elements.itemBytes != frame->itemBytes();
    if (elements.bytes.size() != frame->bytes.size() || isOtherItem) {
        throw py::value_error(fmt::format("the array has the shape {} and elements of {} bits: a frame of "
                                          "{}, {} x {} pixels, has the shape {} and "
                                          "elements of {} bits",
                                          shapeText(elements.shape), elements.itemBytes * 8,
                                          form.format.name(), form.width, form.height,
                                          shapeText(frame->shape()), frame->itemBytes() * 8));
    }
    frame->bytes = std::move(elements.bytes);
    return frame;
}

py::capsule dlpackOf(const std::shared_ptr<Frame>& frame)
{
    auto exported = std::make_unique<Exported>();
    exported->frame = frame;
    for (const std::size_t length : frame->shape()) {
        exported->shape.push_back(static_cast<std::int64_t>(length));
    }
    DLTensor& tensor = exported->tensor.dl_tensor;
    tensor.data = frame->bytes.data();
    tensor.device = {kDLCPU, 0};
    tensor.ndim = static_cast<int>(exported->shape.size());
    tensor.dtype = {kDLUInt, static_cast<std::uint8_t>(frame->itemBytes() * 8), 1};
    tensor.shape = exported->shape.data();
    exported->tensor.manager_ctx = exported.get();
    exported->tensor.deleter = [](DLManagedTensor* self) {
        delete static_cast<Exported*>(self->manager_ctx);
    };
    DLManagedTensor* const given = &exported.release()->tensor;
    return py::reinterpret_steal<py::capsule>(PyCapsule_New(given, "dltensor", freeUnused));
}

py::buffer_info bufferOf(Frame& frame)
{
    const std::vector<std::size_t> lengths = frame.shape();
    const std::size_t item = frame.itemBytes();
    std::vector<py::ssize_t> shape(lengths.begin(), lengths.end());
    std::vector<py::ssize_t> strides(shape.size());
    auto stride = static_cast<py::ssize_t>(item);
    for (std::size_t i = shape.size(); i-- > 0;) {
        strides[i] = stride;
        stride *= shape[i];
    }
    const std::string format = item == 2 ? py::format_descriptor<std::uint16_t>::format()
                                         : py::format_descriptor<std::uint8_t>::format();
    return {frame.bytes.data(),
            static_cast<py::ssize_t>(item),
            format,
            static_cast<py::ssize_t>(shape.size()),
            shape,
            strides};
}

} // namespace Qx::Python
