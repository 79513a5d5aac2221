#include "systemManagement/fileManagement/TXZonFileMonitor.h"

#include "logger/ZonLog.h"
#include "platform/io/FileEventStream.h"
#include "platform/io/FileManager.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/MainQueue.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

#include <chrono>
#include <mutex>
#include <vector>

namespace zon {

namespace {

// The file manager's code for reading the attributes of a missing file.
constexpr long kNoSuchFileErrorCode = NSFileReadNoSuchFileError;

struct AttributeRead {
    Ref<Date> modificationDate; // nil on failure
    long errorCode = 0;
};

// Through the file manager, which reads the item itself (a link is not followed). A failure
// without an error counts as a missing file.
AttributeRead readModificationDate(String* file)
{
    Ref<Error> error;
    Ref<Dictionary> attributes = FileManager::defaultManager()->attributesOfItemAtPath_error(file, &error);
    if (!attributes)
        return {nullptr, error ? error->code() : kNoSuchFileErrorCode};
    return {dynamicCast<Date>(attributes->objectForKey(NSFileModificationDate)), 0};
}

// Where the last blocks of destroyed monitors go: they are never released, and kept reachable
// here so that leak checkers see them as held rather than lost.
void keepForever(TXZonFileMonitor::FileChangedBlock* block)
{
    static std::mutex mutex;
    static auto* kept = new std::vector<TXZonFileMonitor::FileChangedBlock*>;
    std::lock_guard lock(mutex);
    kept->push_back(block);
}

// The event stream's callback: one call per batch of directory events.
void pathModifiedCallback(TXZonFileMonitor* monitor)
{
    AutoreleasePool pool;
    monitor->directoryUpdated();
}

} // namespace

ZON_DEFINE_CLASS(TXZonFileMonitor, "TXZonFileMonitor")

void TXZonFileMonitor::exportMethods(Class& cls)
{
    using S = TXZonFileMonitor;
    cls.exportMethod("initEventStream", &S::initEventStream);
    cls.exportMethod("directoryUpdated", &S::directoryUpdated);
    cls.exportMethod("notifyMonitor", &S::notifyMonitor);
}

TXZonFileMonitor::TXZonFileMonitor() = default;

Ref<String> TXZonFileMonitor::pathOfURL(URL* url)
{
    return url ? url->path() : nullptr;
}

void TXZonFileMonitor::startWithFile(String* file)
{
    setFile(file);
    setDirectory(file ? file->stringByDeletingLastPathComponent().get() : nullptr);
    const AttributeRead read = readModificationDate(file);
    if (read.modificationDate) {
        setFileModificationDate(read.modificationDate.get());
    } else if (read.errorCode == kNoSuchFileErrorCode) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelInfo, kDefaultLogIdentifier, "No such file: %@", file);
    } else {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Error reading file attributes for file: %@", file);
    }
    initEventStream();
}

void TXZonFileMonitor::initEventStream()
{
    const auto latency = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(eventStreamLatency()));
    directoryEventStream_.reset(); // a second call replaces the stream rather than adding one
    directoryEventStream_ = FileEventStream::create(directory_ ? directory_->UTF8String() : std::string(),
        file_ ? file_->UTF8String() : std::string(), latency, [this] { pathModifiedCallback(this); });
}

void TXZonFileMonitor::directoryUpdated()
{
    const AttributeRead read = readModificationDate(file_.get());
    if (read.modificationDate) {
        if (!fileModificationDate_ || !read.modificationDate->isEqualToDate(fileModificationDate_.get())) {
            setFileModificationDate(read.modificationDate.get());
            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelDetail, kDefaultLogIdentifier,
                "File was modified: %@", read.modificationDate);
            notifyMonitor();
        }
        return;
    }
    if (read.errorCode != kNoSuchFileErrorCode) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Error reading file attributes for file: %@", file_);
        return;
    }
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
        "Unable to resolve file attributes for changed file %@", file_);
}

void TXZonFileMonitor::notifyMonitor()
{
    static const SEL callback = selector("monitoredFileDidChangeForMonitor:");
    Ref protect(this); // the delegate may let go of the monitor
    bool notified = false;
    if (Object* delegate = delegate_) {
        if (delegate->respondsToSelector(callback)) {
            delegate->performSelector(callback, this);
            notified = true;
        } else {
            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
                "Callback selector not implemented for  delegate %@", delegate);
        }
    }
    if (fileChangedBlock_)
        MainQueue::async(*fileChangedBlock_);
    else if (!notified)
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "This monitor is not able to notify for %@", file_);
}

void TXZonFileMonitor::setFileChangedBlock(FileChangedBlock block)
{
    auto* copy = block ? new FileChangedBlock(std::move(block)) : nullptr;
    delete std::exchange(fileChangedBlock_, copy);
}

void TXZonFileMonitor::setFile(String* file)
{
    file_ = file;
}

void TXZonFileMonitor::setDirectory(String* directory)
{
    directory_ = directory;
}

void TXZonFileMonitor::setFileModificationDate(Date* date)
{
    fileModificationDate_ = date;
}

Ref<String> TXZonFileMonitor::eventStreamDescription() const
{
    if (!directoryEventStream_)
        return String::stringWithUTF8String("none");
    if (directoryEventStream_->method() == FileEventStream::Method::Inotify)
        return String::stringWithUTF8String("inotify");
    return String::stringWithUTF8String("polling: " + directoryEventStream_->pollingReason());
}

TXZonFileMonitor::~TXZonFileMonitor()
{
    directoryEventStream_.reset();
    file_ = nullptr;
    directory_ = nullptr;
    fileModificationDate_ = nullptr;
    if (fileChangedBlock_)
        keepForever(fileChangedBlock_);
}

} // namespace zon
