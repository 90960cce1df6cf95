// The course of one management session.
//
// The client begins: who it is, what it wants, and the description of the device. From then on each
// message of the server is read (receive), its header is believed or not (trust, session, number of
// the message), its statuses are read, its commands are run, and what answers it goes into the
// queue; the next message takes from there what the server has room for. A session ends when
// neither side has anything more to say, by an abort of either side, or for one of the reasons that
// docs/architecture.md lists.
//
// Nothing of a message counts before the server has proved what the account asks it to prove, but
// for challenges, nonces and what it says about the client's own proof. Nonces are kept before the
// message goes out that makes them known.

#include "session.h"

#include "answer_size.h"
#include "header_status.h"
#include "media_type.h"

#include <QRandomGenerator>
#include <algorithm>
#include <utility>

namespace client {

using namespace syncml;

namespace {

/// How many messages in a row may go unproved, or be of another protocol version, before the client
/// gives the server up.
constexpr int mostServerFailures = 3;

QString freshSessionId()
{
    const quint32 number = QRandomGenerator::system()->bounded(1U, 0x10000U);
    return QString::number(number, 16).toUpper();
}

/// Whether the message has commands that need more of an answer than to go on.
bool asksForAnswers(const Message &message)
{
    return std::ranges::any_of(message.commands, [](const Command &command) {
        return command.kind != CommandKind::Status && command.kind != CommandKind::Results &&
               !isAlert(command, AlertCode::NextMessage);
    });
}

bool hasChallenge(const Message &message)
{
    return std::ranges::any_of(message.commands,
                               [](const Command &command) { return command.chal.has_value(); });
}

} // namespace

Session::Session(const Account &account, ManagementTree &tree, Transport &transport,
                 UserInteraction *user, std::vector<SessionObserver *> observers,
                 const SessionOptions &options)
    : m_account(account), m_options(options), m_tree(tree), m_transport(transport),
      m_observers(std::move(observers)), m_prover(account.toServer, options.firstNonce),
      m_verifier(account.toClient, options.firstNonce),
      m_commands(tree, principalOf(account), user, m_observers, options.maxObjectBytes),
      m_keptNonces{account.toServer.nonce, account.toClient.nonce},
      m_sessionId(options.sessionId.isEmpty() ? freshSessionId() : options.sessionId),
      m_url(account.address), m_encoding(options.encoding)
{
    m_commands.processor().setAtomicAnswerCheck(
        [this](const std::vector<Command> &answers) { return canBeSent(answers); });
    m_commands.processor().setEndCheck([this] { return isAbortRequested() || isOverTime(); });
    m_commands.processor().setInbox(options.inbox);
    m_commands.processor().setLateExec(options.lateExec);
    m_commands.setTimeLeft([this] { return timeLeft(); });
}

// ---- Course of the session -----------------------------------------------------------------------

SessionEnd Session::run()
{
    m_deadline = m_options.clock() + m_options.timeLimit;
    queueFirstPackage();
    exchangeMessages();
    m_end.commands = m_commands.answeredCommands();
    m_end.refused = m_commands.refusedCommands();
    return m_end;
}

void Session::exchangeMessages()
{
    while (m_isRunning && !endsEarly()) {
        if (m_end.messages >= m_options.maxMessages) {
            abort(SessionEnd::Kind::Failed,
                  QStringLiteral("no end after %1 messages").arg(m_options.maxMessages));
            return;
        }
        const auto result = sendNextMessage(Purpose::GoOn);
        if (!result)
            return;
        if (*result)
            receive(**result);
        else if (const TransportError &fault = result->error(); !endsEarly(fault.isOverTime))
            fail(fault.text);
    }
}

/// Ends the session when the user wants that, or when its time is over.
bool Session::endsEarly(bool isExchangeOverTime)
{
    if (isAbortRequested())
        abort(SessionEnd::Kind::AbortedHere, QStringLiteral("aborted by the user"));
    else if (isExchangeOverTime || isOverTime())
        abort(SessionEnd::Kind::Failed,
              QStringLiteral("no end after %1 s")
                  .arg(static_cast<double>(m_options.timeLimit.count()) / 1000));
    return !m_isRunning;
}

bool Session::isAbortRequested() const
{
    return m_options.isAbortRequested && m_options.isAbortRequested();
}

bool Session::isOverTime() const
{
    return timeLeft() <= std::chrono::milliseconds::zero();
}

std::chrono::milliseconds Session::timeLeft() const
{
    return std::chrono::ceil<std::chrono::milliseconds>(m_deadline - m_options.clock());
}

void Session::end(SessionEnd::Kind kind, const QString &reason)
{
    // What ended it first is what a person has to know.
    if (!m_isRunning)
        return;
    m_isRunning = false;
    m_end.kind = kind;
    m_end.reason = reason;
}

/// Tells the server that the session is over. Its answer does not matter any more.
void Session::abort(SessionEnd::Kind kind, const QString &reason)
{
    end(kind, reason);
    // Before the first message there is no session that the server would have to be told about.
    if (m_end.messages == 0)
        return;
    queueAlert(AlertCode::SessionAbort);
    if (!fitsIntoOneMessage(m_queue)) {
        // The session goes no further, so the server would never get to the alert.
        m_queue.dropWaiting();
        queueAlert(AlertCode::SessionAbort);
    }
    m_serverIsFinal = true;
    sendNextMessage(Purpose::SayFarewell);
}

void Session::note(const QString &text)
{
    for (SessionObserver *const observer : m_observers)
        observer->note(text);
}

// ---- What the client says ------------------------------------------------------------------------

void Session::queue(Command &&command)
{
    fitEncoding(command, m_encoding);
    m_queue.push(std::move(command));
}

void Session::queue(std::vector<Command> &&commands)
{
    for (Command &command : commands)
        fitEncoding(command, m_encoding);
    m_queue.push(std::move(commands));
}

void Session::queueAlert(AlertCode code)
{
    queue(makeAlert(code));
}

void Session::queueBeginning()
{
    m_isFirstPackage = true;
    queueAlert(m_options.isNotified ? AlertCode::ServerInitiated : AlertCode::ClientInitiated);
    queue(deviceInformation());
}

void Session::queueFirstPackage()
{
    queueBeginning();
    for (std::size_t i = 0; i < m_options.events.size(); ++i)
        queueEvent(i);
}

void Session::queueEvent(std::size_t index)
{
    const ClientEvent &event = m_options.events[index];
    Item item;
    item.meta.emplace();
    item.meta->type = event.type;
    item.meta->format = event.format;
    item.meta->mark = event.mark;
    if (event.source)
        item.source = syncml::Location{*event.source, {}};
    item.data = event.data;
    Command alert = makeAlert(event.code);
    if (event.correlator)
        alert.correlator = *event.correlator;
    alert.items = {std::move(item)};
    queue(std::move(alert));
    m_queuedEvents.push_back(index);
}

/// Goes with the challenge to a server that has not proved itself: what it said of the events does
/// not count, and it will not say that again.
void Session::queueEventsAgain()
{
    for (std::size_t i = 0; i < m_options.events.size(); ++i)
        if (m_options.events[i].isToldUntilTaken && !m_takenEvents.contains(i))
            queueEvent(i);
}

Command Session::deviceInformation() const
{
    Command replace;
    replace.kind = CommandKind::Replace;
    const TreeView tree(m_tree, Principal::owner());
    const Result<TreeNode> top = tree.find(NodeUri({"DevInfo"}));
    for (const ListedNode &listed : tree.list(*top, TreeView::Values::Read)) {
        if (!listed.value || !*listed.value)
            continue;
        Item item;
        item.source = syncml::Location{QString::fromLatin1(listed.node.uri().toUri()), {}};
        item.meta.emplace();
        item.meta->format = formatName((*listed.value)->GetType());
        item.meta->type = tree.type(listed.node);
        item.data = valueText(**listed.value);
        replace.items.push_back(std::move(item));
    }
    return replace;
}

Message Session::nextMessage()
{
    Message message;
    SyncHdr &header = message.header;
    header.verDtd = QString::fromLatin1(dtdVersion);
    header.verProto = QString::fromLatin1(protocolVersion);
    header.sessionId = m_sessionId;
    header.msgId = QString::number(m_end.messages + 1);
    header.target.locUri = m_url.toString(QUrl::FullyEncoded);
    header.source.locUri = QString::fromUtf8(m_tree.deviceId());
    if (m_isFirstPackage) {
        header.meta.emplace();
        header.meta->maxMsgSize = QString::number(m_options.maxMessageBytes);
        header.meta->maxObjSize = QString::number(m_options.maxObjectBytes);
    }
    m_prover.prove(header);
    return message;
}

std::optional<TransportResult> Session::sendNextMessage(Purpose purpose)
{
    Message message = nextMessage();
    const AnswerQueue::Filled filled = m_queue.fill(message, m_encoding, m_serversLargestMessage);
    if (filled == AnswerQueue::Filled::Nothing) {
        fail(QStringLiteral("the server takes messages of %1 bytes, which is too little")
                 .arg(m_serversLargestMessage));
        return std::nullopt;
    }
    message.final = filled == AnswerQueue::Filled::Everything && m_serverIsFinal;
    m_requestIsQueued = m_requestIsQueued && filled == AnswerQueue::Filled::Part;

    const syncml::EncodeResult encoded = syncml::encode(message, m_encoding);
    if (!encoded) {
        fail(QStringLiteral("the answer cannot be written: %1").arg(encoded.error().text));
        return std::nullopt;
    }
    TransportRequest request;
    request.url = m_url;
    request.body = *encoded;
    request.contentType = mediaTypeOf(m_encoding);
    request.hmac = m_prover.hmacHeader(request.body);
    request.isFarewell = purpose == Purpose::SayFarewell;
    request.timeLimit = request.isFarewell ? m_options.farewellTimeLimit : timeLeft();

    if (hasChallenge(message))
        m_verifier.challengeGoesOut();
    if (!keepNonces())
        return std::nullopt;
    ++m_end.messages;
    m_isFirstPackage = false;
    noteSentEvents(message);
    for (SessionObserver *const observer : m_observers)
        observer->messageSent(request, message);
    return m_transport.exchange(request);
}

/// Has the nonces kept that have changed since the last time.
bool Session::keepNonces()
{
    const Nonces nonces{m_prover.keptNonce(), m_verifier.keptNonce()};
    if (nonces == m_keptNonces)
        return true;
    m_keptNonces = nonces;
    if (!m_options.keepNonces)
        return true;
    const auto kept = m_options.keepNonces(nonces);
    // The two ends would go different ways if the session went on.
    if (!kept)
        fail(QStringLiteral("the nonce of the next proof cannot be kept: %1").arg(kept.error()));
    return bool(kept);
}

/// Has the nonce of a proof dropped before anything of its message is done.
/// @return whether the session goes on
bool Session::spendNonce(const TransportResponse &response, const SyncHdr &header)
{
    m_verifier.spendNonce(response, header);
    return keepNonces();
}

// ---- What the server says ------------------------------------------------------------------------

void Session::receive(const TransportResponse &response)
{
    if (response.body.isEmpty()) {
        for (SessionObserver *const observer : m_observers)
            observer->messageReceived(response, nullptr);
        if (!spendNonce(response, SyncHdr()))
            return;
        if (m_verifier.acceptsEmpty(response))
            end(SessionEnd::Kind::Completed, {});
        else
            fail(QStringLiteral("the server did not prove who it is"));
        return;
    }
    const syncml::DecodeResult decoded = syncml::decode(response.body);
    for (SessionObserver *const observer : m_observers)
        observer->messageReceived(response, &decoded);
    if (!decoded) {
        refuseMessage(response, decoded.error());
        return;
    }
    m_encoding = *syncml::recogniseEncoding(response.body);
    receive(response, *decoded);
}

/// A message that cannot be read ends the session; the server hears why when it can be told to
/// which message the status belongs.
void Session::refuseMessage(const TransportResponse &response, const syncml::DecodeError &error)
{
    const QString reason =
        QStringLiteral("the server's message cannot be read: %1").arg(error.toString());
    if (!error.header) {
        fail(reason);
        return;
    }
    if (!spendNonce(response, *error.header))
        return;
    Command status = headerStatus(*error.header, static_cast<DmStatus>(error.status));
    status.msgRef = error.header->msgId;
    m_queue.lead(std::move(status));
    abort(SessionEnd::Kind::Failed, reason);
}

void Session::receive(const TransportResponse &response, const Message &message)
{
    m_receivedMsgId = message.header.msgId;
    if (response.body.size() > m_options.maxMessageBytes)
        note(QStringLiteral("the server's message has %1 bytes, more than the announced %2")
                 .arg(response.body.size())
                 .arg(m_options.maxMessageBytes));
    if (!spendNonce(response, message.header) || !belongsHere(message.header))
        return;

    const DmStatus version = statusOfHeader(message.header);
    const DmStatus verified =
        succeeded(version) ? m_verifier.check(response, message.header) : version;
    const bool isObeyed = succeeded(verified);
    if (isObeyed)
        obeyHeader(response, message.header);
    if (isObeyed && hasAlert(message, AlertCode::SessionAbort))
        end(SessionEnd::Kind::AbortedByServer, QStringLiteral("the server aborted the session"));
    if (!m_isRunning || !readHeaderStatus(message, isObeyed))
        return;
    if (isObeyed)
        readStatuses(message);
    if (m_queue.bytes() > mostAnswerBytes && asksForAnswers(message)) {
        m_queue.clear();
        abort(SessionEnd::Kind::Failed,
              QStringLiteral("the server goes on while more than %1 bytes of answers wait")
                  .arg(mostAnswerBytes));
        return;
    }

    // A message that only asks for more does not open a new package.
    const bool isRequest = isObeyed && isRequestForMore(message);
    const bool isAskedForMore = !m_queue.isEmpty() || isRequest;
    m_serverIsFinal = message.final || !isObeyed || (isAskedForMore && m_serverIsFinal);

    Command status = headerStatus(message.header, verified);
    status.msgRef = message.header.msgId;
    if (succeeded(version))
        status.chal = m_verifier.challenge();
    m_queue.lead(std::move(status));

    std::vector<Command> answers = answer(message, verified);
    const bool hasAnswers = !answers.empty();
    if (isRequest)
        for (Command &command : answers)
            m_queue.lead(std::move(command));
    else
        queue(std::move(answers));
    m_otherVersions = succeeded(version) ? 0 : m_otherVersions + 1;
    endOrGoOn(hasAnswers || isAskedForMore);
}

std::vector<Command> Session::answer(const Message &message, DmStatus headerStatus)
{
    std::vector<Command> answers;
    if (succeeded(headerStatus))
        m_commands.run(message, m_queue.bytes(), answers);
    else
        m_commands.refuse(message,
                          {headerStatus, QStringLiteral("the server's message was not accepted")},
                          answers);
    refer(answers);
    return answers;
}

/// Makes answers refer to the server's last message.
void Session::refer(std::vector<Command> &answers) const
{
    for (Command &command : answers)
        if (command.kind == CommandKind::Status || command.kind == CommandKind::Results)
            command.msgRef = m_receivedMsgId;
}

/// Whether answers to the server's last message are not too large for the messages it takes.
bool Session::canBeSent(std::vector<Command> answers)
{
    refer(answers);
    for (Command &command : answers)
        fitEncoding(command, m_encoding);
    return m_queue.canSend(answers, nextMessage(), m_encoding, m_serversLargestMessage);
}

bool Session::fitsIntoOneMessage(AnswerQueue queue)
{
    Message message = nextMessage();
    return queue.fill(message, m_encoding, m_serversLargestMessage) ==
           AnswerQueue::Filled::Everything;
}

/// Decides what follows on a message whose answers are queued.
void Session::endOrGoOn(bool hasAnswers)
{
    const bool isUnproved = m_verifier.failures() > 0;
    const bool isBegunAgain = m_isChallenged;
    if (m_isChallenged) {
        m_isChallenged = false;
        m_serverIsFinal = true; // what it had to say it will say again
        queueFirstPackage();
    } else if (isUnproved && !hasAnswers) {
        askAgainWhoTheServerIs();
    } else if (!hasAnswers && m_serverIsFinal && m_otherVersions == 0) {
        end(SessionEnd::Kind::Completed, {});
    } else if (!m_serverIsFinal && !m_requestIsQueued) {
        queueAlert(AlertCode::NextMessage);
        m_requestIsQueued = true;
    }
    if (isUnproved && !isBegunAgain && m_isRunning)
        queueEventsAgain();
    if (m_verifier.failures() >= mostServerFailures)
        fail(QStringLiteral("the server could not prove who it is"));
    if (m_otherVersions >= mostServerFailures)
        fail(QStringLiteral("the server does not speak %1").arg(QLatin1String(protocolVersion)));
}

/// A server that has nothing to do has nothing to say again once it is challenged, so the challenge
/// takes the first package with it, which a server answers. It gets one chance: without this no
/// session would go through in which the server lost its nonce, or has none, as after each session
/// by HMAC. What the client had to tell the server of itself is not told twice.
void Session::askAgainWhoTheServerIs()
{
    if (m_verifier.failures() > 1) {
        fail(QStringLiteral("the server did not prove who it is"));
        return;
    }
    queueBeginning();
}

// ---- Header and statuses -------------------------------------------------------------------------

/// Whether the message was written for this session and is not one that was heard before. When the
/// server has to prove itself, the session ends otherwise: somebody else could be repeating what
/// the server once said.
bool Session::belongsHere(const SyncHdr &header)
{
    QString problem;
    if (header.sessionId != m_sessionId)
        problem = QStringLiteral("the server answers for session \"%1\" instead of \"%2\"")
                      .arg(header.sessionId, m_sessionId);
    else if (m_heardMsgIds.contains(header.msgId))
        problem = QStringLiteral("the server uses the MsgID \"%1\" again").arg(header.msgId);
    if (problem.isEmpty())
        return true;
    if (m_verifier.isAsked())
        abort(SessionEnd::Kind::Failed, problem);
    else
        note(problem);
    return m_isRunning;
}

void Session::obeyHeader(const TransportResponse &response, const SyncHdr &header)
{
    m_heardMsgIds.insert(header.msgId);
    readAddress(response.url, header.respUri.value_or(QString()));
    if (header.meta)
        readLimits(*header.meta);
}

void Session::readAddress(const QUrl &answered, const QString &respUri)
{
    if (!answered.isEmpty())
        m_url = answered;
    if (respUri.isEmpty())
        return;
    const QUrl next = m_url.resolved(QUrl(respUri, QUrl::StrictMode));
    const bool isHttp = next.scheme() == u"http" || next.scheme() == u"https";
    if (!next.isValid() || !isHttp || next.host().isEmpty())
        fail(QStringLiteral(
                 "the server wants its answer at \"%1\", which is not an http or https URL")
                 .arg(respUri));
    else if (givesUpTls(m_url, next))
        fail(QStringLiteral("the server wants its answer at %1, which gives up TLS").arg(respUri));
    m_url = next;
}

void Session::readLimits(const syncml::Meta &meta)
{
    const auto bytes = [](const std::optional<QString> &text) {
        bool isNumber = false;
        const qlonglong number = text.value_or(QString()).toLongLong(&isNumber);
        return isNumber && number > 0 ? std::optional<qsizetype>(number) : std::nullopt;
    };
    if (const auto limit = bytes(meta.maxMsgSize))
        m_serversLargestMessage = *limit;
    if (const auto limit = bytes(meta.maxObjSize))
        m_commands.setServersLargestObject(*limit);
}

/// @return whether the session goes on
bool Session::readHeaderStatus(const Message &message, bool isObeyed)
{
    const ServerTrust trust = isObeyed ? m_verifier.trust() : ServerTrust::Unproved;
    const auto verdict = m_prover.read(message, trust);
    m_isChallenged = verdict && *verdict == ClientProver::Verdict::Challenged;
    if (!verdict)
        fail(verdict.error());
    return m_isRunning && keepNonces();
}

void Session::readStatuses(const Message &message)
{
    for (const Command &command : message.commands) {
        const QString cmd = command.cmd.value_or(QString());
        const auto status = static_cast<DmStatus>(command.data.value_or(QByteArray()).toInt());
        const bool isRefused = command.kind == CommandKind::Status && isRefusal(status);
        if (isRefused && cmd != u"SyncHdr" && !m_isChallenged)
            note(QStringLiteral("the server answers the client's %1 with %2")
                     .arg(cmd, describe(status)));
        if (command.kind == CommandKind::Status)
            readEventStatus(command);
        if (isAlert(command, AlertCode::NoEndOfData) || (isRefused && cmd == u"Results"))
            m_queue.dropStartedObject();
    }
}

/// Notes under which ids the alerts of events go out. The queue of commands keeps their order.
void Session::noteSentEvents(const Message &message)
{
    for (const Command &command : message.commands) {
        if (!isAlert(command, AlertCode::ClientEvent) && !isAlert(command, AlertCode::GenericAlert))
            continue;
        m_sentEvents[{message.header.msgId, command.cmdId.value_or(QString())}] =
            m_queuedEvents.front();
        m_queuedEvents.pop_front();
    }
}

void Session::readEventStatus(const Command &status)
{
    const auto code = parseStatus(status.data.value_or(QByteArray()));
    const bool isTaken = code == DmStatus::Ok || code == DmStatus::Accepted;
    if (!isTaken || status.cmd != QStringLiteral("Alert"))
        return;
    const auto sent = m_sentEvents.extract(
        {status.msgRef.value_or(QString()), status.cmdRef.value_or(QString())});
    if (sent && m_takenEvents.insert(sent.mapped()).second && m_options.eventTaken)
        m_options.eventTaken(sent.mapped());
}

} // namespace client
