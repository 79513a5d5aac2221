#include "platform/io/FileEventStream.h"

#include "platform/io/InotifyEventDecoderInternal.h"
#include "platform/system/EventCallsInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Timer.h"

#include <algorithm>
#include <array>
#include <optional>
#include <sys/inotify.h>
#include <unordered_map>
#include <vector>

namespace zon {

namespace {

using Clock = Timer::Clock;

// Everything that changes a directory's listing or a file's date, and the watched directory
// itself going away. IN_UNMOUNT, IN_IGNORED and IN_Q_OVERFLOW come without being asked for.
constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM
    | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// The watched directory no longer stands at its path (or no longer is watched at all).
constexpr uint32_t kWatchedItemGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

// File systems where inotify sees only the changes made through this machine's own mount.
std::optional<std::string> unreliableFileSystem(const std::string& path)
{
    auto status = fileSystemStatus(path);
    if (!status)
        return std::nullopt;
    struct Kind {
        unsigned long magic;
        const char* name;
    };
    static constexpr std::array kinds {Kind {0x65735546, "FUSE"}, Kind {0x6969, "NFS"}, Kind {0x517B, "SMB"},
        Kind {0xFF534D42, "CIFS"}, Kind {0xFE534D42, "SMB2"}, Kind {0x01021997, "9p"}, Kind {0x00C36400, "ceph"}};
    const auto magic = static_cast<unsigned long>(status.value().f_type) & 0xFFFFFFFFul;
    for (const Kind& kind : kinds)
        if (kind.magic == magic)
            return std::string(kind.name) + " mount";
    return std::nullopt;
}

std::string limitReason(const SystemError& error)
{
    if (error.code == EMFILE)
        return "inotify instance limit reached";
    if (error.code == ENOSPC)
        return "inotify watch limit reached";
    return error.text();
}

std::string parentOf(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Which item a stream's watch stands on: the directory itself, or its deepest existing ancestor.
struct WatchTarget {
    std::string path;
    bool isAncestor = false;
    dev_t device = 0;
    ino_t inode = 0;

    bool sameItem(const WatchTarget& other) const
    {
        return path == other.path && isAncestor == other.isAncestor && device == other.device && inode == other.inode;
    }
};

WatchTarget locateWatchTarget(const std::string& directory)
{
    WatchTarget target {directory.empty() ? std::string(".") : directory};
    for (;;) {
        auto status = pathStatus(target.path);
        if (status && S_ISDIR(status.value().st_mode)) {
            target.device = status.value().st_dev;
            target.inode = status.value().st_ino;
            return target;
        }
        if (target.path == "/" || target.path == ".")
            return target;
        target.path = parentOf(target.path);
        target.isAncestor = true;
    }
}


// What polling compares from one period to the next.
struct PollSnapshot {
    struct Item {
        bool exists = false;
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec modified {};
        timespec changed {};
        bool operator==(const Item& other) const
        {
            return exists == other.exists && device == other.device && inode == other.inode && size == other.size
                && modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec
                && changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
        }
    };
    Item directory;
    Item probe;
    bool operator==(const PollSnapshot&) const = default;

    static Item of(const std::string& path)
    {
        Item item;
        if (auto status = pathStatus(path)) {
            item = {true, status.value().st_dev, status.value().st_ino, status.value().st_size,
                status.value().st_mtim, status.value().st_ctim};
        }
        return item;
    }
};

class InotifyHub;

} // namespace

struct FileEventStream::State {
    enum class Role : uint8_t { Unarmed, Directory, Ancestor, Polling };

    uint64_t id = 0;
    std::string directory;
    std::string probe;
    std::chrono::nanoseconds latency {};
    Callback callback;
    Role role = Role::Unarmed;
    int watch = -1;
    WatchTarget watched;
    // A batch is open for this stream: what it holds so far.
    bool pending = false;
    bool changed = false;
    bool recheckPath = false;
    Clock::time_point deadline {};
    std::string pollingReason;
    Ref<Timer> pollTimer;
    PollSnapshot lastPoll;
    std::shared_ptr<InotifyHub> hub;
};

namespace {

using State = FileEventStream::State;
using Role = State::Role;

// The inotify instance of one thread and the watches of all its streams.
class InotifyHub : public std::enable_shared_from_this<InotifyHub> {
public:
    static std::shared_ptr<InotifyHub> forCurrentThread()
    {
        thread_local std::weak_ptr<InotifyHub> current;
        auto hub = current.lock();
        if (!hub) {
            hub = std::make_shared<InotifyHub>();
            current = hub;
        }
        return hub;
    }

    InotifyHub() : loop_(RunLoop::currentRunLoop())
    {
        auto inotify = createInotify();
        if (inotify)
            inotify_ = std::move(inotify.value());
        else
            instanceFailure_ = inotify.error();
    }

    ~InotifyHub()
    {
        if (windowTimer_)
            windowTimer_->invalidate();
    }

    void attach(State& stream)
    {
        stream.id = nextId_++;
        streams_.emplace(stream.id, &stream);
        arm(stream);
    }

    void detach(State& stream)
    {
        disarm(stream);
        stopPolling(stream);
        streams_.erase(stream.id);
        if (stream.pending)
            std::erase(pending_, stream.id);
    }

private:
    // Watches the directory, or its deepest existing ancestor while it is missing, or polls.
    void arm(State& stream)
    {
        arm(stream, locateWatchTarget(stream.directory));
    }

    void arm(State& stream, WatchTarget target)
    {
        if (auto fileSystem = unreliableFileSystem(target.path))
            return startPolling(stream, *fileSystem);
        if (!inotify_)
            return startPolling(stream, limitReason(instanceFailure_));
        auto watch = inotifyAddWatch(inotify_.get(), target.path, kWatchMask);
        if (!watch)
            return startPolling(stream, limitReason(watch.error()));
        stream.role = target.isAncestor ? Role::Ancestor : Role::Directory;
        stream.watch = watch.value();
        stream.watched = std::move(target);
        watches_[stream.watch].push_back(stream.id);
        openSource();
    }

    void disarm(State& stream)
    {
        if (stream.watch < 0)
            return;
        auto entry = watches_.find(stream.watch);
        if (entry != watches_.end()) {
            std::erase(entry->second, stream.id);
            if (entry->second.empty()) {
                (void)inotifyRemoveWatch(inotify_.get(), stream.watch); // fails harmlessly if the kernel dropped it
                watches_.erase(entry);
            }
        }
        stream.watch = -1;
        stream.role = Role::Unarmed;
    }

    void startPolling(State& stream, std::string reason)
    {
        stream.role = Role::Polling;
        stream.pollingReason = std::move(reason);
        stream.lastPoll = {PollSnapshot::of(stream.directory), PollSnapshot::of(stream.probe)};
        const uint64_t id = stream.id;
        std::weak_ptr<InotifyHub> weakHub = weak_from_this();
        const auto period = std::max<Clock::duration>(
            std::chrono::duration_cast<Clock::duration>(stream.latency), std::chrono::milliseconds(1));
        stream.pollTimer = Timer::timerWithTimeInterval(period, true, [weakHub, id] {
            if (auto hub = weakHub.lock())
                hub->poll(id);
        });
        loop_->addTimer_forMode(stream.pollTimer, NSDefaultRunLoopMode);
    }

    static void stopPolling(State& stream)
    {
        if (stream.pollTimer)
            stream.pollTimer->invalidate();
        stream.pollTimer = nullptr;
    }

    void poll(uint64_t id)
    {
        auto found = streams_.find(id);
        if (found == streams_.end())
            return;
        State& stream = *found->second;
        PollSnapshot now {PollSnapshot::of(stream.directory), PollSnapshot::of(stream.probe)};
        if (now == stream.lastPoll)
            return;
        stream.lastPoll = now;
        auto protect = shared_from_this();
        auto callback = stream.callback; // the callback may destroy the stream
        callback();
    }

    void openSource()
    {
        if (source_ || pending_.size() || !inotify_)
            return;
        source_ = loop_->addSource(
            inotify_.get(), RunLoopSourceReadable, [this](uint32_t) { onReadable(); }, {NSDefaultRunLoopMode});
    }

    // The first event of a batch: note which streams it concerns and stop reading until the
    // earliest of their windows ends.
    void onReadable()
    {
        auto protect = shared_from_this();
        drain();
        if (!pending_.empty())
            scheduleWindowEnd();
    }

    void onWindowEnd()
    {
        auto protect = shared_from_this();
        windowTimer_ = nullptr;
        drain();
        const auto now = Clock::now();
        std::vector<uint64_t> due;
        for (uint64_t id : pending_)
            if (streams_.at(id)->deadline <= now)
                due.push_back(id);
        std::erase_if(pending_, [&](uint64_t id) { return streams_.at(id)->deadline <= now; });
        for (uint64_t id : due) {
            auto found = streams_.find(id); // an earlier callback may have destroyed it
            if (found != streams_.end())
                finishBatch(*found->second);
        }
        if (!pending_.empty())
            scheduleWindowEnd();
        else
            openSource();
    }

    void finishBatch(State& stream)
    {
        stream.pending = false;
        bool changed = std::exchange(stream.changed, false);
        if (std::exchange(stream.recheckPath, false)) {
            const Role before = stream.role;
            rearmIfMoved(stream);
            // A directory that appears (or is replaced, or falls back to polling) is a change.
            changed = changed || stream.role != Role::Ancestor || before != Role::Ancestor;
        }
        if (!changed)
            return;
        auto callback = stream.callback; // the callback may destroy the stream
        callback();
    }

    // Re-arms a stream whose path no longer leads to the item it watches. A watch that still stands
    // on the same item is kept: adding a watch makes the kernel visit every entry of the directory,
    // which after a burst of new files is most of what a window would cost.
    void rearmIfMoved(State& stream)
    {
        WatchTarget target = locateWatchTarget(stream.directory);
        const bool armed = stream.role == Role::Directory || stream.role == Role::Ancestor;
        if (armed && stream.watch >= 0 && target.sameItem(stream.watched))
            return;
        disarm(stream);
        arm(stream, std::move(target));
    }

    // Stops reading until the earliest open window ends.
    void scheduleWindowEnd()
    {
        source_.invalidate();
        if (windowTimer_)
            windowTimer_->invalidate();
        Clock::time_point earliest = Clock::time_point::max();
        for (uint64_t id : pending_)
            earliest = std::min(earliest, streams_.at(id)->deadline);
        std::weak_ptr<InotifyHub> weakHub = weak_from_this();
        windowTimer_ = Timer::timerWithTimeInterval(std::max(earliest - Clock::now(), Clock::duration::zero()),
            false, [weakHub] {
                if (auto hub = weakHub.lock())
                    hub->onWindowEnd();
            });
        loop_->addTimer_forMode(windowTimer_, NSDefaultRunLoopMode);
    }

    // Reads everything queued and adds it to the streams' batches.
    void drain()
    {
        bool overflow = false;
        for (;;) {
            auto read = readSome(inotify_.get(), buffer_);
            if (!read || read.value() == 0)
                break;
            InotifyEventDecoder decoder({buffer_.data(), read.value()});
            while (auto event = decoder.next()) {
                if (event->mask & IN_Q_OVERFLOW) {
                    overflow = true;
                    continue;
                }
                dispatch(*event);
            }
        }
        if (overflow)
            for (auto& [id, stream] : streams_)
                if (stream->role != Role::Polling)
                    addToBatch(*stream, true, true);
    }

    void dispatch(const InotifyEvent& event)
    {
        auto entry = watches_.find(event.watch);
        if (entry == watches_.end())
            return;
        const bool gone = event.mask & kWatchedItemGone;
        for (uint64_t id : entry->second) {
            State& stream = *streams_.at(id);
            const bool ancestor = stream.role == Role::Ancestor;
            addToBatch(stream, !ancestor, gone || ancestor);
        }
        if (event.mask & IN_IGNORED) {
            // The kernel has dropped the watch: nobody may remove it again.
            for (uint64_t id : entry->second) {
                streams_.at(id)->watch = -1;
                streams_.at(id)->role = Role::Unarmed;
            }
            watches_.erase(entry);
        }
    }

    void addToBatch(State& stream, bool changed, bool recheckPath)
    {
        stream.changed = stream.changed || changed;
        stream.recheckPath = stream.recheckPath || recheckPath;
        if (stream.pending)
            return;
        stream.pending = true;
        stream.deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(stream.latency);
        pending_.push_back(stream.id);
    }

    RunLoop* loop_;
    FileDescriptor inotify_;
    SystemError instanceFailure_;
    RunLoopSource source_;
    Ref<Timer> windowTimer_;
    std::unordered_map<int, std::vector<uint64_t>> watches_; // watch descriptor -> its streams
    std::unordered_map<uint64_t, State*> streams_;
    std::vector<uint64_t> pending_; // streams with an open batch
    uint64_t nextId_ = 1;
    std::array<uint8_t, 64 * 1024> buffer_ {};
};

} // namespace

std::unique_ptr<FileEventStream> FileEventStream::create(
    std::string directory, std::string probe, std::chrono::nanoseconds latency, Callback callback)
{
    auto state = std::make_unique<State>();
    state->directory = std::move(directory);
    state->probe = std::move(probe);
    state->latency = latency;
    state->callback = std::move(callback);
    state->hub = InotifyHub::forCurrentThread();
    state->hub->attach(*state);
    return std::unique_ptr<FileEventStream>(new FileEventStream(std::move(state)));
}

FileEventStream::FileEventStream(std::unique_ptr<State> state) : state_(std::move(state)) {}

FileEventStream::~FileEventStream()
{
    state_->hub->detach(*state_);
}

FileEventStream::Method FileEventStream::method() const
{
    return state_->role == Role::Polling ? Method::Polling : Method::Inotify;
}

std::string FileEventStream::pollingReason() const
{
    return state_->role == Role::Polling ? state_->pollingReason : std::string();
}

} // namespace zon
