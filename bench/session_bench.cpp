// What messages and sessions cost.
//
//   kub-session-bench [Google Benchmark's own options]
//
//   decode, encode    one message with that many Gets and Replaces, in both encodings
//   session           a whole session in memory: one package of the server with that many commands,
//                     run on a small tree in memory, and the client's answer
//   ... in small messages   the same for a server that takes 16 KB at a time
//   ... in a Sequence, in an Atomic, items of one Get   the same in these shapes
//   recorded session  the same with a record of it; bytes_per_command is what the record takes
//   floor of ...      what that cannot do without: the server's bytes through expat alone (WBXML:
//   copied
//                     once), the tree's calls made directly, the answer's bytes copied once
//   process 40 Gets   one package of the server, from its bytes to the answer as a person gets it
//   session over HTTP the same over a socket of this machine, with one command a message
//   decode 1 MB       a message with one value of 1 MB; peak_bytes is what decoding takes at most
//                     beside the message, held_bytes what its result holds
//
// items_per_second counts commands; for the session over HTTP it counts messages of the client.
// Where the number of commands grows tenfold, so should the time.
#include "http_transport.h"
#include "memory_tree.h"
#include "package.h"
#include "recorder.h"
#include "session.h"

#include <QCoreApplication>
#include <QTcpServer>
#include <QTcpSocket>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <expat.h>
#include <malloc.h>
#include <memory>

// ---- The heap, watched -----------------------------------------------------------------------------

namespace heap {

bool isWatched = false;
long long usedBytes = 0;
long long peakBytes = 0;

void count(void *block, int sign)
{
    if (!isWatched || !block)
        return;
    usedBytes += sign * static_cast<long long>(malloc_usable_size(block));
    peakBytes = std::max(peakBytes, usedBytes);
}

} // namespace heap

extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void __libc_free(void *block);

#define KUB_EXPORT __attribute__((visibility("default")))

KUB_EXPORT void *malloc(std::size_t size)
{
    void *const block = __libc_malloc(size);
    heap::count(block, 1);
    return block;
}

KUB_EXPORT void *calloc(std::size_t count, std::size_t size)
{
    void *const block = __libc_calloc(count, size);
    heap::count(block, 1);
    return block;
}

KUB_EXPORT void *realloc(void *old, std::size_t size)
{
    heap::count(old, -1);
    void *const block = __libc_realloc(old, size);
    heap::count(block, 1);
    return block;
}

KUB_EXPORT void free(void *block)
{
    heap::count(block, -1);
    __libc_free(block);
}
}

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

Command command(CommandKind kind, int number)
{
    Command command;
    command.kind = kind;
    command.cmdId = QString::number(number + 1);
    command.items.emplace_back();
    command.items[0].target = syncml::Location{QStringLiteral("./M/Office/Addr"), {}};
    if (command.kind == CommandKind::Replace)
        command.items[0].data = "internet.office.example";
    return command;
}

std::vector<Command> replaces(int count)
{
    std::vector<Command> commands;
    for (int i = 0; i < count; ++i)
        commands.push_back(command(CommandKind::Replace, i));
    return commands;
}

/// Shapes of a server's package of some commands.

std::vector<Command> getsAndReplaces(int count)
{
    std::vector<Command> commands;
    for (int i = 0; i < count; ++i)
        commands.push_back(command(i % 2 ? CommandKind::Replace : CommandKind::Get, i));
    return commands;
}

std::vector<Command> oneGet(int count)
{
    Command get = command(CommandKind::Get, 0);
    get.items.resize(static_cast<std::size_t>(count), get.items.front());
    return {get};
}

std::vector<Command> group(CommandKind kind, std::vector<Command> commands)
{
    Command group;
    group.kind = kind;
    group.cmdId = QStringLiteral("g");
    group.commands = std::move(commands);
    return {group};
}

std::vector<Command> sequence(int count)
{
    return group(CommandKind::Sequence, getsAndReplaces(count));
}

std::vector<Command> atomic(int count)
{
    return group(CommandKind::Atomic, replaces(count));
}

using Shape = std::vector<Command> (*)(int count);

/// @param maxMessageBytes  that the server takes; 0: it does not say
QByteArray packageOf(const std::vector<Command> &commands, Encoding encoding,
                     int maxMessageBytes = 0)
{
    Message message = serverMessage(1);
    if (maxMessageBytes > 0) {
        message.header.meta.emplace();
        message.header.meta->maxMsgSize = QString::number(maxMessageBytes);
    }
    message.commands.insert(message.commands.end(), commands.begin(), commands.end());
    return *syncml::encode(message, encoding);
}

/// Asks for the rest when there is one, and ends the session otherwise.
QByteArray nextMessage(Encoding encoding)
{
    return *syncml::encode(serverMessage(2), encoding);
}

void countWork(benchmark::State &state, int commandsInMessage, qsizetype messageBytes)
{
    state.SetItemsProcessed(state.iterations() * commandsInMessage);
    state.SetBytesProcessed(state.iterations() * messageBytes);
    state.counters["messages_per_second"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// ---- Codecs --------------------------------------------------------------------------------------

void decode(benchmark::State &state, Encoding encoding, int commands)
{
    const QByteArray bytes = packageOf(getsAndReplaces(commands), encoding);
    for (auto _ : state)
        benchmark::DoNotOptimize(syncml::decode(bytes));
    countWork(state, commands, bytes.size());
}

void encode(benchmark::State &state, Encoding encoding, int commands)
{
    const QByteArray bytes = packageOf(getsAndReplaces(commands), encoding);
    const auto message = *syncml::decode(bytes);
    for (auto _ : state)
        benchmark::DoNotOptimize(syncml::encode(message, encoding));
    countWork(state, commands, bytes.size());
}

void decodeLargeValue(benchmark::State &state, Encoding encoding)
{
    Command replace = command(CommandKind::Replace, 1);
    replace.items[0].data = QByteArray(1024 * 1024, 'x');
    const QByteArray bytes = packageOf({replace}, encoding);
    {
        heap::usedBytes = heap::peakBytes = 0;
        heap::isWatched = true;
        const syncml::DecodeResult held = syncml::decode(bytes);
        heap::isWatched = false;
        require(bool(held), "the message cannot be read");
        state.counters["held_bytes"] = static_cast<double>(heap::usedBytes);
        state.counters["peak_bytes"] = static_cast<double>(heap::peakBytes);
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
        tree.mount(NodeUri({"M"}), memory,
                   {.acl = *AccessControlList::parse("Add=*&Delete=*&Get=*&Replace=*")});
    }

    SessionEnd runSession(Transport &transport, const QUrl &url, Encoding encoding,
                          const std::vector<SessionObserver *> &observers = {})
    {
        memory->calls.clear();
        Account account;
        account.address = url;
        account.serverId = "bench";
        SessionOptions options;
        options.encoding = encoding;
        options.sessionId = QStringLiteral("1");
        options.maxMessages = 100'000;
        const SessionEnd end = Session(account, tree, transport, nullptr, observers, options).run();
        require(end.kind == SessionEnd::Kind::Completed && end.refused == 0, "the session failed");
        return end;
    }

    JemSmartPtr<MemoryTree> memory = MemoryTree::create();
    ManagementTree tree{hostInfo("urn:bench:1")};
};

constexpr int processedGets = 40;

std::vector<Command> gets(int count)
{
    std::vector<Command> commands;
    for (int i = 0; i < count; ++i)
        commands.push_back(command(CommandKind::Get, i));
    return commands;
}

QByteArray processed(Device &device, const QByteArray &package, Encoding encoding)
{
    device.memory->calls.clear();
    const syncml::DecodeResult decoded = syncml::decode(package);
    const PackageAnswer answer = answerPackage(*decoded, device.tree, encoding);
    require(answer.allSucceeded, "the package failed");
    return *syncml::encode(*answer.message, encoding, syncml::XmlLayout::Indented);
}

/// What `dmclient process` does with a package, apart from the files.
void process(benchmark::State &state, Encoding encoding)
{
    Device device;
    const QByteArray package = packageOf(gets(processedGets), encoding);
    for (auto _ : state)
        benchmark::DoNotOptimize(processed(device, package, encoding));
    state.SetItemsProcessed(state.iterations() * processedGets);
}

void readAlone(const QByteArray &bytes, Encoding encoding)
{
    if (encoding == Encoding::Wbxml) {
        benchmark::DoNotOptimize(QByteArray(bytes.constData(), bytes.size()));
        return;
    }
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
        XML_ParserCreateNS("UTF-8", '\1'), &XML_ParserFree);
    const auto status =
        XML_Parse(parser.get(), bytes.constData(), static_cast<int>(bytes.size()), XML_TRUE);
    require(status == XML_STATUS_OK, "the package cannot be parsed");
}

void callTree(Device &device, CommandKind kind)
{
    JemSmartPtr<DmtNode> node;
    DmtData value("internet.office.example");
    require(device.memory->GetNode("Office/Addr", node) == 0, "the leaf is not there");
    const int status = kind == CommandKind::Replace ? node->SetValue(value) : node->GetValue(value);
    require(status == 0, "the leaf cannot be used");
}

/// The work on a package that nobody can leave out.
void floorOf(benchmark::State &state, Encoding encoding, const std::vector<Command> &commands)
{
    Device device;
    const QByteArray package = packageOf(commands, encoding);
    const QByteArray answer = processed(device, package, encoding);
    for (auto _ : state) {
        device.memory->calls.clear();
        readAlone(package, encoding);
        for (const Command &command : commands)
            callTree(device, command.kind);
        benchmark::DoNotOptimize(QByteArray(answer.constData(), answer.size()));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int>(commands.size()));
}

/// Sends its package, and then asks for what is left of the answer.
class ServerInMemory final : public Transport {
public:
    ServerInMemory(const QByteArray &package, const QByteArray &next)
        : m_package(package), m_next(next)
    {
    }

    TransportResult exchange(const TransportRequest &request) override
    {
        const QByteArray said = m_hasSpoken ? m_next : m_package;
        m_hasSpoken = true;
        return TransportResponse{said, {}, {}, request.url};
    }

private:
    QByteArray m_package;
    QByteArray m_next;
    bool m_hasSpoken = false;
};

void session(benchmark::State &state, Encoding encoding, int commands, Shape shape,
             int maxMessageBytes)
{
    Device device;
    const QByteArray package = packageOf(shape(commands), encoding, maxMessageBytes);
    const QByteArray next = nextMessage(encoding);
    const QUrl url(QStringLiteral("http://127.0.0.1/"));
    for (auto _ : state) {
        ServerInMemory server(package, next);
        device.runSession(server, url, encoding);
    }
    state.SetItemsProcessed(state.iterations() * commands);
}

/// The same with a record of it, whose bytes are counted and dropped.
void recordedSession(benchmark::State &state, Encoding encoding, int commands)
{
    Device device;
    const QByteArray package = packageOf(getsAndReplaces(commands), encoding, 0);
    const QByteArray next = nextMessage(encoding);
    const QUrl url(QStringLiteral("http://127.0.0.1/"));
    qsizetype bytes = 0;
    for (auto _ : state) {
        ServerInMemory server(package, next);
        Recorder recorder(RunDescription(), {[&bytes](const QByteArray &line) {
                              bytes += line.size();
                              return support::Expected<void, QString>();
                          }});
        device.runSession(server, url, encoding, {&recorder});
    }
    state.SetItemsProcessed(state.iterations() * commands);
    state.counters["bytes_per_command"] = benchmark::Counter(
        static_cast<double>(bytes) / (static_cast<double>(state.iterations()) * commands));
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

void sessionOverHttp(benchmark::State &state, Encoding encoding)
{
    Device device;
    HttpServer server(packageOf(getsAndReplaces(1), encoding));
    const auto transport = HttpTransport::create({});
    for (auto _ : state)
        require(device.runSession(**transport, server.url(), encoding).messages ==
                    HttpServer::messagesPerSession,
                "the session ended too early");
    state.SetItemsProcessed(state.iterations() * HttpServer::messagesPerSession);
}

// ---- Names and sizes -----------------------------------------------------------------------------

template <class Run>
benchmark::internal::Benchmark *add(const std::string &name, Run run)
{
    return benchmark::RegisterBenchmark(name.c_str(), run)->Unit(benchmark::kMicrosecond);
}

/// Adds a benchmark for each number of commands.
template <class Run>
void addGrowing(const std::string &name, Run run)
{
    for (const int commands : {10, 100, 1000, 10'000})
        add(name + " " + std::to_string(commands) + " commands",
            [run, commands](benchmark::State &state) { run(state, commands); });
}

void addAll(const std::string &name, Encoding encoding)
{
    struct SessionRow {
        const char *name;
        Shape shape;
        int maxMessageBytes;
    };
    static constexpr SessionRow sessions[] = {
        {"session", getsAndReplaces, 0},
        {"session in small messages", getsAndReplaces, 16 * 1024},
        {"session in a Sequence", sequence, 0},
        {"session in an Atomic", atomic, 0},
        {"session items of one Get", oneGet, 0},
        {"session items of one Get in small messages", oneGet, 16 * 1024},
    };
    using State = benchmark::State;
    addGrowing(name + " decode", [=](State &state, int n) { decode(state, encoding, n); });
    addGrowing(name + " encode", [=](State &state, int n) { encode(state, encoding, n); });
    for (const SessionRow &row : sessions)
        addGrowing(name + " " + row.name, [=](State &state, int n) {
            session(state, encoding, n, row.shape, row.maxMessageBytes);
        });
    addGrowing(name + " recorded session",
               [=](State &state, int n) { recordedSession(state, encoding, n); });
    addGrowing(name + " floor of session",
               [=](State &state, int n) { floorOf(state, encoding, getsAndReplaces(n)); });
    add(name + " process 40 Gets", [=](State &state) { process(state, encoding); });
    add(name + " floor of process 40 Gets",
        [=](State &state) { floorOf(state, encoding, gets(processedGets)); });
    add(name + " decode 1 MB", [=](State &state) { decodeLargeValue(state, encoding); });
    add(name + " session over HTTP", [=](State &state) {
        sessionOverHttp(state, encoding);
    })->UseRealTime();
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
    addAll("XML", Encoding::Xml);
    addAll("WBXML", Encoding::Wbxml);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
