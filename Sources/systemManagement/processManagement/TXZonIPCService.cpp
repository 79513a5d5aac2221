#include "systemManagement/processManagement/TXZonIPCService.h"

#include "extensions/NSError+ZonExtensions.h"
#include "logger/ZonLog.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/threads/Timer.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <array>
#include <bit>
#include <chrono>

namespace zon {

namespace {

// The message id of every send, shared by all services of the process. The receiver ignores it,
// so duplicates are harmless.
std::atomic<int32_t> messageCounter {0};

void setError(Ref<Error>* slot, Ref<Error> error)
{
    if (slot)
        *slot = std::move(error);
}

// A delegate answer that is not of the kind its reply packs into cannot be sent back.
template <class T>
Ref<T> answerOfKind(Ref<Object> answer, SEL sel)
{
    if (!answer)
        return nullptr;
    if (!dynamicCast<T>(answer.get()))
        raisePlatformException(NSInvalidArgumentException,
            "-[TXZonIPCService " + sel->name() + "]: the delegate answered " + answer->objectClass()->name()
                + ", which cannot be packed into the reply");
    return staticRefCast<T>(std::move(answer));
}

// The per-message detail lines (level 5), usually off.
template <class... Args>
void logDetail(const Object* self, const char* file, int line, std::string_view format, const Args&... args)
{
    zon_log_obj(file, line, self, logger::kLevelDetail, kDefaultLogIdentifier, format, args...);
}

// Packets travel through the ports in two parts, the type word and the payload, so that neither
// side joins them into a new buffer: large data goes out and comes in without a copy.
constexpr size_t kWirePrefixLength = 4;

MessagePortMessage messageOfPacket(const TXZonIPCPacket* packet)
{
    return MessagePortMessage(packet->typeWord(), packet->payload());
}

Ref<TXZonIPCPacket> packetOfMessage(MessagePortMessage&& message)
{
    return TXZonIPCPacket::packetWithTypeWord_rest(message.prefixBytes(), std::move(message.body));
}

MessagePortSeconds seconds(double value) { return MessagePortSeconds(value); }

} // namespace

ZON_DEFINE_CLASS(TXZonIPCService, "TXZonIPCService")

void TXZonIPCService::exportMethods(Class& cls)
{
    using S = TXZonIPCService;
    cls.exportMethod(
        "connectToRemoteServiceViaRemoteServiceRequest:", &S::connectToRemoteServiceViaRemoteServiceRequest);
    cls.exportMethod("connected", &S::connected);
    cls.exportMethod("disconnect", &S::disconnect);
    cls.exportMethod("stopClientService", &S::stopClientService);
    cls.exportMethod("sendAsyncData:", &S::sendAsyncData);
    cls.exportMethod("sendAsyncDictionary:", &S::sendAsyncDictionary);
    cls.exportMethod("sendAsyncString:", &S::sendAsyncString);
    cls.exportMethod("ipcService:didRecvData:", &S::ipcService_didRecvData);
    cls.exportMethod("ipcService:didRecvDictionary:", &S::ipcService_didRecvDictionary);
    cls.exportMethod("ipcService:didRecvString:", &S::ipcService_didRecvString);
    cls.exportMethod(
        "ipcService:didEstablishConnectionToRemoteService:", &S::ipcService_didEstablishConnectionToRemoteService);
    cls.exportMethod("ipcService:didFailToEstablishConnectionToRemoteService:error:",
        &S::ipcService_didFailToEstablishConnectionToRemoteService_error);
    cls.exportMethod("ipcService:didDisconnectFromRemoteService:", &S::ipcService_didDisconnectFromRemoteService);
    cls.exportMethod(
        "ipcService:didFailToSendData:toRemoteService:error:", &S::ipcService_didFailToSendData_toRemoteService_error);
    cls.exportMethod("ipcService:didFailToSendDictionary:toRemoteService:error:",
        &S::ipcService_didFailToSendDictionary_toRemoteService_error);
    cls.exportMethod("ipcService:didFailToSendString:toRemoteService:error:",
        &S::ipcService_didFailToSendString_toRemoteService_error);
    cls.exportMethod("ipcService:didGetDataResponse:fromRemoteService:fromSentData:",
        &S::ipcService_didGetDataResponse_fromRemoteService_fromSentData);
    cls.exportMethod("ipcService:didGetDictionaryResponse:fromRemoteService:fromSentDictionary:",
        &S::ipcService_didGetDictionaryResponse_fromRemoteService_fromSentDictionary);
    cls.exportMethod("ipcService:didGetStringResponse:fromRemoteService:fromSentString:",
        &S::ipcService_didGetStringResponse_fromRemoteService_fromSentString);
    cls.exportMethod(
        "ipcServiceDidEstablishConnectionToRemoteService:", &S::ipcServiceDidEstablishConnectionToRemoteService);
    cls.exportMethod("ipcServiceDidDisconnectFromRemoteService:", &S::ipcServiceDidDisconnectFromRemoteService);
}

// ---- Creation and fields -------------------------------------------------------------------------

Ref<TXZonIPCService> TXZonIPCService::initWithLocalServiceName(String* name)
{
    auto service = makeObject<TXZonIPCService>();
    Ref<Error> error;
    if (!service->startService_error(name, &error)) {
        zon_log_obj(__FILE__, __LINE__, service, logger::kLevelError, kDefaultLogIdentifier,
            "Cannot create service %@ due to %@", name, error.get());
        return nullptr;
    }
    return service;
}

namespace {

// The service's references are read by sending threads while the service thread changes them:
// each access takes the field lock, and a replaced object is released after the lock is left.
template <class T>
Ref<T> readLocked(std::mutex& lock, const Ref<T>& field)
{
    std::lock_guard guard(lock);
    return field;
}

template <class T>
void writeLocked(std::mutex& lock, Ref<T>& field, T* value)
{
    Ref<T> old;
    std::lock_guard guard(lock);
    old = std::exchange(field, Ref<T>(value));
}

} // namespace

TXZonIPCService::~TXZonIPCService()
{
    disconnect();
    stopService();
}

String* TXZonIPCService::objectCategory() { return ZSTR("IPCService"); }

Ref<Thread> TXZonIPCService::serviceThread() const { return readLocked(fields_, serviceThread_); }

void TXZonIPCService::setServiceThread(Thread* thread) { writeLocked(fields_, serviceThread_, thread); }

Ref<String> TXZonIPCService::localServiceName() const { return readLocked(fields_, localServiceName_); }

void TXZonIPCService::setLocalServiceName(String* name) { writeLocked(fields_, localServiceName_, name); }

Ref<String> TXZonIPCService::remoteServiceName() const { return readLocked(fields_, remoteServiceName_); }

void TXZonIPCService::setRemoteServiceName(String* name) { writeLocked(fields_, remoteServiceName_, name); }

Ref<Timer> TXZonIPCService::pingInterval() const { return readLocked(fields_, pingInterval_); }

void TXZonIPCService::setPingInterval(Timer* timer) { writeLocked(fields_, pingInterval_, timer); }

Ref<MessagePort> TXZonIPCService::remoteServicePort() const { return readLocked(fields_, remoteServicePort_); }

// ---- The local endpoint ----------------------------------------------------------------------------

bool TXZonIPCService::startService_error(String* name, Ref<Error>* error)
{
    auto port = MessagePort::createLocal(name, kWirePrefixLength,
        [this](MessagePort* port, int32_t messageId, MessagePortMessage request, bool replyWanted) {
            return TXIPCServerRecvCallback(port, messageId, std::move(request), this, replyWanted);
        });
    if (!port) {
        setError(error, Error::zonErrorWithCode_description(4, ZSTR("Failed to get servicePort")));
        return false;
    }
    // A peer whose message stalls is given as long as a send of ours would be.
    port->setStalledMessageTimeout(seconds(kSendTimeout));
    {
        std::lock_guard lock(fields_);
        localServicePort_ = port;
    }
    if (!port->scheduleInRunLoop(RunLoop::currentRunLoop(), NSDefaultRunLoopMode)) {
        setError(error, Error::zonErrorWithCode_description(5, ZSTR("Failed to create PortRunLoopSource")));
        return false; // the port stays held until stopService
    }
    {
        std::lock_guard lock(fields_);
        serviceThread_ = Thread::currentThread();
    }
    zon_log_obj(
        __FILE__, __LINE__, this, logger::kLevelInfo, kDefaultLogIdentifier, "IPC Service Started with name: %@", name);
    setLocalServiceName(name);
    return true;
}

void TXZonIPCService::stopService()
{
    Ref<Thread> thread;
    Ref<MessagePort> port;
    Ref<String> name;
    {
        std::lock_guard lock(fields_);
        thread = std::move(serviceThread_);
        port = std::move(localServicePort_);
        if (port)
            name = std::move(localServiceName_);
    }
    if (!port)
        return;
    port->invalidate();
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelInfo, kDefaultLogIdentifier,
        "IPC Service Shutdown with name: %@",
        name.get());
}

MessagePortMessage TXIPCServerRecvCallback(
    MessagePort*, int32_t, MessagePortMessage message, void* info, bool replyWanted)
{
    AutoreleasePool pool;
    auto packet = packetOfMessage(std::move(message));
    if (!packet) {
        zon_log_obj(__FILE__, __LINE__, TXZonIPCService::objectCategory(), logger::kLevelError, kDefaultLogIdentifier,
            "Recieved NULL Packet");
        return {};
    }
    auto reply = static_cast<TXZonIPCService*>(info)->handlePacket(packet);
    return reply && replyWanted ? messageOfPacket(reply) : MessagePortMessage();
}

// ---- The link to the peer ------------------------------------------------------------------------

bool TXZonIPCService::startConnectionTo_error(String* name, Ref<Error>* error)
{
    setRemoteServiceStarted(true);
    if (remoteServicePort()) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Failed to establish connection to '%@' as currently connected to '%@'", name, remoteServiceName().get());
        setError(error,
            Error::zonErrorWithCode_description(
                0, ZSTR("Already connected to a client, must disconnect from client to establish new connection")));
        return false;
    }
    auto port = MessagePort::createRemote(name, kWirePrefixLength);
    if (!port) {
        setError(error, Error::zonErrorWithCode_description(4, ZSTR("Failed to get client servicePort")));
        return false;
    }
    zon_log_obj(
        __FILE__, __LINE__, this, logger::kLevelInfo, kDefaultLogIdentifier, "IPC Service Connected To: %@", name);
    Ref<TXZonIPCService> self(this);
    // The timer keeps the service alive while connected, as a timer keeps its target.
    auto timer = Timer::scheduledTimer(
        std::chrono::duration_cast<Timer::Clock::duration>(std::chrono::duration<double>(kPingPeriod)), true,
        [self] { self->connected(); });
    {
        std::lock_guard lock(fields_);
        remoteServicePort_ = std::move(port);
        remoteServiceName_ = name;
        pingInterval_ = std::move(timer);
    }
    setRemoteServiceStarted(true);
    return true;
}

void TXZonIPCService::stopClientService()
{
    Ref<MessagePort> port;
    Ref<Timer> timer;
    Ref<String> name;
    {
        std::lock_guard lock(fields_);
        if (!remoteServicePort_)
            return;
        port = std::move(remoteServicePort_);
        timer = std::move(pingInterval_);
        name = std::move(remoteServiceName_);
    }
    if (timer)
        timer->invalidate();
    port->invalidate();
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelInfo, kDefaultLogIdentifier,
        "IPC Service Disconnected From: %@",
        name.get());
    setRemoteServiceStarted(false);
}

bool TXZonIPCService::connectToRemoteServiceNamed_error(String* name, Ref<Error>* error)
{
    if (!startConnectionTo_error(name, error))
        return false;
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelInfo, kDefaultLogIdentifier,
        "Connection Estabslished... Sending Connect Packet to establish two way communication");
    Ref<TXZonIPCPacket> reply;
    bool sent = sendPacket_withResponse_error(
        TXZonIPCPacket::connectPacket_fromService(TXZonIPCPacket::kConnectRequest, localServiceName()), &reply, error);
    if (sent && reply && reply->type() == TXZonIPCPacket::kConnectionAck)
        return true;
    if (sent)
        setError(error, Error::zonErrorWithCode(2));
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelInfo, kDefaultLogIdentifier,
        "Connection Failure... stoping client service");
    stopClientService();
    return false;
}

void TXZonIPCService::connectToRemoteServiceViaRemoteServiceRequest(String* name)
{
    Ref<Error> error;
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelInfo, kDefaultLogIdentifier,
        "Attempt to establish connection back to: %@", name);
    startConnectionTo_error(name, &error);
    // The acknowledgement carries the requester's own name.
    if (!error)
        sendPacket_withResponse_error(
            TXZonIPCPacket::connectPacket_fromService(TXZonIPCPacket::kConnectionAck, name), nullptr, &error);
    if (!error) {
        performOnServiceThread("ipcService:didEstablishConnectionToRemoteService:", this, name);
    } else {
        performOnServiceThread(
            "ipcService:didFailToEstablishConnectionToRemoteService:error:", this, name, error.get());
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Failed to establish remote connection to %@ due to %@", name, error.get());
    }
}

bool TXZonIPCService::connected()
{
    if (!remoteServicePort())
        return false;
    Ref<TXZonIPCPacket> reply;
    sendPacket_withResponse_error(TXZonIPCPacket::pingPacket(), &reply, nullptr);
    if (reply && reply->type() == TXZonIPCPacket::kPing)
        return true;
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
        "Was connected to '%@', but can no longer communicate", remoteServiceName().get());
    disconnect();
    return false;
}

bool TXZonIPCService::disconnect()
{
    sendPacket_withResponse_error(TXZonIPCPacket::disconnectPacketForService(localServiceName()), nullptr, nullptr);
    stopClientService();
    return true;
}

bool TXZonIPCService::sendPacket_withResponse_error(
    TXZonIPCPacket* packet, Ref<TXZonIPCPacket>* response, Ref<Error>* error)
{
    return sendPacket_withResponse_timeout_error(packet, response, kDefaultResponseTimeout, error);
}

bool TXZonIPCService::sendPacket_withResponse_timeout_error(
    TXZonIPCPacket* packet, Ref<TXZonIPCPacket>* response, double timeout, Ref<Error>* error)
{
    if (!packet) {
        setError(error, Error::zonErrorWithCode(remoteServicePort() ? 3 : 1));
        return false;
    }
    auto port = remoteServicePort();
    if (!port) {
        setError(error, Error::zonErrorWithCode(1));
        return false;
    }
    const bool waits = response || timeout >= kNoReplyThreshold;
    const bool isPing = packet->type() == TXZonIPCPacket::kPing;
    if (!isPing)
        logDetail(this, __FILE__, __LINE__, "Sending Packet: %@", packet);

    // Read and bumped without a locked instruction, like the plain counter it stands for.
    const int32_t messageId = messageCounter.load(std::memory_order_relaxed);
    messageCounter.store(static_cast<int32_t>(static_cast<uint32_t>(messageId) + 1), std::memory_order_relaxed);
    auto [status, replyMessage] = port->send({
        .messageId = messageId,
        .message = messageOfPacket(packet),
        .sendTimeout = seconds(kSendTimeout),
        .reply = waits ? MessagePortReplyWait::inMode(NSDefaultRunLoopMode, seconds(timeout))
                       : MessagePortReplyWait::none(),
    });

    Ref<TXZonIPCPacket> reply;
    if (replyMessage.length() > 0)
        reply = packetOfMessage(std::move(replyMessage));
    if (response)
        *response = reply;
    if (status != MessagePortStatus::Success)
        setError(error, Error::zonErrorWithCode_systemErrorCode(6, static_cast<int>(status)));

    if (reply && !response)
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
            "Received Response Packet: %@ when no packet response was expected", reply.get());
    if (response && !reply) {
        if (isPing)
            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
                "Did not recv ping packet");
        else
            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
                "Did not receive response packet when one was expected -- sent %@", packet);
    }
    if (reply && reply->type() != TXZonIPCPacket::kPing)
        logDetail(this, __FILE__, __LINE__, "Packet Response: %@", reply.get());
    return status == MessagePortStatus::Success;
}

// ---- The dispatcher --------------------------------------------------------------------------------

Ref<TXZonIPCPacket> TXZonIPCService::handlePacket(TXZonIPCPacket* packet)
{
    const int32_t type = packet ? packet->type() : 0;
    if (type != TXZonIPCPacket::kPing)
        logDetail(this, __FILE__, __LINE__, "Handling Packet: %@", packet);
    Ref<TXZonIPCPacket> reply;
    switch (type) {
    case TXZonIPCPacket::kPing:
        return TXZonIPCPacket::pingPacket();
    case TXZonIPCPacket::kConnectRequest:
        if (connected() || remoteServiceStarted())
            return TXZonIPCPacket::connectPacket_fromService(TXZonIPCPacket::kConnectionNak, remoteServiceName());
        performOnServiceThread("connectToRemoteServiceViaRemoteServiceRequest:", packet->stringValue().get());
        return TXZonIPCPacket::connectPacket_fromService(TXZonIPCPacket::kConnectionAck, localServiceName());
    case TXZonIPCPacket::kConnectionAck:
        performOnServiceThread("ipcServiceDidEstablishConnectionToRemoteService:", this);
        break;
    case TXZonIPCPacket::kConnectionNak:
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
            "Recieved a Response ONLY packet...");
        break;
    case TXZonIPCPacket::kDisconnect:
        performOnServiceThread("ipcServiceDidDisconnectFromRemoteService:", this);
        stopClientService();
        break;
    case TXZonIPCPacket::kData:
        if (auto answer = ipcService_didRecvData(this, packet->dataValue()))
            reply = TXZonIPCPacket::packetWithDictionary(answer);
        break;
    case TXZonIPCPacket::kDictionary: {
        auto dictionary = packet->dictionaryValue();
        logDetail(this, __FILE__, __LINE__, "Dictionary Contents: %@", dictionary.get());
        if (auto answer = ipcService_didRecvDictionary(this, dictionary))
            reply = TXZonIPCPacket::packetWithDictionary(answer);
        break;
    }
    case TXZonIPCPacket::kString: {
        auto string = packet->stringValue();
        logDetail(this, __FILE__, __LINE__, "String Contents: %@", string.get());
        if (auto answer = ipcService_didRecvString(this, string))
            reply = TXZonIPCPacket::packetWithString(answer);
        break;
    }
    default:
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
            "Unknown Packet Type being handled: %d", type);
        break;
    }
    if (reply)
        logDetail(this, __FILE__, __LINE__, "Responding With Packet: %@", reply.get());
    else
        logDetail(this, __FILE__, __LINE__, "Responding With Packet: %@", ZSTR("Nothing"));
    return reply;
}

template <class... Objects>
void TXZonIPCService::performOnServiceThread(const char* sel, Object* first, Objects*... more)
{
    if (auto thread = serviceThread())
        performSelector_onThread_waitUntilDone_withObjects(
            selector(sel), thread.get(), false, first, static_cast<Object*>(more)...);
}

// ---- Sending the three kinds -------------------------------------------------------------------------


Ref<Data> TXZonIPCService::sendData_error(Data* data, Ref<Error>* error)
{
    return sendData_withResponseTimeout_error(data, kDefaultResponseTimeout, error);
}

Ref<Dictionary> TXZonIPCService::sendDictionary_error(Dictionary* dictionary, Ref<Error>* error)
{
    return sendDictionary_withResponseTimeout_error(dictionary, kDefaultResponseTimeout, error);
}

Ref<String> TXZonIPCService::sendString_error(String* string, Ref<Error>* error)
{
    return sendString_withResponseTimeout_error(string, kDefaultResponseTimeout, error);
}

// Replies are decoded by the kind of the request, whatever their own type: a data request gets
// the raw bytes of the dictionary its receiver answered.
Ref<Data> TXZonIPCService::sendData_withResponseTimeout_error(Data* data, double timeout, Ref<Error>* error)
{
    Ref<TXZonIPCPacket> reply;
    if (!sendPacket_withResponse_timeout_error(TXZonIPCPacket::packetWithData(data), &reply, timeout, error) || !reply)
        return nullptr;
    return Ref<Data>(reply->dataValue());
}

Ref<Dictionary> TXZonIPCService::sendDictionary_withResponseTimeout_error(
    Dictionary* dictionary, double timeout, Ref<Error>* error)
{
    Ref<TXZonIPCPacket> reply;
    if (!sendPacket_withResponse_timeout_error(TXZonIPCPacket::packetWithDictionary(dictionary), &reply, timeout, error)
        || !reply)
        return nullptr;
    return reply->dictionaryValue();
}

Ref<String> TXZonIPCService::sendString_withResponseTimeout_error(String* string, double timeout, Ref<Error>* error)
{
    Ref<TXZonIPCPacket> reply;
    if (!sendPacket_withResponse_timeout_error(TXZonIPCPacket::packetWithString(string), &reply, timeout, error)
        || !reply)
        return nullptr;
    return reply->stringValue();
}

bool TXZonIPCService::sendOnewayData_error(Data* data, Ref<Error>* error)
{
    return sendOnewayData_withResponseTimeout_error(data, 0.0, error);
}

bool TXZonIPCService::sendOnewayDictionary_error(Dictionary* dictionary, Ref<Error>* error)
{
    return sendOnewayDictionary_withResponseTimeout_error(dictionary, 0.0, error);
}

bool TXZonIPCService::sendOnewayString_error(String* string, Ref<Error>* error)
{
    return sendOnewayString_withResponseTimeout_error(string, 0.0, error);
}

bool TXZonIPCService::sendOnewayData_withResponseTimeout_error(Data* data, double timeout, Ref<Error>* error)
{
    return sendPacket_withResponse_timeout_error(TXZonIPCPacket::packetWithData(data), nullptr, timeout, error);
}

bool TXZonIPCService::sendOnewayDictionary_withResponseTimeout_error(
    Dictionary* dictionary, double timeout, Ref<Error>* error)
{
    return sendPacket_withResponse_timeout_error(
        TXZonIPCPacket::packetWithDictionary(dictionary), nullptr, timeout, error);
}

bool TXZonIPCService::sendOnewayString_withResponseTimeout_error(String* string, double timeout, Ref<Error>* error)
{
    return sendPacket_withResponse_timeout_error(TXZonIPCPacket::packetWithString(string), nullptr, timeout, error);
}

void TXZonIPCService::sendData(Data* data) { queueSend("sendAsyncData:", data); }
void TXZonIPCService::sendDictionary(Dictionary* dictionary) { queueSend("sendAsyncDictionary:", dictionary); }
void TXZonIPCService::sendString(String* string) { queueSend("sendAsyncString:", string); }

// Sends queued from any thread wait in the service's own queue, and one sendQueued at a time
// works through it on the service thread. Only when the queue had nobody working on it is a
// sendQueued queued on the thread's run loop, so a send's reply wait (which runs that loop) never
// finds another send to start, and a burst of sends costs no stack.
void TXZonIPCService::queueSend(const char* sender, Object* object)
{
    auto thread = serviceThread();
    if (!thread)
        return;
    bool wake;
    {
        std::lock_guard lock(queuedSendsMutex_);
        queuedSends_.push_back({selector(sender), Ref<Object>(object)});
        wake = !std::exchange(sendingQueued_, true);
    }
    if (wake)
        scheduleSendQueued(thread.get());
}

void TXZonIPCService::scheduleSendQueued(Thread* thread)
{
    thread->runLoop()->performBlock(
        {NSRunLoopCommonModes}, [self = Ref<TXZonIPCService>(this)] { self->sendQueued(); });
}

void TXZonIPCService::sendQueued()
{
    for (;;) {
        QueuedSend next;
        {
            std::lock_guard lock(queuedSendsMutex_);
            if (queuedSends_.empty()) {
                sendingQueued_ = false;
                return;
            }
            next = std::move(queuedSends_.front());
            queuedSends_.pop_front();
        }
        try {
            performSelector(next.sender, next.object.get());
        } catch (...) {
            // A delegate that raised ends this round; the sends behind it still go, in a new one.
            auto thread = serviceThread();
            bool more;
            {
                std::lock_guard lock(queuedSendsMutex_);
                more = sendingQueued_ = thread && !queuedSends_.empty();
            }
            if (more)
                scheduleSendQueued(thread.get());
            throw;
        }
    }
}

void TXZonIPCService::sendAsyncData(Data* data)
{
    Ref<Error> error;
    auto reply = sendData_error(data, &error);
    if (error)
        ipcService_didFailToSendData_toRemoteService_error(this, data, remoteServiceName(), error);
    else if (reply)
        ipcService_didGetDataResponse_fromRemoteService_fromSentData(this, reply, remoteServiceName(), data);
}

void TXZonIPCService::sendAsyncDictionary(Dictionary* dictionary)
{
    Ref<Error> error;
    auto reply = sendDictionary_error(dictionary, &error);
    if (error)
        ipcService_didFailToSendDictionary_toRemoteService_error(this, dictionary, remoteServiceName(), error);
    else if (reply)
        ipcService_didGetDictionaryResponse_fromRemoteService_fromSentDictionary(
            this, reply, remoteServiceName(), dictionary);
}

void TXZonIPCService::sendAsyncString(String* string)
{
    Ref<Error> error;
    auto reply = sendString_error(string, &error);
    if (error)
        ipcService_didFailToSendString_toRemoteService_error(this, string, remoteServiceName(), error);
    else if (reply)
        ipcService_didGetStringResponse_fromRemoteService_fromSentString(this, reply, remoteServiceName(), string);
}

// ---- Delegate forwarding ----------------------------------------------------------------------------

Ref<Object> TXZonIPCService::forwardToDelegate(SEL sel, std::initializer_list<Object*> arguments)
{
    Object* target = delegate();
    if (!target)
        return nullptr;
    const Arguments args(arguments.begin(), arguments.size());
    // One lookup for the usual delegate, which implements its callbacks itself.
    if (const Method* method = target->methodForSelector(sel))
        return method->implementation(target, sel, args);
    if (!target->respondsToSelector(sel))
        return nullptr;
    return target->performSelectorWithArguments(sel, args);
}

Ref<Dictionary> TXZonIPCService::ipcService_didRecvData(TXZonIPCService* service, Data* data)
{
    static const SEL sel = selector("ipcService:didRecvData:");
    return answerOfKind<Dictionary>(forwardToDelegate(sel, {service, data}), sel);
}

Ref<Dictionary> TXZonIPCService::ipcService_didRecvDictionary(TXZonIPCService* service, Dictionary* dictionary)
{
    static const SEL sel = selector("ipcService:didRecvDictionary:");
    return answerOfKind<Dictionary>(forwardToDelegate(sel, {service, dictionary}), sel);
}

Ref<String> TXZonIPCService::ipcService_didRecvString(TXZonIPCService* service, String* string)
{
    static const SEL sel = selector("ipcService:didRecvString:");
    return answerOfKind<String>(forwardToDelegate(sel, {service, string}), sel);
}

void TXZonIPCService::ipcService_didEstablishConnectionToRemoteService(TXZonIPCService* service, String* remoteName)
{
    ipcServiceDidEstablishConnectionToRemoteService(service);
    static const SEL sel = selector("ipcService:didEstablishConnectionToRemoteService:");
    forwardToDelegate(sel, {service, remoteName});
}

void TXZonIPCService::ipcService_didFailToEstablishConnectionToRemoteService_error(
    TXZonIPCService* service, String* remoteName, Error* error)
{
    static const SEL sel = selector("ipcService:didFailToEstablishConnectionToRemoteService:error:");
    forwardToDelegate(sel, {service, remoteName, error});
}

void TXZonIPCService::ipcService_didDisconnectFromRemoteService(TXZonIPCService* service, String* remoteName)
{
    ipcServiceDidDisconnectFromRemoteService(this);
    static const SEL sel = selector("ipcService:didDisconnectFromRemoteService:");
    forwardToDelegate(sel, {service, remoteName});
}

void TXZonIPCService::ipcService_didFailToSendData_toRemoteService_error(
    TXZonIPCService* service, Data* data, String* remoteName, Error* error)
{
    static const SEL sel = selector("ipcService:didFailToSendData:toRemoteService:error:");
    forwardToDelegate(sel, {service, data, remoteName, error});
}

void TXZonIPCService::ipcService_didFailToSendDictionary_toRemoteService_error(
    TXZonIPCService* service, Dictionary* dictionary, String* remoteName, Error* error)
{
    static const SEL sel = selector("ipcService:didFailToSendDictionary:toRemoteService:error:");
    forwardToDelegate(sel, {service, dictionary, remoteName, error});
}

void TXZonIPCService::ipcService_didFailToSendString_toRemoteService_error(
    TXZonIPCService* service, String* string, String* remoteName, Error* error)
{
    static const SEL sel = selector("ipcService:didFailToSendString:toRemoteService:error:");
    forwardToDelegate(sel, {service, string, remoteName, error});
}

void TXZonIPCService::ipcService_didGetDataResponse_fromRemoteService_fromSentData(
    TXZonIPCService* service, Data* response, String* remoteName, Data* sent)
{
    static const SEL sel = selector("ipcService:didGetDataResponse:fromRemoteService:fromSentData:");
    forwardToDelegate(sel, {service, response, remoteName, sent});
}

void TXZonIPCService::ipcService_didGetDictionaryResponse_fromRemoteService_fromSentDictionary(
    TXZonIPCService* service, Dictionary* response, String* remoteName, Dictionary* sent)
{
    static const SEL sel = selector("ipcService:didGetDictionaryResponse:fromRemoteService:fromSentDictionary:");
    forwardToDelegate(sel, {service, response, remoteName, sent});
}

void TXZonIPCService::ipcService_didGetStringResponse_fromRemoteService_fromSentString(
    TXZonIPCService* service, String* response, String* remoteName, String* sent)
{
    static const SEL sel = selector("ipcService:didGetStringResponse:fromRemoteService:fromSentString:");
    forwardToDelegate(sel, {service, response, remoteName, sent});
}

void TXZonIPCService::ipcServiceDidEstablishConnectionToRemoteService(TXZonIPCService* service)
{
    static const SEL sel = selector("ipcServiceDidEstablishConnectionToRemoteService:");
    forwardToDelegate(sel, {service});
}

void TXZonIPCService::ipcServiceDidDisconnectFromRemoteService(TXZonIPCService* service)
{
    static const SEL sel = selector("ipcServiceDidDisconnectFromRemoteService:");
    forwardToDelegate(sel, {service});
}

} // namespace zon
