#include "Qx/QxLokiSingleton.h"

#include <gtest/gtest.h>

namespace {

struct Single
{
    Single() { ++living; }
    ~Single() { --living; }

    static inline int living = 0;
};

using Holder = Qx::LokiSingleton<Single>;

} // namespace

TEST(LokiSingleton, IsMadeOnFirstUseAndAgainAfterItsEnd)
{
    EXPECT_EQ(Single::living, 0);
    const Single* first = &Holder::instance();
    EXPECT_EQ(&Holder::instance(), first);
    EXPECT_EQ(Single::living, 1);
    Holder::destroy();
    EXPECT_EQ(Single::living, 0);
    Holder::instance();
    EXPECT_EQ(Single::living, 1);
    Holder::destroy();
    EXPECT_EQ(Single::living, 0);
}
