#pragma once

// Tells its owner when one file has changed on disk.
//
// The monitor watches the file's parent directory (so that a save that writes a temp file and
// renames it over the file is seen) and, for each batch of directory events, compares the file's
// modification date with the one it remembered: only a different date counts as a change. The
// owner hears of it through the delegate, through the block, or both.
//
// Threads: events arrive on the run loop of the thread that made the monitor, in the default mode
// and only while that loop runs; the delegate is called there, the block is queued to the main
// queue. Destroy the monitor on the thread that made it. It takes no locks and is not meant to be
// shared between threads.
//
// The delegate (TXZonFileMonitorDelegate) is any object exporting
// "monitoredFileDidChangeForMonitor:", asked with respondsToSelector; it is not retained.
//
// Lifetime: the last block given to setFileChangedBlock is never released, so what it captures
// lives on after the monitor; a block that is replaced is released.

#include "platform/runtime/Object.h"

#include <functional>
#include <memory>

namespace zon {

class Date;
class FileEventStream;
class String;
class URL;

class ZON_EXPORT TXZonFileMonitor : public Object {
    ZON_OBJECT(TXZonFileMonitor, Object)
public:
    using FileChangedBlock = std::function<void()>;
    // Seconds over which directory events are gathered into one batch.
    static constexpr double kEventStreamLatency = 3.0;

    // A monitor of the receiving class Self (a subclass made through its own name), watching.
    template <class Self = TXZonFileMonitor>
    static Ref<Self> monitorForFile(String* file)
    {
        Ref<Self> monitor = makeObject<Self>();
        monitor->startWithFile(file);
        return monitor;
    }
    template <class Self = TXZonFileMonitor>
    static Ref<Self> monitorForURL(URL* url)
    {
        return monitorForFile<Self>(pathOfURL(url).get());
    }
    static Ref<TXZonFileMonitor> initWithFile(String* file) { return monitorForFile<TXZonFileMonitor>(file); }

    // Creates the event stream on the calling thread's run loop; the initialiser calls it.
    void initEventStream();
    // The reaction to one batch of directory events: a changed modification date notifies.
    void directoryUpdated();
    // Calls the delegate and queues the block.
    void notifyMonitor();

    Object* delegate() const { return delegate_; }
    void setDelegate(Object* delegate) { delegate_ = delegate; }
    // Stores a copy of block and releases the one it replaces.
    void setFileChangedBlock(FileChangedBlock block);

    String* file() const { return file_.get(); }
    void setFile(String* file);
    String* directory() const { return directory_.get(); }
    void setDirectory(String* directory);
    Date* fileModificationDate() const { return fileModificationDate_.get(); }
    void setFileModificationDate(Date* date);

    // Not in the original's interface: how the directory is watched, for diagnostics ("inotify",
    // or "polling: " and the reason); "none" without a stream.
    Ref<String> eventStreamDescription() const;

    static void exportMethods(Class& cls);
    ~TXZonFileMonitor() override;

protected:
    TXZonFileMonitor();
    // Seconds the event stream gathers events for; subclasses may choose another window.
    virtual double eventStreamLatency() const { return kEventStreamLatency; }

private:
    void startWithFile(String* file);
    static Ref<String> pathOfURL(URL* url);

    Object* delegate_ = nullptr; // not retained
    FileChangedBlock* fileChangedBlock_ = nullptr;
    std::unique_ptr<FileEventStream> directoryEventStream_;
    Ref<String> file_;
    Ref<String> directory_;
    Ref<Date> fileModificationDate_;
};

} // namespace zon
