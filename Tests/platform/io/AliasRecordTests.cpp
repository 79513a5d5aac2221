#include "platform/io/AliasLocatorInternal.h"
#include "platform/io/AliasRecordInternal.h"
#include "platform/io/FSRef.h"
#include "platform/io/VolumesInternal.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace zon {
namespace {

using test::ScratchFolder;

uint16_t u16At(const std::vector<uint8_t>& bytes, size_t offset) { return uint16_t(bytes[offset] << 8 | bytes[offset + 1]); }

AliasRecord sampleRecord()
{
    AliasRecord record;
    record.kind = AliasKind::folder;
    record.volumeName = "Data";
    record.volumeCreationDate = 0xC0FFEE00;
    record.parentID = 1234;
    record.fileName = "Music";
    record.fileID = 5678;
    record.type = 0x41424344;
    record.creator = 0x4D414353;
    record.levelsFrom = 2;
    record.levelsTo = 3;
    record.parentName = "home";
    record.absolutePath = "Data:home:Music";
    record.unicodeFileName = u"Mus\u00efc";
    record.unicodeVolumeName = u"Data";
    record.posixPath = "/home/Music";
    record.volumeMountPoint = "/media/Data";
    record.otherExtras.push_back({21, "odd"});
    return record;
}

TEST(AliasRecord, WritesTheVersion2LayoutAndReadsItBack)
{
    const std::vector<uint8_t> bytes = encodeAliasRecord(sampleRecord());
    EXPECT_EQ(u16At(bytes, 4), bytes.size()); // record size
    EXPECT_EQ(u16At(bytes, 6), 2);            // version
    EXPECT_EQ(u16At(bytes, 8), 1);            // folder
    EXPECT_EQ(bytes[10], 4);                  // Str27 volume name
    EXPECT_EQ(std::string(bytes.begin() + 11, bytes.begin() + 15), "Data");
    EXPECT_EQ(bytes[50], 5);                  // Str63 file name
    EXPECT_EQ(u16At(bytes, 150), 0);          // first extra: the parent name, padded to even
    EXPECT_EQ(u16At(bytes, 152), 4);
    EXPECT_EQ(u16At(bytes, bytes.size() - 4), 0xFFFF); // end tag
    EXPECT_EQ(u16At(bytes, bytes.size() - 2), 0);

    const auto decoded = decodeAliasRecord(bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(encodeAliasRecord(*decoded), bytes);
    EXPECT_EQ(decoded->unicodeFileName, u"Mus\u00efc");
    EXPECT_EQ(decoded->levelsFrom, 2);
    ASSERT_EQ(decoded->otherExtras.size(), 1u);
    EXPECT_EQ(decoded->otherExtras[0].bytes, "odd");
}

TEST(AliasRecord, RefusesShortForeignAndOverrunningRecords)
{
    std::vector<uint8_t> bytes = encodeAliasRecord(sampleRecord());
    EXPECT_FALSE(decodeAliasRecord(std::span(bytes).first(149)));
    EXPECT_FALSE(decodeAliasRecord(std::span(bytes).first(bytes.size() - 1))); // size field beyond the bytes

    std::vector<uint8_t> version3 = bytes;
    version3[7] = 3;
    EXPECT_FALSE(decodeAliasRecord(version3));

    std::vector<uint8_t> longName = bytes;
    longName[10] = 28; // more than a Str27 holds
    EXPECT_FALSE(decodeAliasRecord(longName));

    std::vector<uint8_t> overrun = bytes;
    overrun[152] = 0x7F; // the first extra claims more than the record holds
    EXPECT_FALSE(decodeAliasRecord(overrun));
}

TEST(AliasRecord, DatesCountFrom1904)
{
    EXPECT_EQ(aliasDateFromUnixTime(0), 2082844800u);
    EXPECT_EQ(aliasDateFromUnixTime(-2082844801), 0u);
}

TEST(Volumes, ParseMountInfoWithEscapesAndOptionalFields)
{
    const auto mounts = parseMountInfo(
        "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "garbage line\n"
        "40 22 0:45 /sub /media/My\\040Stick rw master:2 - vfat /dev/sdb1 rw\n");
    ASSERT_EQ(mounts.size(), 2u);
    EXPECT_EQ(mounts[0].device, makedev(8, 1));
    EXPECT_EQ(mounts[1].mountPoint, "/media/My Stick");
    EXPECT_EQ(mounts[1].root, "/sub");
    EXPECT_EQ(mounts[1].fileSystemType, "vfat");
    EXPECT_EQ(mountContaining(mounts, "/media/My Stick/a")->mountPoint, "/media/My Stick");
    EXPECT_EQ(mountContaining(mounts, "/media/My Stickers")->mountPoint, "/");
    EXPECT_EQ(volumeNameOfMountPoint("/media/My Stick"), "My Stick");
    EXPECT_EQ(volumeNameOfMountPoint("/"), "/");
}

TEST(Volumes, NumbersCountDownFromMinus100AndStayWithTheirDevice)
{
    ScratchFolder scratch;
    const int16_t number = volumeRefNumOfPath(scratch.path);
    EXPECT_LE(number, -100);
    EXPECT_EQ(volumeRefNumOfPath(scratch.path), number);
    EXPECT_EQ(volumeRefNumOfPath(scratch.file("missing")), 0);
    struct stat status {};
    ASSERT_EQ(::stat(scratch.path.c_str(), &status), 0);
    EXPECT_EQ(deviceForVolumeRefNum(number), status.st_dev);
    EXPECT_FALSE(deviceForVolumeRefNum(-99));
    const auto mountPoint = mountPointForVolumeRefNum(number);
    ASSERT_TRUE(mountPoint);
    EXPECT_TRUE(scratch.path.starts_with(*mountPoint));
}

TEST(FSRef, ResolvesWhileTheInodeIsTheSame)
{
    ScratchFolder scratch;
    const std::string path = scratch.write("f", "1");
    const auto reference = makeFSRef(path);
    ASSERT_TRUE(reference);
    EXPECT_EQ(pathOfFSRef(*reference), path);
    EXPECT_FALSE(makeFSRef(scratch.file("missing")));
    EXPECT_FALSE(pathOfFSRef(FSRef {}));

    // Replaced under its name: a new inode, so the old reference no longer resolves.
    scratch.write("g", "2");
    std::filesystem::rename(scratch.file("g"), path);
    EXPECT_FALSE(pathOfFSRef(*reference));
}

class AliasResolution : public ::testing::Test {
protected:
    std::optional<std::string> resolve(const std::vector<uint8_t>& bytes, const std::string* relativeTo = nullptr)
    {
        const auto record = decodeAliasRecord(bytes);
        return record ? resolveAliasRecord(*record, relativeTo) : std::nullopt;
    }
    std::vector<uint8_t> recordFor(const std::string& target, const std::string* from = nullptr)
    {
        const auto record = makeAliasRecord(target, from);
        return record ? encodeAliasRecord(*record) : std::vector<uint8_t>();
    }
    ScratchFolder scratch;
};

TEST_F(AliasResolution, FindsFilesAndFoldersWhereTheyAre)
{
    const std::string file = scratch.write("a/b/song.mp3", "x");
    const std::string folder = scratch.makeFolder("a/c");
    EXPECT_EQ(resolve(recordFor(file)), std::filesystem::canonical(file).string());
    EXPECT_EQ(resolve(recordFor(folder)), std::filesystem::canonical(folder).string());
    EXPECT_TRUE(recordFor(scratch.file("missing")).empty());
}

TEST_F(AliasResolution, FollowsATargetMovedOrRenamedWithinItsTree)
{
    const std::string file = scratch.write("tree/a/b/song.mp3", "x");
    const auto bytes = recordFor(file);
    // Renamed in its folder.
    std::filesystem::rename(file, scratch.file("tree/a/b/renamed.mp3"));
    EXPECT_EQ(resolve(bytes), std::filesystem::canonical(scratch.file("tree/a/b/renamed.mp3")).string());
    // Moved to a sibling branch of an ancestor, its own folder gone.
    scratch.makeFolder("tree/z/y");
    std::filesystem::rename(scratch.file("tree/a/b/renamed.mp3"), scratch.file("tree/z/y/moved.mp3"));
    std::filesystem::remove_all(scratch.file("tree/a"));
    EXPECT_EQ(resolve(bytes), std::filesystem::canonical(scratch.file("tree/z/y/moved.mp3")).string());
}

TEST_F(AliasResolution, GivesUpWhenTheSearchBoundsRunOut)
{
    const std::string file = scratch.write("deep/a/song.mp3", "x");
    auto record = makeAliasRecord(file, nullptr);
    ASSERT_TRUE(record);
    std::filesystem::rename(file, scratch.file("deep/other.mp3"));
    EXPECT_FALSE(resolveAliasRecord(*record, nullptr, {.maxEntries = 0}));
    EXPECT_TRUE(resolveAliasRecord(*record, nullptr, {.maxEntries = 100}));
}

TEST_F(AliasResolution, ARecordFromElsewhereResolvesByVolumeNameOrRelativePath)
{
    const std::string file = scratch.write("tree/media/song.mp3", "x");
    const std::string alias = scratch.write("tree/links/alias", "");
    auto record = makeAliasRecord(file, &alias);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->levelsFrom, 2);
    EXPECT_EQ(record->levelsTo, 2);

    // Made on another machine: a mount point that is not here, a volume of the same name that is.
    AliasRecord foreign = *record;
    foreign.volumeMountPoint = "/Volumes/Elsewhere";
    EXPECT_EQ(resolveAliasRecord(foreign, nullptr), std::filesystem::canonical(file).string());

    // Neither mount point nor volume name exists here, nor the file ID: only the relative path
    // from the alias finds the target, after both moved together.
    foreign.unicodeVolumeName = u"NoSuchVolume";
    foreign.fileID = aliasNoID;
    std::filesystem::rename(scratch.file("tree"), scratch.file("moved"));
    const std::string movedAlias = scratch.file("moved/links/alias");
    EXPECT_FALSE(resolveAliasRecord(foreign, nullptr));
    EXPECT_EQ(resolveAliasRecord(foreign, &movedAlias), std::filesystem::canonical(scratch.file("moved/media/song.mp3")).string());
}

} // namespace
} // namespace zon
