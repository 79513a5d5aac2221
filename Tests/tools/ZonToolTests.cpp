#include "platform/io/KeyedArchiver.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"
#include "support/PrivateUserManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using namespace zon;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

namespace fs = std::filesystem;

// A scratch folder removed with its files at the end of the test.
struct ScratchFolder {
    ScratchFolder()
    {
        char name[] = "/tmp/zon-tool-XXXXXX";
        path = ::mkdtemp(name);
    }
    ~ScratchFolder() { fs::remove_all(path); }
    std::string file(const char* name) const { return path + "/" + name; }
    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(path))
            found.push_back(entry.path().filename());
        std::sort(found.begin(), found.end());
        return found;
    }
    std::string path;
};

std::string contentOf(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

using ToolArguments = std::vector<std::string>;

struct ToolRun {
    int exitCode = -1; // -1 when a signal ended the child
    int signal = 0;    // the signal that ended it
    std::string out;
    std::string err;
    long peakKiB = 0;
};

struct RunOptions {
    std::optional<rlim_t> fileSizeLimit; // writes past it fail with EFBIG, as on a full disk
    std::string stdoutPath;              // where standard output goes, else captured
};

// Runs the tool with args; a child still running after 30 s is killed by its own alarm.
ToolRun runZon(ToolArguments args, const RunOptions& options = {})
{
    ScratchFolder captures;
    const std::string outPath = options.stdoutPath.empty() ? captures.file("out") : options.stdoutPath;
    const std::string errPath = captures.file("err");
    args.insert(args.begin(), ZON_TOOL_PATH);
    std::vector<char*> argv;
    for (auto& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);

    // The crash report allocates in a signal handler on purpose; a ThreadSanitizer build would
    // otherwise end the crashing tool over that before the signal does.
    const char* inherited = ::getenv("TSAN_OPTIONS");
    const std::string tsanOptions = std::string(inherited ? inherited : "") + ":report_signal_unsafe=0";
    const pid_t child = ::fork();
    if (child == 0) {
        const int in = ::open("/dev/null", O_RDONLY);
        const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(err, 2);
        if (options.fileSizeLimit) {
            ::signal(SIGXFSZ, SIG_IGN); // a write past the limit fails instead of killing
            rlimit limit {*options.fileSizeLimit, *options.fileSizeLimit};
            ::setrlimit(RLIMIT_FSIZE, &limit);
        }
        ::setenv("TSAN_OPTIONS", tsanOptions.c_str(), 1);
        rlimit noCore {0, 0}; // the crash commands leave no core files behind
        ::setrlimit(RLIMIT_CORE, &noCore);
        ::alarm(30);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    int status = 0;
    rusage usage {};
    ::wait4(child, &status, 0, &usage);
    ToolRun run;
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    run.out = options.stdoutPath.empty() ? contentOf(outPath) : "";
    run.err = contentOf(errPath);
    run.peakKiB = usage.ru_maxrss;
    return run;
}

std::string randomBytes(size_t count, unsigned seed)
{
    std::string bytes(count, '\0');
    for (auto& byte : bytes) {
        seed = seed * 1103515245 + 12345;
        byte = static_cast<char>(seed >> 16);
    }
    return bytes;
}

// gzip of count zero bytes, made piece by piece.
std::string gzipOfZeros(size_t count)
{
    z_stream stream {};
    deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY); // still over 200 to 1
    std::vector<uint8_t> zeros(1 << 20), out(1 << 16);
    std::string gz;
    for (size_t left = count; left > 0 || stream.avail_in > 0;) {
        const size_t piece = std::min(left, zeros.size());
        left -= piece;
        stream.next_in = zeros.data();
        stream.avail_in = static_cast<uInt>(piece);
        int rc = Z_OK;
        do {
            stream.next_out = out.data();
            stream.avail_out = static_cast<uInt>(out.size());
            rc = deflate(&stream, left == 0 ? Z_FINISH : Z_NO_FLUSH);
            gz.append(reinterpret_cast<char*>(out.data()), out.size() - stream.avail_out);
        } while (stream.avail_out == 0 || (left == 0 && rc != Z_STREAM_END));
    }
    deflateEnd(&stream);
    return gz;
}

Ref<Data> dataOf(const std::string& bytes) { return Data::dataWithBytes(bytes.data(), bytes.size()); }

} // namespace

TEST(ZonTool, InputThatIsNoFileOrNeverEndsIsRefusedNamingThePath)
{
    ScratchFolder folder;
    const std::string fifo = folder.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // Whole-input commands refuse a FIFO too (at once, without waiting for a writer).
    for (const std::string& path : {folder.path, std::string("/dev/zero"), fifo}) {
        for (ToolArguments args :
            {ToolArguments {"json", path}, {"plist", "convert", path, "-"}, {"packet", "encode", "--data", path},
                {"archive", "dump", path}}) {
            ToolRun run = runZon(args);
            EXPECT_EQ(run.exitCode, 2) << args[0] << ' ' << path;
            EXPECT_THAT(run.err,
                AllOf(StartsWith("zon: cannot read " + path + ": open: a "), HasSubstr(", not a regular file\n")));
        }
    }
    // Streaming commands take FIFOs but no folder or device.
    for (const std::string& path : {folder.path, std::string("/dev/zero")}) {
        for (ToolArguments args :
            {ToolArguments {"md5", path}, {"gzip", path, folder.file("out")}, {"gunzip", path, folder.file("out")}}) {
            ToolRun run = runZon(args);
            EXPECT_EQ(run.exitCode, 2) << args[0] << ' ' << path;
            EXPECT_THAT(run.err, HasSubstr(path + ": open: a "));
            EXPECT_THAT(run.err, HasSubstr(", not a regular file or a FIFO"));
        }
    }
    EXPECT_EQ(folder.names(), std::vector<std::string> {"fifo"});
}

TEST(ZonTool, StreamingCommandsGiveTheLibrarysBytes)
{
    ScratchFolder folder;
    // Compressible and random parts, over several read pieces.
    const std::string bytes = std::string(300000, 'a') + randomBytes(700000, 7) + std::string(200000, '\n');
    writeFile(folder.file("in"), bytes);
    writeFile(folder.file("empty"), "");

    ToolRun md5 = runZon({"md5", folder.file("in")});
    EXPECT_EQ(md5.exitCode, 0) << md5.err;
    EXPECT_EQ(md5.out, dataOf(bytes)->md5Hash()->UTF8String() + "\n");

    ASSERT_EQ(runZon({"gzip", folder.file("in"), folder.file("in.gz")}).exitCode, 0);
    const std::string gz = contentOf(folder.file("in.gz"));
    EXPECT_TRUE(dataOf(gz)->isEqualToData(dataOf(bytes)->gzipWithZlib()));
    ASSERT_EQ(runZon({"gunzip", folder.file("in.gz"), folder.file("back")}).exitCode, 0);
    EXPECT_EQ(contentOf(folder.file("back")), bytes);

    // A FIFO is read as it comes, like a pipe into gzip -d.
    const std::string fifo = folder.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const pid_t writer = ::fork();
    if (writer == 0) {
        std::ofstream(fifo, std::ios::binary) << gz;
        ::_exit(0);
    }
    ToolRun piped = runZon({"gunzip", fifo, "-"});
    ::waitpid(writer, nullptr, 0);
    EXPECT_EQ(piped.exitCode, 0) << piped.err;
    EXPECT_TRUE(piped.out == bytes);

    // Empty stays empty both ways, as in the library.
    ASSERT_EQ(runZon({"gzip", folder.file("empty"), folder.file("empty.gz")}).exitCode, 0);
    EXPECT_EQ(contentOf(folder.file("empty.gz")), "");
    ASSERT_EQ(runZon({"gunzip", folder.file("empty"), folder.file("empty.out")}).exitCode, 0);
    EXPECT_EQ(contentOf(folder.file("empty.out")), "");
}

TEST(ZonTool, GunzipRefusesDataCutShortOrForeignAndLeavesNoOutput)
{
    ScratchFolder folder;
    const Ref<Data> packed = dataOf(randomBytes(400000, 3))->gzipWithZlib();
    writeFile(folder.file("cut.gz"), std::string(static_cast<const char*>(packed->bytes()), packed->length() - 10));
    writeFile(folder.file("plain"), "not compressed at all");
    writeFile(folder.file("out"), "kept");

    ToolRun cut = runZon({"gunzip", folder.file("cut.gz"), folder.file("out")});
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_EQ(cut.err, "zon: " + folder.file("cut.gz") + ": the compressed data ends early\n");
    ToolRun foreign = runZon({"gunzip", folder.file("plain"), folder.file("new")});
    EXPECT_EQ(foreign.exitCode, 1);
    EXPECT_THAT(foreign.err, HasSubstr("plain: not gzip or zlib data ("));
    EXPECT_EQ(contentOf(folder.file("out")), "kept");
    EXPECT_EQ(folder.names(), (std::vector<std::string> {"cut.gz", "out", "plain"}));
}

TEST(ZonTool, FailedWritesNeverSucceedNorLeaveAPartialFile)
{
    ScratchFolder folder;
    const std::string bytes = randomBytes(1 << 20, 11);
    writeFile(folder.file("in"), bytes);
    ASSERT_EQ(runZon({"gzip", folder.file("in"), folder.file("in.gz")}).exitCode, 0);

    // Every write to /dev/full fails with ENOSPC.
    for (const char* command : {"gzip", "gunzip"}) {
        ToolRun full = runZon({command, folder.file(command == std::string("gzip") ? "in" : "in.gz"), "/dev/full"});
        EXPECT_EQ(full.exitCode, 2) << command;
        EXPECT_EQ(full.err, "zon: cannot write /dev/full: write: No space left on device\n");
    }

    // A file size limit fails writes past it, as a full disk does, on a regular file: neither a
    // new output nor a partial one over an old output is left.
    writeFile(folder.file("old"), "old content");
    for (const char* out : {"new", "old"}) {
        ToolRun limited = runZon({"gunzip", folder.file("in.gz"), folder.file(out)}, {.fileSizeLimit = 64 * 1024});
        EXPECT_EQ(limited.exitCode, 2) << out;
        EXPECT_THAT(limited.err, AllOf(HasSubstr("cannot write " + folder.file(out)), HasSubstr("File too large")));
    }
    EXPECT_EQ(contentOf(folder.file("old")), "old content");
    EXPECT_EQ(folder.names(), (std::vector<std::string> {"in", "in.gz", "old"}));

    // Standard output is checked to its close.
    ToolRun hex = runZon({"hex", "encode", "abc"}, {.stdoutPath = "/dev/full"});
    EXPECT_EQ(hex.exitCode, 2);
    EXPECT_EQ(hex.err, "zon: cannot write standard output: No space left on device\n");
}

TEST(ZonTool, PlistConvertSaysConvertedOnlyWhenTheFileIsWhole)
{
    ScratchFolder folder;
    writeFile(folder.file("in.plist"),
        "<plist version=\"1.0\"><array><string>" + std::string(100000, 'y') + "</string></array></plist>");
    ToolRun full = runZon({"plist", "convert", folder.file("in.plist"), "/dev/full"});
    EXPECT_EQ(full.exitCode, 2);
    EXPECT_THAT(full.out, Not(HasSubstr("converted")));
    ToolRun limited
        = runZon({"plist", "convert", folder.file("in.plist"), folder.file("out.plist")}, {.fileSizeLimit = 4096});
    EXPECT_EQ(limited.exitCode, 2);
    EXPECT_EQ(limited.out, "");
    ToolRun fine = runZon({"plist", "convert", folder.file("in.plist"), folder.file("out.plist")});
    EXPECT_EQ(fine.exitCode, 0) << fine.err;
    EXPECT_THAT(fine.out, StartsWith("converted "));
}

TEST(ZonTool, GunzipOfABombStaysInBoundedMemory)
{
    ScratchFolder folder;
    constexpr size_t kInflated = size_t(256) << 20;
    writeFile(folder.file("bomb.gz"), gzipOfZeros(kInflated));
    writeFile(folder.file("small.gz"), gzipOfZeros(4096));
    ToolRun run = runZon({"gunzip", folder.file("bomb.gz"), "/dev/null"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    ToolRun small = runZon({"gunzip", folder.file("small.gz"), "/dev/null"});
    EXPECT_EQ(small.exitCode, 0) << small.err;
    // A tool that held the output would grow by 256 MiB over the program's own size (which the
    // sanitizers make much larger); streaming grows by a few buffers.
    constexpr long kGrowthLimitKiB = 64 * 1024;
    EXPECT_LT(run.peakKiB - small.peakKiB, kGrowthLimitKiB) << "peak RSS " << run.peakKiB << " KiB against "
                                                             << small.peakKiB << " KiB for a small file";
}

TEST(ZonTool, OptionValuesAreCheckedWithReadableMessages)
{
    struct Case {
        std::vector<std::string> args;
        std::string message;
    };
    const std::string notUTF8 = "caf\xe9";
    for (const Case& c : std::vector<Case> {
             {{"log", "99", "x"}, "LEVEL: must be a whole number from 1 to 5, not '99'"},
             {{"log", "-5", "x"}, "LEVEL: must be a whole number from 1 to 5, not '-5'"},
             {{"log", "2", notUTF8}, "MESSAGE: the text is not valid UTF-8"},
             {{"ipc", "bench", "x", "--count", "0"}, "--count: must be a whole number from 1 to 100000000, not '0'"},
             {{"ipc", "bench", "x", "--size", "-1"}, "--size: must be a whole number from 0 to 67108864, not '-1'"},
             {{"ipc", "send", "x", "--timeout", "nan"}, "--timeout: must be a number from 0 to 86400, not 'nan'"},
             {{"ipc", "send", "x", "--string", notUTF8}, "--string: the text is not valid UTF-8"},
             {{"packet", "encode", "--string", notUTF8}, "--string: the text is not valid UTF-8"},
         }) {
        ToolRun run = runZon(c.args);
        EXPECT_NE(run.exitCode, 0) << c.args[0];
        EXPECT_THAT(run.err, StartsWith(c.message + "\n")) << c.args[0];
    }
}

TEST(ZonTool, LongTextIsCutAtAMebibyteUnlessFullIsAsked)
{
    ScratchFolder folder;
    const std::string text(1500000, 'x');
    writeFile(folder.file("long.json"), "[\"" + text + "\"]");

    ToolRun cut = runZon({"json", folder.file("long.json")});
    EXPECT_EQ(cut.exitCode, 0) << cut.err;
    EXPECT_LT(cut.out.size(), (size_t(1) << 20) + 200);
    // The description is "(\n    " + text + "\n)", 1500008 characters.
    const std::string note = "\n[zon: 451432 more characters left out; --full prints everything]\nsuccess: true\n";
    EXPECT_TRUE(cut.out.ends_with(note)) << cut.out.substr(cut.out.size() - std::min<size_t>(200, cut.out.size()));

    ToolRun whole = runZon({"json", folder.file("long.json"), "--full"});
    EXPECT_EQ(whole.exitCode, 0) << whole.err;
    EXPECT_TRUE(whole.out.find(text) != std::string::npos);
    EXPECT_TRUE(whole.out.ends_with(")\nsuccess: true\n"));
}

TEST(ZonTool, LogLinesNameTheToolSourceFromTheTreeOn)
{
    ToolRun run = runZon({"log", "2", "from the tool"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.err, HasSubstr(" Tools/zon/LogCommands.cpp:"));
    EXPECT_THAT(run.err, HasSubstr(": from the tool\n"));
}

TEST(ZonTool, ArchiveDumpPrintsTheGraphAndRefusesWhatTheUnarchiverRefuses)
{
    ScratchFolder folder;
    Ref<Array> shared = Array::arrayWithObject(String::stringWithUTF8String("leaf"));
    Ref<Dictionary> root = Dictionary::dictionaryWithObjectsAndKeys(
        {{ZSTR("first"), shared.get()}, {ZSTR("second"), shared.get()}});
    Ref<Data> archive = KeyedArchiver::archivedDataWithRootObject(root.get(), nullptr);
    ASSERT_TRUE(archive);
    std::ofstream(folder.file("graph")).write(static_cast<const char*>(archive->bytes()), archive->length());

    ToolRun dump = runZon({"archive", "dump", folder.file("graph"), "--allow", "NSObject"});
    EXPECT_EQ(dump.exitCode, 0) << dump.err;
    EXPECT_EQ(dump.out, "root: NSDictionary #1 (2)\n"
                        "  \"first\" = NSArray #2 (1)\n"
                        "    [0] NSString \"leaf\"\n"
                        "  \"second\" = NSArray #2 (shown above)\n");

    std::string text(static_cast<const char*>(archive->bytes()), archive->length());
    text.replace(text.find("<string>NSArray</string>"), 24, "<string>NSString</string>");
    std::ofstream(folder.file("odd")) << text;
    std::ofstream(folder.file("broken")) << "<plist><dict>";
    for (const auto& [args, message] : std::vector<std::pair<ToolArguments, std::string>> {
             {{"archive", "dump", folder.file("broken")}, "is not a property list"},
             {{"archive", "dump", folder.file("odd")}, "has no \"NS.string\" text"},
             {{"archive", "dump", folder.file("graph"), "--allow", "NoSuchClass"}, "no class is named 'NoSuchClass'"}}) {
        ToolRun run = runZon(args);
        EXPECT_EQ(run.exitCode, 1) << args[2];
        EXPECT_THAT(run.err, HasSubstr(message));
    }
}

TEST(ZonTool, DynamicDemoSetsReadsAndCopiesATableDeclaredTrack)
{
    ToolRun run = runZon({"dynamic", "demo"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("accessors added to TXZonDemoTrack: title setTitle: volumeLevel setVolumeLevel: artists"));
    EXPECT_THAT(run.out, HasSubstr("volumeLevel = 50\n"));
    EXPECT_THAT(run.out, HasSubstr("Value is not of type NSNumber, but of type NSString\n"));
    EXPECT_THAT(run.out, HasSubstr("copy's artists are not the original's object\n"));

    // The archived track comes back through the unarchiver with its album and artists.
    ScratchFolder folder;
    ToolRun archive = runZon({"dynamic", "demo", "--archive", folder.file("track.plist")});
    EXPECT_EQ(archive.exitCode, 0) << archive.err;
    EXPECT_THAT(archive.out, HasSubstr("read back (hooks not run): a TXZonDemoTrack\n  read title = Blue in Green\n"));
    EXPECT_THAT(archive.out, HasSubstr("  read album = TXZonDemoAlbum Kind of Blue, 1959\n"));
    EXPECT_THAT(archive.out, HasSubstr("  copy album = TXZonDemoAlbum Kind of Blue, 1959\n"));
    const std::string readBack = archive.out.substr(archive.out.find("read back"));
    EXPECT_THAT(readBack.substr(0, readBack.find("copy")), Not(HasSubstr("setter:")));

    ToolRun unwritable = runZon({"dynamic", "demo", "--archive", "/nonexistent/track.plist"});
    EXPECT_NE(unwritable.exitCode, 0);
    EXPECT_THAT(unwritable.err, HasSubstr("/nonexistent/track.plist"));
}

TEST(ZonTool, URLAndChompCommandsPrintTheLibrarysAnswers)
{
    ToolRun append = runZon({"url", "append", "http://u@h:80/a/b?x#f", "k=a b", "é=+/", "e="});
    EXPECT_EQ(append.exitCode, 0) << append.err;
    EXPECT_EQ(append.out, "http://h/a/b?k=a%20b&%C3%A9=%2B%2F&e=\n");
    EXPECT_THAT(runZon({"url", "append", "a b"}).err, StartsWith("zon: not a URL: a b\n"));
    EXPECT_THAT(runZon({"url", "append", "http://h/", "kv"}).err, StartsWith("zon: an argument is key=value: kv\n"));

    EXPECT_EQ(runZon({"url", "join", "p?x=1", "?y=2"}).out, "p?x=1&y=2\n");
    ToolRun nonASCII = runZon({"url", "join", "é", "b"});
    EXPECT_EQ(nonASCII.exitCode, 1);
    EXPECT_THAT(nonASCII.err, StartsWith("zon: NSRangeException: "));

    ScratchFolder folder;
    writeFile(folder.file("lines"), "a\n\nb é\n");
    EXPECT_EQ(runZon({"string", "chomp", folder.file("lines")}).out, "1\ta\n2\t\n3\tb é\n");
    writeFile(folder.file("latin1"), "caf\xe9\n");
    EXPECT_THAT(runZon({"string", "chomp", folder.file("latin1")}).err, HasSubstr("is not valid UTF-8"));
}

TEST(ZonTool, SizePrintsBothFormsInTheChosenLocale)
{
    EXPECT_EQ(runZon({"size", "1048575", "--locale", "en_US"}).out, "1,024 KB\n");
    EXPECT_EQ(runZon({"size", "1048575", "--locale", "de_DE"}).out, "1.024 KB\n");
    EXPECT_EQ(runZon({"size", "1048575", "--whole", "--locale", "de_DE"}).out, "1023 KB\n");
    EXPECT_EQ(runZon({"size", "--", "-2048"}).out, "-2 KB\n");
    EXPECT_THAT(runZon({"size", "99999999999999999999"}).err, HasSubstr("must be a whole number"));
}

TEST(ZonTool, VersionCommandsPrintTheLibrarysAnswers)
{
    EXPECT_EQ(runZon({"version", "compare", "2.0", "10.0"}).out, "2.0 < 10.0 (compare: -1)\n");
    EXPECT_THAT(runZon({"version", "parse", "06.0.0.141"}).out,
        AllOf(StartsWith("parts: 6 | 0 | 0 | 141\n"), HasSubstr("zonVersionAndBuildDescription: 0600.00.141\n")));
    EXPECT_THAT(runZon({"version", "host"}).out, StartsWith("Version "));
    ToolRun range = runZon({"version", "range", "--min", "5", "--max", "6.0.0.999", "--include", "4.6.1",
        "--exclude", "5.0.0.300,5.0.0.301", "5.0.0.301"});
    EXPECT_EQ(range.out, "Range:5.x.x.x-6.0.0.999 Including:(4.6.1.x) Excluding:(5.0.0.300,5.0.0.301)\n"
                         "5.0.0.301 is not in range\n");
    // Without a maximum only zeros pass.
    EXPECT_EQ(runZon({"version", "range", "1"}).out, "Range:(null)-(null)\n1 is not in range\n");
}

TEST(ZonTool, LocaleCommandsShowTheCodeTableWithItsNULs)
{
    EXPECT_EQ(runZon({"locale", "code", "0x0409"}).out, "en\\0_US\\0\n");
    ToolRun unnamed = runZon({"locale", "code", "45c"});
    EXPECT_EQ(unnamed.exitCode, 1);
    EXPECT_EQ(unnamed.err, "zon: 0x045c names no locale\n");
    EXPECT_THAT(runZon({"locale", "code", "0x1g"}).err, StartsWith("zon: not a hexadecimal 32-bit code: 0x1g"));
    EXPECT_EQ(runZon({"locale", "id", "de_AT"}).out, "0x0c07\n");
    EXPECT_EQ(runZon({"locale", "id", "xx_YY"}).out, "0x0000\n");

    ToolRun table = runZon({"locale", "table", "--icu"});
    EXPECT_EQ(std::count(table.out.begin(), table.out.end(), '\n'), 249);
    EXPECT_THAT(table.out, HasSubstr("0x0414 no\\0  (ICU nb_NO: differs)\n"));
    EXPECT_THAT(table.out, HasSubstr("0x045c (none)  (no identifier)\n"));
    EXPECT_THAT(runZon({"locale", "preferred"}).out, EndsWith("\nen\n"));
}

TEST(ZonTool, CrashReportsWithSymbolisedFramesThenDiesOfTheSignal)
{
    ToolRun segv = runZon({"crash", "segv"});
    EXPECT_EQ(segv.signal, SIGSEGV);
    EXPECT_THAT(segv.err, HasSubstr("An exception of type NSUncaughtSystemExceptionException occured because: "
                                    "Signal 11 (SIGSEGV), fault address 0x0\nStacktrace:\n"));
    EXPECT_THAT(segv.err, HasSubstr("\twriteThroughNull (in zon) (ExceptionCommands.cpp:"));
    // Without the system-exception flags the handler stays silent; the signal still ends it.
    ToolRun quiet = runZon({"crash", "fpe", "--mask", "3"});
    EXPECT_EQ(quiet.signal, SIGFPE);
    EXPECT_THAT(quiet.err, Not(HasSubstr("occured")));
    ToolRun uncaught = runZon({"crash", "std"});
    EXPECT_EQ(uncaught.signal, SIGABRT);
    EXPECT_THAT(uncaught.err, HasSubstr("An exception of type std::runtime_error occured because: zon crash std"));
}

TEST(ZonTool, ExceptionRaiseShowsTheConstructorsRow)
{
    ToolRun run = runZon({"exception", "raise", "--class", "TXZonBasePipeClosedException", "--reason", "x", "--type",
        "3", "--errno", "9"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.out, HasSubstr("caught:       TXZonBasePipeClosedException\n"));
    EXPECT_THAT(run.out, HasSubstr("description:  x type: 3 errno: 0\n"));
}

TEST(ZonTool, PsAndSignalReachAChild)
{
    const pid_t child = ::fork();
    if (child == 0) {
        for (;;)
            ::pause();
    }
    const std::string pid = std::to_string(child);
    ToolRun suspend = runZon({"signal", pid, "suspend"});
    EXPECT_EQ(suspend.exitCode, 0) << suspend.err;
    for (int tries = 0; tries < 200 && runZon({"ps", "--pid", pid}).out.find(" stopped ") == std::string::npos; ++tries)
        ::usleep(10'000);
    ToolRun listed = runZon({"ps", "--pid", pid});
    EXPECT_THAT(listed.out, HasSubstr(pid + " 5 stopped "));
    EXPECT_EQ(runZon({"signal", pid, "kill"}).exitCode, 0);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    ToolRun gone = runZon({"signal", pid, "terminate"});
    EXPECT_EQ(gone.exitCode, 1);
    EXPECT_THAT(gone.err, HasSubstr("no process with pid " + pid));
}

TEST(ZonTool, AppsPrintsTheTrackedProductsAndFindFallsBackToTheDefault)
{
    ToolRun apps = runZon({"apps"});
    EXPECT_EQ(apps.exitCode, 0) << apps.err;
    EXPECT_NE(apps.out.find("Pallidor Station\n  TXZonProductIdentifier = org.zoncommon.PallidorStation\n"), std::string::npos)
        << apps.out;
    EXPECT_NE(apps.out.find("  TXZonProductFiles:\n    /Applications/Pallidor Station.app\n"), std::string::npos) << apps.out;
    ToolRun find = runZon({"apps", "find", "No Such Tool.app", "org.zoncommon.test.NoSuchTool", "/default/No Such Tool.app"});
    EXPECT_EQ(find.exitCode, 0) << find.err;
    EXPECT_EQ(find.out, "/default/No Such Tool.app\n");
    ToolRun ps = runZon({"ps", "--bundle-id", "org.zoncommon.test.NoSuchTool"});
    EXPECT_EQ(ps.exitCode, 1);
    EXPECT_EQ(ps.err, "zon: no process with bundle identifier org.zoncommon.test.NoSuchTool\n");
}

TEST(ZonTool, SystemPathsAndBundleVersions)
{
    ToolRun system = runZon({"system", "--prefix", "128"});
    EXPECT_EQ(system.exitCode, 0) << system.err;
    EXPECT_THAT(system.out, HasSubstr("unique ID, prefix 128: "));
    EXPECT_THAT(system.out, HasSubstr("uid, euid:           " + std::to_string(::getuid()) + ", " + std::to_string(::geteuid())));

    ToolRun paths = runZon({"paths"});
    EXPECT_THAT(paths.out, HasSubstr("running application: 0 Pallidor® Unknown Application"));
    EXPECT_THAT(paths.out, HasSubstr("Pallidor Bridge/public.pem"));

    ScratchFolder folder;
    fs::create_directories(folder.file("X.app/Contents"));
    std::ofstream(folder.file("X.app/Contents/Info.plist")) << "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                                                                "<key>CFBundleVersion</key><string>5.10.0300</string></dict></plist>";
    ToolRun bundle = runZon({"bundle", folder.file("X.app")});
    EXPECT_THAT(bundle.out, HasSubstr("version string:       5.10.0300\n"));
    EXPECT_THAT(bundle.out, HasSubstr("version:              5.10.300.x\n"));
    EXPECT_THAT(bundle.out, HasSubstr("short version:        (nil)\n"));
    EXPECT_EQ(runZon({"bundle", folder.file("missing")}).exitCode, 1);
}

TEST(ZonTool, DaemonCommandsRestartAUnitFileAndFindItsLabel)
{
    test::PrivateUserManager manager;
    if (!manager.available())
        GTEST_SKIP() << "no systemd user manager: " << manager.reason();
    const std::string label = "zon-tool-" + std::to_string(::getpid()) + "-sleeper";
    const std::string unitFile = manager.writeSleeperUnit(label + ".service");

    EXPECT_EQ(runZon({"daemon", "loaded", label}).exitCode, 1);
    ToolRun restarted = runZon({"daemon", "restart", unitFile});
    EXPECT_EQ(restarted.exitCode, 0) << restarted.err;
    EXPECT_EQ(restarted.out, unitFile + ": restarted\n");
    ToolRun loaded = runZon({"daemon", "loaded", label});
    EXPECT_EQ(loaded.exitCode, 0) << loaded.err;
    EXPECT_EQ(loaded.out, label + ": loaded\n");
    ToolRun other = runZon({"daemon", "loaded", label + "-other"});
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_THAT(other.err, HasSubstr(label + "-other: not loaded"));
    test::disableUnitFile(unitFile);
}

TEST(ZonTool, UsersListsAccountFoldersOfHome)
{
    ToolRun users = runZon({"users"});
    EXPECT_EQ(users.exitCode, 0) << users.err;
    std::istringstream lines(users.out);
    for (std::string name; std::getline(lines, name);) {
        EXPECT_TRUE(fs::is_directory("/home/" + name)) << name;
        EXPECT_NE(name.front(), '.');
    }
}
