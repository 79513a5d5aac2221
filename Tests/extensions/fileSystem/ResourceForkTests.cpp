#include "FinderMetadataTestSupport.h"
#include "support/ScratchFolder.h"

#include "extensions/fileSystem/ZonResourceFork.h"
#include "platform/io/FinderMetadataStore.h"
#include "platform/io/IconFamily.h"
#include "platform/io/ResourceFile.h"
#include "platform/io/ResourceFileLayer.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

namespace {

constexpr uint32_t kAlis = 0x616C6973;
constexpr uint32_t kIcns = 0x69636E73;

Ref<String> str(const std::string& utf8) { return String::stringWithUTF8String(utf8); }
Ref<Data> data(std::string_view bytes) { return Data::dataWithBytes(bytes.data(), bytes.size()); }

std::vector<Resource> resourcesOnDisk(const std::string& path)
{
    return decodeResourceFile(readResourceFork(path)).value_or(std::vector<Resource> {});
}

} // namespace

TEST(ResourceFile, RoundTripsTypesIDsNamesAndDuplicates)
{
    const std::vector<Resource> resources = {
        {kAlis, 0, 0, std::string("ZON Alias"), {1, 2, 3}},
        {kIcns, -16455, 0, std::nullopt, Bytes(300, 7)},
        {kAlis, 0, 0x20, std::string("second \xA5"), {}},
        {kAlis, 5, 0, std::string(), {9}},
    };
    const Bytes encoded = encodeResourceFile(resources);
    EXPECT_EQ(get32(encoded, 0), 256u);
    auto decoded = decodeResourceFile(encoded);
    ASSERT_TRUE(decoded);
    // Grouped by type in the order of first appearance; both resources 'alis' 0 kept.
    ASSERT_EQ(decoded->size(), 4u);
    EXPECT_EQ((*decoded)[0].name, "ZON Alias");
    EXPECT_EQ((*decoded)[1].name, "second \xA5");
    EXPECT_EQ((*decoded)[1].attributes, 0x20);
    EXPECT_EQ((*decoded)[1].id, 0);
    EXPECT_EQ((*decoded)[2].id, 5);
    EXPECT_EQ((*decoded)[3].type, kIcns);
    EXPECT_EQ((*decoded)[3].id, -16455);
    EXPECT_EQ((*decoded)[3].name, std::nullopt);
    EXPECT_EQ((*decoded)[3].data, Bytes(300, 7));
    EXPECT_EQ(encodeResourceFile({}).size(), 286u);
    EXPECT_EQ(decodeResourceFile(blankResourceFork())->size(), 0u);
}

TEST(ResourceFile, RejectsDamagedMaps)
{
    const Bytes good = encodeResourceFile({{kAlis, 1, 0, std::string("n"), {1, 2}}});
    for (size_t cut : {size_t(0), size_t(15), size_t(200), good.size() - 1}) {
        Bytes truncated(good.begin(), good.begin() + cut);
        EXPECT_FALSE(decodeResourceFile(truncated)) << cut;
    }
    Bytes badData = good;
    put32(badData, 256, 0xFFFFFF00); // the resource's length runs past the data
    EXPECT_FALSE(decodeResourceFile(badData));
}

TEST(IconFamily, RoundTripsAndRejectsOverruns)
{
    const Bytes family = encodeIconFamily({{pngIconElementType(16), {1, 2}}, {pngIconElementType(512), {3}}});
    EXPECT_EQ(get32(family, 4), family.size());
    auto elements = decodeIconFamily(family);
    ASSERT_TRUE(elements);
    ASSERT_EQ(elements->size(), 2u);
    EXPECT_EQ((*elements)[0].type, 0x69637034u);
    EXPECT_EQ((*elements)[1].data, Bytes {3});
    Bytes broken = family;
    put32(broken, 12, 0x7FFFFFFF);
    EXPECT_FALSE(decodeIconFamily(broken));
}

TEST(ZonResourceFork, ResourcesReachTheDiskWhenClosed)
{
    ScratchFolder folder;
    const std::string path = folder.file("alias");
    Ref<ZonResourceFork> fork = ZonResourceFork::initForWritingAtPath(str(path));
    ASSERT_GE(fork->fileReference(), 1);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(fork->addData_type_resID_name(data("record"), kAlis, 0, str("ZON Alias")));
    EXPECT_TRUE(fork->addData_type_resID_name(data("again"), kAlis, 0, str("ZON Alias")));
    EXPECT_TRUE(fork->addData_type_resID_name(data("icon"), kIcns, -16455, str("")));
    EXPECT_TRUE(resourcesOnDisk(path).empty());
    fork->closeFile();
    EXPECT_EQ(fork->fileReference(), 0);
    fork->closeFile();

    auto resources = resourcesOnDisk(path);
    ASSERT_EQ(resources.size(), 3u);
    EXPECT_EQ(resources[0].name, "ZON Alias");
    EXPECT_EQ(resources[1].data, Bytes({'a', 'g', 'a', 'i', 'n'}));
    EXPECT_EQ(resources[2].name, std::nullopt);

    // Opening again adds to what is there; the fork's end closes it.
    {
        Ref<ZonResourceFork> more = ZonResourceFork::initWithPermission_atPath(3, str(path));
        EXPECT_TRUE(more->addData_type_resID_name(nullptr, kAlis, 7, str("Caf\u00e9")));
    }
    resources = resourcesOnDisk(path);
    ASSERT_EQ(resources.size(), 4u);
    EXPECT_EQ(resources[2].name, "Caf\x8E"); // Mac Roman
    EXPECT_TRUE(resources[2].data.empty());
    EXPECT_EQ(resourceFiles::curResFile(), 0);
}

TEST(ZonResourceFork, ReadPermissionNeitherCreatesNorWrites)
{
    ScratchFolder folder;
    Ref<ZonResourceFork> missing = ZonResourceFork::initWithPermission_atPath(1, str(folder.file("none")));
    EXPECT_LT(missing->fileReference(), 1);
    EXPECT_TRUE(missing->addData_type_resID_name(data("x"), kAlis, 0, str("n")));
    EXPECT_FALSE(std::filesystem::exists(folder.file("none")));

    const std::string path = folder.write("plain", "x");
    ASSERT_TRUE(writeResourceFork(path, encodeResourceFile({{kAlis, 1, 0, std::nullopt, {1}}})));
    {
        Ref<ZonResourceFork> reader = ZonResourceFork::initWithPermission_atPath(1, str(path));
        EXPECT_GE(reader->fileReference(), 1);
        EXPECT_TRUE(reader->addData_type_resID_name(data("y"), kAlis, 2, str("n")));
    }
    EXPECT_EQ(resourcesOnDisk(path).size(), 1u);
}

// The create step gets the UTF-8 byte count as the name's length: for a non-ASCII name that
// runs past the name, so a new file is not made, and adding still answers YES.
TEST(ZonResourceFork, NonASCIINamesKeepTheCreateStepsLength)
{
    ScratchFolder folder;
    const std::string fresh = folder.file("Caf\u00e9 alias");
    Ref<ZonResourceFork> fork = ZonResourceFork::initForWritingAtPath(str(fresh));
    EXPECT_LT(fork->fileReference(), 1);
    EXPECT_TRUE(fork->addData_type_resID_name(data("r"), kAlis, 0, str("ZON Alias")));
    fork->closeFile();
    EXPECT_FALSE(std::filesystem::exists(fresh));

    // A file that already has a fork opens by its full path and takes resources.
    const std::string existing = folder.write("\u00dcber", "x");
    ASSERT_TRUE(writeResourceFork(existing, encodeResourceFile({})));
    {
        Ref<ZonResourceFork> opened = ZonResourceFork::initForWritingAtPath(str(existing));
        EXPECT_GE(opened->fileReference(), 1);
        EXPECT_TRUE(opened->addData_type_resID_name(data("r"), kAlis, 0, str("ZON Alias")));
    }
    EXPECT_EQ(resourcesOnDisk(existing).size(), 1u);
}
