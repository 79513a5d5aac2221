#include "FinderMetadataTestSupport.h"
#include "support/ScratchFolder.h"

#include "platform/io/FinderMetadataStore.h"
#include "platform/io/ResourceFile.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace zon;
using namespace zon::test;

namespace {

FinderInfoBytes toInfo(const Bytes& bytes)
{
    FinderInfoBytes info {};
    std::copy_n(bytes.begin(), info.size(), info.begin());
    return info;
}

Bytes forkWith(uint32_t type, int16_t id, std::string_view body)
{
    return encodeResourceFile({{type, id, 0, std::nullopt, Bytes(body.begin(), body.end())}});
}

} // namespace

TEST(FinderMetadataStore, WritesTheNetatalkAttributeAndTheSidecar)
{
    ScratchFolder folder;
    const std::string file = folder.write("a.txt", "x");
    const Bytes info = finderInfo("TEXT", "ttxt", 0x0400);
    ASSERT_TRUE(writeFinderInfo(file, toInfo(info)));

    auto metadata = attribute(file, "user.org.netatalk.Metadata");
    ASSERT_TRUE(metadata);
    ASSERT_EQ(metadata->size(), 402u);
    EXPECT_EQ(get32(*metadata, 0), 0x00051607u);
    EXPECT_EQ(std::string(metadata->begin() + 8, metadata->begin() + 16), "Netatalk");
    EXPECT_EQ(Bytes(metadata->begin() + 122, metadata->begin() + 154), info);

    auto sidecar = fileBytes(sidecarOf(file));
    ASSERT_TRUE(sidecar);
    ASSERT_EQ(sidecar->size(), 0x52u);
    EXPECT_EQ(Bytes(sidecar->begin() + 0x32, sidecar->begin() + 0x52), info);
    EXPECT_EQ(readFinderInfo(file), toInfo(info));
    // Nothing is left beside the sidecar from its temporary file.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path), {}), 2);
}

TEST(FinderMetadataStore, ReadsTheStoresInOrder)
{
    ScratchFolder folder;
    const std::string file = folder.write("b", "x");
    EXPECT_EQ(readFinderInfo(file), std::nullopt);

    ASSERT_TRUE(setAttribute(file, "user.com.apple.FinderInfo", finderInfo("APLE", "aaaa", 1)));
    EXPECT_EQ(readFinderInfo(file), toInfo(finderInfo("APLE", "aaaa", 1)));

    writeBytes(sidecarOf(file), appleDouble("Mac OS X", {{9, finderInfo("SIDE", "ssss", 2)}}));
    EXPECT_EQ(readFinderInfo(file), toInfo(finderInfo("SIDE", "ssss", 2)));

    Bytes metadata = appleDouble("Netatalk", {{9, finderInfo("NETA", "nnnn", 3)}});
    ASSERT_TRUE(setAttribute(file, "user.org.netatalk.Metadata", metadata));
    EXPECT_EQ(readFinderInfo(file), toInfo(finderInfo("NETA", "nnnn", 3)));

    // A damaged attribute does not hide the sidecar.
    metadata.resize(30);
    ASSERT_TRUE(setAttribute(file, "user.org.netatalk.Metadata", metadata));
    EXPECT_EQ(readFinderInfo(file), toInfo(finderInfo("SIDE", "ssss", 2)));
}

TEST(FinderMetadataStore, ReadsSidecarsOfEveryWriter)
{
    ScratchFolder folder;
    const std::string file = folder.write("c", "x");
    const Bytes fork = forkWith(0x69636E73, -16455, "icon");
    for (std::string_view filler : {"Mac OS X        ", "Netatalk        ", ""}) {
        writeBytes(sidecarOf(file), appleDouble(filler, {{9, finderInfo("TYPE", "CRE8", 5)}, {2, fork}}));
        EXPECT_EQ(readFinderInfo(file), toInfo(finderInfo("TYPE", "CRE8", 5))) << filler;
        EXPECT_EQ(readResourceFork(file), fork) << filler;
    }
    // The form macOS writes for a file with extended attributes: a FinderInfo entry longer than
    // 32 bytes whose tail is an "ATTR" block, the fork after it.
    Bytes extended = finderInfo("LONG", "ATTR", 6);
    extended.resize(34, 0);
    for (char c : std::string_view("ATTR\0\0\0\0", 8))
        extended.push_back(uint8_t(c));
    extended.resize(0xEE2, 0x5A);
    writeBytes(sidecarOf(file), appleDouble("Mac OS X        ", {{9, extended}, {2, fork}}));
    EXPECT_EQ(readFinderInfo(file), toInfo(finderInfo("LONG", "ATTR", 6)));
    EXPECT_EQ(readResourceFork(file), fork);

    // An entry pointing past the end makes the record unreadable, not a crash.
    Bytes broken = appleDouble("Mac OS X        ", {{9, finderInfo("TYPE", "CRE8", 5)}});
    put32(broken, 26 + 8, 0xFFFFFFF0);
    writeBytes(sidecarOf(file), broken);
    EXPECT_EQ(readFinderInfo(file), std::nullopt);
}

TEST(FinderMetadataStore, TheBlankForkCountsAsEmpty)
{
    ScratchFolder folder;
    const std::string file = folder.write("d", "x");
    writeBytes(sidecarOf(file), appleDouble("Mac OS X        ", {{9, Bytes(32, 0)}, {2, blankResourceFork()}}));
    EXPECT_TRUE(readResourceFork(file).empty());
    // So the next store is asked.
    const Bytes fork = forkWith(0x54455854, 128, "text");
    ASSERT_TRUE(setAttribute(file, "user.org.netatalk.ResourceFork", fork));
    EXPECT_EQ(readResourceFork(file), fork);
    ASSERT_TRUE(setAttribute(file, "user.org.netatalk.ResourceFork", blankResourceFork()));
    ASSERT_TRUE(setAttribute(file, "user.com.apple.ResourceFork", fork));
    EXPECT_EQ(readResourceFork(file), fork);
}

TEST(FinderMetadataStore, WritingTheForkKeepsTheFinderInfoAndTheOtherWay)
{
    ScratchFolder folder;
    const std::string file = folder.write("e", "x");
    const Bytes fork = forkWith(0x616C6973, 0, "alias");
    ASSERT_TRUE(writeResourceFork(file, fork));
    ASSERT_TRUE(writeFinderInfo(file, toInfo(finderInfo("fdrp", "MACS", 0x8000))));
    EXPECT_EQ(readResourceFork(file), fork);
    ASSERT_TRUE(writeResourceFork(file, forkWith(0x616C6973, 1, "other")));
    EXPECT_EQ(readFinderInfo(file), toInfo(finderInfo("fdrp", "MACS", 0x8000)));
    // Other entries of an existing netatalk record survive a Finder info change.
    auto metadata = attribute(file, "user.org.netatalk.Metadata");
    ASSERT_TRUE(metadata);
    (*metadata)[154] = 'C';
    ASSERT_TRUE(setAttribute(file, "user.org.netatalk.Metadata", *metadata));
    ASSERT_TRUE(writeFinderInfo(file, toInfo(finderInfo("TEXT", "MACS", 0))));
    EXPECT_EQ(attribute(file, "user.org.netatalk.Metadata")->at(154), 'C');
}

TEST(FinderMetadataStore, MissingFilesAndOversizedSidecars)
{
    ScratchFolder folder;
    const std::string missing = folder.file("missing");
    EXPECT_FALSE(writeFinderInfo(missing, {}));
    EXPECT_FALSE(writeResourceFork(missing, Bytes {1}));
    EXPECT_FALSE(std::filesystem::exists(sidecarOf(missing)));

    const std::string file = folder.write("f", "x");
    Bytes huge = appleDouble("Mac OS X        ", {{9, finderInfo("HUGE", "HUGE", 0)}});
    huge.resize((16 << 20) + 1, 0);
    writeBytes(sidecarOf(file), huge);
    EXPECT_EQ(readFinderInfo(file), std::nullopt);
}

TEST(FinderMetadataStore, NonASCIINames)
{
    ScratchFolder folder;
    const std::string file = folder.write("Ärger 漢字 🎵.mp3", "x");
    ASSERT_TRUE(writeFinderInfo(file, toInfo(finderInfo("MPG3", "hook", 0))));
    EXPECT_TRUE(std::filesystem::exists(folder.file("._Ärger 漢字 🎵.mp3")));
    EXPECT_EQ(readFinderInfo(file), toInfo(finderInfo("MPG3", "hook", 0)));
}

// ramfs keeps no user extended attributes: the sidecar alone must serve. Mounted in a child
// with its own mount namespace, so nothing shows on the machine.
TEST(FinderMetadataStore, TheSidecarAloneServesWithoutExtendedAttributes)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "mounting a ramfs needs root";
    ScratchFolder folder;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
            || ::mount("ramfs", folder.path.c_str(), "ramfs", 0, nullptr) != 0)
            ::_exit(2);
        const std::string file = folder.path + "/g";
        writeBytes(file, {1});
        if (setAttribute(file, "user.org.netatalk.Metadata", Bytes(402, 0)))
            ::_exit(3); // ramfs took an attribute after all: the test proves nothing
        const Bytes fork = forkWith(0x69636E73, 1, "x");
        const bool ok = writeFinderInfo(file, toInfo(finderInfo("TEXT", "ttxt", 0x100))) && writeResourceFork(file, fork)
            && readFinderInfo(file) == toInfo(finderInfo("TEXT", "ttxt", 0x100)) && readResourceFork(file) == fork;
        ::_exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 2)
        GTEST_SKIP() << "no ramfs mount possible here";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
