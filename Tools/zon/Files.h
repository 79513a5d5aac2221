#pragma once

// The files the zon commands read and write. A failure ends the command with kExitFileError and a
// message that names the path.
//
// Commands that need their whole input (a JSON text, a property list) read regular files only: a
// device such as /dev/zero or a FIFO may never end. Commands that stream (md5, gzip, gunzip) also
// read FIFOs, piece by piece, in bounded memory.

#include "platform/system/FileDescriptor.h"
#include "platform/values/Data.h"

#include <cstdint>
#include <span>
#include <string>

namespace zon::tool {

// The whole content of a regular file.
Ref<Data> readWholeFile(const std::string& path);

// A regular file or a FIFO opened to be read piece by piece with readPiece.
FileDescriptor openStream(const std::string& path);
// Reads what comes next from file into buffer; empty at the end.
std::span<const uint8_t> readPiece(const FileDescriptor& file, const std::string& path, std::span<uint8_t> buffer);

// Where a command writes its result. A regular file (new or replaced) is written under a temporary
// name beside it and moved into place by commit() only when every write and the close succeeded,
// so a failure never leaves a partial file and keeps the file that was there. A device or a FIFO is
// written directly; "-" is standard output. An output dropped without commit() leaves nothing.
class OutputFile {
public:
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(std::span<const uint8_t> bytes);
    void write(const Data& data) { write(data.span()); }
    void commit();
    bool isStandardOutput() const { return path_ == "-"; }

private:
    [[noreturn]] void failWith(const std::string& reason);

    std::string path_;
    std::string temporaryPath_; // empty when writing directly
    FileDescriptor file_;
};

} // namespace zon::tool
