#include "plugins/mlt/Plans.h"
#include "plugins/mlt/Services.h"

#include <utility>

namespace Qx::Mlt {

namespace {

int transitionImage(mlt_frame frame, std::uint8_t** buffer, mlt_image_format* format, int* width, int* height,
                    int /*writable*/)
{
    mlt_frame other = mlt_frame_pop_frame(frame);
    auto* const transition = static_cast<mlt_transition>(mlt_frame_pop_service(frame));
    Image first;
    const int error = imageOf(frame, *format, *width, *height, true, first);
    *buffer = first.data;
    *format = first.format;
    *width = first.width;
    *height = first.height;
    if (error != 0 || first.data == nullptr) {
        return error;
    }
    mlt_properties_pass_list(
        MLT_FRAME_PROPERTIES(other), MLT_FRAME_PROPERTIES(frame),
        "consumer.deinterlacer,consumer.progressive,consumer.rescale,consumer.color_trc");
    Image second;
    if (imageOf(other, *format, *width, *height, false, second) == 0 && second.data != nullptr) {
        const Moment moment{mlt_transition_get_position(transition, frame),
                            mlt_transition_get_length(transition)};
        const Service::Input input{second, other};
        static_cast<Service*>(transition->child)
            ->draw({first, frame}, &input, moment, mlt_transition_get_progress(transition, frame));
    }
    return 0;
}

mlt_frame transitionFrame(mlt_transition transition, mlt_frame frame, mlt_frame other)
{
    mlt_frame_push_service(frame, transition);
    mlt_frame_push_frame(frame, other);
    mlt_frame_push_get_image(frame, transitionImage);
    return frame;
}

void closeTransition(mlt_transition transition)
{
    delete static_cast<Service*>(transition->child);
    transition->child = nullptr;
    transition->close = nullptr;
    mlt_transition_close(transition);
}

} // namespace

void* makeTransition(mlt_profile /*profile*/, mlt_service_type /*type*/, const char* /*id*/,
                     const void* argument)
{
    mlt_transition transition = mlt_transition_new();
    if (transition == nullptr) {
        return nullptr;
    }
    transition->child = new Service(MLT_TRANSITION_SERVICE(transition), transitionPlan);
    transition->process = transitionFrame;
    transition->close = closeTransition;
    mlt_properties properties = MLT_TRANSITION_PROPERTIES(transition);
    mlt_properties_set_int(properties, "_transition_type", 1); // of pictures
    mlt_properties_set(properties, "effect",
                       argument != nullptr ? static_cast<const char*>(argument) : "qx-dissolve.fx");
    return transition;
}

} // namespace Qx::Mlt
