#include "bench/comparison/Programs.h"

#include <gtest/gtest.h>

namespace Qx::Bench {
namespace {

TEST(Programs, OfOthersHavePackagesInTheList)
{
    for (const Program& program : programs()) {
        const std::string packages = packagesFor(program.name, QX_PEERS_PACKAGES);
        EXPECT_EQ(packages.empty(), std::string_view(program.name) == "ours") << program.name;
    }
    EXPECT_NE(packagesFor("placebo", QX_PEERS_PACKAGES).find("libplacebo-dev"), std::string::npos);
    EXPECT_EQ(packagesFor("placebo", QX_PEERS_PACKAGES).find("libmovit-dev"), std::string::npos);
}

TEST(Programs, HaveNoPackagesInAListThatIsNotThere)
{
    EXPECT_EQ(packagesFor("placebo", "/nonexistent/packages.txt"), "");
}

} // namespace
} // namespace Qx::Bench
