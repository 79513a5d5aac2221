#include "extensions/fileSystem/ZonAlias.h"
#include "platform/io/AliasRecordInternal.h"
#include "platform/io/FinderMetadataStore.h"
#include "platform/io/ResourceFile.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zon {
namespace {

using test::ScratchFolder;

constexpr uint32_t code(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 | uint8_t(text[3]);
}

Ref<String> text(const std::string& utf8) { return String::stringWithUTF8String(utf8); }

struct FinderInfo {
    uint16_t flags = 0;
    uint32_t type = 0;
    uint32_t creator = 0;
};

FinderInfo finderInfoOf(const std::string& path)
{
    FinderInfo info;
    EXPECT_TRUE(URL::fileURLWithPath(text(path))->getFinderInfoFlags_type_creator(&info.flags, &info.type, &info.creator));
    return info;
}

std::vector<Resource> resourcesOf(const std::string& path)
{
    const auto resources = decodeResourceFile(readResourceFork(path));
    return resources ? *resources : std::vector<Resource>();
}

const Resource* findResource(const std::vector<Resource>& resources, uint32_t type, int16_t id)
{
    for (const Resource& resource : resources) {
        if (resource.type == type && resource.id == id)
            return &resource;
    }
    return nullptr;
}

// The path the alias file at path stands for, read back from its 'alis' resource.
std::string resolvedAliasFile(const std::string& path)
{
    const auto resources = resourcesOf(path);
    const Resource* record = findResource(resources, code("alis"), 0);
    if (!record)
        return "(no record)";
    Ref<String> resolved = ZonAlias::initWithAliasHandleData(Data::dataWithBytes(record->data))->path();
    return resolved ? resolved->UTF8String() : "(nil)";
}

std::string canonical(const std::string& path) { return std::filesystem::canonical(path).string(); }

class ZonAliasFiles : public ::testing::Test {
protected:
    AutoreleasePool pool;
    ScratchFolder scratch;
};

TEST(ZonAlias, WithoutRecordNothingResolves)
{
    AutoreleasePool pool;
    for (Ref<ZonAlias> alias : {ZonAlias::initWithAliasHandleData(nullptr), ZonAlias::initWithAliasHandleData(Data::data()),
             ZonAlias::initWithPath(text("/no/such/item"))}) {
        ASSERT_TRUE(alias);
        FSRef reference;
        EXPECT_FALSE(alias->getFSRef(&reference));
        EXPECT_FALSE(alias->url());
        EXPECT_FALSE(alias->path());
        EXPECT_EQ(alias->aliasData()->length(), 0u);
    }
    EXPECT_EQ(aliasRecordID, 0);
    EXPECT_EQ(finderCreatorCode, code("MACS"));
}

TEST_F(ZonAliasFiles, AnAliasToAPlainFileTakesItsTypeAndCreator)
{
    const std::string target = scratch.write("song.mp3", "x");
    ASSERT_TRUE(URL::fileURLWithPath(text(target))->setFinderInfoFlags_mask_type_creator(0, 0, code("MPG3"), code("hook")));
    Ref<ZonAlias> alias = ZonAlias::initWithPath(text(target));
    const std::string aliasPath = scratch.file("song alias");
    EXPECT_TRUE(alias->writeAliasToPath_error(text(aliasPath), nullptr));

    const FinderInfo info = finderInfoOf(aliasPath);
    EXPECT_EQ(info.flags, 0x8000);
    EXPECT_EQ(info.type, code("MPG3"));
    EXPECT_EQ(info.creator, code("hook"));
    const auto resources = resourcesOf(aliasPath);
    const Resource* record = findResource(resources, code("alis"), 0);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->name, "ZON Alias");
    EXPECT_EQ(Data::dataWithBytes(record->data)->isEqualToData(alias->aliasData()), true);
    EXPECT_EQ(resolvedAliasFile(aliasPath), canonical(target));
}

TEST_F(ZonAliasFiles, SpecialItemsGiveTheirAliasTypeWithCreatorMACS)
{
    const struct {
        std::string target;
        uint32_t type;
    } cases[] = {
        {scratch.makeFolder("Music"), code("fdrp")},
        {scratch.makeFolder("Player.app/Contents"), code("fdrp")},
        {scratch.file("Player.app"), code("fapa")},
        {scratch.makeFolder("Plug.bundle"), code("fpka")},
    };
    for (const auto& item : cases) {
        const std::string aliasPath = item.target + " alias";
        EXPECT_TRUE(ZonAlias::initWithPath(text(item.target))->writeAliasToPath_error(text(aliasPath), nullptr));
        const FinderInfo info = finderInfoOf(aliasPath);
        EXPECT_EQ(info.type, item.type) << item.target;
        EXPECT_EQ(info.creator, code("MACS")) << item.target;
        EXPECT_EQ(resolvedAliasFile(aliasPath), canonical(item.target));
    }

    const std::string application = scratch.write("tool", "#!");
    ASSERT_TRUE(URL::fileURLWithPath(text(application))->setFinderInfoFlags_mask_type_creator(0, 0, code("APPL"), code("zzzz")));
    EXPECT_EQ(text(application)->aliasType(), code("adrp"));
    EXPECT_EQ(text(scratch.write("plain", ""))->aliasType(), 0u);
    EXPECT_EQ(text(scratch.file("missing"))->aliasType(), code("fdrp"));
}

TEST_F(ZonAliasFiles, IconDataSetsTheCustomIconFlagAndWritingWithoutClearsIt)
{
    const std::string target = scratch.makeFolder("Music");
    const std::string aliasPath = scratch.file("alias");
    Ref<ZonAlias> alias = ZonAlias::initWithPath(text(target));
    Ref<Data> icon = Data::dataWithBytes("icns\0\0\0\x08", 8);
    EXPECT_TRUE(alias->writeAliasToPath_iconData_error(text(aliasPath), icon, nullptr));
    EXPECT_EQ(finderInfoOf(aliasPath).flags, 0x8400);
    const auto resources = resourcesOf(aliasPath);
    const Resource* iconResource = findResource(resources, code("icns"), -16455);
    ASSERT_NE(iconResource, nullptr);
    EXPECT_EQ(iconResource->data.size(), 8u);

    EXPECT_TRUE(alias->writeAliasToPath_error(text(aliasPath), nullptr));
    EXPECT_EQ(finderInfoOf(aliasPath).flags, 0x8000);
}

TEST_F(ZonAliasFiles, AnAliasFollowsItsTargetWhenItMoves)
{
    const std::string target = scratch.write("library/artist/song.mp3", "x");
    Ref<ZonAlias> alias = ZonAlias::initWithAliasHandleData(ZonAlias::initWithPath(text(target))->aliasData());
    std::filesystem::create_directories(scratch.file("library/other"));
    std::filesystem::rename(target, scratch.file("library/other/renamed.mp3"));
    ASSERT_TRUE(alias->path());
    EXPECT_EQ(alias->path()->UTF8String(), canonical(scratch.file("library/other/renamed.mp3")));
    EXPECT_EQ(alias->url()->path()->UTF8String(), alias->path()->UTF8String());
}

TEST_F(ZonAliasFiles, NonASCIIAliasNamesAnswerYesThoughTheCreateStepRefusesThem)
{
    const std::string target = scratch.write("caf\xC3\xA9/chanson.mp3", "x");
    Ref<ZonAlias> alias = ZonAlias::initWithPath(text(target));
    EXPECT_EQ(alias->path()->UTF8String(), canonical(target));
    const std::string aliasPath = scratch.file("caf\xC3\xA9 alias");
    EXPECT_TRUE(alias->writeAliasToPath_error(text(aliasPath), nullptr));
    EXPECT_FALSE(std::filesystem::exists(aliasPath));
}

TEST_F(ZonAliasFiles, TheCFunctionsOwnWhatTheyHandOut)
{
    const std::string target = scratch.write("\xE6\x97\xA5\xE6\x9C\xAC.txt", "x");
    ZonAlias* alias = ZonAliasCreateWithPath(text(target), nullptr);
    ASSERT_NE(alias, nullptr);
    Ref<String> path = adoptRef(ZonAliasCopyPath(alias));
    Ref<URL> url = adoptRef(ZonAliasCopyURL(alias));
    EXPECT_EQ(path->UTF8String(), canonical(target));
    EXPECT_EQ(url->path()->UTF8String(), canonical(target));
    Error* error = nullptr;
    EXPECT_TRUE(ZonAliasWriteToFile(alias, text(scratch.file("alias")), nullptr, &error));
    EXPECT_EQ(error, nullptr);
    ZonAliasRelease(alias);
    ZonAliasRelease(nullptr);
    Ref<ZonAlias> missing = adoptRef(ZonAliasCreateWithPath(text(scratch.file("missing")), nullptr));
    EXPECT_EQ(missing->aliasData()->length(), 0u);
}

// Mounts a tmpfs in a child with its own mount namespace, so nothing is left on the machine, and
// checks an alias to the mount's root there. The child's exit status says which check failed.
TEST_F(ZonAliasFiles, AnAliasToAMountRootIsADisk)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "mounting a tmpfs needs root";
    const std::string mountPoint = scratch.makeFolder("Volume");
    const std::string aliasPath = scratch.file("disk alias");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            ::_exit(10);
        if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=1m") != 0)
            ::_exit(11);
        AutoreleasePool childPool;
        if (text(mountPoint)->aliasType() != code("hdsk"))
            ::_exit(12);
        Ref<ZonAlias> alias = ZonAlias::initWithPath(text(mountPoint));
        if (!alias->writeAliasToPath_error(text(aliasPath), nullptr) || finderInfoOf(aliasPath).type != code("hdsk"))
            ::_exit(13);
        const auto record = decodeAliasRecord(std::span(static_cast<const uint8_t*>(alias->aliasData()->bytes()), alias->aliasData()->length()));
        if (!record || record->posixPath != "/" || record->volumeMountPoint != canonical(mountPoint) || record->parentID != aliasNoID)
            ::_exit(14);
        ::_exit(resolvedAliasFile(aliasPath) == canonical(mountPoint) ? 0 : 15);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "10/11: mounting failed, 12: alias type, 13: alias file, 14: record, 15: resolution";
}

} // namespace
} // namespace zon
