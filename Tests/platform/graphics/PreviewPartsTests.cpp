// The preview service's parts: the cache's keys and chunk reader (against GLib where it is the
// peer), cover art written by mutagen, and thumbnailer files.
#include "platform/graphics/CoverArtInternal.h"
#include "platform/graphics/ThumbnailCacheInternal.h"
#include "platform/graphics/ThumbnailerFilesInternal.h"
#include "support/ImageBytes.h"
#include "support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using namespace zon;
using namespace zon::test;
using ::testing::ElementsAre;
using ::testing::Optional;

namespace {

// The system's python, which has mutagen and GLib's bindings (a user's python may not).
constexpr const char* kPython = "/usr/bin/python3";

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::span<const uint8_t> bytesOf(std::string_view text) { return {reinterpret_cast<const uint8_t*>(text.data()), text.size()}; }

std::string chunk(std::string_view type, std::string_view data) { return bigEndian32(uint32_t(data.size())) + std::string(type) + std::string(data) + bigEndian32(0); }

TEST(ThumbnailCache, TheSmallestBucketThatHoldsTheRequest)
{
    EXPECT_EQ(thumbnailBucketFor(128, 1)->folder, "normal");
    EXPECT_EQ(thumbnailBucketFor(100, 129)->folder, "large");
    EXPECT_EQ(thumbnailBucketFor(512, 512)->folder, "x-large");
    EXPECT_EQ(thumbnailBucketFor(1024, 1024)->folder, "xx-large");
    EXPECT_EQ(thumbnailBucketFor(1025, 10), std::nullopt);
}

TEST(ThumbnailCache, FileURIsAreEscapedAsGLibEscapesThem)
{
    if (std::system((std::string(kPython) + " -c 'from gi.repository import GLib' 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "python3 with GLib's bindings is not available";
    const std::string names[] = {"/tmp/plain-name_1.png", "/tmp/a b#c%d?e;f[g]h{i}j|k\\l^m`n\"o<p>q",
        "/tmp/!$&'()*+,=:@~", "/tmp/caf\xC3\xA9/\x01\x7F\xFF"};
    ScratchFolder scratch;
    std::string script = "import sys\nfrom gi.repository import GLib\nfor line in open(sys.argv[1], 'rb').read().split(b'\\0'):\n"
                         "    print(GLib.filename_to_uri(line, None))\n";
    std::string list;
    for (const std::string& name : names)
        list += name + (&name == &names[std::size(names) - 1] ? "" : std::string(1, '\0'));
    scratch.write("names", list);
    scratch.write("peer.py", script);
    const std::string command = std::string(kPython) + " " + scratch.file("peer.py") + " " + scratch.file("names") + " > " + scratch.file("out");
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::string expected;
    for (const std::string& name : names)
        expected += fileURIOfPath(name) + "\n";
    EXPECT_EQ(readFile(scratch.file("out")), expected);
}

TEST(ThumbnailCache, TextChunksAreReadBeforeAndAfterTheImageDataWithinBounds)
{
    const std::string header = pngHeader(4, 4);
    std::string imageData;
    for (size_t i = 0; i < 2 * kMaxThumbnailTextChunks; ++i)
        imageData += chunk("IDAT", "x");
    const std::string entry = header + chunk("tEXt", std::string("Thumb::URI\0file:///x", 20)) + imageData
        + chunk("tEXt", std::string("Thumb::MTime\0" "12", 15)) + chunk("IEND", "");
    EXPECT_THAT(readPNGTextChunks(bytesOf(entry)), Optional(ElementsAre(
        ::testing::Field(&PNGTextEntry::value, "file:///x"), ::testing::Field(&PNGTextEntry::value, "12"))));
    EXPECT_TRUE(thumbnailEntryMatches(bytesOf(entry), {"file:///x", "12", "", ""}));
    EXPECT_FALSE(thumbnailEntryMatches(bytesOf(entry), {"file:///x", "13", "", ""}));
    EXPECT_FALSE(thumbnailEntryMatches(bytesOf(entry), {"file:///y", "12", "", ""}));

    EXPECT_EQ(readPNGTextChunks(bytesOf(entry.substr(0, header.size() + 10))), std::nullopt) << "a chunk cut short";
    EXPECT_EQ(readPNGTextChunks(bytesOf(entry.substr(0, entry.size() - 12))), std::nullopt) << "no IEND";
    EXPECT_EQ(readPNGTextChunks(bytesOf("GIF89a" + entry)), std::nullopt);
    std::string manyChunks = header;
    for (size_t i = 0; i < kMaxThumbnailTextChunks; ++i)
        manyChunks += chunk("zzZz", "");
    EXPECT_EQ(readPNGTextChunks(bytesOf(manyChunks + chunk("IEND", ""))), std::nullopt);
    const std::string bigText = header + chunk("tEXt", "k" + std::string(1, '\0') + std::string(kMaxThumbnailTextBytes, 'v'));
    EXPECT_EQ(readPNGTextChunks(bytesOf(bigText + chunk("IEND", ""))), std::nullopt);
    std::string hugeLength = header + bigEndian32(0xFFFFFFF0u) + "tEXt";
    EXPECT_EQ(readPNGTextChunks(bytesOf(hugeLength + std::string(8, '\0'))), std::nullopt);
}

TEST(CoverArt, MutagensPicturesAreFoundInEveryContainerFrontCoverFirst)
{
    if (std::system((std::string(kPython) + " -c 'import mutagen' 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "python3 with mutagen is not available";
    ScratchFolder scratch;
    // A PNG's bytes are only carried here, not decoded.
    const std::string cover = pngHeader(3, 2) + chunk("IEND", "");
    scratch.write("cover.png", cover);
    const std::pair<const char*, AudioContainer> kinds[] = {
        {"mp3", AudioContainer::mpeg}, {"m4a", AudioContainer::mp4}, {"flac", AudioContainer::flac}, {"ogg", AudioContainer::ogg}};
    for (const auto& [kind, container] : kinds) {
        const std::string withArt = scratch.file(std::string("art.") + kind), withoutArt = scratch.file(std::string("plain.") + kind);
        const std::string make = std::string(kPython) + " " ZON_TAGGED_AUDIO_MAKER " " + kind + " ";
        ASSERT_EQ(std::system((make + withArt + " " + scratch.file("cover.png")).c_str()), 0) << kind;
        ASSERT_EQ(std::system((make + withoutArt).c_str()), 0) << kind;

        const auto art = coverArtOfFile(withArt, container);
        ASSERT_TRUE(art) << kind;
        EXPECT_EQ(std::string(art->begin(), art->end()), cover) << kind;
        const std::string bytes = readFile(withArt);
        EXPECT_EQ(coverArtOfBytes(bytesOf(bytes), container), art) << kind << " from memory";
        EXPECT_EQ(coverArtOfFile(withoutArt, container), std::nullopt) << kind;
        EXPECT_EQ(coverArtOfBytes(bytesOf(std::string(bytes.size(), 'x')), container), std::nullopt) << kind;
    }
    EXPECT_EQ(coverArtOfFile(scratch.file("missing.mp3"), AudioContainer::mpeg), std::nullopt);
    EXPECT_EQ(coverArtOfFile(scratch.path, AudioContainer::flac), std::nullopt);
}

TEST(CoverArt, ContainersFollowTheContentType)
{
    EXPECT_EQ(audioContainerOfType("public.mp3"), AudioContainer::mpeg);
    EXPECT_EQ(audioContainerOfType("com.apple.m4a-audio"), AudioContainer::mp4);
    EXPECT_EQ(audioContainerOfType("org.xiph.flac"), AudioContainer::flac);
    EXPECT_EQ(audioContainerOfType("org.xiph.ogg-vorbis"), AudioContainer::ogg);
    EXPECT_EQ(audioContainerOfType("com.microsoft.windows-media-wma"), AudioContainer::asf);
    EXPECT_EQ(audioContainerOfType("public.png"), std::nullopt);
    EXPECT_EQ(audioContainerOfType("com.microsoft.waveform-audio"), std::nullopt);
}

TEST(Thumbnailers, FilesAreParsedAndTheirCommandLinesFilledIn)
{
    const auto thumbnailer = parseThumbnailer("[Thumbnailer Entry]\nTryExec=tool\nExec=tool -s %s \"%i\" --uri=%u %o 100%% %f\n"
                                              "MimeType=image/x-one;;image/x-two;\n");
    ASSERT_TRUE(thumbnailer);
    EXPECT_EQ(thumbnailer->tryExec, "tool");
    EXPECT_THAT(thumbnailer->mimeTypes, ElementsAre("image/x-one", "image/x-two"));
    EXPECT_THAT(thumbnailerArguments(*thumbnailer, {"file:///a%20b", "/a b", "/out dir/o.png", 256}),
        Optional(ElementsAre("tool", "-s", "256", "%i", "--uri=file:///a%20b", "/out dir/o.png", "100%")));

    EXPECT_EQ(parseThumbnailer("[Thumbnailer Entry]\nMimeType=a/b;\n"), std::nullopt) << "no Exec";
    EXPECT_EQ(parseThumbnailer("[Desktop Entry]\nExec=x\nMimeType=a/b;\n"), std::nullopt) << "another group";
    EXPECT_EQ(parseThumbnailer("Exec=x\n"), std::nullopt);
    EXPECT_EQ(thumbnailerArguments({"", "\"unclosed %i", {}}, {}), std::nullopt);
}

TEST(Thumbnailers, TheDataFoldersAreSearchedInOrderAndTheExactTypeWins)
{
    ScratchFolder scratch;
    ScopedEnvironment environment;
    environment.set("XDG_DATA_HOME", scratch.file("home"));
    environment.set("XDG_DATA_DIRS", scratch.file("first") + ":relative:" + scratch.file("second"));
    scratch.write("home/thumbnailers/missing.thumbnailer", "[Thumbnailer Entry]\nTryExec=/nonexistent/tool\nExec=home %i\nMimeType=image/png;\n");
    scratch.write("first/thumbnailers/zip.thumbnailer", "[Thumbnailer Entry]\nExec=zip %i\nMimeType=application/zip;\n");
    scratch.write("second/thumbnailers/a.thumbnailer", "[Thumbnailer Entry]\nExec=png-second %i\nMimeType=image/png;\n");
    scratch.write("second/thumbnailers/odt.thumbnailer", "[Thumbnailer Entry]\nExec=odt %i\nMimeType=application/vnd.oasis.opendocument.text;\n");
    scratch.write("first/thumbnailers/b.thumbnailer", "[Thumbnailer Entry]\nExec=png-first %i\nMimeType=image/png;\n");
    scratch.write("first/thumbnailers/broken.thumbnailer", "not a key file");

    const auto exec = [](std::string_view type) { auto found = thumbnailerForType(type); return found ? found->exec : "none"; };
    EXPECT_EQ(exec("public.png"), "png-first %i") << "a missing TryExec is skipped; an earlier folder wins";
    EXPECT_EQ(exec("org.oasis-open.opendocument.text"), "odt %i") << "its own type beats a parent's";
    EXPECT_EQ(exec("org.oasis-open.opendocument.spreadsheet"), "zip %i") << "a parent's serves when nothing names the type";
    EXPECT_EQ(exec("public.mp3"), "none");
}

} // namespace
