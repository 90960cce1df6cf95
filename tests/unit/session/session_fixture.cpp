#include "session_fixture.h"

namespace client {

void Listener::commandAnswered(const AnsweredCommand &command)
{
    std::string line = command.name.toStdString() + ' ' + command.uri.toStdString() + ' ' +
                       std::to_string(command.status);
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
    Session session(account, tree, server, user, {&listener}, options);
    const SessionEnd end = session.run();
    account.toServer.nonce = session.nonceToServer();
    account.toClient.nonce = session.nonceToClient();
    return end;
}

SessionTest::Lines SessionTest::sent(std::size_t number) const
{
    return number <= server.messages.size() ? lines(server.messages[number - 1]) : Lines();
}

std::string encodingName(const testing::TestParamInfo<syncml::Encoding> &info)
{
    return info.param == syncml::Encoding::Xml ? "Xml" : "Wbxml";
}

} // namespace client
