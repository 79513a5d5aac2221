#include "Files.h"

#include "CommandSupport.h"

#include "platform/system/FileCallsInternal.h"

#include <cstdio>
#include <unistd.h>

namespace zon::tool {
namespace {

[[noreturn]] void failReading(const std::string& path, const SystemError& error)
{
    fail("cannot read " + path + ": " + error.text(), kExitFileError);
}

FileDescriptor openForReadingOrFail(const std::string& path, ReadableKinds kinds)
{
    auto file = openForReading(path, kinds);
    if (!file)
        failReading(path, file.error());
    return std::move(file).value();
}

// A name beside path that no file has yet, opened for writing.
std::pair<std::string, FileDescriptor> createTemporaryBeside(const std::string& path)
{
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string stem = folder + "." + name + ".zon-" + std::to_string(::getpid());
    for (int attempt = 0;; ++attempt) {
        std::string candidate = attempt == 0 ? stem : stem + "-" + std::to_string(attempt);
        auto file = openFile(candidate, O_WRONLY | O_CREAT | O_EXCL, 0666);
        if (file)
            return {std::move(candidate), std::move(file).value()};
        if (file.code() != EEXIST || attempt == 100)
            fail("cannot write " + path + ": " + file.error().text(), kExitFileError);
    }
}

} // namespace

Ref<Data> readWholeFile(const std::string& path)
{
    FileDescriptor file = openForReadingOrFail(path, ReadableKinds::regularFiles);
    auto status = fileStatus(file.get());
    if (!status)
        failReading(path, status.error());
    // Sized by the file with one byte more, so that the read that sees the end needs no growth.
    // A file that grows meanwhile (or one of /proc, which says 0) is read on to its end.
    ByteVector bytes(static_cast<size_t>(status.value().st_size) + 1);
    size_t filled = 0;
    for (;;) {
        if (filled == bytes.size())
            bytes.resize(bytes.size() * 2);
        auto piece = readPiece(file, path, {bytes.data() + filled, bytes.size() - filled});
        if (piece.empty())
            break;
        filled += piece.size();
    }
    bytes.resize(filled);
    return Data::dataWithVector(std::move(bytes));
}

FileDescriptor openStream(const std::string& path)
{
    return openForReadingOrFail(path, ReadableKinds::regularFilesAndFifos);
}

std::span<const uint8_t> readPiece(const FileDescriptor& file, const std::string& path, std::span<uint8_t> buffer)
{
    auto n = readSome(file.get(), buffer);
    if (!n)
        failReading(path, n.error());
    return buffer.first(n.value());
}

OutputFile::OutputFile(std::string path) : path_(std::move(path))
{
    if (isStandardOutput())
        return;
    auto status = pathStatus(path_);
    const FileKind kind = status ? fileKind(status.value()) : FileKind::regular;
    if (!status && status.code() != ENOENT)
        failWith(status.error().text());
    if (kind == FileKind::folder)
        failWith("a folder");
    if (kind == FileKind::regular) {
        std::tie(temporaryPath_, file_) = createTemporaryBeside(path_);
        return;
    }
    auto file = openFile(path_, O_WRONLY | O_NOCTTY);
    if (!file)
        failWith(file.error().text());
    file_ = std::move(file).value();
}

OutputFile::~OutputFile()
{
    if (!temporaryPath_.empty()) {
        file_.reset();
        (void)removeFile(temporaryPath_);
    }
}

void OutputFile::write(std::span<const uint8_t> bytes)
{
    if (isStandardOutput())
        std::fflush(stdout); // what the command printed before comes first
    auto written = writeAll(isStandardOutput() ? STDOUT_FILENO : file_.get(), bytes);
    if (!written)
        failWith(written.error().text());
}

void OutputFile::commit()
{
    if (isStandardOutput())
        return; // the tool checks standard output as it exits
    // The close is the last chance for the file system to report that data did not reach it.
    auto closed = file_.close();
    if (!closed)
        failWith(closed.error().text());
    if (temporaryPath_.empty())
        return;
    auto moved = renameFile(temporaryPath_, path_);
    if (!moved)
        failWith(moved.error().text());
    temporaryPath_.clear();
}

void OutputFile::failWith(const std::string& reason)
{
    const std::string what = isStandardOutput() ? "standard output" : path_;
    fail("cannot write " + what + ": " + reason, kExitFileError);
}

} // namespace zon::tool
