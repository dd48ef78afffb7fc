#include <gmock/gmock.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    // Before Fontconfig reads its configuration, and before there are threads.
    setenv("FONTCONFIG_FILE", QX_FONTS_FOLDER "/fonts.conf", 1); // NOLINT(concurrency-mt-unsafe)
    setenv("LC_ALL", "C.UTF-8", 1);                              // NOLINT(concurrency-mt-unsafe)
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
