// The preview service end to end: GLib as the peer of the cache, the installed office thumbnailer,
// and a fake thumbnailer that never ends.
#include "platform/graphics/CGImage.h"
#include "platform/graphics/PreviewService.h"
#include "platform/graphics/ThumbnailCacheInternal.h"
#include "platform/graphics/ThumbnailerRunInternal.h"
#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/Image.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"
#include "support/LogCapture.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <thread>

using namespace zon;
using namespace zon::test;
namespace fs = std::filesystem;

namespace {

bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

std::string output(const std::string& command)
{
    std::string text;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            text.append(buffer, n);
        ::pclose(pipe);
    }
    return text;
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

mode_t modeOf(const std::string& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

std::string mtimeOf(const std::string& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? std::to_string(status.st_mtim.tv_sec) : "";
}

// A private cache and data folders for one test.
class PreviewServiceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        environment.set("XDG_CACHE_HOME", scratch.file("cache"));
        environment.set("XDG_DATA_HOME", scratch.file("data-home"));
        environment.set("XDG_DATA_DIRS", scratch.file("data"));
    }
    std::string image(const std::string& name, const std::string& size, const std::string& colour = "red")
    {
        const std::string path = scratch.file(name);
        EXPECT_TRUE(run("/usr/bin/convert -size " + size + " xc:" + colour + " '" + path + "'")) << name;
        return path;
    }
    ThumbnailSubject subjectOf(const std::string& path) { return {fileURIOfPath(path), mtimeOf(path), "", ""}; }
    std::string entryOf(const std::string& path, uint32_t side)
    {
        return ThumbnailCache(scratch.file("cache/thumbnails")).entryPath(subjectOf(path), *thumbnailBucketFor(side, side));
    }
    // What `gio info` says of the file's thumbnail.
    std::string gioThumbnail(const std::string& path)
    {
        return output("XDG_CACHE_HOME=" + scratch.file("cache") + " gio info -a 'thumbnail::*' '" + path + "' 2>/dev/null");
    }
    static std::string gioSays(const std::string& entry, bool valid)
    {
        return "  thumbnail::path: " + entry + "\n  thumbnail::is-valid: " + (valid ? "TRUE" : "FALSE") + "\n";
    }

    ScratchFolder scratch;
    ScopedEnvironment environment;
};

TEST_F(PreviewServiceTest, EntriesWeWriteAreValidForGLibUntilTheFileChanges)
{
    if (!run("gio help info >/dev/null 2>&1"))
        GTEST_SKIP() << "gio is not installed";
    for (const uint32_t side : {128u, 256u, 1024u}) {
        const std::string path = image("photo " + std::to_string(side) + " #1.png", "2000x1000");
        const auto made = previewOfFile(path, side, side);
        ASSERT_TRUE(made) << side;
        EXPECT_EQ(made->source, PreviewSource::inProcess);
        EXPECT_EQ(made->image->width(), side);
        EXPECT_EQ(made->image->height(), side / 2);
        const std::string entry = entryOf(path, side);
        EXPECT_EQ(modeOf(entry), 0600u);
        EXPECT_EQ(modeOf(scratch.file("cache/thumbnails")), 0700u);
        EXPECT_EQ(modeOf(fs::path(entry).parent_path()), 0700u);
        EXPECT_NE(gioThumbnail(path).find(gioSays(entry, true)), std::string::npos) << gioThumbnail(path);

        const auto cached = previewOfFile(path, side, side);
        ASSERT_TRUE(cached);
        EXPECT_EQ(cached->source, PreviewSource::cache);
        EXPECT_EQ(cached->image->width(), side);

        // A newer file: GLib and we both find the entry stale; we make it again.
        ASSERT_TRUE(run("touch -d '2001-02-03 04:05:06' '" + path + "'"));
        EXPECT_NE(gioThumbnail(path).find(gioSays(entry, false)), std::string::npos) << gioThumbnail(path);
        const auto remade = previewOfFile(path, side, side);
        ASSERT_TRUE(remade);
        EXPECT_EQ(remade->source, PreviewSource::inProcess);
        EXPECT_NE(gioThumbnail(path).find(gioSays(entry, true)), std::string::npos) << gioThumbnail(path);
    }
    EXPECT_FALSE(fs::exists(scratch.file("cache/thumbnails/x-large"))) << "nothing asked for it";
}

TEST_F(PreviewServiceTest, EntriesPlacedByHandAreUsedWhenTheyMatch)
{
    const std::string path = image("photo.png", "800x800");
    const std::string entry = entryOf(path, 256);
    fs::create_directories(fs::path(entry).parent_path());
    const std::string stamp = " -set Thumb::URI '" + fileURIOfPath(path) + "' -set Thumb::MTime ";
    ASSERT_TRUE(run("/usr/bin/convert -size 200x100 xc:lime" + stamp + mtimeOf(path) + " " + entry));
    auto found = previewOfFile(path, 256, 256);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->source, PreviewSource::cache);
    EXPECT_EQ(found->image->width(), 200u) << "the hand-made entry, not the file";
    // Asked smaller, the entry is fitted.
    found = previewOfFile(path, 150, 150);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->source, PreviewSource::cache) << "the large bucket serves 150 too";

    ASSERT_TRUE(run("/usr/bin/convert -size 200x100 xc:lime" + stamp + "1 " + entry));
    found = previewOfFile(path, 256, 256);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->source, PreviewSource::inProcess) << "a stale entry is made again";
    EXPECT_EQ(found->image->width(), 256u);
}

TEST_F(PreviewServiceTest, NothingIsScaledUpAndLargeRequestsAndTheCacheItselfAreNotCached)
{
    const std::string small = image("small.png", "40x20");
    auto preview = previewOfFile(small, 256, 256);
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->image->width(), 40u);
    EXPECT_EQ(preview->image->height(), 20u);

    const std::string big = image("big.png", "3000x1500");
    preview = previewOfFile(big, 2048, 2048);
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->image->width(), 2048u);
    EXPECT_EQ(previewOfFile(big, 2048, 2048)->source, PreviewSource::inProcess) << "above 1024 nothing is cached";

    const std::string entry = entryOf(small, 256);
    ASSERT_TRUE(fs::exists(entry));
    const size_t entries = std::distance(fs::recursive_directory_iterator(scratch.file("cache")), {});
    preview = previewOfFile(entry, 64, 64);
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->source, PreviewSource::inProcess);
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(scratch.file("cache")), {}), ptrdiff_t(entries))
        << "no thumbnail of a thumbnail";

    EXPECT_EQ(previewOfFile(scratch.file("missing.png"), 64, 64), std::nullopt);
    EXPECT_EQ(previewOfFile(scratch.path, 64, 64), std::nullopt);
    EXPECT_EQ(previewOfFile(small, 0, 64), std::nullopt);
}

TEST_F(PreviewServiceTest, AudioGivesItsCoverArt)
{
    if (!run("/usr/bin/python3 -c 'import mutagen' 2>/dev/null"))
        GTEST_SKIP() << "python3 with mutagen is not available";
    const std::string cover = image("cover.png", "300x150", "blue");
    ASSERT_TRUE(run("/usr/bin/python3 " ZON_TAGGED_AUDIO_MAKER " flac " + scratch.file("song.flac") + " " + cover));
    const auto art = previewOfFile(scratch.file("song.flac"), 128, 128);
    ASSERT_TRUE(art);
    EXPECT_EQ(art->image->width(), 128u);
    EXPECT_EQ(art->image->height(), 64u);
    EXPECT_EQ(art->image->bytes()[2], 255) << "blue";
}

TEST_F(PreviewServiceTest, TheOfficeThumbnailerMakesOpenDocumentPreviews)
{
    environment.set("XDG_DATA_DIRS", "/usr/share");
    if (!fs::exists("/usr/share/thumbnailers/gsf-office.thumbnailer") || !run("/usr/bin/python3 -c 'import zipfile'"))
        GTEST_SKIP() << "gsf-office-thumbnailer is not installed";
    const std::string thumbnail = image("thumbnail.png", "180x256", "lime");
    const std::string document = scratch.file("letter.odt");
    ASSERT_TRUE(run("/usr/bin/python3 -c \"import sys, zipfile\nz = zipfile.ZipFile(sys.argv[1], 'w')\n"
                    "z.writestr('mimetype', 'application/vnd.oasis.opendocument.text')\n"
                    "z.write(sys.argv[2], 'Thumbnails/thumbnail.png', zipfile.ZIP_DEFLATED)\nz.close()\" "
        + document + " " + thumbnail));
    const auto preview = previewOfFile(document, 128, 128);
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->source, PreviewSource::thumbnailer);
    EXPECT_EQ(preview->image->height(), 128u);
    EXPECT_EQ(preview->image->width(), 90u);
    EXPECT_EQ(previewOfFile(document, 128, 128)->source, PreviewSource::cache);
}

TEST_F(PreviewServiceTest, AThumbnailerThatNeverEndsIsKilledConfinedAndNotTriedAgain)
{
    setThumbnailerTimeoutForTesting(std::chrono::milliseconds(500));
    const std::string log = scratch.file("runs.log");
    // Records how it runs, leaves a grandchild behind in its group, then never ends.
    const std::string sleeper = scratch.write("sleeper.sh",
        "#!/bin/sh\n{ ulimit -v; ulimit -t; pwd; ps -o sid= -p $$; echo $$; readlink /proc/self/fd/0; } >> " + log
            + "\nsleep 3217 &\nexec sleep 3218\n");
    fs::permissions(sleeper, fs::perms::owner_all);
    scratch.write("data/thumbnailers/sleeper.thumbnailer",
        "[Thumbnailer Entry]\nExec=" + sleeper + " %i %o\nMimeType=application/vnd.oasis.opendocument.spreadsheet;\n");
    const std::string sheet = scratch.write("sheet.ods", "not really a spreadsheet");

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(previewOfFile(sheet, 256, 256), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_TRUE(ThumbnailCache(scratch.file("cache/thumbnails")).hasFailureMarker(subjectOf(sheet)));
    EXPECT_TRUE(fs::exists(scratch.file("cache/thumbnails/fail/zoncommon-" + std::string(ZON_LIBRARY_VERSION) + "/")));

    std::istringstream lines(readFile(log));
    std::string addressSpace, cpu, folder, session, pid, input;
    lines >> addressSpace >> cpu >> folder >> session >> pid >> input;
    EXPECT_EQ(addressSpace, std::to_string(kThumbnailerAddressSpaceBytes / 1024));
    EXPECT_EQ(cpu, std::to_string(kThumbnailerCPUSeconds));
    EXPECT_EQ(session, pid) << "the leader of its own session";
    EXPECT_EQ(input, "/dev/null");
    EXPECT_NE(folder.find("zon-thumbnailer-"), std::string::npos);
    EXPECT_FALSE(fs::exists(folder)) << "its folder is removed";
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(run("pgrep -f 'sleep 321[78]' >/dev/null")) << "the whole group was killed";

    const auto again = std::chrono::steady_clock::now();
    EXPECT_EQ(previewOfFile(sheet, 256, 256), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - again, std::chrono::milliseconds(400)) << "the marker answers";
    const std::string runs = readFile(log);
    EXPECT_EQ(std::count(runs.begin(), runs.end(), '\n'), 6) << "run once";

    ASSERT_TRUE(run("touch -d '2001-02-03 04:05:06' " + sheet));
    EXPECT_FALSE(ThumbnailCache(scratch.file("cache/thumbnails")).hasFailureMarker(subjectOf(sheet)))
        << "a marker holds only while the file is unchanged";
    setThumbnailerTimeoutForTesting(std::chrono::milliseconds(0));
}

TEST_F(PreviewServiceTest, CallsFromSeveralThreadsAtOnce)
{
    const std::string shared = image("shared.png", "500x250");
    std::vector<std::string> own;
    for (int i = 0; i < 4; ++i)
        own.push_back(image("own" + std::to_string(i) + ".png", std::to_string(300 + i) + "x200"));
    std::atomic<int> answered {0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (int round = 0; round < 3; ++round) {
                answered += previewOfFile(shared, 128, 128).has_value();
                answered += previewOfFile(own[size_t(i)], 256, 256).has_value();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(answered.load(), 24);
    EXPECT_EQ(previewOfFile(shared, 128, 128)->source, PreviewSource::cache);
}

TEST_F(PreviewServiceTest, FileURLsGiveAlbumArtAndDesktopThumbnails)
{
    if (!run("/usr/bin/python3 -c 'import mutagen' 2>/dev/null"))
        GTEST_SKIP() << "python3 with mutagen is not available";
    const auto url = [&](const std::string& name) { return URL::fileURLWithPath(String::stringWithUTF8String(scratch.file(name)).get()); };
    const std::string cover = image("cover.png", "300x150", "blue");
    ASSERT_TRUE(run("/usr/bin/python3 " ZON_TAGGED_AUDIO_MAKER " mp3 " + scratch.file("art.mp3") + " " + cover));
    ASSERT_TRUE(run("/usr/bin/python3 " ZON_TAGGED_AUDIO_MAKER " mp3 " + scratch.file("plain.mp3")));

    Ref<Image> art = url("art.mp3")->generateAlbumArtImageFromQuickLook();
    ASSERT_TRUE(art);
    EXPECT_EQ(art->size(), (Size {300, 150}));
    Ref<Image> none = url("plain.mp3")->generateAlbumArtImageFromQuickLook();
    ASSERT_TRUE(none) << "no art is an empty image, not nil";
    EXPECT_EQ(none->size(), Size {});
    EXPECT_EQ(url("art.mp3")->generateThumbnailImageFromQuickLook()->size(), (Size {109, 109}));
    EXPECT_EQ(url("cover.png")->generateThumbnailImageFromImage()->size(), (Size {109, 109}));

    LogCapture capture;
    const Ref<URL> missing = url("missing.mp3");
    EXPECT_FALSE(missing->generateAlbumArtImageFromQuickLook());
    EXPECT_FALSE(missing->generateThumbnailImageFromQuickLook());
    EXPECT_FALSE(missing->generateThumbnailImageFromImage());
    const std::string said = " for URL " + missing->description()->UTF8String() + ", because file " + scratch.file("missing.mp3")
        + " does not exist.";
    EXPECT_THAT(capture.records(), ContainsLine(2, "Failed to create album art image" + said));
    const auto records = capture.records();
    EXPECT_EQ(std::count_if(records.begin(), records.end(), [&](const auto& record) {
        return record.level == 2 && record.message == "Failed to create thumbnail" + said
            && record.file.ends_with("Sources/extensions/fileSystem/NSURL+FileSystem.cpp");
    }), 2);
}

} // namespace
