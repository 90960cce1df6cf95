#include "http_transport.h"

#include "credentials.h"
#include "media_type.h"

#include <QCryptographicHash>
#include <QEventLoop>
#include <QFile>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSocketNotifier>
#include <QSslCertificate>
#include <QSslCipher>
#include <QSslError>
#include <QStringList>
#include <QTimer>
#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <span>

namespace client {

namespace {

constexpr char userAgent[] = "dmclient/" KUB_VERSION;

QByteArray acceptedTypes()
{
    return syncml::mediaTypeOf(syncml::Encoding::Xml) + ", " +
           syncml::mediaTypeOf(syncml::Encoding::Wbxml) + ", application/octet-stream";
}

support::Unexpected<TransportError> problem(const QUrl &url, const QString &what)
{
    return support::Unexpected(
        TransportError{QStringLiteral("%1: %2").arg(url.toDisplayString(), what)});
}

} // namespace

support::Expected<std::unique_ptr<HttpTransport>, QString>
HttpTransport::create(const Options &options)
{
    std::unique_ptr<HttpTransport> transport(new HttpTransport(options));
    transport->m_tls = QSslConfiguration::defaultConfiguration();
    transport->m_tls.setPeerVerifyMode(QSslSocket::VerifyPeer);
    if (!options.authoritiesFile.isEmpty()) {
        QFile file(options.authoritiesFile);
        if (!file.open(QIODevice::ReadOnly))
            return support::Unexpected(QStringLiteral("cannot read %1: %2")
                                           .arg(options.authoritiesFile, file.errorString()));
        const QList<QSslCertificate> authorities = QSslCertificate::fromDevice(&file, QSsl::Pem);
        if (authorities.isEmpty())
            return support::Unexpected(
                QStringLiteral("%1 holds no PEM certificate").arg(options.authoritiesFile));
        transport->m_tls.setCaCertificates(authorities);
    }
    return transport;
}

// ---- One exchange --------------------------------------------------------------------------------

/// Ends an exchange before the server does: when its time is over, or when somebody interrupts it.
class ExchangeCutoff {
public:
    ExchangeCutoff(std::chrono::milliseconds timeLimit, int interruptFile)
    {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
            m_isOverTime = true;
            cut(QStringLiteral("no answer in the time that was left"));
        });
        if (timeLimit > std::chrono::milliseconds::zero())
            m_timer.start(timeLimit);
        if (interruptFile < 0)
            return;
        m_interrupt.emplace(interruptFile, QSocketNotifier::Read);
        QObject::connect(&*m_interrupt, &QSocketNotifier::activated, &*m_interrupt,
                         [this] { cut(QStringLiteral("interrupted")); });
    }

    bool isOver() const { return !m_reason.isEmpty(); }
    support::Unexpected<TransportError> error(const QUrl &url) const
    {
        auto failure = problem(url, m_reason);
        failure.error.isOverTime = m_isOverTime;
        return failure;
    }

    /// Runs the loop until somebody quits it, or until the end of the exchange, which is told.
    void run(QEventLoop &loop, std::function<void()> onEnd)
    {
        m_onEnd = std::move(onEnd);
        if (!isOver())
            loop.exec();
        m_onEnd = nullptr;
    }

private:
    void cut(const QString &reason)
    {
        m_timer.stop();
        if (m_interrupt)
            m_interrupt->setEnabled(false);
        m_reason = reason;
        if (m_onEnd)
            m_onEnd();
    }

    QTimer m_timer;
    std::optional<QSocketNotifier> m_interrupt;
    QString m_reason;
    bool m_isOverTime = false;
    std::function<void()> m_onEnd;
};

TransportResult HttpTransport::exchange(const TransportRequest &request)
{
    ExchangeCutoff cutoff(request.timeLimit, request.isFarewell ? -1 : m_options.interruptFile);
    std::chrono::milliseconds delay = m_options.retryDelay;
    for (int left = request.isFarewell ? 0 : m_options.retries;; --left) {
        bool mayBeRepeated = false;
        TransportResult result = followRedirects(request, cutoff, mayBeRepeated);
        if (!mayBeRepeated || left == 0 || cutoff.isOver())
            return result;
        if (m_options.observer)
            m_options.observer->waits(delay, result.error().text);
        QEventLoop pause;
        QTimer::singleShot(delay, &pause, &QEventLoop::quit);
        cutoff.run(pause, [&pause] { pause.quit(); });
        if (cutoff.isOver())
            return result;
        delay *= 2;
    }
}

TransportResult HttpTransport::followRedirects(const TransportRequest &request,
                                               ExchangeCutoff &cutoff, bool &mayBeRepeated)
{
    TransportRequest current = request;
    for (int left = m_options.redirects;; --left) {
        Attempt attempt = send(current, cutoff);
        mayBeRepeated = attempt.mayBeRepeated;
        if (attempt.redirect.isEmpty())
            return attempt.result;
        const QUrl target = current.url.resolved(attempt.redirect);
        if (givesUpTls(current.url, target))
            return problem(current.url, QStringLiteral("redirects to %1, which gives up TLS")
                                            .arg(target.toDisplayString()));
        if (target.scheme() != u"http" && target.scheme() != u"https")
            return problem(
                current.url,
                QStringLiteral("redirects to %1, which is not HTTP").arg(target.toDisplayString()));
        if (left == 0)
            return problem(request.url, QStringLiteral("redirects again and again"));
        current.url = target;
    }
}

QNetworkRequest HttpTransport::networkRequest(const TransportRequest &request) const
{
    QNetworkRequest network(request.url);
    network.setSslConfiguration(m_tls);
    network.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    network.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    network.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    network.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    network.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    network.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    // HMAC covers the bytes as sent, and an unpacked answer could be of any size.
    network.setRawHeader("Accept-Encoding", "identity");
    network.setRawHeader("Content-Type", request.contentType);
    network.setRawHeader("Accept", acceptedTypes());
    network.setRawHeader("Accept-Charset", "UTF-8");
    network.setRawHeader("User-Agent", userAgent);
    network.setRawHeader("Cache-Control", "no-store");
    if (request.hmac)
        network.setRawHeader(hmacHeaderName, *request.hmac);
    return network;
}

/// Reads an answer as long as it keeps to the limits, and aborts it otherwise.
class AnswerReader {
public:
    AnswerReader(QNetworkReply &reply, qsizetype largestBody)
        : m_reply(reply), m_largestBody(largestBody)
    {
        m_reply.setReadBufferSize(m_largestBody + 1);
        QObject::connect(&m_reply, &QNetworkReply::readyRead, &m_loop, [this] { takeBody(); });
        QObject::connect(&m_reply, &QNetworkReply::finished, &m_loop, &QEventLoop::quit);
        QObject::connect(&m_reply, &QNetworkReply::sslErrors, &m_loop,
                         [this](const QList<QSslError> &errors) {
                             for (const QSslError &error : errors)
                                 tlsProblems += error.errorString();
                         });
    }

    void read(std::chrono::milliseconds timeLimit, ExchangeCutoff &cutoff)
    {
        QTimer::singleShot(timeLimit, &m_loop, [this] {
            isTooLate = true;
            m_reply.abort();
        });
        if (!m_reply.isFinished())
            cutoff.run(m_loop, [this] { m_reply.abort(); });
        if (!isTooLarge && !isTooLate && !cutoff.isOver())
            takeBody();
    }

    QByteArray body;
    QStringList tlsProblems;
    bool isTooLarge = false;
    bool isTooLate = false;

private:
    void takeBody()
    {
        body += m_reply.read(m_largestBody + 1 - body.size());
        if (body.size() <= m_largestBody)
            return;
        isTooLarge = true;
        m_reply.abort();
    }

    QNetworkReply &m_reply;
    qsizetype m_largestBody;
    QEventLoop m_loop;
};

HttpTransport::Attempt HttpTransport::send(const TransportRequest &request, ExchangeCutoff &cutoff)
{
    const QNetworkRequest network = networkRequest(request);
    tellRequest(network, request);
    const std::unique_ptr<QNetworkReply> reply(m_network.post(network, request.body));
    AnswerReader answer(*reply, m_options.responseBytes);
    answer.read(m_options.timeLimit, cutoff);
    Attempt attempt = result(request.url, *reply, answer, cutoff);
    tellAnswer(*reply, answer.body.size(), attempt);
    return attempt;
}

HttpTransport::Attempt HttpTransport::result(const QUrl &url, QNetworkReply &reply,
                                             AnswerReader &answer,
                                             const ExchangeCutoff &cutoff) const
{
    if (cutoff.isOver())
        return {cutoff.error(url)};
    if (answer.isTooLarge)
        return {problem(
            url,
            QStringLiteral("the answer is larger than %1 bytes").arg(m_options.responseBytes))};
    if (answer.isTooLate)
        return {problem(url, QStringLiteral("no answer within %1 s")
                                 .arg(static_cast<double>(m_options.timeLimit.count()) / 1000)),
                true};
    if (!answer.tlsProblems.isEmpty()) {
        answer.tlsProblems.removeDuplicates();
        return {problem(url, answer.tlsProblems.join(QStringLiteral(", ")))};
    }
    return judge(reply, answer.body);
}

// ---- What observers are told ---------------------------------------------------------------------

void HttpTransport::tellRequest(const QNetworkRequest &network,
                                const TransportRequest &request) const
{
    if (!m_options.observer)
        return;
    HttpRequest told{QByteArrayLiteral("POST"), request.url, {}, request.body.size()};
    for (const QByteArray &name : network.rawHeaderList())
        told.headers.emplace_back(name, network.rawHeader(name));
    m_options.observer->requestSent(told);
}

namespace {

std::optional<TlsConnection> tlsOf(const QNetworkReply &reply)
{
    const QSslConfiguration tls = reply.sslConfiguration();
    if (reply.url().scheme() != u"https" || tls.isNull())
        return std::nullopt;
    struct Row {
        QSsl::SslProtocol protocol;
        const char *name;
    };
    static constexpr Row rows[] = {{QSsl::TlsV1_2, "TLS 1.2"}, {QSsl::TlsV1_3, "TLS 1.3"}};
    const auto *const row = std::ranges::find(rows, tls.sessionProtocol(), &Row::protocol);
    TlsConnection connection;
    if (row != std::end(rows))
        connection.version = QString::fromLatin1(row->name);
    connection.cipher = tls.sessionCipher().name();
    const QSslCertificate certificate = tls.peerCertificate();
    if (certificate.isNull())
        return connection;
    connection.subject = certificate.subjectDisplayName();
    connection.issuer = certificate.issuerDisplayName();
    connection.sha256 = certificate.digest(QCryptographicHash::Sha256).toHex();
    connection.until = certificate.expiryDate();
    return connection;
}

} // namespace

void HttpTransport::tellAnswer(const QNetworkReply &reply, qsizetype size,
                               const Attempt &attempt) const
{
    if (!m_options.observer)
        return;
    HttpAnswer told;
    told.status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    for (const auto &[name, value] : reply.rawHeaderPairs())
        told.headers.emplace_back(name, value);
    told.size = size;
    told.tls = tlsOf(reply);
    if (!attempt.result && attempt.redirect.isEmpty())
        told.failure = attempt.result.error().text;
    m_options.observer->requestAnswered(told);
}

// ---- What an answer means ------------------------------------------------------------------------

namespace {

constexpr int redirectCodes[] = {301, 302, 307, 308};
constexpr int busyCodes[] = {502, 503, 504};
/// Of QNetworkReply: those that would be the same the next time.
constexpr int lastingErrors[] = {QNetworkReply::SslHandshakeFailedError,
                                 QNetworkReply::ProtocolUnknownError,
                                 QNetworkReply::HostNotFoundError};

bool isOneOf(std::span<const int> codes, int code)
{
    return std::ranges::find(codes, code) != codes.end();
}

} // namespace

HttpTransport::Attempt HttpTransport::judge(QNetworkReply &reply, const QByteArray &body) const
{
    const QUrl url = reply.url();
    const int code = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (isOneOf(redirectCodes, code) && reply.hasRawHeader("Location"))
        return {.result = support::Unexpected(TransportError()),
                .redirect = QUrl::fromEncoded(reply.rawHeader("Location"))};
    if (code == 0 || (code / 100 == 2 && reply.error() != QNetworkReply::NoError))
        return {problem(url, reply.errorString()), !isOneOf(lastingErrors, reply.error())};
    if (code / 100 != 2) {
        const QString reason =
            reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
        return {problem(url, QStringLiteral("HTTP %1 %2").arg(code).arg(reason).trimmed()),
                isOneOf(busyCodes, code)};
    }
    // Qt does not always notice that a connection ends before its answer does.
    const QVariant announced = reply.header(QNetworkRequest::ContentLengthHeader);
    if (announced.isValid() && body.size() < announced.toLongLong())
        return {problem(url, QStringLiteral("Connection closed after %1 of %2 bytes")
                                 .arg(body.size())
                                 .arg(announced.toLongLong())),
                true};
    TransportResponse response;
    response.body = body;
    response.contentType = reply.rawHeader("Content-Type");
    if (reply.hasRawHeader(hmacHeaderName))
        response.hmac = reply.rawHeader(hmacHeaderName);
    response.url = url;
    return {response};
}

} // namespace client
