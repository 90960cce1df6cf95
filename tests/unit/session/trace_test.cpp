// The trace of a session: readable, and without secrets.

#include "noted.h"
#include "trace.h"

#include "session_fixture.h"

#include <QTemporaryDir>
#include <QXmlStreamReader>

namespace client {

namespace {

constexpr char secret[] = "s3cr3t-Pa55";

class Trace : public SessionTest {
protected:
    /// Runs a session and gives back what its trace holds.
    std::string traced(UserInteraction *user = nullptr)
    {
        QString error;
        const auto trace = madeOrNull(TraceWriter::open(file()), error);
        EXPECT_TRUE(trace) << error.toStdString();
        Session(account, managementTree, server, user, {trace.get()}, options).run();
        QFile input(file());
        EXPECT_TRUE(input.open(QIODevice::ReadOnly));
        return input.readAll().toStdString();
    }
    QString file() const { return directory.filePath(QStringLiteral("trace")); }

    QTemporaryDir directory;
};

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST_P(Trace, HasEveryMessageWithItsMeaning)
{
    server.says(accepted() + get("2", {"./Nowhere"}));
    const std::string text = traced();
    EXPECT_TRUE(contains(text, "==> message 1 to http://dm.example/, ")) << text;
    EXPECT_TRUE(contains(text, "<== message 1 from http://dm.example/, "));
    EXPECT_TRUE(contains(text, GetParam() == syncml::Encoding::Xml ? " bytes of XML\n"
                                                                   : " bytes of WBXML\n"));
    EXPECT_TRUE(contains(text, "<Data>404</Data>"));
    EXPECT_TRUE(contains(text, "<!-- Not Found -->"));
    EXPECT_TRUE(contains(text, "        <LocURI>./Nowhere</LocURI>\n"));
    EXPECT_TRUE(contains(text, "<== empty answer from http://dm.example/\n"));
}

TEST_P(Trace, FileIsItsOwnersOnly)
{
    traced();
    EXPECT_EQ(QFile::permissions(file()) & ~QFileDevice::Permissions(0x7700),
              QFileDevice::Permissions());
}

TEST_P(Trace, HasNoSecretOfAnyKind)
{
    memory->addLeaf("Office/Auth/AuthPw", DmtData(secret));
    account.toServer = {AuthType::Basic, {"user", secret}, {}};
    server.says(accepted() + get("2", {profileUri("Office/Auth/AuthPw")}) +
                get("3", {profileUri("Office") + "?list=StructData"}) +
                replace("4", profileUri("Office/Auth/AuthPw"), secret) +
                "<Sequence><CmdID>5</CmdID>" +
                replace("6", "./DMAcc/A/AppAuth/1/AAuthSecret", secret) + "</Sequence>" +
                "<Add><CmdID>7</CmdID><Item><Target><LocURI> " + profileUri("New/AuthPw") +
                "\n</LocURI></Target><Data>" + secret + "</Data></Item></Add>" +
                "<Add><CmdID>8</CmdID><Item><Target><LocURI>./X</LocURI></Target>"
                "<Meta><Type>application/vnd.syncml.dmtnds+xml</Type></Meta><Data>&lt;Value&gt;" +
                secret + "&lt;/Value&gt;</Data></Item></Add>" +
                "<Add><CmdID>10</CmdID><Meta><Type>application/vnd.syncml.dmtnds+xml</Type></Meta>"
                "<Item><Target><LocURI>./X</LocURI></Target><Data>&lt;Value&gt;" +
                secret + "&lt;/Value&gt;</Data></Item></Add>" +
                "<Replace><CmdID>9</CmdID><Item><Data>" + secret + "</Data></Item></Replace>");
    const std::string text = traced();
    EXPECT_FALSE(contains(text, secret)) << text;
    EXPECT_FALSE(contains(text, basicProof({"user", secret}).toStdString()));
    EXPECT_TRUE(contains(text, "<Data>********</Data>"));
    EXPECT_TRUE(contains(text, "<Data>internet</Data>")) << "other values are shown";
    EXPECT_EQ(read(profile("Office/Auth/AuthPw")), secret) << "the session itself has them";
}

TEST_P(Trace, HasNoPartOfASecretThatComesInChunks)
{
    const auto chunk = [](const char *id, const char *data, const char *rest) {
        return replace(id, "./Ext/Profiles/Office/Auth/AuthPw", data, rest,
                       "<Meta><Size>11</Size></Meta>");
    };
    server.says({accepted() + chunk("2", "s3cr3t", "<MoreData/>"), false, {}});
    server.says(statusFor("SyncHdr", 200) +
                "<Replace><CmdID>3</CmdID><Item><Data>-Pa55</Data></Item></Replace>");
    const std::string text = traced();
    EXPECT_FALSE(contains(text, "s3cr3t"));
    EXPECT_FALSE(contains(text, "-Pa55"));
    EXPECT_EQ(read(profile("Office/Auth/AuthPw")), secret);
}

TEST_P(Trace, HasNoProofOfHmac)
{
    account.toServer = {AuthType::Hmac, {"user", secret}, QByteArray("N0")};
    const std::string text = traced();
    const QByteArray mac = parseHmacHeader(*server.requests.at(0).hmac)->mac;
    EXPECT_TRUE(contains(text, "x-syncml-hmac: username=\"user\", mac=********\n")) << text;
    EXPECT_FALSE(contains(text, mac.toStdString()));
}

/// Types the same answer to everything.
class Typist final : public UserInteraction {
public:
    Response show(const QString &, const InteractionOptions &) override { return Response::Given; }
    Response confirm(const QString &, const InteractionOptions &) override
    {
        return Response::Given;
    }
    Response ask(const QString &, const InteractionOptions &options, QString &typed) override
    {
        typed = options.isSecret ? QString::fromLatin1(secret) : QStringLiteral("visible");
        return Response::Given;
    }
    Response choose(const QString &, const std::vector<QString> &, Choice,
                    const InteractionOptions &, std::vector<int> &) override
    {
        return Response::Given;
    }
};

TEST_P(Trace, HasNoSecretThatTheUserTyped)
{
    Typist typist;
    server.says(accepted() + alert("2", "1102", {"ET=P", "PIN?"}) + "<Sequence><CmdID>3</CmdID>" +
                alert("4", "1102", {"ET=P", "PUK?"}) + "</Sequence>" +
                alert("5", "1102", {"", "Name?"}));
    const std::string text = traced(&typist);
    EXPECT_FALSE(contains(text, secret)) << text;
    EXPECT_TRUE(contains(text, "<Data>visible</Data>"));
    EXPECT_EQ(sent(2).at(1), std::string("Status 2 Alert 200 [") + secret + "]");
}

TEST_P(Trace, OfWhatCannotBeReadHasTheReasonOnly)
{
    server.replies([](const TransportRequest &request) {
        return TransportResponse{QByteArray("<html>") + secret, {}, {}, request.url};
    });
    const std::string text = traced();
    EXPECT_TRUE(contains(text, "<== unreadable answer from http://dm.example/, 17 bytes of XML\n"))
        << text;
    EXPECT_FALSE(contains(text, secret));
}

TEST_P(Trace, ShowsBinaryDataAsBase64)
{
    syncml::Message message;
    syncml::Command command;
    command.kind = syncml::CommandKind::Replace;
    command.items.emplace_back();
    command.items[0].target = syncml::Location{QStringLiteral("./A"), {}};
    command.items[0].data = QByteArray("\0\1", 2);
    message.commands = {command};
    const QByteArray text = readableMessage(message, {});
    EXPECT_TRUE(text.contains("<Data>AAE=</Data>")) << text.toStdString();
    EXPECT_TRUE(text.contains("<!-- 2 bytes, in base64 -->"));
}

TEST_P(Trace, OfUnknownCommandsIsStillXml)
{
    syncml::Message message;
    for (const char *const name : {"Frobnicate", "a<b>", "", "1", "&#0;"}) {
        syncml::Command command;
        command.name = QString::fromLatin1(name);
        message.commands.push_back(command);
    }
    QXmlStreamReader reader(readableMessage(message, {}));
    while (!reader.atEnd())
        reader.readNext();
    EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString();
}

TEST_P(Trace, ShowsNothingOfTheServersRaw)
{
    const QByteArray hostile = "a\xc2\x9b\xe2\x80\xae\x7f\n-- note\nb";
    server.says(accepted() + get("2", {"./" + hostile}));
    const std::string text = traced();
    EXPECT_TRUE(contains(text, "a\\xc2\\x9b\\xe2\\x80\\xae\\x7f\n    -- note\n    b")) << text;
    for (const char *raw : {"\xc2\x9b", "\xe2\x80\xae", "\x7f", "\n-- note"})
        EXPECT_FALSE(contains(text, raw)) << text;
}

TEST_P(Trace, ThatCannotBeWrittenIsRefused)
{
    QString error;
    EXPECT_EQ(madeOrNull(TraceWriter::open(directory.path()), error), nullptr);
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot write ") + directory.path()));
}

TEST_P(Trace, ThatLosesSomethingSaysSo)
{
    const QFileDevice::Permissions before = QFile::permissions(QStringLiteral("/dev/full"));
    QString error;
    const auto trace = madeOrNull(TraceWriter::open(QStringLiteral("/dev/full")), error);
    ASSERT_TRUE(trace) << error.toStdString();
    EXPECT_FALSE(trace->lossReason());
    Session(account, managementTree, server, nullptr, {trace.get()}, options).run();
    EXPECT_EQ(trace->lossReason(),
              QStringLiteral("cannot write /dev/full: No space left on device"));
    EXPECT_EQ(QFile::permissions(QStringLiteral("/dev/full")), before);
}

IN_BOTH_ENCODINGS(Trace);

} // namespace

} // namespace client
