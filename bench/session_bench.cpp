// What messages and sessions cost.
//
//   kub-session-bench [Google Benchmark's own options]
//
//   decode, encode    one message with that many Gets and Replaces, in both encodings
//   session           a whole session in memory: one package of the server with that many commands,
//                     run on a small tree in memory, and the client's answer
//   session over HTTP the same over a socket of this machine, with one command a message
//   decode 1 MB       a message with one value of 1 MB; held_bytes is what it takes in memory
//
// items_per_second counts commands; for the session over HTTP it counts messages of the client.
// Where the number of commands grows tenfold, so should the time.
#include "memory_tree.h"
#include "session/http_transport.h"
#include "session/session.h"

#include <QCoreApplication>
#include <QTcpServer>
#include <QTcpSocket>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <memory>

namespace {

using namespace client;
using syncml::Command;
using syncml::CommandKind;
using syncml::Encoding;
using syncml::Message;

void require(bool succeeded, const char *what)
{
    if (succeeded)
        return;
    std::fprintf(stderr, "kub-session-bench: %s\n", what);
    std::exit(1);
}

// ---- A server's messages -------------------------------------------------------------------------

Message serverMessage(int msgId)
{
    Message message;
    message.header.verDtd = QStringLiteral("1.2");
    message.header.verProto = QStringLiteral("DM/1.2");
    message.header.sessionId = QStringLiteral("1");
    message.header.msgId = QString::number(msgId);
    message.header.target.locUri = QStringLiteral("urn:bench:1");
    message.header.source.locUri = QStringLiteral("http://127.0.0.1/");
    message.final = true;
    Command status;
    status.kind = CommandKind::Status;
    status.cmdId = QStringLiteral("0");
    status.msgRef = QString::number(msgId);
    status.cmdRef = QStringLiteral("0");
    status.cmd = QStringLiteral("SyncHdr");
    status.data = "212";
    message.commands = {status};
    return message;
}

/// A Get and a Replace in turn.
Command command(int number)
{
    Command command;
    command.kind = number % 2 ? CommandKind::Replace : CommandKind::Get;
    command.cmdId = QString::number(number + 1);
    command.items.emplace_back();
    command.items[0].target = syncml::Location{QStringLiteral("./M/Office/Addr"), {}};
    if (command.kind == CommandKind::Replace)
        command.items[0].data = "internet.office.example";
    return command;
}

QByteArray packageOf(int commands, Encoding encoding)
{
    Message message = serverMessage(1);
    for (int i = 0; i < commands; ++i)
        message.commands.push_back(command(i));
    return std::get<QByteArray>(syncml::encode(message, encoding));
}

QByteArray lastMessage(Encoding encoding)
{
    return std::get<QByteArray>(syncml::encode(serverMessage(2), encoding));
}

Encoding encodingOf(const benchmark::State &state)
{
    return state.range(1) ? Encoding::Wbxml : Encoding::Xml;
}

// ---- Codecs --------------------------------------------------------------------------------------

void decode(benchmark::State &state)
{
    const auto commands = static_cast<int>(state.range(0));
    const QByteArray bytes = packageOf(commands, encodingOf(state));
    for (auto _ : state)
        benchmark::DoNotOptimize(syncml::decode(bytes));
    state.SetItemsProcessed(state.iterations() * commands);
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

void encode(benchmark::State &state)
{
    const auto commands = static_cast<int>(state.range(0));
    const QByteArray bytes = packageOf(commands, encodingOf(state));
    const auto message = std::get<Message>(syncml::decode(bytes));
    for (auto _ : state)
        benchmark::DoNotOptimize(syncml::encode(message, encodingOf(state)));
    state.SetItemsProcessed(state.iterations() * commands);
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

void decodeLargeValue(benchmark::State &state)
{
    Message message = serverMessage(1);
    message.commands.push_back(command(1));
    message.commands.back().items[0].data = QByteArray(1024 * 1024, 'x');
    const auto bytes = std::get<QByteArray>(syncml::encode(message, encodingOf(state)));
    const auto before = mallinfo2();
    {
        const syncml::DecodeResult held = syncml::decode(bytes);
        require(std::holds_alternative<Message>(held), "the message cannot be read");
        const auto with = mallinfo2();
        state.counters["held_bytes"] =
            static_cast<double>(with.uordblks + with.hblkhd - before.uordblks - before.hblkhd);
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(syncml::decode(bytes));
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

// ---- Sessions ------------------------------------------------------------------------------------

/// The device that sessions run on.
struct Device {
    Device()
    {
        memory->addInterior("Office");
        memory->addLeaf("Office/Addr", DmtData("internet"));
        QString error;
        tree.mount(NodeUri({"M"}), memory,
                   *AccessControlList::parse("Add=*&Delete=*&Get=*&Replace=*", error));
    }

    SessionEnd runSession(Transport &transport, const QUrl &url, Encoding encoding)
    {
        memory->calls.clear();
        Account account;
        account.address = url;
        account.serverId = "bench";
        SessionOptions options;
        options.encoding = encoding;
        options.sessionId = QStringLiteral("1");
        options.maxMessages = 100'000;
        const SessionEnd end = Session(account, tree, transport, nullptr, {}, options).run();
        require(end.kind == SessionEnd::Kind::Completed && end.refused == 0, "the session failed");
        return end;
    }

    JemSmartPtr<MemoryTree> memory = MemoryTree::create();
    ManagementTree tree{describeHost("urn:bench:1")};
};

/// Says two things.
class ServerInMemory final : public Transport {
public:
    ServerInMemory(const QByteArray &package, const QByteArray &last)
        : m_package(package), m_last(last)
    {
    }

    TransportResult exchange(const TransportRequest &request) override
    {
        m_hasSpoken = !m_hasSpoken;
        return TransportResponse{m_hasSpoken ? m_package : m_last, {}, {}, request.url};
    }

private:
    QByteArray m_package;
    QByteArray m_last;
    bool m_hasSpoken = false;
};

void session(benchmark::State &state)
{
    const auto commands = static_cast<int>(state.range(0));
    Device device;
    ServerInMemory server(packageOf(commands, encodingOf(state)), lastMessage(encodingOf(state)));
    const QUrl url(QStringLiteral("http://127.0.0.1/"));
    for (auto _ : state)
        device.runSession(server, url, encodingOf(state));
    state.SetItemsProcessed(state.iterations() * commands);
}

/// Answers every POST on a connection with one command, and every hundredth with an empty body.
class HttpServer : public QObject {
public:
    static constexpr int messagesPerSession = 100;

    explicit HttpServer(const QByteArray &body) : m_body(body)
    {
        require(m_server.listen(QHostAddress::LocalHost), "no socket to listen on");
        connect(&m_server, &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket *const socket = m_server.nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(*socket); });
        });
    }

    QUrl url() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_server.serverPort()));
    }

private:
    void serve(QTcpSocket &socket)
    {
        m_request += socket.readAll();
        const qsizetype head = m_request.indexOf("\r\n\r\n");
        const qsizetype length = m_request.indexOf("Content-Length: ");
        if (head < 0 || length < 0)
            return;
        const qsizetype body = m_request.mid(length + 16).split('\r').front().toLongLong();
        if (m_request.size() < head + 4 + body)
            return;
        m_request.clear();
        const QByteArray answer = ++m_served % messagesPerSession ? m_body : QByteArray();
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(answer.size()) +
                     "\r\n\r\n" + answer);
    }

    QTcpServer m_server;
    QByteArray m_body;
    QByteArray m_request;
    int m_served = 0;
};

void sessionOverHttp(benchmark::State &state)
{
    Device device;
    HttpServer server(packageOf(1, encodingOf(state)));
    QString error;
    const auto transport = HttpTransport::create({}, error);
    for (auto _ : state)
        require(device.runSession(*transport, server.url(), encodingOf(state)).messages ==
                    HttpServer::messagesPerSession,
                "the session ended too early");
    state.SetItemsProcessed(state.iterations() * HttpServer::messagesPerSession);
}

// ---- Names and sizes -----------------------------------------------------------------------------

void registerBenchmarks()
{
    struct Row {
        const char *name;
        void (*run)(benchmark::State &);
    };
    static constexpr Row growing[] = {{"decode", decode}, {"encode", encode}, {"session", session}};
    static constexpr const char *encodings[] = {"XML", "WBXML"};
    for (const int wbxml : {0, 1}) {
        const std::string encoding = encodings[wbxml];
        for (const Row &row : growing)
            for (const int commands : {10, 100, 1000, 10'000})
                benchmark::RegisterBenchmark(
                    (row.name + (" " + encoding) + " " + std::to_string(commands) + " commands")
                        .c_str(),
                    row.run)
                    ->Args({commands, wbxml});
        benchmark::RegisterBenchmark(("decode 1 MB " + encoding).c_str(), decodeLargeValue)
            ->Args({0, wbxml});
        benchmark::RegisterBenchmark(("session over HTTP " + encoding).c_str(), sessionOverHttp)
            ->Args({0, wbxml})
            ->UseRealTime();
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
#ifndef __OPTIMIZE__
    std::fprintf(stderr,
                 "kub-session-bench: built without optimisation, the figures mean nothing\n");
#endif
    registerBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
