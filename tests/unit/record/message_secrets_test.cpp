#include "knowing.h"
#include "message_json.h"
#include "message_scan.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

namespace client {
namespace {

using syncml::Command;
using syncml::CommandKind;
using syncml::Encoding;
using syncml::Item;

constexpr char password[] = "hunter2&co";

QByteArray document(const QByteArray &body, const QByteArray &header = "")
{
    return "<SyncML><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto>"
           "<SessionID>1</SessionID><MsgID>1</MsgID><Target><LocURI>d</LocURI></Target>"
           "<Source><LocURI>s</LocURI></Source>" +
           header + "</SyncHdr><SyncBody>" + body + "<Final/></SyncBody></SyncML>";
}

QByteArray replaceOf(const QByteArray &uri, const QByteArray &data, const QByteArray &type = "")
{
    const QByteArray meta = type.isEmpty() ? "" : "<Meta><Type>" + type + "</Type></Meta>";
    return "<Replace><CmdID>1</CmdID><Item><Target><LocURI>" + uri + "</LocURI></Target>" + meta +
           "<Data>" + data + "</Data></Item></Replace>";
}

std::optional<QByteArray> shown(const QByteArray &bytes, const KnownSecrets &known = {})
{
    const auto message = syncml::decode(bytes);
    EXPECT_TRUE(message) << (message ? "" : message.error().toString().toStdString());
    return message ? shownBytes(bytes, *message, MessageSecrecy{.known = known}) : std::nullopt;
}

QByteArray decoded(const QByteArray &bytes)
{
    return QJsonDocument(messageToJson(*syncml::decode(bytes), MessageSecrecy())).toJson();
}

TEST(MessageSecretsTest, OverwritesTheValueOfASecretLeafInPlace)
{
    const QByteArray values[] = {"hunter2&amp;co", "<![CDATA[hunter2&co]]>", "hunter2&#38;co",
                                 "hunt<!-- -->er2&#x26;co"};
    for (const QByteArray &data : values) {
        const QByteArray before = document(replaceOf("./A/AuthPw", data));
        const auto after = shown(before);
        ASSERT_TRUE(after) << data.toStdString();
        EXPECT_EQ(*after, document(replaceOf("./A/AuthPw", QByteArray(data.size(), '*'))))
            << data.toStdString();
        EXPECT_FALSE(decoded(before).contains("hunter2"));
    }
}

TEST(MessageSecretsTest, ValuesOfOtherLeavesStay)
{
    const QByteArray message = document(replaceOf("./A/Addr", "hunter2"));
    EXPECT_EQ(shown(message), message);
    EXPECT_TRUE(decoded(message).contains("hunter2"));
}

TEST(MessageSecretsTest, TheOrderOfTheElementsDoesNotMatter)
{
    const QByteArray message = document(
        "<Replace><Item><Data>hunter2</Data><Target><LocURI>./A/AuthPw</LocURI></Target></Item>"
        "<CmdID>1</CmdID></Replace>");
    EXPECT_EQ(shown(message), QByteArray(message).replace("hunter2", "*******"));
}

TEST(MessageSecretsTest, CredentialsAndDataOfUnknownPlacesAreOverwritten)
{
    const QByteArray cred =
        "<Cred><Meta><Type>syncml:auth-basic</Type></Meta><Data>bWU6aHVudGVyMg==</Data></Cred>";
    const QByteArray body = "<Put><CmdID>1</CmdID><Item><Data>hunter2</Data></Item></"
                            "Put><Odd><Data>hunter2</Data></Odd>";
    const auto after = shown(document(body, cred));
    ASSERT_TRUE(after);
    EXPECT_FALSE(after->contains("hunter2"));
    EXPECT_FALSE(after->contains("bWU6"));
}

constexpr char tree[] =
    "<MgmtTree><VerDTD>1.2</VerDTD><Node><NodeName>A</NodeName><Node><NodeName>AuthPw</NodeName>"
    "<Value>hunter2</Value></Node><Node><NodeName>Addr</NodeName><Value>internet</Value></Node>"
    "</Node></MgmtTree>";
constexpr char treeType[] = "application/vnd.syncml.dmtnds+xml";

TEST(MessageSecretsTest, OfASerialisedTreeOnlySecretLeavesAreOverwritten)
{
    for (const QByteArray &data :
         {QByteArray(tree), QString::fromLatin1(tree).toHtmlEscaped().toLatin1(),
          "<![CDATA[" + QByteArray(tree) + "]]>"}) {
        const QByteArray before = document(replaceOf("./A", data, treeType));
        const auto after = shown(before);
        ASSERT_TRUE(after) << data.toStdString();
        EXPECT_EQ(*after, QByteArray(before).replace("hunter2", "*******"));
        const QByteArray json = decoded(before);
        EXPECT_FALSE(json.contains("hunter2"));
        EXPECT_TRUE(json.contains("internet"));
        EXPECT_TRUE(json.contains("********"));
    }
}

TEST(MessageSecretsTest, OfASerialisedTreeALeafIsSecretWithItsNameEscapedOrWithoutOne)
{
    for (const char *const name : {"Auth%50w", "%41%75%74%68%50%77", ""}) {
        const QByteArray data = QByteArray(tree).replace("AuthPw", name);
        const QByteArray before = document(replaceOf("./A", data, treeType));
        const auto after = shown(before);
        ASSERT_TRUE(after) << name;
        EXPECT_EQ(*after, QByteArray(before).replace("hunter2", "*******")) << name;
    }
}

TEST(MessageSecretsTest, ATreeThatCannotBeReadIsOverwrittenAsAWhole)
{
    const QByteArray data = "&lt;MgmtTree>&lt;Node>&lt;NodeName>AuthPw&lt;/NodeName>hunter2";
    const QByteArray before = document(replaceOf("./A", data, treeType));
    const auto after = shown(before);
    ASSERT_TRUE(after);
    EXPECT_EQ(*after, document(replaceOf("./A", QByteArray(data.size(), '*'), treeType)));
}

TEST(MessageSecretsTest, KnownSecretsAreOverwrittenWhereAMessageSaysNothing)
{
    struct Row {
        QByteArray body;
        QByteArray shown;
    };
    const Row rows[] = {
        {"<!-- hunter2 -->", "<!-- ******* -->"},
        {"<?note hunter2?>", "<?note *******?>"},
        {"<Odd>hunter2</Odd>", "<Odd>*******</Odd>"},
        {"<Odd>hun<!-- -->te<![CDATA[r2]]></Odd>", "<Odd>***<!-- -->**<![CDATA[**]]></Odd>"},
        {"<Odd>h&#117;nter2</Odd>", "<Odd>************</Odd>"},
        {"<Odd a='hunter2'/>", "<Odd a='*******'/>"},
        {"<Odd a='&#x68;unter2'/>", "<Odd a='************'/>"},
        {"<hunter2/>", "<*******/>"},
        {"<Odd>68756e74657232</Odd>", "<Odd>**************</Odd>"},
        {"<Get><CmdID>2</CmdID><Meta><EMI>hunter2</EMI></Meta><Item><Target><LocURI>./A</LocURI>"
         "</Target></Item></Get>",
         "<Get><CmdID>2</CmdID><Meta><EMI>*******</EMI></Meta><Item><Target><LocURI>./A</LocURI>"
         "</Target></Item></Get>"},
        {replaceOf("./A/Addr", "x<!-- hunter2 -->"), replaceOf("./A/Addr", "x<!-- ******* -->")},
    };
    for (const Row &row : rows) {
        if (row.shown.contains("<***")) // would have to be well-formed
            EXPECT_EQ(shown(document(row.body), knowing("hunter2")), std::nullopt);
        else
            EXPECT_EQ(shown(document(row.body), knowing("hunter2")), document(row.shown))
                << row.body.toStdString();
    }
}

TEST(MessageSecretsTest, ATextThatIsShownStaysAlthoughItIsASecretElsewhere)
{
    const QByteArray message =
        document(replaceOf("./A/hunter2", "hunter2") + replaceOf("./A/AuthPw", "hunter2"));
    const auto after = shown(message, knowing("hunter2"));
    EXPECT_EQ(after,
              document(replaceOf("./A/hunter2", "hunter2") + replaceOf("./A/AuthPw", "*******")));
}

Command replaceCommand(const QString &uri, const QByteArray &data)
{
    Command command;
    command.kind = CommandKind::Replace;
    command.cmdId = QStringLiteral("1");
    Item item;
    item.target = syncml::Location{uri, {}};
    item.data = data;
    command.items = {item};
    return command;
}

TEST(MessageSecretsTest, Wbxml)
{
    const auto message = syncml::decode(document(""));
    syncml::Message written = *message;
    written.commands = {replaceCommand(QStringLiteral("./A/AuthPw"), password),
                        replaceCommand(QStringLiteral("./A/Addr"), "internet")};
    const QByteArray bytes = *syncml::encode(written, Encoding::Wbxml);
    EXPECT_EQ(shown(bytes), QByteArray(bytes).replace(password, QByteArray(10, '*')));
}

/// A message in WBXML with that string table, in which one more command has that Meta.
QByteArray wbxmlWith(const QByteArray &table, const QByteArray &meta)
{
    syncml::Message written = *syncml::decode(document(""));
    written.commands = {replaceCommand(QStringLiteral("./A/Addr"), "internet")};
    QByteArray bytes = *syncml::encode(written, Encoding::Wbxml);
    // The length of the string table is the fifth byte. Meta stands before the Item of the command.
    bytes[4] = static_cast<char>(table.size());
    bytes.insert(5, table);
    const qsizetype item = bytes.indexOf(QByteArray("\x54\x6E\x57", 3));
    EXPECT_GE(item, 0);
    return bytes.insert(item, meta);
}

TEST(MessageSecretsTest, KnownSecretsAreOverwrittenWhereWbxmlSaysNothing)
{
    const QByteArray emi("\x5A\x00\x01\x46\x03hunter2\x00\x01\x00\x00\x01", 17);
    const QByteArray inPieces("\x5A\x00\x01\x46\x03hun\x00\x02\x74\xC3\x03"
                              "er2\x01\x00\x00\x01",
                              20);
    const QByteArray fromTable("\x5A\x00\x01\x46\x83\x00\x01\x00\x00\x01", 10);
    const QByteArray table("hunter2\0other", 14);
    for (const QByteArray &bytes : {wbxmlWith("", emi), wbxmlWith("", inPieces),
                                    wbxmlWith(table, fromTable), wbxmlWith(table, "")}) {
        const auto after = shown(bytes, knowing("hunter2"));
        ASSERT_TRUE(after) << bytes.toHex(' ').toStdString();
        for (const char *const part : {"hunter2", "hun", "er2"})
            EXPECT_FALSE(after->contains(part)) << bytes.toHex(' ').toStdString();
        EXPECT_TRUE(after->contains("internet"));
        EXPECT_EQ(after->contains("other"), bytes.contains("other"));
    }
}

TEST(MessageSecretsTest, WbxmlIsNotFollowedBeyondALiteralTag)
{
    // The index after a literal tag would be taken for a switch of the code page.
    QByteArray bytes = wbxmlWith("", QByteArray("\x44\x00\x4F\x03hunter2\x00\x01\x01", 14));
    EXPECT_FALSE(syncml::decode(bytes));
    overwrite(bytes, possiblySecretSpans(bytes, Encoding::Wbxml));
    EXPECT_FALSE(bytes.contains("hunter2"));
}

TEST(MessageSecretsTest, ASecretInTheStringTableOfWbxmlTakesTheBytesAlong)
{
    const auto message = syncml::decode(document(""));
    syncml::Message written = *message;
    written.commands = {replaceCommand(QStringLiteral("./A/AuthPw"), password)};
    QByteArray bytes = *syncml::encode(written, Encoding::Wbxml);
    // The length of the string table is the fifth byte; the value becomes a reference to it.
    const QByteArray opaque = QByteArray("\xC3\x0A", 2) + password;
    ASSERT_TRUE(bytes.contains(opaque));
    bytes.replace(opaque, QByteArray("\x83\x00", 2));
    bytes[4] = sizeof password;
    bytes.insert(5, QByteArray(password, sizeof password));
    ASSERT_EQ(syncml::decode(bytes)->commands[0].items[0].data, QByteArray(password));
    EXPECT_EQ(shown(bytes), std::nullopt);
}

TEST(MessageSecretsTest, OfAMessageThatCannotBeReadAllDataAndNoncesAreOverwritten)
{
    const QByteArray whole =
        document(replaceOf("./A/Addr", "hunter2") +
                 "<Status><Chal><Meta><NextNonce>nonce2</NextNonce></Meta></Chal>"
                 "</Status>");
    for (qsizetype size = 0; size <= whole.size(); ++size) {
        QByteArray cut = whole.first(size);
        overwrite(cut, possiblySecretSpans(cut, Encoding::Xml));
        EXPECT_EQ(cut.size(), size);
        EXPECT_FALSE(cut.contains("hun")) << cut.toStdString();
        EXPECT_FALSE(cut.contains("non")) << cut.toStdString();
    }
    for (const char *const broken : {"<Data>hunter2</B>hunter2</Data>", "<Data>a<hunter2</Data>",
                                     "<x:Data a='>'>hunter2</x:Data>", "</><Data>hunter2"}) {
        QByteArray bytes = broken;
        overwrite(bytes, possiblySecretSpans(bytes, Encoding::Xml));
        EXPECT_FALSE(bytes.contains("hunter2")) << bytes.toStdString();
    }
}

TEST(MessageSecretsTest, OfAWbxmlMessageThatCannotBeReadNothingAfterTheFaultIsShown)
{
    const auto message = syncml::decode(document(""));
    syncml::Message written = *message;
    written.commands = {replaceCommand(QStringLiteral("./A/Addr"), "hunter2")};
    const QByteArray whole = *syncml::encode(written, Encoding::Wbxml);
    for (qsizetype place = 0; place < whole.size(); ++place) {
        for (const char change : {'\x00', '\x01', '\x02', '\x03', '\x7F', '\x83', '\xC3', '\xFF'}) {
            QByteArray changed = whole;
            changed[place] = change;
            overwrite(changed, possiblySecretSpans(changed, Encoding::Wbxml));
            EXPECT_EQ(changed.size(), whole.size());
        }
        QByteArray cut = whole.first(place);
        overwrite(cut, possiblySecretSpans(cut, Encoding::Wbxml));
        EXPECT_FALSE(cut.contains("hun")) << place;
    }
}

} // namespace
} // namespace client
