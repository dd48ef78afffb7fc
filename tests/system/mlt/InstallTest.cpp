#include "tests/system/mlt/MeltProgram.h"
#include "tests/system/program/Installation.h"

namespace {

using namespace Qx::System;

TEST_F(Installation, its_module_draws_in_melt_where_it_is_moved_to)
{
    fs::rename(at("prefix"), at("moved"));
    const fs::path few = fs::path(QX_MLT_FOLDER) / "few";
    fs::create_directory(at("modules"));
    for (const fs::directory_entry& module : fs::directory_iterator(few)) {
        if (module.path().filename() != "libmltqx.so") {
            fs::create_symlink(fs::canonical(module.path()), at("modules") / module.path().filename());
        }
    }
    fs::create_symlink(at("moved/" QX_LIBRARY_FOLDER "/mlt-7/libmltqx.so"), at("modules/libmltqx.so"));
    const std::string data = at("moved/share/mlt-7").string();
    const Outcome query = run({"env", "MLT_REPOSITORY=" + at("modules").string(), "MLT_DATA=" + data, QX_MELT,
                               "-query", "filter=qx.effect"});
    EXPECT_NE(query.out.find("identifier: technique"), std::string::npos) << query.out << query.err;
    const Outcome described = run({"env", "MLT_REPOSITORY=" + at("modules").string(), QX_MELT, "-query",
                                   "filter=qx.effect.qx-vignette"});
    EXPECT_NE(described.out.find("identifier: qx.effect.qx-vignette"), std::string::npos)
        << described.out << described.err;
}

} // namespace
