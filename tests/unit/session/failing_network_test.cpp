// Sessions over networks that fail, and a client that is killed, at every step. Whatever happens, a
// session with a network that works goes through afterwards, does what is left, does nothing again
// that the server was told is done, and leaves nonces that the next one can use.

#include "encoding_name.h"
#include "mounted_tree.h"
#include "scripted_server.h"
#include "session.h"

#include <algorithm>
#include <map>
#include <random>

namespace client {

namespace {

using syncml::Command;
using syncml::CommandKind;

const Identity deviceIdentity{"Bruce2", "OhBehave"};
const Identity patientIdentity{"dm.example", "ServerSecret"};

// ---- What fails ----------------------------------------------------------------------------------

enum class Fault {
    None,
    Refused,        ///< the connection, or the time of its certificate is wrong
    RequestLost,    ///< and the time is over when that is noticed
    AnswerLost,     ///< the server has it all
    AnswerSlow,     ///< until the session's time is over
    AnswerCut,      ///< in the middle
    CaptivePortal,  ///< a page in the place of the answer
    RequestTwice,   ///< the network has repeated it
    KilledSending,  ///< the client, before the server has the message
    KilledWaiting,  ///< the client, when the server has it
    KilledKeeping,  ///< the client, before it has kept nonces
    KilledKept,     ///< the client, after that
    KilledCommand,  ///< the client, before it runs a command
    KilledAnswered, ///< the client, after it ran one
};

constexpr struct {
    Fault fault;
    const char *name;
} faults[] = {
    {Fault::Refused, "connection refused"},
    {Fault::RequestLost, "request lost"},
    {Fault::AnswerLost, "answer lost"},
    {Fault::AnswerSlow, "answer too late"},
    {Fault::AnswerCut, "answer cut"},
    {Fault::CaptivePortal, "captive portal"},
    {Fault::RequestTwice, "request repeated"},
    {Fault::KilledSending, "killed before sending"},
    {Fault::KilledWaiting, "killed waiting"},
    {Fault::KilledKeeping, "killed before nonces are kept"},
    {Fault::KilledKept, "killed after nonces were kept"},
    {Fault::KilledCommand, "killed before a command"},
    {Fault::KilledAnswered, "killed after a command"},
};

/// What happens in one session: a fault at the n-th moment at which there can be one.
struct Mishap {
    Fault fault = Fault::None;
    int step = 0;
};

/// Thrown where the client's process ends.
struct Killed {};

/// Counts the moments of a session.
class Fate {
public:
    void begin(const Mishap &mishap)
    {
        m_mishap = mishap;
        m_left = mishap.step;
        hasStruck = false;
    }
    /// Whether the fault strikes now.
    bool strikes(Fault fault)
    {
        if (fault != m_mishap.fault || hasStruck || --m_left > 0)
            return false;
        hasStruck = true;
        return true;
    }
    void kill(Fault fault)
    {
        if (strikes(fault))
            throw Killed();
    }

    bool hasStruck = false;

private:
    Mishap m_mishap;
    int m_left = 0;
};

// ---- The server ----------------------------------------------------------------------------------

/// Something that the server wants done, and sends until it was told that it is.
struct Job {
    QByteArray xml; ///< of the command, without its CmdID
    const char *element;
    bool isTold = false;
    int timesSent = 0;
};

/// A server that keeps what it knows over sessions.
class PatientServer {
public:
    PatientServer(AuthType type, syncml::Encoding encoding) : m_type(type), m_encoding(encoding) {}

    std::vector<Job> jobs;

    TransportResponse answer(const TransportRequest &request)
    {
        const syncml::DecodeResult decoded = syncml::decode(request.body);
        EXPECT_TRUE(decoded);
        const syncml::SyncHdr &header = decoded->header;
        if (header.sessionId != m_sessionId) {
            m_sessionId = header.sessionId;
            m_answers.clear();
            m_isClientAccepted = m_isServerAccepted = false;
        }
        // A request that the network repeats is answered as it was.
        if (const auto known = m_answers.find(header.msgId); known != m_answers.end())
            return known->second;
        TransportResponse response;
        response.url = request.url;
        response.body = encoded(isProved(request, header) ? serve(*decoded) : challenge());
        if (m_type == AuthType::Hmac && m_nonceOfServer)
            response.hmac =
                formatHmacHeader({patientIdentity.name,
                                  hmacProof(patientIdentity, *m_nonceOfServer, response.body)});
        return m_answers[header.msgId] = response;
    }

    bool isDone() const { return std::ranges::all_of(jobs, &Job::isTold); }

private:
    bool isProved(const TransportRequest &request, const syncml::SyncHdr &header)
    {
        if (m_type == AuthType::None || m_isClientAccepted)
            return true;
        if (m_type == AuthType::Hmac) {
            const auto given = parseHmacHeader(request.hmac.value_or(QByteArray()));
            return given && m_nonceOfClient &&
                   given->mac == hmacProof(deviceIdentity, *m_nonceOfClient, request.body);
        }
        return header.cred && (m_type == AuthType::Basic || m_nonceOfClient) &&
               credMatches(*header.cred, m_type, deviceIdentity,
                           m_nonceOfClient.value_or(QByteArray()));
    }

    QByteArray nextNonce() { return "nonce " + QByteArray::number(++m_nonces); }

    QByteArray challenge()
    {
        m_nonceOfClient = nextNonce();
        return status("SyncHdr", "0", 407, chal(m_type, *m_nonceOfClient));
    }

    QByteArray serve(const syncml::Message &message)
    {
        readStatuses(message);
        QByteArray commands;
        if (m_type == AuthType::None) {
            commands = status("SyncHdr", "0", 200);
        } else if (m_type == AuthType::Basic) {
            commands = status("SyncHdr", "0", 212);
        } else if (m_type == AuthType::Hmac || !m_isClientAccepted) {
            m_nonceOfClient = nextNonce();
            commands = status("SyncHdr", "0", m_type == AuthType::Hmac ? 200 : 212,
                              chal(m_type, *m_nonceOfClient));
        } else {
            commands = status("SyncHdr", "0", 212);
        }
        m_isClientAccepted = m_type != AuthType::Hmac;
        constexpr int most = 2;
        int sent = 0;
        for (std::size_t i = 0; i < jobs.size() && sent < most; ++i) {
            if (jobs[i].isTold)
                continue;
            ++sent;
            ++jobs[i].timesSent;
            const QByteArray name(jobs[i].element);
            commands += '<' + name + "><CmdID>" + QByteArray::number(int(i) + 10) + "</CmdID>" +
                        jobs[i].xml + "</" + name + '>';
        }
        return commands;
    }

    void readStatuses(const syncml::Message &message)
    {
        for (const Command &command : message.commands) {
            if (command.kind != CommandKind::Status)
                continue;
            const int code = command.data->toInt();
            if (command.cmd == u"SyncHdr") {
                m_isServerAccepted = code == 212;
                if (const auto next = command.chal ? readChal(*command.chal) : std::nullopt)
                    m_nonceOfServer = next->nonce;
            } else if (const int job = command.cmdRef->toInt() - 10;
                       job >= 0 && code != 401 && code != 407) {
                jobs.at(static_cast<std::size_t>(job)).isTold = true;
            }
        }
    }

    static QByteArray status(const char *command, const char *ref, int code,
                             const QByteArray &more = {})
    {
        return "<Status><CmdID>1</CmdID><MsgRef>1</MsgRef><CmdRef>" + QByteArray(ref) +
               "</CmdRef><Cmd>" + command + "</Cmd>" + more + "<Data>" + QByteArray::number(code) +
               "</Data></Status>";
    }

    QByteArray encoded(const QByteArray &commands)
    {
        QByteArray header;
        if (!m_isServerAccepted &&
            (m_type == AuthType::Basic || (m_type == AuthType::Md5 && m_nonceOfServer))) {
            const syncml::Cred cred =
                makeCred(m_type, patientIdentity, m_nonceOfServer.value_or(QByteArray()));
            header = "<Cred><Meta><Format>b64</Format><Type>" + cred.meta->type->toLatin1() +
                     "</Type></Meta><Data>" + cred.data + "</Data></Cred>";
        }
        const QByteArray xml = "<SyncML xmlns='SYNCML:SYNCML1.2'><SyncHdr><VerDTD>1.2</VerDTD>"
                               "<VerProto>DM/1.2</VerProto><SessionID>" +
                               m_sessionId.toLatin1() + "</SessionID><MsgID>" +
                               QByteArray::number(static_cast<int>(m_answers.size()) + 1) +
                               "</MsgID><Target><LocURI>urn:test:1</LocURI></Target>"
                               "<Source><LocURI>https://dm.example/</LocURI></Source>" +
                               header + "</SyncHdr><SyncBody>" + commands +
                               "<Final/></SyncBody></SyncML>";
        if (m_encoding == syncml::Encoding::Xml)
            return xml;
        const syncml::DecodeResult decoded = syncml::decode(xml);
        return decoded ? *syncml::encode(*decoded, m_encoding) : QByteArray();
    }

    const AuthType m_type;
    const syncml::Encoding m_encoding;
    // For ever.
    std::optional<QByteArray> m_nonceOfClient;
    std::optional<QByteArray> m_nonceOfServer;
    int m_nonces = 0;
    // Of one session.
    QString m_sessionId;
    std::map<QString, TransportResponse> m_answers; ///< by MsgID
    bool m_isClientAccepted = false;
    bool m_isServerAccepted = false;
};

// ---- The network ---------------------------------------------------------------------------------

class FailingNetwork final : public Transport {
public:
    using Clock = std::chrono::steady_clock;

    FailingNetwork(PatientServer &server, Fate &fate) : m_server(server), m_fate(fate) {}

    TransportResult exchange(const TransportRequest &request) override
    {
        ++messages;
        m_fate.kill(Fault::KilledSending);
        if (m_fate.strikes(Fault::Refused))
            return fails("the server cannot be reached");
        if (m_fate.strikes(Fault::RequestLost))
            return takesTooLong(request);
        TransportResponse response = m_server.answer(request);
        m_fate.kill(Fault::KilledWaiting);
        if (m_fate.strikes(Fault::AnswerLost))
            return fails("the connection broke off");
        if (m_fate.strikes(Fault::AnswerSlow))
            return takesTooLong(request);
        if (m_fate.strikes(Fault::RequestTwice))
            response = m_server.answer(request);
        if (m_fate.strikes(Fault::AnswerCut))
            response.body.chop(response.body.size() / 2);
        if (m_fate.strikes(Fault::CaptivePortal))
            response = {
                "<!DOCTYPE html>\n<html><body>Log in</body></html>", "text/html", {}, request.url};
        return response;
    }

    Clock::time_point now() const { return m_now; }

    int messages = 0;

private:
    static TransportResult fails(const char *text)
    {
        return support::Unexpected(TransportError{QString::fromLatin1(text)});
    }
    TransportResult takesTooLong(const TransportRequest &request)
    {
        m_now += request.timeLimit;
        return support::Unexpected(TransportError{QStringLiteral("time is over"), true});
    }

    PatientServer &m_server;
    Fate &m_fate;
    Clock::time_point m_now;
};

// ---- Stories -------------------------------------------------------------------------------------

/// A device, its server and the network between them.
class World final : public MountedTree {
public:
    class Killer final : public SessionObserver {
    public:
        explicit Killer(Fate &fate) : m_fate(fate) {}
        void itemBegins(const Command &, const syncml::Item &) override
        {
            m_fate.kill(Fault::KilledCommand);
        }
        void itemEnded(const Command &, const syncml::Item &) override
        {
            m_fate.kill(Fault::KilledAnswered);
        }

    private:
        Fate &m_fate;
    };

    World(syncml::Encoding usedEncoding, AuthType usedType) : encoding(usedEncoding), type(usedType)
    {
        account.address = QUrl(QStringLiteral("https://dm.example/"));
        account.serverId = "dm.example";
        if (type != AuthType::None) {
            account.toServer = {type, deviceIdentity, std::nullopt};
            account.toClient = {type, patientIdentity, std::nullopt};
        }
        memory->executables["Office/Auth"] = "";
        EXPECT_TRUE(ownersTree().replaceProperty(profile("Office/Auth"), Property::Acl, "Exec=*"));
        giveJobs();
    }

    /// Two times two commands: one message more than a single round.
    void giveJobs()
    {
        const QByteArray office = profileUri("Office/");
        const auto item = [&](const char *node, const QByteArray &data,
                              const QByteArray &meta = {}) {
            return "<Item><Target><LocURI>" + office + node + "</LocURI></Target>" + meta +
                   "<Data>" + data + "</Data></Item>";
        };
        const QByteArray number = QByteArray::number(static_cast<int>(server.jobs.size()));
        server.jobs.push_back({item("Auth", "first " + number), "Exec"});
        server.jobs.push_back({item("Addr", "address " + number), "Replace"});
        server.jobs.push_back(
            {item(("New" + number).constData(), "new", "<Meta><Format>chr</Format></Meta>"),
             "Add"});
        server.jobs.push_back({item("Auth", "second " + number), "Exec"});
    }

    /// How often the Exec of a job reached the tree.
    int executions(const Job &job) const
    {
        const qsizetype begin = job.xml.indexOf("<Data>") + 6;
        const std::string argument =
            job.xml.mid(begin, job.xml.indexOf("</Data>") - begin).toStdString();
        return static_cast<int>(
            std::ranges::count(memory->calls, "execute Office/Auth " + argument));
    }
    std::vector<int> executions() const
    {
        std::vector<int> counts;
        for (const Job &job : server.jobs)
            counts.push_back(QByteArray(job.element) == "Exec" ? executions(job) : 0);
        return counts;
    }

    /// A session, as a process of its own has it: with nothing but what was kept.
    /// @return none when the process was killed
    std::optional<SessionEnd> session(const Mishap &mishap)
    {
        SessionOptions options;
        options.encoding = encoding;
        options.sessionId = QString::number(++sessions);
        options.clock = [this] { return network.now(); };
        options.keepNonces = [this](const Nonces &nonces) -> support::Expected<void, QString> {
            fate.kill(Fault::KilledKeeping);
            account.toServer.nonce = nonces.toServer;
            account.toClient.nonce = nonces.toClient;
            fate.kill(Fault::KilledKept);
            return {};
        };
        fate.begin(mishap);
        Killer killer(fate);
        const Account atBeginning = account;
        const std::vector<int> before = executions();
        const std::vector<Job> jobsBefore = server.jobs;
        std::optional<SessionEnd> end;
        try {
            end = Session(atBeginning, managementTree, network, nullptr, {&killer}, options).run();
        } catch (const Killed &) {
        }
        const std::vector<int> after = executions();
        for (std::size_t i = 0; i < server.jobs.size(); ++i) {
            const int sent = server.jobs[i].timesSent - jobsBefore[i].timesSent;
            EXPECT_LE(after[i] - before[i], sent) << "done more often than it was asked for";
            if (jobsBefore[i].isTold) {
                EXPECT_EQ(after[i], before[i]) << "done again after the server was told";
            }
        }
        return end;
    }

    /// A session over a network that works, which does what is left.
    void expectSession(int most)
    {
        const int before = network.messages;
        const auto end = session({});
        ASSERT_TRUE(end);
        EXPECT_EQ(end->kind, SessionEnd::Kind::Completed) << end->reason.toStdString();
        EXPECT_TRUE(server.isDone());
        EXPECT_LE(network.messages - before, most);
    }

    /// Sessions over a network that works: the first does what is left. A nonce that the server has
    /// given before it could prove itself is not kept, so the second may begin with one challenge
    /// more; the third needs no more messages than if nothing had ever failed. Nor do those after
    /// it, in which the server has nothing to do.
    void expectRecovery(int usualMessages)
    {
        for (const int most : {mostMessages, usualMessages + 1, usualMessages}) {
            giveJobs();
            expectSession(most);
        }
        for (int i = 0; i < 2; ++i)
            expectSession(mostQuietMessages);
        for (const Job &job : server.jobs)
            if (QByteArray(job.element) == "Exec") {
                EXPECT_GE(executions(job), 1) << job.xml.toStdString();
            }
    }

    static constexpr int mostMessages = 20;

    int messages() const { return network.messages; }
    bool wasStruck() const { return fate.hasStruck; }

private:
    /// The second is for sides that lack a nonce, one or both.
    static constexpr int mostQuietMessages = 2;

    void TestBody() override {}

    const syncml::Encoding encoding;
    const AuthType type;
    PatientServer server{type, encoding};
    Fate fate;
    FailingNetwork network{server, fate};
    Account account;
    int sessions = 0;
};

/// Messages of a session for four commands, when nothing has ever failed.
int usualMessages(syncml::Encoding encoding, AuthType type)
{
    World world(encoding, type);
    EXPECT_EQ(world.session({})->kind, SessionEnd::Kind::Completed);
    world.giveJobs();
    const int before = world.messages();
    EXPECT_EQ(world.session({})->kind, SessionEnd::Kind::Completed);
    return world.messages() - before;
}

using Setting = std::tuple<syncml::Encoding, AuthType>;

class FailingNetworkTest : public testing::TestWithParam<Setting> {
protected:
    const syncml::Encoding encoding = std::get<0>(GetParam());
    const AuthType type = std::get<1>(GetParam());
};

TEST_P(FailingNetworkTest, EveryFaultAtEveryStepIsRecoveredFrom)
{
    const int usual = usualMessages(encoding, type);
    constexpr int mostSteps = 30;
    for (const auto &row : faults) {
        int step = 1;
        for (; step < mostSteps; ++step) {
            SCOPED_TRACE(std::string(row.name) + " at step " + std::to_string(step));
            World world(encoding, type);
            world.session({row.fault, step});
            if (!world.wasStruck())
                break;
            world.expectRecovery(usual);
            if (HasFailure())
                return;
        }
        const bool hasNonces = hasNonce(type);
        const bool isOfNonces = row.fault == Fault::KilledKeeping || row.fault == Fault::KilledKept;
        EXPECT_GT(step, isOfNonces && !hasNonces ? 0 : 2) << row.name;
        EXPECT_LT(step, mostSteps) << row.name;
    }
}

TEST_P(FailingNetworkTest, MishapsInARowAreRecoveredFrom)
{
    const int usual = usualMessages(encoding, type);
    constexpr unsigned stories = 100;
    for (unsigned seed = 1; seed <= stories; ++seed) {
        std::mt19937 random(seed);
        World world(encoding, type);
        std::string story = "story " + std::to_string(seed);
        for (unsigned left = 2 + random() % 4; left > 0; --left) {
            const auto &row = faults[random() % std::size(faults)];
            const int step = 1 + static_cast<int>(random() % 8);
            story += std::string(", ") + row.name + " at step " + std::to_string(step);
            world.session({row.fault, step});
        }
        SCOPED_TRACE(story);
        // The first one after a mishap may find that the server has nothing more to do.
        if (seed % 2 == 0)
            world.expectSession(World::mostMessages);
        world.expectRecovery(usual);
        if (HasFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Sessions, FailingNetworkTest,
                         testing::Combine(testing::Values(syncml::Encoding::Xml,
                                                          syncml::Encoding::Wbxml),
                                          testing::Values(AuthType::None, AuthType::Basic,
                                                          AuthType::Md5, AuthType::Hmac)),
                         [](const auto &info) {
                             return syncml::encodingName(std::get<0>(info.param)) +
                                    authWord(std::get<1>(info.param)).toStdString();
                         });

} // namespace

} // namespace client
