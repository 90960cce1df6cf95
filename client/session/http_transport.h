// DM over HTTP and HTTPS.
#pragma once

#include "transport.h"

#include <QNetworkAccessManager>
#include <QSslConfiguration>
#include <chrono>
#include <memory>

class QNetworkReply;
class QNetworkRequest;

namespace client {

class AnswerReader;
class ExchangeCutoff;

/// Posts messages with Qt Network and waits for the answers in an event loop of its own; the caller
/// needs a QCoreApplication.
///
/// - Certificates are checked, against the system's authorities or against those of one file.
/// - A message is sent again, unchanged, when the server could not be reached, broke off or did not
///   answer in time, or said that it is busy (HTTP 502, 503, 504).
/// - A redirect (301, 302, 307, 308) is followed with the same message, from https to https only.
/// - An answer that is larger than the limit is not read to its end.
/// - An exchange ends at once when its time is over or the interrupt file becomes readable. A
///   farewell is sent once, and whether somebody interrupts it or not.
class HttpTransport final : public Transport {
public:
    struct Options {
        /// PEM certificates to trust in place of the system's; empty: those of the system.
        QString authoritiesFile;
        std::chrono::milliseconds timeLimit{60'000}; ///< for one answer, from the first byte sent
        int retries = 2;                             ///< how often a message is sent again
        std::chrono::milliseconds retryDelay{1'000}; ///< before the first repetition; then doubled
        qsizetype responseBytes = 4 * 1024 * 1024;   ///< largest body of an answer
        int redirects = 5;                           ///< in one exchange
        ExchangeObserver *observer = nullptr;        ///< null: nobody watches
        int interruptFile = -1; ///< stays readable from an interrupt on; -1: nobody interrupts
    };

    /// @return never null; the error says why the file of authorities cannot be used
    static support::Expected<std::unique_ptr<HttpTransport>, QString>
    create(const Options &options);

    TransportResult exchange(const TransportRequest &request) override;

private:
    explicit HttpTransport(const Options &options) : m_options(options) {}

    /// What came of sending a message once.
    struct Attempt {
        TransportResult result;
        bool mayBeRepeated = false;
        QUrl redirect = {}; ///< where to send it instead; empty: nowhere
    };

    TransportResult followRedirects(const TransportRequest &request, ExchangeCutoff &cutoff,
                                    bool &mayBeRepeated);
    Attempt send(const TransportRequest &request, ExchangeCutoff &cutoff);
    Attempt result(const QUrl &url, QNetworkReply &reply, AnswerReader &answer,
                   const ExchangeCutoff &cutoff) const;
    Attempt judge(QNetworkReply &reply, const QByteArray &body) const;
    void tellRequest(const QNetworkRequest &network, const TransportRequest &request) const;
    void tellAnswer(const QNetworkReply &reply, qsizetype size, const Attempt &attempt) const;
    QNetworkRequest networkRequest(const TransportRequest &request) const;

    Options m_options;
    QSslConfiguration m_tls;
    QNetworkAccessManager m_network;
};

} // namespace client
