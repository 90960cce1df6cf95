#include "session_fixture.h"

namespace client {

void Listener::commandAnswered(const AnsweredCommand &command)
{
    std::string line = command.name.toStdString() + ' ' + command.uri.toStdString() + ' ' +
                       std::to_string(static_cast<int>(command.status));
    if (!command.reason.isEmpty())
        line += ' ' + command.reason.toStdString();
    commands.push_back(line);
}

SessionTest::SessionTest()
{
    account.address = QUrl(QStringLiteral("http://dm.example/"));
    account.serverId = "dm.example";
    options.encoding = GetParam();
    options.sessionId = QStringLiteral("5");
}

SessionEnd SessionTest::run(UserInteraction *user)
{
    const Account before = account;
    SessionOptions keeping = options;
    if (!keeping.keepNonces)
        keeping.keepNonces = [this](const Nonces &nonces) -> support::Expected<void, QString> {
            account.toServer.nonce = nonces.toServer;
            account.toClient.nonce = nonces.toClient;
            return {};
        };
    return Session(before, managementTree, server, user, {&listener}, keeping).run();
}

testing::AssertionResult SessionTest::failsWith(const char *reason)
{
    const SessionEnd end = run();
    if (end.kind != SessionEnd::Kind::Failed)
        return testing::AssertionFailure() << "the session did not fail";
    if (end.reason != QString::fromUtf8(reason))
        return testing::AssertionFailure() << "it failed because " << end.reason.toStdString();
    return testing::AssertionSuccess();
}

SessionTest::Lines SessionTest::sent(std::size_t number) const
{
    return number <= server.messages.size() ? lines(server.messages[number - 1]) : Lines();
}

} // namespace client
