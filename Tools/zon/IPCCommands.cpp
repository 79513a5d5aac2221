// zon ipc serve|send|bench: two processes talking through the IPC service.

#include "Commands.h"

#include "CommandSupport.h"
#include "Files.h"

#include "platform/io/PropertyListSerialization.h"
#include "platform/runtime/Class.h"
#include "platform/system/EventCallsInternal.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonIPCService.h"

#include <CLI/CLI.hpp>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace zon::tool {
namespace {

constexpr double kLongestTimeout = 24 * 3600;
constexpr int kMostBenchMessages = 100'000'000;
// Well below the largest message a port carries, so that framing never refuses one.
constexpr size_t kLargestBenchMessage = size_t(64) << 20;

std::string text(const Object* object)
{
    if (auto string = dynamicCast<String>(object))
        return printable(*string);
    return printableDescription(object);
}

template <class... Parts>
void say(const Parts&... parts)
{
    std::string line;
    ((line += parts), ...);
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::string errorText(const Error* error)
{
    if (!error)
        return "no error";
    return "error " + std::to_string(error->code()) + " (" + text(error->localizedDescription()) + ")";
}

// Bytes of a reply printed as text when they are text (the data reply is a property list).
std::string dataText(const Data* data)
{
    if (!data)
        return "(nil)";
    std::string bytes(static_cast<const char*>(data->bytes()), data->length());
    bool isText
        = std::all_of(bytes.begin(), bytes.end(), [](unsigned char c) { return c >= 0x20 || c == '\n' || c == '\t'; });
    const std::string size = std::to_string(bytes.size()) + " bytes";
    return isText && !bytes.empty() ? size + ":\n" + printable(std::move(bytes)) : size;
}

// The delegate of both ends: answers every request with an echo and a note, prints every event.
class Narrator final : public Object {
    ZON_OBJECT(Narrator, Object)
public:
    static Ref<Narrator> narratorWithRole(std::string role, bool quiet = false)
    {
        return makeObject<Narrator>(std::move(role), quiet);
    }
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("ipcService:didRecvString:", &Narrator::didRecvString);
        cls.exportMethod("ipcService:didRecvDictionary:", &Narrator::didRecvDictionary);
        cls.exportMethod("ipcService:didRecvData:", &Narrator::didRecvData);
        cls.exportMethod("ipcService:didEstablishConnectionToRemoteService:", &Narrator::established);
        cls.exportMethod("ipcService:didFailToEstablishConnectionToRemoteService:error:", &Narrator::failedToEstablish);
        cls.exportMethod("ipcServiceDidEstablishConnectionToRemoteService:", &Narrator::didEstablish);
        cls.exportMethod("ipcServiceDidDisconnectFromRemoteService:", &Narrator::didDisconnect);
        cls.exportMethod("ipcService:didFailToSendData:toRemoteService:error:", &Narrator::failedToSend);
        cls.exportMethod("ipcService:didFailToSendDictionary:toRemoteService:error:", &Narrator::failedToSend);
        cls.exportMethod("ipcService:didFailToSendString:toRemoteService:error:", &Narrator::failedToSend);
        cls.exportMethod("ipcService:didGetDataResponse:fromRemoteService:fromSentData:", &Narrator::gotDataResponse);
        cls.exportMethod(
            "ipcService:didGetDictionaryResponse:fromRemoteService:fromSentDictionary:", &Narrator::gotResponse);
        cls.exportMethod("ipcService:didGetStringResponse:fromRemoteService:fromSentString:", &Narrator::gotResponse);
    }
    bool asyncDone = false;

private:
    Narrator(std::string role, bool quiet) : role_(std::move(role)), quiet_(quiet) {}
    void event(const std::string& what)
    {
        if (!quiet_)
            say("[", role_, "] ", what);
    }

    Ref<String> didRecvString(TXZonIPCService* service, String* string)
    {
        event("string request: " + text(string));
        return String::stringWithUTF8String(text(string) + " (echoed by " + text(service->localServiceName()) + ")");
    }
    Ref<Dictionary> didRecvDictionary(TXZonIPCService*, Dictionary* dictionary)
    {
        event("dictionary request: " + text(dictionary));
        return Dictionary::dictionaryWithObjectsAndKeys(
            {{ZSTR("echo"), dictionary}, {ZSTR("note"), ZSTR("answered by zon ipc serve")}});
    }
    Ref<Dictionary> didRecvData(TXZonIPCService*, Data* data)
    {
        event("data request: " + std::to_string(data ? data->length() : 0) + " bytes");
        return Dictionary::dictionaryWithObjectsAndKeys(
            { { ZSTR("length"), Number::numberWithUnsignedLong(data ? data->length() : 0) },
                { ZSTR("note"), ZSTR("answered by zon ipc serve") } });
    }
    void established(TXZonIPCService*, String* name) { event("connected back to '" + text(name) + "'"); }
    void failedToEstablish(TXZonIPCService*, String* name, Error* error)
    {
        event("could not connect back to '" + text(name) + "': " + errorText(error));
    }
    void didEstablish(TXZonIPCService* service)
    {
        event("link established with '" + text(service->remoteServiceName()) + "'");
    }
    void didDisconnect(TXZonIPCService*) { event("peer disconnected"); }
    void failedToSend(TXZonIPCService*, Object* sent, String* remote, Error* error)
    {
        event("asynchronous send of " + text(sent) + " to '" + text(remote) + "' failed: " + errorText(error));
        asyncDone = true;
    }
    void gotResponse(TXZonIPCService*, Object* response, String* remote, Object*)
    {
        event("asynchronous reply from '" + text(remote) + "': " + text(response));
        asyncDone = true;
    }
    void gotDataResponse(TXZonIPCService*, Data* response, String* remote, Data*)
    {
        event("asynchronous reply from '" + text(remote) + "': " + dataText(response));
        asyncDone = true;
    }

    std::string role_;
    bool quiet_;
};
ZON_DEFINE_CLASS(Narrator, "ZonToolNarrator")

// Runs the current loop until done() or the time limit; false when the limit came first.
bool runUntil(const std::function<bool()>& done, double seconds)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.05, true);
    }
    return true;
}

Ref<TXZonIPCService> startService(const std::string& name)
{
    auto service = TXZonIPCService::initWithLocalServiceName(String::stringWithUTF8String(name));
    if (!service) {
        say("cannot publish the service '", name, "'");
        throw CLI::RuntimeError(1);
    }
    return service;
}

Ref<TXZonIPCService> connectClient(const std::string& remote, Narrator* narrator)
{
    auto service = startService("zon-client-" + std::to_string(::getpid()));
    service->setDelegate(narrator);
    Ref<Error> error;
    if (!service->connectToRemoteServiceNamed_error(String::stringWithUTF8String(remote), &error)) {
        say("cannot connect to '", remote, "': ", errorText(error));
        throw CLI::RuntimeError(1);
    }
    // The peer's acknowledgement arrives as a request of its own.
    runUntil([&] { return false; }, 0.05);
    return service;
}

// ---- serve ----

void serve(const std::string& name, bool quiet)
{
    auto narrator = Narrator::narratorWithRole("serve", quiet);
    auto service = startService(name);
    service->setDelegate(narrator);
    say("[serve] listening as '", name, "'; Ctrl-C stops");

    auto stopSignals = createSignalWatch({SIGINT, SIGTERM});
    if (!stopSignals)
        fail("cannot watch for Ctrl-C: " + stopSignals.error().text());
    bool stopping = false;
    RunLoop* loop = RunLoop::currentRunLoop();
    RunLoopSource stopSource = loop->addSource(
        stopSignals.value().get(), RunLoopSourceReadable,
        [&](uint32_t) {
            stopping = true;
            loop->stop();
        },
        {NSDefaultRunLoopMode});
    while (!stopping)
        loop->runInMode(NSDefaultRunLoopMode, 3600, false);
    stopSource.invalidate();
    if (service->remoteServiceName())
        service->disconnect();
    service->stopService();
    say("[serve] stopped");
}

// ---- send ----

struct SendOptions {
    std::string name;
    std::string string;
    std::string dictFile;
    std::string dataFile;
    bool oneway = false;
    bool async = false;
    double timeout = TXZonIPCService::kDefaultResponseTimeout;
};

void send(const SendOptions& options)
{
    auto narrator = Narrator::narratorWithRole("send");
    auto service = connectClient(options.name, narrator);
    Ref<Object> payload;
    if (!options.dictFile.empty()) {
        Ref<Error> error;
        payload = PropertyListSerialization::propertyListWithData(readWholeFile(options.dictFile), &error);
        if (!dynamicCast<Dictionary>(payload))
            throw CLI::ValidationError(options.dictFile + " does not hold a dictionary property list");
    } else if (!options.dataFile.empty()) {
        payload = readWholeFile(options.dataFile);
    } else {
        payload = String::stringWithUTF8String(options.string);
    }
    auto* string = dynamicCast<String>(payload.get());
    auto* dictionary = dynamicCast<Dictionary>(payload.get());
    auto* data = dynamicCast<Data>(payload.get());
    say("[send] sending ", dictionary ? "dictionary " : data ? "data " : "string ",
        data ? std::to_string(data->length()) + " bytes" : text(payload),
        options.oneway ? " one-way" : options.async ? " asynchronously" : " synchronously");

    Ref<Error> error;
    bool failed = false;
    if (options.async) {
        if (string)
            service->sendString(string);
        else if (dictionary)
            service->sendDictionary(dictionary);
        else
            service->sendData(data);
        if (!runUntil([&] { return narrator->asyncDone; }, options.timeout + 1))
            say("[send] no reply (none expected when the peer answers nothing)");
    } else if (options.oneway) {
        bool sent = string ? service->sendOnewayString_error(string, &error)
            : dictionary   ? service->sendOnewayDictionary_error(dictionary, &error)
                           : service->sendOnewayData_error(data, &error);
        failed = !sent;
        say(sent ? "[send] queued to the peer" : "[send] failed: " + errorText(error));
    } else {
        Ref<Object> reply;
        if (string)
            reply = service->sendString_withResponseTimeout_error(string, options.timeout, &error);
        else if (dictionary)
            reply = service->sendDictionary_withResponseTimeout_error(dictionary, options.timeout, &error);
        else
            reply = service->sendData_withResponseTimeout_error(data, options.timeout, &error);
        failed = error != nullptr;
        if (error)
            say("[send] failed: ", errorText(error));
        else
            say("[send] reply: ", data ? dataText(dynamicCast<Data>(reply.get())) : text(reply));
    }
    service->disconnect();
    if (failed)
        throw CLI::RuntimeError(1);
}

// ---- bench ----

void bench(const std::string& name, int count, size_t size)
{
    auto narrator = Narrator::narratorWithRole("bench");
    auto service = connectClient(name, narrator);
    auto payload = String::stringWithUTF8String(std::string(size, 'x'));
    std::vector<double> micros;
    micros.reserve(count);
    using Clock = std::chrono::steady_clock;
    auto started = Clock::now();
    for (int i = 0; i < count; ++i) {
        auto before = Clock::now();
        if (!service->sendString_error(payload, nullptr)) {
            say("no reply to message ", std::to_string(i));
            throw CLI::RuntimeError(1);
        }
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - before).count());
    }
    double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    std::sort(micros.begin(), micros.end());
    auto onewayStarted = Clock::now();
    for (int i = 0; i < count; ++i)
        service->sendOnewayString_error(payload, nullptr);
    service->sendString_error(ZSTR("flush"), nullptr); // the one-way messages are all handled
    double onewaySeconds = std::chrono::duration<double>(Clock::now() - onewayStarted).count();
    std::printf("round trip of %zu-byte strings, %d messages: median %.1f us, p99 %.1f us, %.0f messages/s\n", size,
        count, micros[micros.size() / 2], micros[std::min(micros.size() - 1, micros.size() * 99 / 100)],
        count / seconds);
    std::printf("one-way: %.0f messages/s\n", count / onewaySeconds);
    service->disconnect();
}

} // namespace

void addIPCCommands(CLI::App& app)
{
    auto* ipc = app.add_subcommand("ipc", "Two processes talking through the IPC service");
    ipc->require_subcommand(1);

    auto serveName = std::make_shared<std::string>();
    auto serveQuiet = std::make_shared<bool>(false);
    auto* serveCommand = ipc->add_subcommand("serve", "Publish a service that echoes every request; Ctrl-C stops it");
    serveCommand->add_option("NAME", *serveName, "the service name")->required()->check(validUTF8());
    serveCommand->add_flag("--quiet", *serveQuiet, "print nothing per request (for bench)");
    serveCommand->callback([serveName, serveQuiet] { serve(*serveName, *serveQuiet); });

    auto options = std::make_shared<SendOptions>();
    auto* sendCommand = ipc->add_subcommand("send", "Connect to a service, send one message, print the reply");
    sendCommand->add_option("NAME", options->name, "the service to talk to")->required()->check(validUTF8());
    auto* kind = sendCommand->add_option("--string", options->string, "send this string")->check(validUTF8());
    sendCommand->add_option("--dict", options->dictFile, "send the dictionary of this property-list file")
        ->excludes(kind)
        ->check(CLI::ExistingFile);
    sendCommand->add_option("--data", options->dataFile, "send the bytes of this file")
        ->excludes(kind)
        ->check(CLI::ExistingFile);
    auto* oneway = sendCommand->add_flag("--oneway", options->oneway, "do not wait for a reply");
    sendCommand
        ->add_flag("--async", options->async, "send from the service thread and hear the reply as a delegate callback")
        ->excludes(oneway);
    sendCommand->add_option("--timeout", options->timeout, "seconds to wait for the reply")
        ->capture_default_str()
        ->check(numberFrom(0, kLongestTimeout));
    sendCommand->callback([options] { send(*options); });

    auto benchName = std::make_shared<std::string>();
    auto benchCount = std::make_shared<int>(10000);
    auto benchSize = std::make_shared<size_t>(4);
    auto* benchCommand = ipc->add_subcommand("bench", "Round-trip latency and message rate against a running serve");
    benchCommand->add_option("NAME", *benchName, "the service to measure")->required()->check(validUTF8());
    benchCommand->add_option("--count", *benchCount, "messages per measurement")
        ->capture_default_str()
        ->check(wholeNumberFrom(1, kMostBenchMessages));
    benchCommand->add_option("--size", *benchSize, "bytes per message")
        ->capture_default_str()
        ->check(wholeNumberFrom(0, kLargestBenchMessage));
    benchCommand->callback([benchName, benchCount, benchSize] { bench(*benchName, *benchCount, *benchSize); });
}

} // namespace zon::tool
