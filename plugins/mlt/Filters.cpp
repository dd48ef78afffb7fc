#include "plugins/mlt/Services.h"

#include "plugins/mlt/Plans.h"

#include <memory>
#include <string>
#include <string_view>

namespace Qx::Mlt {

namespace {

Service& serviceOf(mlt_filter filter)
{
    return *static_cast<Service*>(filter->child);
}

int filterImage(mlt_frame frame, std::uint8_t** buffer, mlt_image_format* format, int* width, int* height,
                int /*writable*/)
{
    auto* const filter = static_cast<mlt_filter>(mlt_frame_pop_service(frame));
    Image image;
    const int error = imageOf(frame, *format, *width, *height, true, image);
    *buffer = image.data;
    *format = image.format;
    *width = image.width;
    *height = image.height;
    if (error == 0 && image.data != nullptr) {
        const Moment moment{mlt_filter_get_position(filter, frame), mlt_filter_get_length2(filter, frame)};
        serviceOf(filter).draw({image, frame}, nullptr, moment, mlt_filter_get_progress(filter, frame));
    }
    return error;
}

mlt_frame filterFrame(mlt_filter filter, mlt_frame frame)
{
    mlt_frame_push_service(frame, filter);
    mlt_frame_push_get_image(frame, filterImage);
    return frame;
}

void closeFilter(mlt_filter filter)
{
    delete static_cast<Service*>(filter->child);
    filter->child = nullptr;
    filter->close = nullptr;
    filter->parent.close = nullptr;
    mlt_service_close(&filter->parent);
}

mlt_filter makeFilter(Service::MakePlan plan)
{
    mlt_filter filter = mlt_filter_new();
    if (filter != nullptr) {
        filter->child = new Service(MLT_FILTER_SERVICE(filter), std::move(plan));
        filter->process = filterFrame;
        filter->close = closeFilter;
    }
    return filter;
}

void setArgument(mlt_filter filter, const char* property, const void* argument)
{
    if (filter != nullptr && argument != nullptr) {
        mlt_properties_set(MLT_FILTER_PROPERTIES(filter), property, static_cast<const char*>(argument));
    }
}

} // namespace

void* makeEffectFilter(mlt_profile /*profile*/, mlt_service_type /*type*/, const char* id,
                       const void* argument)
{
    mlt_filter filter = makeFilter(effectPlan);
    const std::string_view name = id;
    if (name.starts_with(effectPrefix)) {
        const std::string file = std::string(name.substr(effectPrefix.size())) + ".fx";
        setArgument(filter, "effect", file.c_str());
    }
    setArgument(filter, "effect", argument);
    return filter;
}

void* makeLutFilter(mlt_profile /*profile*/, mlt_service_type /*type*/, const char* /*id*/,
                    const void* argument)
{
    mlt_filter filter = makeFilter(lutPlan);
    setArgument(filter, "lut", argument);
    return filter;
}

void* makeTextFilter(mlt_profile /*profile*/, mlt_service_type /*type*/, const char* /*id*/,
                     const void* argument)
{
    mlt_filter filter = makeFilter(textPlan);
    setArgument(filter, "text", "{timecode}");
    setArgument(filter, "text", argument);
    return filter;
}

void* makeConvertFilter(mlt_profile /*profile*/, mlt_service_type /*type*/, const char* /*id*/,
                        const void* argument)
{
    mlt_filter filter = makeFilter(convertPlan);
    setArgument(filter, "matrix", argument);
    return filter;
}

} // namespace Qx::Mlt
