#include "Promise.h"

#include <platform/GPUService.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace Qx::HostTests {

namespace {

constexpr const char* cubeFile = "# red varies fastest\n"
                                 "DOMAIN_MIN -0.5 0 0\n"
                                 "DOMAIN_MAX 2 1 1\n"
                                 "LUT_3D_SIZE 2\n"
                                 "0 0 0\n"
                                 "1 0 0.25\n"
                                 "0 1 0.5\n"
                                 "1 1 0\n"
                                 "0 0 1\n"
                                 "1 0 1\n"
                                 "0 1 1\n"
                                 "1 1 0.75\n";

Ptr<iHostImage3D> loadedTable(const Kit& kit, const char* text, const char* name = "table.cube")
{
    const std::filesystem::path file = makeDirectory(kit, "tables") / name;
    writeFile(file, text);
    return kit.services.loadLUT(asText(kit, file));
}

void noFileIsNoTable(const Kit& kit)
{
    EXPECT_FALSE(kit.services.loadLUT(asText(kit, kit.directory / "there-is-no-such.cube")));
    EXPECT_FALSE(kit.services.loadLUT({})) << "the empty path";
}

void damagedFilesAreNoTables(const Kit& kit)
{
    EXPECT_FALSE(loadedTable(kit, "LUT_3D_SIZE 2\n0 0 0\n")) << "seven lines are missing";
    EXPECT_FALSE(loadedTable(kit, "this is no table\n"));
    EXPECT_FALSE(loadedTable(kit, ""));
}

void tablesAreRead(const Kit& kit)
{
    const Ptr<iHostImage3D> table = loadedTable(kit, cubeFile);
    ASSERT_TRUE(table);
    ASSERT_EQ(table->getSize(), 2);
    const float* const data = table->getData();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data[0], 0.0F);
    EXPECT_EQ(data[4], 1.0F) << "red varies fastest; an entry is four floats";
    EXPECT_EQ(data[4 + 2], 0.25F);
    EXPECT_EQ(data[8 + 1], 1.0F) << "green varies next";
    EXPECT_EQ(data[4 * 4 + 2], 1.0F) << "blue varies last";
    EXPECT_EQ(data[7 * 4 + 2], 0.75F);
}

void tablesHaveADomain(const Kit& kit)
{
    const Ptr<iHostImage3D> table = loadedTable(kit, cubeFile);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->getDomain().min[0], -0.5F);
    EXPECT_EQ(table->getDomain().max[0], 2.0F);
    EXPECT_EQ(table->getDomain().min[1], 0.0F);
    EXPECT_EQ(table->getDomain().max[2], 1.0F);
}

void typesAreAppended(const Kit& kit)
{
    Vector<LightweightString<wchar_t>> types;
    types.emplace_back(L"before");
    kit.services.getSupportedLUTTypes(types);
    ASSERT_GE(types.size(), 2U) << "at least one type";
    EXPECT_EQ(narrow(types[0]), "before") << "types are appended";
    for (const LightweightString<wchar_t>& type : types) {
        EXPECT_EQ(narrow(type).find('.'), std::string::npos) << "without a dot: " << narrow(type);
    }
}

void cubeIsAType(const Kit& kit)
{
    Vector<LightweightString<wchar_t>> types;
    kit.services.getSupportedLUTTypes(types);
    EXPECT_TRUE(std::any_of(types.begin(), types.end(), [](const auto& type) {
        return type.equalsIgnoringCase(LightweightString<wchar_t>(L"cube"));
    }));
}

void hostTablesHaveRoom(const Kit& kit)
{
    const Ptr<iHostImage3D> table = kit.services.os().gpu().createHostImage3D(5);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->getSize(), 5);
    float* const data = table->getData();
    ASSERT_NE(data, nullptr);
    std::fill_n(data, 5 * 5 * 5 * 4, 0.5F);
    const iHostImage3D& constant = *table;
    EXPECT_EQ(constant.getData()[5 * 5 * 5 * 4 - 1], 0.5F);
    EXPECT_EQ(table->getDomain().min[0], 0.0F);
    EXPECT_EQ(table->getDomain().max[0], 1.0F);
}

void smallTablesAreRefused(const Kit& kit)
{
    for (const int size : {1, 0, -3}) {
        EXPECT_FALSE(kit.services.os().gpu().createHostImage3D(size)) << "size " << size;
    }
}

void tablesAreUploaded(const Kit& kit)
{
    const Ptr<iHostImage3D> table = kit.services.os().gpu().createHostImage3D(3);
    ASSERT_TRUE(table);
    std::fill_n(table->getData(), 3 * 3 * 3 * 4, 0.25F);
    const Ptr<iGPUImage3D> uploaded = kit.services.os().gpu().upload3DImage(table);
    ASSERT_TRUE(uploaded);
    EXPECT_EQ(uploaded->getSize(), 3);
}

void theDomainGoesAlong(const Kit& kit)
{
    const Ptr<iHostImage3D> table = loadedTable(kit, cubeFile);
    ASSERT_TRUE(table);
    const Ptr<iGPUImage3D> uploaded = kit.services.os().gpu().upload3DImage(table);
    ASSERT_TRUE(uploaded);
    EXPECT_EQ(uploaded->getDomain().min[0], -0.5F);
    EXPECT_EQ(uploaded->getDomain().max[0], 2.0F);
}

void noTableIsUploadedFromNothing(const Kit& kit)
{
    EXPECT_FALSE(kit.services.os().gpu().upload3DImage({}));
}

} // namespace

Promises tablePromises()
{
    return {
        {"Tables",
         "AreNotUploadedFromNothing",
         noTableIsUploadedFromNothing,
         "platform/GPUService.h: upload3DImage() returns an empty pointer for an empty pointer",
         {}},
        {"Tables", "HaveRoom", hostTablesHaveRoom,
         "platform/GPUImage.h: size x size x size entries of four floats", Feature::Images3D},
        {"Tables",
         "AreRefusedBelowTwo",
         smallTablesAreRefused,
         "platform/GPUService.h: createHostImage3D(): empty if `size` is less than 2",
         {}},
        {"Tables", "AreUploaded", tablesAreUploaded, "platform/GPUService.h: upload3DImage()",
         Feature::Images3D},
        {"Tables", "KeepTheirDomain", theDomainGoesAlong,
         "platform/GPUImage.h: getDomain() of the host image that was uploaded", Feature::LUTs},
        {"LUTs", "NeedAFile", noFileIsNoTable,
         "platform/CubeLUT.h: an empty pointer if the file cannot be read", Feature::LUTs},
        {"LUTs", "NeedASoundFile", damagedFilesAreNoTables,
         "platform/CubeLUT.h: an empty pointer if the file cannot be parsed", Feature::LUTs},
        {"LUTs", "AreRead", tablesAreRead, "platform/GPUImage.h: red varies fastest; an entry is four floats",
         Feature::LUTs},
        {"LUTs", "HaveADomain", tablesHaveADomain, "platform/GPUImage.h: getDomain()", Feature::LUTs},
        {"LUTs", "AppendTheirTypes", typesAreAppended,
         "platform/CubeLUT.h: appends the extensions, in the form that getExtension() returns",
         Feature::LUTs},
        {"LUTs", "KnowCube", cubeIsAType, "platform/CubeLUT.h: getSupportedFileTypes()", Feature::LUTs},
    };
}

} // namespace Qx::HostTests
