// zon image, run as the user runs it, on pictures made with ImageMagick.
#include "support/ScratchFolder.h"
#include "support/ZonToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace {

using namespace zon::test;
using ::testing::ContainsRegex;
using ::testing::StartsWith;

std::string identify(const std::string& path)
{
    std::string text;
    if (FILE* pipe = ::popen(("/usr/bin/identify -format '%m %wx%h' '" + path + "' 2>/dev/null").c_str(), "r")) {
        char buffer[256];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            text.append(buffer, n);
        ::pclose(pipe);
    }
    return text;
}

class ZonImageCommands : public ::testing::Test {
protected:
    void SetUp() override
    {
        picture = scratch.file("wide picture.png");
        ASSERT_EQ(std::system(("/usr/bin/convert -size 400x200 xc:orange '" + picture + "'").c_str()), 0);
        cache = "XDG_CACHE_HOME='" + scratch.file("cache") + "'";
    }
    std::string quoted(const std::string& name) const { return "'" + scratch.file(name) + "'"; }

    ScratchFolder scratch;
    std::string picture;
    std::string cache;
};

TEST_F(ZonImageCommands, PreviewSaysWhereItCameFromAndHowLongItTook)
{
    const std::string command = "image preview '" + picture + "' " + quoted("p.png") + " --size 100";
    auto made = runZon(command, cache);
    EXPECT_EQ(made.exitCode, 0);
    EXPECT_THAT(made.text, ContainsRegex("^100 x 50 pixels from in-process in [0-9.]+ ms\n$"));
    EXPECT_EQ(identify(scratch.file("p.png")), "PNG 100x50");
    EXPECT_THAT(runZon(command, cache).text, StartsWith("100 x 50 pixels from cache in "));
    EXPECT_EQ(runZon("image preview " + quoted("missing.png") + " " + quoted("q.png"), cache).exitCode, 1);
    EXPECT_NE(runZon("image preview '" + picture + "' " + quoted("q.png") + " --size 0", cache).exitCode, 0);
}

TEST_F(ZonImageCommands, DesktopScaleAndJPEGWriteTheirSizes)
{
    EXPECT_EQ(runZon("image desktop '" + picture + "' " + quoted("d.png"), cache).text, "109 x 109 pixels\n");
    EXPECT_EQ(identify(scratch.file("d.png")), "PNG 109x109");
    EXPECT_EQ(runZon("image scale '" + picture + "' 100 100 " + quoted("s.png"), cache).text, "100 x 100 pixels\n");
    EXPECT_EQ(identify(scratch.file("s.png")), "PNG 100x100");
    const auto jpeg = runZon("image jpeg '" + picture + "' " + quoted("j.jpg"), cache);
    EXPECT_THAT(jpeg.text, ContainsRegex("^[0-9]+ bytes\n$"));
    EXPECT_EQ(identify(scratch.file("j.jpg")), "JPEG 400x200");
    EXPECT_EQ(runZon("image scale " + quoted("missing.png") + " 1 1 " + quoted("x.png"), cache).exitCode, 2);
}

TEST_F(ZonImageCommands, AlbumArtOfAFileWithoutArtIsRefused)
{
    const std::string text = scratch.write("notes.txt", "no art here");
    const auto none = runZon("image albumart " + quoted("notes.txt") + " " + quoted("a.png"), cache);
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_FALSE(std::filesystem::exists(scratch.file("a.png")));
    EXPECT_EQ(runZon("image albumart '" + picture + "' " + quoted("a.png"), cache).text, "400 x 200 pixels\n");
    EXPECT_EQ(runZon("image albumart " + quoted("missing") + " " + quoted("a.png"), cache).exitCode, 2);
}

} // namespace
