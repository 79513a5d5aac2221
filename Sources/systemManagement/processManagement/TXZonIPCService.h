#pragma once

// A two-way, one-peer link between two processes over named message ports.
//
// Each process owns one service published under a local name. Connecting opens the peer's port,
// and the peer opens ours in return, so either side can send a packet and get a reply packet.
//
// Threads: the thread that creates the service is its service thread; its run loop must run in
// the default mode. Incoming packets, the dispatcher handlePacket and every delegate callback run
// there, one at a time. The ping timer (every 4 s while connected) runs on the thread that opened
// the connection. Synchronous and one-way sends may come from any thread and block it; while a
// send waits for its reply it runs that thread's run loop in the default mode, so a request
// reaching the service thread meanwhile is handled inside the wait. Asynchronous sends queue to
// the service thread and report to the delegate.
//
// Lifetime: like a scheduled timer's target, a connected service is kept alive by its ping timer
// until the link closes (disconnect, a failed ping, the peer's disconnect). Destroying the
// service disconnects and stops it.
//
// The delegate (TXZonIPCServiceDelegateProtocol) is any object that exports the callbacks it
// wants; each is optional and asked with respondsToSelector. It is not retained. Selectors:
//   "ipcService:didRecvData:"                                 -> Dictionary or nil (the reply)
//   "ipcService:didRecvDictionary:"                           -> Dictionary or nil (the reply)
//   "ipcService:didRecvString:"                               -> String or nil (the reply)
//   "ipcService:didEstablishConnectionToRemoteService:"
//   "ipcService:didFailToEstablishConnectionToRemoteService:error:"
//   "ipcService:didDisconnectFromRemoteService:"
//   "ipcService:didFailToSendData:toRemoteService:error:"
//   "ipcService:didFailToSendDictionary:toRemoteService:error:"
//   "ipcService:didFailToSendString:toRemoteService:error:"
//   "ipcService:didGetDataResponse:fromRemoteService:fromSentData:"
//   "ipcService:didGetDictionaryResponse:fromRemoteService:fromSentDictionary:"
//   "ipcService:didGetStringResponse:fromRemoteService:fromSentString:"
//   "ipcServiceDidEstablishConnectionToRemoteService:"
//   "ipcServiceDidDisconnectFromRemoteService:"

#include "platform/io/MessagePort.h"
#include "platform/runtime/Object.h"
#include "systemManagement/processManagement/TXZonIPCPacket.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>

namespace zon {

class Data;
class Dictionary;
class Error;
class Thread;
class Timer;

// The receive callback of the local port: parses the message (its wire bytes, split after the
// type word as the service's port delivers them) into a packet, hands it to the service (info) and
// answers the wire bytes of the reply packet in the same two parts, or an empty message for none.
// When the sender waits for no reply (replyWanted false) the reply is handled and logged as
// always, but its wire bytes are not made.
ZON_EXPORT MessagePortMessage TXIPCServerRecvCallback(
    MessagePort* port, int32_t messageId, MessagePortMessage message, void* info, bool replyWanted = true);

class ZON_EXPORT TXZonIPCService : public Object {
    ZON_OBJECT(TXZonIPCService, Object)
public:
    // Send timeout of every message, default receive timeout, and the threshold below which a
    // send without a reply slot does not wait for a reply; seconds.
    static constexpr double kSendTimeout = 200.0;
    static constexpr double kDefaultResponseTimeout = 200.0;
    static constexpr double kNoReplyThreshold = 1.0;
    static constexpr double kPingPeriod = 4.0;

    // A started service on the calling thread, or nil (logged) when the name cannot be published.
    static Ref<TXZonIPCService> initWithLocalServiceName(String* name);
    // "IPCService"; not the log category of the service's own lines.
    static String* objectCategory();

    Object* delegate() const { return delegate_.load(std::memory_order_acquire); }
    void setDelegate(Object* delegate) { delegate_.store(delegate, std::memory_order_release); }
    Ref<Thread> serviceThread() const;
    void setServiceThread(Thread* thread);
    Ref<String> localServiceName() const;
    void setLocalServiceName(String* name);
    Ref<String> remoteServiceName() const;
    void setRemoteServiceName(String* name);
    Ref<Timer> pingInterval() const;
    void setPingInterval(Timer* timer);
    bool remoteServiceStarted() const { return remoteServiceStarted_.load(std::memory_order_acquire); }
    void setRemoteServiceStarted(bool started) { remoteServiceStarted_.store(started, std::memory_order_release); }

    // ---- TXZonIPCService(Service) ----
    bool startService_error(String* name, Ref<Error>* error);
    void stopService();
    bool startConnectionTo_error(String* name, Ref<Error>* error);
    void stopClientService();
    Ref<TXZonIPCPacket> handlePacket(TXZonIPCPacket* packet);

    // ---- Connection ----
    bool connectToRemoteServiceNamed_error(String* name, Ref<Error>* error);
    void connectToRemoteServiceViaRemoteServiceRequest(String* name);
    bool connected();
    bool disconnect();
    bool sendPacket_withResponse_error(TXZonIPCPacket* packet, Ref<TXZonIPCPacket>* response, Ref<Error>* error);
    bool sendPacket_withResponse_timeout_error(
        TXZonIPCPacket* packet, Ref<TXZonIPCPacket>* response, double timeout, Ref<Error>* error);

    // ---- TXZonIPCService(SyncronousAPI) ----
    Ref<Data> sendData_error(Data* data, Ref<Error>* error);
    Ref<Dictionary> sendDictionary_error(Dictionary* dictionary, Ref<Error>* error);
    Ref<String> sendString_error(String* string, Ref<Error>* error);
    Ref<Data> sendData_withResponseTimeout_error(Data* data, double timeout, Ref<Error>* error);
    Ref<Dictionary> sendDictionary_withResponseTimeout_error(Dictionary* dictionary, double timeout, Ref<Error>* error);
    Ref<String> sendString_withResponseTimeout_error(String* string, double timeout, Ref<Error>* error);
    bool sendOnewayData_error(Data* data, Ref<Error>* error);
    bool sendOnewayDictionary_error(Dictionary* dictionary, Ref<Error>* error);
    bool sendOnewayString_error(String* string, Ref<Error>* error);
    bool sendOnewayData_withResponseTimeout_error(Data* data, double timeout, Ref<Error>* error);
    bool sendOnewayDictionary_withResponseTimeout_error(Dictionary* dictionary, double timeout, Ref<Error>* error);
    bool sendOnewayString_withResponseTimeout_error(String* string, double timeout, Ref<Error>* error);

    // ---- TXZonIPCService(AsynchronousAPI) ----
    // Queue the send and return at once. The service thread sends what was queued one message at
    // a time, in the order queued: a send waiting for its reply never starts the next one (only
    // incoming requests are served inside the wait), however many are queued.
    void sendData(Data* data);
    void sendDictionary(Dictionary* dictionary);
    void sendString(String* string);
    void sendAsyncData(Data* data);
    void sendAsyncDictionary(Dictionary* dictionary);
    void sendAsyncString(String* string);

    // ---- TXZonIPCService(DelegateMethods): each forwards to the delegate ----
    Ref<Dictionary> ipcService_didRecvData(TXZonIPCService* service, Data* data);
    Ref<Dictionary> ipcService_didRecvDictionary(TXZonIPCService* service, Dictionary* dictionary);
    Ref<String> ipcService_didRecvString(TXZonIPCService* service, String* string);
    void ipcService_didEstablishConnectionToRemoteService(TXZonIPCService* service, String* remoteName);
    void ipcService_didFailToEstablishConnectionToRemoteService_error(
        TXZonIPCService* service, String* remoteName, Error* error);
    void ipcService_didDisconnectFromRemoteService(TXZonIPCService* service, String* remoteName);
    void ipcService_didFailToSendData_toRemoteService_error(
        TXZonIPCService* service, Data* data, String* remoteName, Error* error);
    void ipcService_didFailToSendDictionary_toRemoteService_error(
        TXZonIPCService* service, Dictionary* dictionary, String* remoteName, Error* error);
    void ipcService_didFailToSendString_toRemoteService_error(
        TXZonIPCService* service, String* string, String* remoteName, Error* error);
    void ipcService_didGetDataResponse_fromRemoteService_fromSentData(
        TXZonIPCService* service, Data* response, String* remoteName, Data* sent);
    void ipcService_didGetDictionaryResponse_fromRemoteService_fromSentDictionary(
        TXZonIPCService* service, Dictionary* response, String* remoteName, Dictionary* sent);
    void ipcService_didGetStringResponse_fromRemoteService_fromSentString(
        TXZonIPCService* service, String* response, String* remoteName, String* sent);
    void ipcServiceDidEstablishConnectionToRemoteService(TXZonIPCService* service);
    void ipcServiceDidDisconnectFromRemoteService(TXZonIPCService* service);

    static void exportMethods(Class& cls);
    ~TXZonIPCService() override;

private:
    friend MessagePortMessage TXIPCServerRecvCallback(MessagePort*, int32_t, MessagePortMessage, void*, bool);

    TXZonIPCService() = default;

    Ref<MessagePort> remoteServicePort() const;

    // An asynchronous send waiting for its turn: the selector that sends it, and its object.
    struct QueuedSend {
        SEL sender;
        Ref<Object> object;
    };
    void queueSend(const char* sender, Object* object);
    void scheduleSendQueued(Thread* thread);
    // Runs on the service thread: sends the queued messages until none is left.
    void sendQueued();
    // Queues a call of one of our exported methods on the service thread, without waiting.
    template <class... Objects>
    void performOnServiceThread(const char* sel, Object* first, Objects*... more);
    // Calls the delegate's optional callback; answers its result, nil when it has none.
    Ref<Object> forwardToDelegate(SEL sel, std::initializer_list<Object*> arguments);

    std::atomic<Object*> delegate_ {nullptr};

    mutable std::mutex fields_; // guards the references below against senders on other threads
    Ref<Thread> serviceThread_;
    Ref<String> localServiceName_;
    Ref<MessagePort> localServicePort_;
    std::atomic<bool> remoteServiceStarted_ {false};
    Ref<String> remoteServiceName_;
    Ref<MessagePort> remoteServicePort_;
    Ref<Timer> pingInterval_;

    std::mutex queuedSendsMutex_; // guards the two below
    std::deque<QueuedSend> queuedSends_;
    bool sendingQueued_ = false; // a sendQueued is queued on the service thread or running there
};

} // namespace zon
