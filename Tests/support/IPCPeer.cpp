// The other process of the two-process IPC tests.
//
//   IPCPeer serve NAME [silent]     publish NAME and answer requests (silent: a delegate that
//                                   implements no receive callback)
//   IPCPeer connect NAME REMOTE     publish NAME, connect to REMOTE, then serve
//
// Its main thread is the service thread. It prints "ready" once published (or "connect failed
// CODE" / "connected"), then one line per delegate event, and flushes each line, so a test reads
// its progress from the pipe. String requests double as commands:
//   "ping"            answers "pong"
//   "send-back:TEXT"  sends TEXT to the connected peer from inside the handler, answers "got:REPLY"
//   "race:N"          answers "ok", then sends N strings to the peer from the service thread
//   "disconnect"      answers "bye", then disconnects politely
//   "quiet"           answers "ok" and prints no more request lines (for long bursts)
//   "slow:MS:TEXT"    sleeps MS milliseconds on the service thread, then answers "echo:TEXT"
//   anything else     answers "echo:TEXT"
// Dictionaries are answered with {"echo": the dictionary, "note": "from peer"}, data with
// {"length": its length}.

#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/Values.h"
#include "systemManagement/processManagement/TXZonIPCService.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

using namespace zon;
using namespace zon::test;

namespace {

void say(const std::string& line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

class PeerDelegate final : public Object {
    ZON_OBJECT(PeerDelegate, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("ipcService:didRecvString:", &PeerDelegate::didRecvString);
        cls.exportMethod("ipcService:didRecvDictionary:", &PeerDelegate::didRecvDictionary);
        cls.exportMethod("ipcService:didRecvData:", &PeerDelegate::didRecvData);
        exportEvents(cls);
    }
    static void exportEvents(Class& cls)
    {
        cls.exportMethod("ipcServiceDidEstablishConnectionToRemoteService:", &PeerDelegate::didEstablish);
        cls.exportMethod("ipcService:didEstablishConnectionToRemoteService:", &PeerDelegate::didEstablishWithName);
        cls.exportMethod("ipcService:didFailToEstablishConnectionToRemoteService:error:", &PeerDelegate::didFail);
        cls.exportMethod("ipcServiceDidDisconnectFromRemoteService:", &PeerDelegate::didDisconnect);
    }

    Ref<String> didRecvString(TXZonIPCService* service, String* string)
    {
        std::string request = utf8(string);
        static bool quiet = false;
        if (!quiet)
            say("string " + request);
        if (request == "quiet") {
            quiet = true;
            return str("ok");
        }
        if (request == "ping")
            return str("pong");
        if (request.rfind("send-back:", 0) == 0) {
            Ref<Error> error;
            auto reply = service->sendString_error(str(request.substr(10)), &error);
            return str("got:" + utf8(reply));
        }
        if (request.rfind("slow:", 0) == 0) {
            const size_t colon = request.find(':', 5);
            std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(request.substr(5, colon - 5))));
            return str("echo:" + request.substr(colon + 1));
        }
        if (request.rfind("race:", 0) == 0) {
            int count = std::stoi(request.substr(5));
            Ref<TXZonIPCService> protect(service);
            RunLoop::currentRunLoop()->performBlock({NSDefaultRunLoopMode}, [protect, count] {
                int answered = 0;
                for (int i = 0; i < count; ++i)
                    answered += protect->sendString_error(str("race " + std::to_string(i)), nullptr) != nullptr;
                say("race done " + std::to_string(answered));
            });
            return str("ok");
        }
        if (request == "disconnect") {
            Ref<TXZonIPCService> protect(service);
            RunLoop::currentRunLoop()->performBlock({NSDefaultRunLoopMode}, [protect] { protect->disconnect(); });
            return str("bye");
        }
        return str("echo:" + request);
    }

    Ref<Dictionary> didRecvDictionary(TXZonIPCService*, Dictionary* dictionary)
    {
        say("dictionary");
        return Dictionary::dictionaryWithObjectsAndKeys(
            {{ZSTR("echo"), dictionary}, {ZSTR("note"), ZSTR("from peer")}});
    }

    Ref<Dictionary> didRecvData(TXZonIPCService*, Data* data)
    {
        say("data " + std::to_string(data ? data->length() : 0));
        return Dictionary::dictionaryWithObject_forKey(
            Number::numberWithUnsignedLong(data ? data->length() : 0), ZSTR("length"));
    }

    void didEstablish(TXZonIPCService*) { say("event established"); }
    void didEstablishWithName(TXZonIPCService*, String* name) { say("event established with " + utf8(name)); }
    void didFail(TXZonIPCService*, String* name, Error* error)
    {
        say("event failed " + utf8(name) + " " + std::to_string(error ? error->code() : 0));
    }
    void didDisconnect(TXZonIPCService*) { say("event disconnected"); }

private:
    PeerDelegate() = default;
};
ZON_DEFINE_CLASS(PeerDelegate, "PeerDelegate")

// Hears the connection events only: requests to it get no reply.
class SilentDelegate final : public Object {
    ZON_OBJECT(SilentDelegate, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("ipcServiceDidEstablishConnectionToRemoteService:", &SilentDelegate::didEstablish);
    }
    void didEstablish(TXZonIPCService*) { say("event established"); }

private:
    SilentDelegate() = default;
};
ZON_DEFINE_CLASS(SilentDelegate, "SilentDelegate")

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s serve NAME [silent] | connect NAME REMOTE\n", argv[0]);
        return 2;
    }
    std::string mode = argv[1];
    auto service = TXZonIPCService::initWithLocalServiceName(str(argv[2]));
    if (!service) {
        say("publish failed");
        return 1;
    }
    Ref<Object> delegate;
    if (mode == "serve" && argc > 3 && std::strcmp(argv[3], "silent") == 0)
        delegate = makeObject<SilentDelegate>();
    else
        delegate = makeObject<PeerDelegate>();
    service->setDelegate(delegate);
    say("ready");
    if (mode == "connect" && argc > 3) {
        Ref<Error> error;
        if (service->connectToRemoteServiceNamed_error(str(argv[3]), &error))
            say("connected");
        else
            say("connect failed " + std::to_string(error ? error->code() : -1));
    }
    RunLoop::currentRunLoop()->run();
    return 0;
}
