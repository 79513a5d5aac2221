// D-Bus peer to peer (no bus daemon): a DBusServer on a Unix socket that answers each method call
// with its byte-array argument, and a client calling it with send_with_reply_and_block. One-way
// messages are method calls flagged as wanting no reply.

#include "IPCAlternatives.h"

#include <dbus/dbus.h>
#include <poll.h>

#include <algorithm>
#include <cstdlib>

namespace zon::bench::ipc {
namespace {

constexpr const char* kPath = "/bench";
constexpr const char* kInterface = "bench.Echo";
constexpr const char* kMember = "Echo";
constexpr int kTimeoutMillis = 10000;

DBusMessage* newCall(const std::vector<char>& payload)
{
    DBusMessage* call = dbus_message_new_method_call(nullptr, kPath, kInterface, kMember);
    const char* bytes = payload.data();
    dbus_message_append_args(
        call, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes, static_cast<int>(payload.size()), DBUS_TYPE_INVALID);
    return call;
}

DBusHandlerResult echo(DBusConnection* connection, DBusMessage* message, void*)
{
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_CALL)
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    if (dbus_message_get_no_reply(message))
        return DBUS_HANDLER_RESULT_HANDLED;
    const char* bytes = nullptr;
    int length = 0;
    dbus_message_get_args(message, nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes, &length, DBUS_TYPE_INVALID);
    DBusMessage* reply = dbus_message_new_method_return(message);
    dbus_message_append_args(reply, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes, length, DBUS_TYPE_INVALID);
    dbus_connection_send(connection, reply, nullptr);
    dbus_message_unref(reply);
    return DBUS_HANDLER_RESULT_HANDLED;
}

// A DBusServer only accepts through watches a main loop polls; this is the smallest such loop,
// run until the one client of the benchmark has connected.
DBusConnection* acceptOne(DBusServer* server)
{
    static std::vector<DBusWatch*> watches;
    static DBusConnection* accepted = nullptr;
    dbus_server_set_watch_functions(
        server,
        [](DBusWatch* watch, void*) -> dbus_bool_t {
            watches.push_back(watch);
            return TRUE;
        },
        [](DBusWatch* watch, void*) { watches.erase(std::remove(watches.begin(), watches.end(), watch), watches.end()); },
        nullptr, nullptr, nullptr);
    dbus_server_set_new_connection_function(
        server, [](DBusServer*, DBusConnection* connection, void*) { accepted = dbus_connection_ref(connection); },
        nullptr, nullptr);
    while (!accepted) {
        std::vector<pollfd> fds;
        std::vector<DBusWatch*> polled;
        for (DBusWatch* watch : watches)
            if (dbus_watch_get_enabled(watch)) {
                unsigned flags = dbus_watch_get_flags(watch);
                short events = static_cast<short>(
                    ((flags & DBUS_WATCH_READABLE) ? POLLIN : 0) | ((flags & DBUS_WATCH_WRITABLE) ? POLLOUT : 0));
                fds.push_back({dbus_watch_get_unix_fd(watch), events, 0});
                polled.push_back(watch);
            }
        if (::poll(fds.data(), fds.size(), -1) < 0)
            std::exit(1);
        for (size_t i = 0; i < fds.size() && !accepted; ++i)
            if (fds[i].revents) {
                unsigned condition = ((fds[i].revents & POLLIN) ? DBUS_WATCH_READABLE : 0)
                    | ((fds[i].revents & POLLOUT) ? DBUS_WATCH_WRITABLE : 0)
                    | ((fds[i].revents & POLLERR) ? DBUS_WATCH_ERROR : 0)
                    | ((fds[i].revents & POLLHUP) ? DBUS_WATCH_HANGUP : 0);
                dbus_watch_handle(polled[i], condition);
            }
    }
    return accepted;
}

void serve(const std::string& address)
{
    DBusError error;
    dbus_error_init(&error);
    DBusServer* server = dbus_server_listen(("unix:path=" + address).c_str(), &error);
    if (!server)
        std::exit(1);
    DBusConnection* connection = acceptOne(server);
    dbus_connection_add_filter(connection, echo, nullptr, nullptr);
    while (dbus_connection_read_write_dispatch(connection, -1)) {
    }
    std::exit(0);
}

class Client final : public AlternativeClient {
public:
    explicit Client(DBusConnection* connection)
        : connection_(connection)
    {
    }
    ~Client() override
    {
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
    }

    bool roundTrip(const std::vector<char>& payload, std::vector<char>& reply) override
    {
        DBusMessage* call = newCall(payload);
        DBusMessage* answer = dbus_connection_send_with_reply_and_block(connection_, call, kTimeoutMillis, nullptr);
        dbus_message_unref(call);
        if (!answer)
            return false;
        const char* bytes = nullptr;
        int length = 0;
        bool ok = dbus_message_get_args(
            answer, nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes, &length, DBUS_TYPE_INVALID);
        if (ok)
            reply.assign(bytes, bytes + length);
        dbus_message_unref(answer);
        return ok;
    }

    bool sendOneWay(const std::vector<char>& payload) override
    {
        DBusMessage* call = newCall(payload);
        dbus_message_set_no_reply(call, TRUE);
        bool ok = dbus_connection_send(connection_, call, nullptr);
        dbus_message_unref(call);
        // libdbus queues without limit; waiting for the queue to go out keeps the client honest.
        if (dbus_connection_has_messages_to_send(connection_))
            dbus_connection_flush(connection_);
        return ok;
    }

private:
    DBusConnection* connection_;
};

std::unique_ptr<AlternativeClient> connect(const std::string& address)
{
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* connection = dbus_connection_open_private(("unix:path=" + address).c_str(), &error);
    if (!connection) {
        dbus_error_free(&error);
        return nullptr;
    }
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    return std::make_unique<Client>(connection);
}

} // namespace

const Alternative dbusPeerAlternative {"D-Bus p2p", "DBus", serve, connect};

} // namespace zon::bench::ipc
