// For programs whose tests ask for more memory than there is.

// A failed allocation returns null, as without the sanitizers, and does not end the process.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();

const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}
