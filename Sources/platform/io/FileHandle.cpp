#include "platform/io/FileHandle.h"

#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Data.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace zon {

ZON_DEFINE_CLASS(FileHandle, "NSFileHandle")
ZON_STRING_CONSTANT(NSFileHandleOperationException, "NSFileHandleOperationException");

namespace {
// Reads past this size grow the buffer as the file delivers, so a huge length asks for no more
// memory than the file holds.
constexpr size_t kReadPiece = 64 * 1024;
} // namespace

Ref<FileHandle> FileHandle::fileHandleForReadingAtPath(const String* path)
{
    if (!path)
        return nullptr;
    auto file = openFile(path->UTF8String(), O_RDONLY | O_NOCTTY);
    if (!file)
        return nullptr;
    const int fd = file.value().get();
    return makeObject<FileHandle>(fd, std::move(file.value()));
}

Ref<FileHandle> FileHandle::initWithFileDescriptor_closeOnDealloc(int fd, bool closeOnDealloc)
{
    return makeObject<FileHandle>(fd, closeOnDealloc ? FileDescriptor(fd) : FileDescriptor());
}

FileHandle::~FileHandle() = default;

void FileHandle::raiseOperationFailure(const char* operation, int code) const
{
    raisePlatformException(NSFileHandleOperationException,
        std::string("*** -[NSConcreteFileHandle ") + operation + "]: " + std::strerror(code));
}

unsigned long long FileHandle::offsetInFile() const
{
    auto offset = seekFile(fd_, 0, SEEK_CUR);
    if (!offset)
        raiseOperationFailure("offsetInFile", offset.code());
    return static_cast<unsigned long long>(offset.value());
}

unsigned long long FileHandle::seekToEndOfFile()
{
    auto offset = seekFile(fd_, 0, SEEK_END);
    if (!offset)
        raiseOperationFailure("seekToEndOfFile", offset.code());
    return static_cast<unsigned long long>(offset.value());
}

void FileHandle::seekToFileOffset(unsigned long long offset)
{
    auto moved = seekFile(fd_, static_cast<off_t>(offset), SEEK_SET);
    if (!moved)
        raiseOperationFailure("seekToFileOffset:", moved.code());
}

Ref<Data> FileHandle::readDataOfLength(size_t length)
{
    ByteVector bytes;
    size_t filled = 0;
    while (filled < length) {
        if (filled == bytes.size())
            bytes.resize(filled + std::min(length - filled, std::max(kReadPiece, filled)));
        auto count = readSome(fd_, {bytes.data() + filled, bytes.size() - filled});
        if (!count)
            raiseOperationFailure("readDataOfLength:", count.code());
        if (count.value() == 0)
            break;
        filled += count.value();
    }
    bytes.resize(filled);
    return Data::dataWithVector(std::move(bytes));
}

Ref<Data> FileHandle::readDataToEndOfFile() { return readDataOfLength(SIZE_MAX); }

void FileHandle::writeData(const Data* data)
{
    if (!data)
        return;
    auto written = writeAll(fd_, data->span());
    if (!written)
        raiseOperationFailure("writeData:", written.code());
}

void FileHandle::closeFile()
{
    if (owned_.isValid())
        (void)owned_.close(); // a pipe or a file read or written whole: a late error changes nothing
    fd_ = -1;
}

} // namespace zon
