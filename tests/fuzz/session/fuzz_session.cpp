// Any bytes as what a DM server says in the course of a whole session.
//
// The first byte says how the session begins, the rest are the server's messages one after another,
// separated by a line of two percent signs.

#include "header_status.h"
#include "memory_tree.h"
#include "require.h"
#include "session.h"
#include "trace.h"

#include <cstdint>

using namespace client;

namespace {

constexpr char separator[] = "\n%%\n";

// ---- How the session begins ----------------------------------------------------------------------

enum Beginning : unsigned {
    BeginsInWbxml = 1,
    HasUser = 2,
    ClientProves = 4,
    ServerProves = 8,
    ByHmac = 16, ///< instead of MD5
    ByBasic = 32,
    KnowsNonces = 64,
    HasSmallLimits = 128,
};

AuthType authType(unsigned beginning)
{
    return beginning & ByHmac    ? AuthType::Hmac
           : beginning & ByBasic ? AuthType::Basic
                                 : AuthType::Md5;
}

/// Whether no input can hold the server's proof: it would have to know a nonce that the client
/// makes up on its way.
bool cannotProve(unsigned beginning)
{
    return (beginning & ServerProves) && !(beginning & KnowsNonces) &&
           authType(beginning) != AuthType::Basic;
}

Account makeAccount(unsigned beginning)
{
    Account account;
    account.address = QUrl(QStringLiteral("https://dm.example/"));
    account.serverId = "dm.example";
    const auto nonce = beginning & KnowsNonces ? std::optional<QByteArray>("Nonce") : std::nullopt;
    if (beginning & ClientProves)
        account.toServer = {authType(beginning), {"Bruce2", "OhBehave"}, nonce};
    if (beginning & ServerProves)
        account.toClient = {authType(beginning), {"dm.example", "ServerSecret"}, nonce};
    return account;
}

SessionOptions makeOptions(unsigned beginning)
{
    SessionOptions options;
    options.encoding = beginning & BeginsInWbxml ? syncml::Encoding::Wbxml : syncml::Encoding::Xml;
    options.sessionId = QStringLiteral("1");
    options.maxMessages = 40;
    if (beginning & HasSmallLimits)
        options.maxObjectBytes = 100;
    return options;
}

// ---- The two ends --------------------------------------------------------------------------------

/// Says what the input holds, and looks at what the client says.
class FuzzedServer final : public Transport {
public:
    FuzzedServer(const QByteArray &input, unsigned beginning)
        : m_input(input), m_beginning(beginning)
    {
    }

    TransportResult exchange(const TransportRequest &request) override
    {
        require(request.url.scheme() == u"https", "the client has given up TLS");
        if (cannotProve(m_beginning))
            require(request.url == makeAccount(m_beginning).address,
                    "the client went where an unproved message sent it");
        const syncml::DecodeResult decoded = syncml::decode(request.body);
        require(bool(decoded), "the client has sent what cannot be read");
        require(!decoded->commands.empty(), "the client has sent a message without a command");
        require(m_limit == 0 || request.body.size() <= m_limit,
                "the client has sent more than the server takes");
        checkProof(request, *decoded);
        ++messages;

        TransportResponse response;
        response.body = next();
        response.url = request.url;
        if (m_hasHmac)
            response.hmac = "username=\"dm.example\", mac=" +
                            hmacProof({"dm.example", "ServerSecret"}, "Nonce", response.body);
        noteLimit(response.body);
        return response;
    }

    void proveByHmac() { m_hasHmac = true; }

    int messages = 0;

private:
    void checkProof(const TransportRequest &request, const syncml::Message &message)
    {
        const auto &cred = message.header.cred;
        const auto given = cred           ? authTypeOfWireName(cred->meta->type.value_or(QString()))
                           : request.hmac ? std::optional(AuthType::Hmac)
                                          : std::nullopt;
        if (m_beginning & ClientProves)
            require(!given || *given >= authType(m_beginning),
                    "the client has given a weaker proof than its account's");
        else
            require(!given, "the client has proved what it has nothing for");
        require(request.hmac || !m_usesHmac, "the client has fallen back from HMAC");
        m_usesHmac = request.hmac.has_value();
    }

    QByteArray next()
    {
        const qsizetype end = m_input.indexOf(separator);
        const QByteArray message = end < 0 ? m_input : m_input.left(end);
        m_input = end < 0 ? QByteArray() : m_input.mid(end + 4);
        return message;
    }

    void noteLimit(const QByteArray &body)
    {
        const syncml::DecodeResult decoded = syncml::decode(body);
        // Which messages of a server that has to prove itself count is not for this to say.
        if (!decoded || !decoded->header.meta || !decoded->header.meta->maxMsgSize ||
            (m_beginning & ServerProves) || !succeeded(statusOfHeader(decoded->header)))
            return;
        const qlonglong limit = decoded->header.meta->maxMsgSize->toLongLong();
        if (limit > 0)
            m_limit = limit;
    }

    QByteArray m_input;
    unsigned m_beginning;
    bool m_usesHmac = false;
    qlonglong m_limit = 0; ///< bytes; 0 as long as the server did not say
    bool m_hasHmac = false;
};

/// A user who answers everything.
class WillingUser final : public UserInteraction {
public:
    Response show(const QString &, const InteractionOptions &) override { return Response::Given; }
    Response confirm(const QString &text, const InteractionOptions &) override
    {
        return text.size() % 2 ? Response::Refused : Response::Given;
    }
    Response ask(const QString &text, const InteractionOptions &options, QString &typed) override
    {
        typed = text + options.defaultResponse;
        return Response::Given;
    }
    Response choose(const QString &, const std::vector<QString> &choices, Choice,
                    const InteractionOptions &, std::vector<int> &chosen) override
    {
        chosen = {1, static_cast<int>(choices.size())};
        return Response::Given;
    }
};

/// Makes a trace of everything, and drops it.
class TraceReader final : public SessionObserver {
public:
    void messageReceived(const TransportResponse &, const syncml::DecodeResult *decoded) override
    {
        if (decoded && *decoded)
            readableMessage(**decoded, {});
    }
};

bool isChange(const std::string &call)
{
    return !call.starts_with("get ") && !call.starts_with("read ");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const unsigned beginning = data[0];
    const QByteArray input(reinterpret_cast<const char *>(data + 1),
                           static_cast<qsizetype>(size - 1));

    const JemSmartPtr<MemoryTree> memory = MemoryTree::create();
    memory->addInterior("A");
    memory->addLeaf("A/Text", DmtData("a text of some length"));
    memory->addLeaf("A/Number", DmtData(7));
    memory->addLeaf("A/AuthPw", DmtData("secret"));
    ManagementTree tree(hostInfo("urn:test:1"));
    tree.mount(NodeUri({"M"}), memory,
               {.acl = *AccessControlList::parse("Add=*&Delete=*&Get=*&Replace=*")});
    memory->calls.clear();

    FuzzedServer server(input, beginning);
    if ((beginning & ServerProves) && (beginning & ByHmac))
        server.proveByHmac();
    WillingUser user;
    TraceReader trace;
    const Account account = makeAccount(beginning);
    const SessionOptions options = makeOptions(beginning);
    Session session(account, tree, server, beginning & HasUser ? &user : nullptr, {&trace},
                    options);
    const SessionEnd end = session.run();

    require(server.messages <= options.maxMessages + 1, "the session had no end");
    require(end.kind == SessionEnd::Kind::Completed || !end.reason.isEmpty(),
            "the session failed without a reason");
    if (cannotProve(beginning)) {
        require(std::none_of(memory->calls.begin(), memory->calls.end(), isChange),
                "a server that cannot have proved itself has changed something");
        require(end.kind == SessionEnd::Kind::Failed,
                "a server that cannot have proved itself has ended the session");
        require(!end.reason.contains(u"too little"), "an unproved limit was obeyed");
    }
    return 0;
}
