// What the page sends, and what it gets:
//
//     GET  ""          the page
//     GET  events      server-sent events, an object each: {"recorded": EVENT} for an event of the
//                      record, {"printed": TEXT} for a line of the shell, {"mounted": NUMBER,
//                      "snapshots": NUMBER} when a process has begun, {"failed": REASON}
//     POST package     {"xml": TEXT}: runs a DM package on behalf of the device's owner
//     POST session     {"server": ACCOUNT or URL}
//     POST mount       {"showSecrets": BOOL}: begins a new process, which mounts the trees afresh
//     POST stored      {"uri": ADDRESS}: has the record say what is stored for a node
//     POST snapshot    {}: keeps the state; answered with {"snapshot": NUMBER}
//     POST undo        {"snapshot": NUMBER}: puts a state back, and mounts afresh
//
// A POST is answered as soon as it is passed on; what comes of it are events.
#include "explorer.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <algorithm>
#include <optional>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

constexpr qsizetype mostKeptBytes = 64 * 1024 * 1024; ///< for a page that is opened later

QByteArray eventText(const char *name, const QJsonValue &value)
{
    return QJsonDocument(QJsonObject{{QString::fromLatin1(name), value}})
        .toJson(QJsonDocument::Compact);
}

PageAnswer refuse(int status, const QString &reason)
{
    return {status, "application/json", eventText("problem", reason)};
}

/// The text as one word of the shell; none for one that no line can hold.
std::optional<QByteArray> shellWord(const QString &text)
{
    if (text.isEmpty() || std::ranges::any_of(text, [](QChar character) {
            return character.category() == QChar::Other_Control;
        }))
        return std::nullopt;
    return '\'' + text.toUtf8().replace('\'', "'\\''") + '\'';
}

class Explorer {
public:
    explicit Explorer(const ExplorerOptions &options)
        : m_options(options),
          m_handset(
              options.handset,
              {.recorded = [this](const QByteArray &line) { tell("{\"recorded\":" + line + '}'); },
               .printed =
                   [this](const QByteArray &line) {
                       tell(eventText("printed", QString::fromUtf8(line)));
                   },
               .failed = [this](const QString &reason) { tell(eventText("failed", reason)); }})
    {
    }

    Expected<void, QString> run(const std::function<void(const QUrl &)> &started)
    {
        auto server =
            PageServer::listen([this](const PageRequest &request) { return answer(request); });
        if (!server)
            return Unexpected(server.error());
        m_server = *std::move(server);
        m_server->setGreeting([this] { return m_kept; });
        if (m_options.canGoBack)
            if (const auto taken = m_handset.takeSnapshot(); !taken)
                return Unexpected(taken.error());
        if (auto mounted = mount(); !mounted)
            return mounted;
        started(m_server->address());
        QEventLoop loop;
        QSocketNotifier interrupt(m_options.interruptFile, QSocketNotifier::Read);
        QObject::connect(&interrupt, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
        loop.exec();
        return {};
    }

private:
    using Action = PageAnswer (Explorer::*)(const QJsonObject &words);
    struct ActionRow {
        const char *path;
        Action action;
    };
    static const ActionRow actions[6];

    PageAnswer answer(const PageRequest &request)
    {
        if (request.method == "GET" && request.path.isEmpty())
            return {200, "text/html; charset=utf-8", m_options.page};
        for (const ActionRow &row : actions)
            if (request.method == "POST" && request.path == row.path)
                return act(row.action, request.body);
        return refuse(404, QStringLiteral("there is nothing of that name"));
    }

    PageAnswer act(Action action, const QByteArray &body)
    {
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(body, &error);
        if (!document.isObject())
            return refuse(400, QStringLiteral("the body is not a JSON object"));
        return (this->*action)(document.object());
    }

    PageAnswer runPackage(const QJsonObject &words)
    {
        const auto file = m_handset.keepFile(QStringLiteral("package-%1.xml").arg(++m_packages),
                                             words[QStringLiteral("xml")].toString().toUtf8());
        if (!file)
            return refuse(500, file.error());
        m_handset.send("process --summary " + QFile::encodeName(*file));
        return answerOf({});
    }

    PageAnswer haveSession(const QJsonObject &words)
    {
        return runOn("session", words[QStringLiteral("server")].toString(),
                     QStringLiteral("that is neither an account nor a URL"));
    }

    PageAnswer showStored(const QJsonObject &words)
    {
        return runOn("stored", words[QStringLiteral("uri")].toString(),
                     QStringLiteral("that is not the address of a node"));
    }

    /// Runs a command of the shell that takes one word.
    PageAnswer runOn(const char *command, const QString &argument, const QString &refusal)
    {
        const auto word = shellWord(argument);
        if (!word || argument.startsWith(u'-'))
            return refuse(400, refusal);
        m_handset.send(command + (' ' + *word));
        return answerOf({});
    }

    PageAnswer mountAgain(const QJsonObject &words)
    {
        m_showSecrets = words[QStringLiteral("showSecrets")].toBool();
        return answerOf(mount());
    }

    PageAnswer takeSnapshot(const QJsonObject &)
    {
        if (!m_options.canGoBack)
            return refuse(409, QStringLiteral("the profiles lie outside of the state directory"));
        m_handset.stop();
        const auto taken = m_handset.takeSnapshot();
        if (auto mounted = mount(); !mounted)
            return answerOf(mounted);
        if (!taken)
            return refuse(500, taken.error());
        return {.body = eventText("snapshot", *taken)};
    }

    PageAnswer goBack(const QJsonObject &words)
    {
        const int snapshot = words[QStringLiteral("snapshot")].toInt(-1);
        if (snapshot < 0 || snapshot >= m_handset.snapshots())
            return refuse(400, QStringLiteral("there is no such snapshot"));
        m_handset.stop();
        const auto back = m_handset.goBackTo(snapshot);
        if (auto mounted = mount(); !mounted)
            return answerOf(mounted);
        return answerOf(back);
    }

    static PageAnswer answerOf(const Expected<void, QString> &done)
    {
        return done ? PageAnswer{.body = "{}"} : refuse(500, done.error());
    }

    Expected<void, QString> mount()
    {
        m_handset.stop();
        if (auto begun = m_handset.start(m_showSecrets); !begun)
            return begun;
        tell(QJsonDocument(QJsonObject{{QStringLiteral("mounted"), ++m_mounts},
                                       {QStringLiteral("snapshots"), m_handset.snapshots()}})
                 .toJson(QJsonDocument::Compact));
        return {};
    }

    void tell(const QByteArray &event)
    {
        m_keptBytes += event.size();
        m_kept += event;
        while (m_keptBytes > mostKeptBytes)
            m_keptBytes -= m_kept.takeFirst().size();
        m_server->sendEvent(event);
    }

    const ExplorerOptions &m_options;
    std::unique_ptr<PageServer> m_server;
    QByteArrayList m_kept; ///< what a page that is opened now has missed
    qsizetype m_keptBytes = 0;
    bool m_showSecrets = false;
    int m_mounts = 0;
    int m_packages = 0;
    HandsetProcess m_handset; ///< the first to go: until it has, it tells
};

const Explorer::ActionRow Explorer::actions[6] = {
    {"package", &Explorer::runPackage}, {"session", &Explorer::haveSession},
    {"mount", &Explorer::mountAgain},   {"snapshot", &Explorer::takeSnapshot},
    {"undo", &Explorer::goBack},        {"stored", &Explorer::showStored},
};

} // namespace

Expected<void, QString> explore(const ExplorerOptions &options,
                                const std::function<void(const QUrl &address)> &started)
{
    return Explorer(options).run(started);
}

} // namespace client
