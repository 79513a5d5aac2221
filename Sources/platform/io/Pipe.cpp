#include "platform/io/Pipe.h"

#include "platform/io/FileHandle.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"

namespace zon {

ZON_DEFINE_CLASS(Pipe, "NSPipe")

namespace {
// What Linux gives a new pipe (16 pages).
constexpr size_t kDefaultPipeCapacity = 64 * 1024;
} // namespace

Pipe::Pipe(Ref<FileHandle> reading, Ref<FileHandle> writing)
    : reading_(std::move(reading))
    , writing_(std::move(writing))
{
}

Pipe::~Pipe() = default;

Ref<Pipe> Pipe::pipe()
{
    auto ends = createPipe();
    if (!ends)
        return nullptr;
    return makeObject<Pipe>(FileHandle::initWithFileDescriptor_closeOnDealloc(ends.value().reading.release(), true),
        FileHandle::initWithFileDescriptor_closeOnDealloc(ends.value().writing.release(), true));
}

Ref<Pipe> Pipe::pipeHoldingAtLeast(size_t bytes)
{
    Ref<Pipe> made = pipe();
    // Past the system's cap the whole request is refused, so ask for less until it is granted.
    for (size_t asked = bytes; made && asked > kDefaultPipeCapacity; asked /= 2) {
        if (setPipeCapacity(made->writing_->fileDescriptor(), asked))
            break;
    }
    return made;
}

} // namespace zon
