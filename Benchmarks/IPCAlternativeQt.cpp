// Qt's local socket: a QLocalServer echoing length-prefixed frames (the same 4-byte header as the
// bare floor) from its event loop, and a client using QLocalSocket's blocking calls, as a
// synchronous caller would.

#include "IPCAlternatives.h"
#include "IPCBenchmarkSupport.h"
#include "QtApplication.h"

#include <QLocalServer>
#include <QLocalSocket>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace zon::bench::ipc {
namespace {

// Echoes every complete frame in the connection's buffer that wants an answer, keeping a partial
// frame for the next read.
void echoFrames(QLocalSocket* socket, QByteArray& pending)
{
    pending.append(socket->readAll());
    qsizetype offset = 0;
    while (pending.size() - offset >= 4) {
        uint32_t header;
        std::memcpy(&header, pending.constData() + offset, 4);
        qsizetype frame = 4 + static_cast<qsizetype>(header & ~kOneWayBit);
        if (pending.size() - offset < frame)
            break;
        if (!(header & kOneWayBit))
            socket->write(pending.constData() + offset, frame);
        offset += frame;
    }
    pending.remove(0, offset);
}

void serve(const std::string& address)
{
    zon::bench::ensureQtApplication();
    QLocalServer server;
    QString name = QString::fromStdString(address);
    QLocalServer::removeServer(name);
    if (!server.listen(name))
        std::exit(1);
    QObject::connect(&server, &QLocalServer::newConnection, [&server] {
        while (QLocalSocket* socket = server.nextPendingConnection()) {
            auto* pending = new QByteArray;
            QObject::connect(socket, &QLocalSocket::readyRead, [socket, pending] { echoFrames(socket, *pending); });
            QObject::connect(socket, &QLocalSocket::disconnected, [socket, pending] {
                delete pending;
                socket->deleteLater();
            });
        }
    });
    QCoreApplication::exec();
    std::exit(0);
}

class Client final : public AlternativeClient {
public:
    bool open(const std::string& address)
    {
        socket_.connectToServer(QString::fromStdString(address));
        return socket_.waitForConnected(1000);
    }

    bool roundTrip(const std::vector<char>& payload, std::vector<char>& reply) override
    {
        uint32_t header;
        if (!send(static_cast<uint32_t>(payload.size()), payload) || !read(&header, 4))
            return false;
        reply.resize(header);
        return read(reply.data(), header);
    }

    bool sendOneWay(const std::vector<char>& payload) override
    {
        return send(static_cast<uint32_t>(payload.size()) | kOneWayBit, payload);
    }

private:
    // Writes the frame and waits until the socket has taken all of it.
    bool send(uint32_t header, const std::vector<char>& payload)
    {
        socket_.write(reinterpret_cast<const char*>(&header), 4);
        socket_.write(payload.data(), static_cast<qint64>(payload.size()));
        socket_.flush();
        while (socket_.bytesToWrite() > 0)
            if (!socket_.waitForBytesWritten(10000))
                return false;
        return true;
    }

    bool read(void* buffer, size_t length)
    {
        auto* p = static_cast<char*>(buffer);
        while (length) {
            if (socket_.bytesAvailable() == 0 && !socket_.waitForReadyRead(10000))
                return false;
            qint64 n = socket_.read(p, static_cast<qint64>(length));
            if (n < 0)
                return false;
            p += n;
            length -= static_cast<size_t>(n);
        }
        return true;
    }

    QLocalSocket socket_;
};

std::unique_ptr<AlternativeClient> connect(const std::string& address)
{
    zon::bench::ensureQtApplication();
    auto client = std::make_unique<Client>();
    if (!client->open(address))
        return nullptr;
    return client;
}

} // namespace

const Alternative qtLocalSocketAlternative {"QLocalSocket", "Qt", serve, connect};

} // namespace zon::bench::ipc
