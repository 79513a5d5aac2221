// ZeroMQ over its ipc:// transport: REQ/REP for round trips, and PUSH/PULL for one-way messages,
// since a REQ socket must read each reply before it may send again.
//
// The two pairs are separate pipes, so to know that the server has taken every one-way message
// the client pushes an empty marker and then sends an empty request; the server answers an empty
// request only once it has pulled a marker.

#include "IPCAlternatives.h"

#include <zmq.h>

#include <sys/stat.h>

#include <cstdlib>

namespace zon::bench::ipc {
namespace {

std::string requestEndpoint(const std::string& address) { return "ipc://" + address; }
std::string oneWayEndpoint(const std::string& address) { return "ipc://" + address + ".oneway"; }

void serve(const std::string& address)
{
    void* context = zmq_ctx_new();
    void* replier = zmq_socket(context, ZMQ_REP);
    void* puller = zmq_socket(context, ZMQ_PULL);
    if (zmq_bind(puller, oneWayEndpoint(address).c_str()) != 0
        || zmq_bind(replier, requestEndpoint(address).c_str()) != 0)
        std::exit(1);
    long markers = 0;
    auto pull = [&](int flags) {
        zmq_msg_t message;
        zmq_msg_init(&message);
        int length = zmq_msg_recv(&message, puller, flags);
        if (length == 0)
            ++markers;
        zmq_msg_close(&message);
        return length >= 0;
    };
    zmq_pollitem_t items[] = {{replier, 0, ZMQ_POLLIN, 0}, {puller, 0, ZMQ_POLLIN, 0}};
    for (;;) {
        if (zmq_poll(items, 2, -1) < 0)
            std::exit(1);
        if (items[1].revents & ZMQ_POLLIN)
            while (pull(ZMQ_DONTWAIT)) {
            }
        if (items[0].revents & ZMQ_POLLIN) {
            zmq_msg_t message;
            zmq_msg_init(&message);
            if (zmq_msg_recv(&message, replier, 0) == 0) { // a drain request: wait for its marker
                while (markers == 0)
                    pull(0);
                --markers;
            }
            zmq_msg_send(&message, replier, 0); // the echo hands the received buffer back
            zmq_msg_close(&message);
        }
    }
}

class Client final : public AlternativeClient {
public:
    explicit Client(const std::string& address)
        : context_(zmq_ctx_new())
        , requester_(zmq_socket(context_, ZMQ_REQ))
        , pusher_(zmq_socket(context_, ZMQ_PUSH))
    {
        int linger = 0;
        zmq_setsockopt(requester_, ZMQ_LINGER, &linger, sizeof linger);
        zmq_setsockopt(pusher_, ZMQ_LINGER, &linger, sizeof linger);
        zmq_connect(requester_, requestEndpoint(address).c_str());
        zmq_connect(pusher_, oneWayEndpoint(address).c_str());
    }
    ~Client() override
    {
        zmq_close(requester_);
        zmq_close(pusher_);
        zmq_ctx_term(context_);
    }

    bool roundTrip(const std::vector<char>& payload, std::vector<char>& reply) override
    {
        if (zmq_send(requester_, payload.data(), payload.size(), 0) < 0)
            return false;
        return receive(reply);
    }

    bool sendOneWay(const std::vector<char>& payload) override
    {
        return zmq_send(pusher_, payload.data(), payload.size(), 0) >= 0;
    }

    bool drainOneWay() override
    {
        std::vector<char> reply;
        return zmq_send(pusher_, nullptr, 0, 0) >= 0 && zmq_send(requester_, nullptr, 0, 0) >= 0 && receive(reply);
    }

private:
    bool receive(std::vector<char>& reply)
    {
        zmq_msg_t message;
        zmq_msg_init(&message);
        int length = zmq_msg_recv(&message, requester_, 0);
        if (length >= 0) {
            auto* bytes = static_cast<const char*>(zmq_msg_data(&message));
            reply.assign(bytes, bytes + length);
        }
        zmq_msg_close(&message);
        return length >= 0;
    }

    void* context_;
    void* requester_;
    void* pusher_;
};

// ZeroMQ connects in the background and would wait for a server that is not there yet; the
// client is made only once the server's sockets exist, and its first round trip waits for the
// connection, so the runs start on a live link.
std::unique_ptr<AlternativeClient> connect(const std::string& address)
{
    struct stat status;
    if (::stat(address.c_str(), &status) != 0 || ::stat((address + ".oneway").c_str(), &status) != 0)
        return nullptr;
    auto client = std::make_unique<Client>(address);
    std::vector<char> probe(4, 'x'), reply;
    if (!client->roundTrip(probe, reply))
        return nullptr;
    return client;
}

} // namespace

const Alternative zeroMQAlternative {"ZeroMQ", "ZeroMQ", serve, connect};

} // namespace zon::bench::ipc
