#pragma once

// The other ways two local processes could talk, each as an echo server (run in a child process)
// and a client that the alternatives benchmark drives the same way as the library's own link.
// Each lives in its own file, built only when CMake finds its library.

#include <memory>
#include <string>
#include <vector>

namespace zon::bench::ipc {

// A connected client of one alternative's echo server.
class AlternativeClient {
public:
    virtual ~AlternativeClient() = default;
    // Sends the payload and waits for the whole echo, which replaces reply's contents.
    virtual bool roundTrip(const std::vector<char>& payload, std::vector<char>& reply) = 0;
    // Sends the payload for the server to take without answering. Blocks, like a blocking
    // socket write, when the link holds as much as it will buffer.
    virtual bool sendOneWay(const std::vector<char>& payload) = 0;
    // Returns once the server has taken every one-way message sent before.
    virtual bool drainOneWay()
    {
        std::vector<char> probe(4, 'x'), reply;
        return roundTrip(probe, reply);
    }
};

struct Alternative {
    const char* title; // for the tables: "QLocalSocket"
    const char* role;  // for `--serve ROLE ADDRESS` and the benchmark names: "Qt"
    // Serves ADDRESS (a path in the run's private folder) until killed.
    void (*serve)(const std::string& address);
    // A client of a server started on ADDRESS; null while that server is not up yet.
    std::unique_ptr<AlternativeClient> (*connect)(const std::string& address);
};

extern const Alternative qtLocalSocketAlternative;
extern const Alternative dbusPeerAlternative;
extern const Alternative zeroMQAlternative;

} // namespace zon::bench::ipc
