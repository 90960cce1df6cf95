// Reading and writing WBXML. The byte vectors were put together by hand from the token tables.

#include "wbxml_codec.h"

#include "decode_result.h"
#include "sample_messages.h"
#include "xml_codec.h"

#include <QList>
#include <gtest/gtest.h>

using namespace syncml;

namespace {

/// Bytes from hexadecimal pairs, and texts in single quotes.
QByteArray bytes(const char *notation)
{
    QByteArray result;
    bool first = true;
    for (const QByteArray &part : QByteArray(notation).split('\'')) {
        result += first ? QByteArray::fromHex(part) : part;
        first = !first;
    }
    return result;
}

/// WBXML 1.2, SyncML 1.2 by number, UTF-8, no string table.
constexpr auto prologue = "02 A401 6A 00";

constexpr auto plainHeader = " 6C"
                             "  71 03 '1.2' 00 01"
                             "  72 03 'DM/1.2' 00 01"
                             "  65 03 'A1' 00 01"
                             "  5B 03 '1' 00 01"
                             "  6E 57 03 'IMEI:493005100592800' 00 01 01"
                             "  67 57 03 'http://dm.example/dm' 00 01 01"
                             " 01";

/// A whole message around the content of its SyncBody.
QByteArray messageWbxml(const QByteArray &body)
{
    return bytes(prologue) + bytes("6D") + bytes(plainHeader) + bytes("6B") + body + bytes("01 01");
}

Message decoded(const QByteArray &wbxml)
{
    return decode_result::message(decodeWbxml(wbxml));
}

std::string errorOf(const QByteArray &wbxml, const Limits &limits = {})
{
    return decode_result::error(decodeWbxml(wbxml, limits));
}

std::string encodedHex(const Message &message)
{
    const EncodeResult result = encodeWbxml(message);
    if (!result)
        return result.error().text.toStdString();
    return result->toHex(' ').toStdString();
}

/// Data of the item of `Replace(Item(Data(content)))`, where `content` is the content of Data.
QByteArray dataOf(const QByteArray &content)
{
    const Message message = decoded(messageWbxml(bytes("60 54 4F") + content + bytes("01 01 01")));
    if (message.commands.size() != 1 || message.commands.front().items.size() != 1) {
        ADD_FAILURE() << "not one command with one item";
        return {};
    }
    return message.commands.front().items.front().data.value_or("no Data");
}

QString cmdIdOf(const QByteArray &content)
{
    const Message message = decoded(messageWbxml(bytes("53 4B") + content + bytes("01 01")));
    return message.commands.empty() ? QString()
                                    : message.commands.front().cmdId.value_or(QString());
}

std::string errorInCmdId(const QByteArray &content)
{
    return errorOf(messageWbxml(bytes("53 4B") + content + bytes("01 01")));
}

// ---- byte vectors

Message clientPackage()
{
    Message message;
    message.header = samples::plainHeader();
    message.header.meta.emplace();
    message.header.meta->maxMsgSize = QStringLiteral("5000");
    Command alert;
    alert.kind = CommandKind::Alert;
    alert.cmdId = QStringLiteral("1");
    alert.data = QByteArray("1201");
    Command replace;
    replace.kind = CommandKind::Replace;
    replace.cmdId = QStringLiteral("2");
    Item item;
    item.source.emplace();
    item.source->locUri = QStringLiteral("./DevInfo/Lang");
    item.meta.emplace();
    item.meta->format = QStringLiteral("chr");
    item.meta->type = QStringLiteral("text/plain");
    item.data = QByteArray("en");
    replace.items = {item};
    message.commands = {alert, replace};
    message.final = true;
    return message;
}

QByteArray clientPackageBytes()
{
    return bytes("02 A401 6A 00"
                 "6D" // SyncML
                 " 6C"
                 "  71 03 '1.2' 00 01"
                 "  72 03 'DM/1.2' 00 01"
                 "  65 03 'A1' 00 01"
                 "  5B 03 '1' 00 01"
                 "  6E 57 03 'IMEI:493005100592800' 00 01 01"
                 "  67 57 03 'http://dm.example/dm' 00 01 01"
                 "  5A 00 01 4C 03 '5000' 00 01 01" // Meta, page 1, MaxMsgSize
                 " 01"
                 " 00 00 6B"                                  // page 0, SyncBody
                 "  46 4B 03 '1' 00 01 4F C3 04 '1201' 01 01" // Alert, CmdID, Data
                 "  60 4B 03 '2' 00 01"                       // Replace, CmdID
                 "   54"                                      // Item
                 "    67 57 03 './DevInfo/Lang' 00 01 01"     // Source, LocURI
                 "    5A 00 01 47 03 'chr' 00 01 53 03 'text/plain' 00 01 01"
                 "    00 00 4F C3 02 'en' 01"
                 "   01"
                 "  01"
                 "  12" // Final
                 " 01"
                 "01");
}

TEST(WbxmlVectors, ClientPackageIsWrittenByteForByte)
{
    EXPECT_EQ(encodedHex(clientPackage()), clientPackageBytes().toHex(' ').toStdString());
}

TEST(WbxmlVectors, ClientPackageIsRead)
{
    EXPECT_EQ(decoded(clientPackageBytes()), clientPackage());
}

TEST(WbxmlVectors, ResultsWithChallengeAndLargeBinaryValue)
{
    Message message;
    message.header = samples::plainHeader();
    Command status;
    status.kind = CommandKind::Status;
    status.cmdId = QStringLiteral("1");
    status.msgRef = QStringLiteral("3");
    status.cmdRef = QStringLiteral("0");
    status.cmd = QStringLiteral("SyncHdr");
    status.targetRefs = {QStringLiteral("a")};
    status.sourceRefs = {QStringLiteral("b")};
    status.chal.emplace();
    status.chal->meta.format = QStringLiteral("b64");
    status.chal->meta.type = QStringLiteral("syncml:auth-md5");
    status.chal->meta.nextNonce = QByteArray("Tm9uY2U=");
    status.data = QByteArray("401");
    Command results;
    results.kind = CommandKind::Results;
    results.cmdId = QStringLiteral("2");
    results.msgRef = QStringLiteral("3");
    results.cmdRef = QStringLiteral("4");
    Item item;
    item.source.emplace();
    item.source->locUri = QStringLiteral("./B");
    item.meta.emplace();
    item.meta->format = QStringLiteral("bin");
    item.meta->size = QStringLiteral("300");
    item.data = QByteArray(130, '\0') + QByteArray("\x01\xFF");
    item.moreData = true;
    results.items = {item};
    message.commands = {status, results};

    const QByteArray expected =
        bytes("02 A401 6A 00 6D") + bytes(plainHeader) +
        bytes("6B"
              " 69 4B 03 '1' 00 01 5C 03 '3' 00 01 4C 03 '0' 00 01 4A 03 'SyncHdr' 00 01"
              "  6F 03 'a' 00 01 68 03 'b' 00 01"
              "  49 5A 00 01 47 03 'b64' 00 01 53 03 'syncml:auth-md5' 00 01"
              "   50 03 'Tm9uY2U=' 00 01 01 01"
              "  00 00 4F C3 03 '401' 01"
              " 01"
              " 62 4B 03 '2' 00 01 5C 03 '3' 00 01 4C 03 '4' 00 01"
              "  54 67 57 03 './B' 00 01 01"
              "   5A 00 01 47 03 'bin' 00 01 52 03 '300' 00 01 01"
              "   00 00 4F C3 8104") + // 132 bytes
        QByteArray(130, '\0') +
        bytes("01FF 01 34 01 01 01 01");
    EXPECT_EQ(encodedHex(message), expected.toHex(' ').toStdString());
    EXPECT_EQ(decoded(expected), message);
}

TEST(WbxmlVectors, ServerPackageWithPublicTextAndStringTable)
{
    // Public id as text at 0; './A' at 30 (1E) and '1.2' at 34 (22), both used more than once.
    const Message message = decoded(
        bytes("03 00 00 6A 2A '-//SYNCML//DTD SyncML 1.2//EN' 00 './A' 00 '1.2' 00 'end'  00"
              "6D 6C 71 83 22 01 72 03 'DM/' 00 83 22 01 65 03 'A1' 00 01 5B 03 '1' 00 01"
              "   6E 57 03 'x' 00 01 01 67 57 03 'y' 00 01 01 01"
              "6B 64 4B 03 '1' 00 01"                          // Sequence
              "    53 4B 03 '2' 00 01 54 6E 57 83 1E 01 01 01" // Get, Item, Target
              "                       54 6E 57 83 1E 03 '/B' 00 01 01 01 01"
              "    45 4B 03 '3' 00 01"                                            // Add
              "     5A 00 01 4E 53 03 'text/plain' 00 01 47 03 'chr' 00 01 01 01" // MetInf
              "     00 00 54 6E 57 83 1E 03 '/C' 00 01 01 4F 83 22 01 01 01"
              "   01"
              "12 01 01"));
    EXPECT_EQ(message.header.verDtd, u"1.2");
    EXPECT_EQ(message.header.verProto, u"DM/1.2");
    ASSERT_EQ(message.commands.size(), 1u);
    const Command &sequence = message.commands.front();
    EXPECT_EQ(sequence.kind, CommandKind::Sequence);
    ASSERT_EQ(sequence.commands.size(), 2u);
    ASSERT_EQ(sequence.commands[0].items.size(), 2u);
    EXPECT_EQ(sequence.commands[0].items[0].target->locUri, u"./A");
    EXPECT_EQ(sequence.commands[0].items[1].target->locUri, u"./A/B");
    EXPECT_EQ(sequence.commands[1].meta->type, QStringLiteral("text/plain"));
    EXPECT_EQ(sequence.commands[1].meta->format, QStringLiteral("chr"));
    EXPECT_EQ(sequence.commands[1].items[0].target->locUri, u"./A/C");
    EXPECT_EQ(sequence.commands[1].items[0].data, QByteArray("1.2"));
    EXPECT_TRUE(message.final);
}

TEST(WbxmlWriter, WritesLengthsInGroupsOfSevenBits)
{
    for (const auto &[size, length] :
         std::initializer_list<std::pair<qsizetype, const char *>>{{1, "C3 01"},
                                                                   {127, "C3 7F"},
                                                                   {128, "C3 8100"},
                                                                   {16'383, "C3 FF7F"},
                                                                   {16'384, "C3 818000"},
                                                                   {2'097'151, "C3 FFFF7F"},
                                                                   {2'097'152, "C3 81808000"}}) {
        const Message message = samples::messageWithData(QByteArray(size, 'x'));
        const EncodeResult encoded = encodeWbxml(message);
        ASSERT_TRUE(encoded);
        EXPECT_TRUE(encoded->contains(bytes("4F") + bytes(length) + 'x')) << size;
        EXPECT_TRUE(decoded(*encoded) == message) << size;
    }
}

// ---- what is taken

TEST(WbxmlReader, TakesEveryFormOfThePublicId)
{
    const Message expected = decoded(messageWbxml(bytes("13")));
    const QByteArray body = bytes("6D") + bytes(plainHeader) + bytes("6B 13 01 01");
    for (const char *const start :
         {"01 A401 6A 00", "02 A401 6A 00", "03 A401 6A 00", "03 9F53 6A 00", "03 01 6A 00",
          "03 01 00 00", "03 01 03 00", "0F 01 6A 00",
          "02 00 00 6A 1E '-//SYNCML//DTD SyncML 1.2//EN' 00",
          "02 00 02 6A 20 'x' 00 '-//SYNCML//DTD SyncML 1.1//EN' 00"}) {
        SCOPED_TRACE(start);
        EXPECT_EQ(decoded(bytes(start) + body), expected);
    }
}

TEST(WbxmlReader, KeepsDataAsTheBytesSent)
{
    QByteArray all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    EXPECT_EQ(dataOf(bytes("C3 8200") + all), all);
    EXPECT_EQ(dataOf(bytes("03 'text' 00")), QByteArray("text"));
    EXPECT_EQ(dataOf(bytes("C3 00")), QByteArray(""));
    EXPECT_EQ(dataOf(bytes("C3 10 ']]></Data><Get/>'")), QByteArray("]]></Data><Get/>"));
    EXPECT_EQ(dataOf(QByteArray()), QByteArray(""));
}

TEST(WbxmlReader, JoinsThePiecesOfAText)
{
    EXPECT_EQ(dataOf(bytes("03 'a' 00 C3 02 'bc' 03 00 02 64 C3 01 00 02 84AD76")), // d, U+116F6
              QByteArray("abcd\0\xF0\x91\x9B\xB6", 9));
    EXPECT_EQ(cmdIdOf(bytes("03 ' 1' 00 02 8169 C3 02 '2 '")), QStringLiteral("1\u00E92"));
}

TEST(WbxmlReader, KeepsANestedDocumentAsItIs)
{
    const QByteArray tree = bytes("02 00 00 6A 1B '-//OMA//DTD-DM-DDF 1.2//EN' 00 00 02 60 01");
    EXPECT_EQ(dataOf(bytes("C3 24") + tree), tree);
}

TEST(WbxmlReader, KeepsAnOpaqueNonceAsItsOctets)
{
    // Get(Meta(NextNonce(opaque)))
    const QByteArray wbxml = messageWbxml(bytes("53 4B 03 '1' 00 01"
                                                " 5A 00 01 50 C3 03 FF 00 41 01 01"
                                                " 00 00 54 01 01"));
    const Message message = decoded(wbxml);
    ASSERT_EQ(message.commands.size(), 1u);
    EXPECT_EQ(message.commands.front().meta->nextNonce, QByteArray("\xFF\0A", 3));
    EXPECT_EQ(encodedHex(message), wbxml.toHex(' ').toStdString());
}

TEST(WbxmlReader, TellsMissingFromEmpty)
{
    // Replace with the items: none of anything, Data without content, Data with an end only.
    const Message message = decoded(messageWbxml(bytes("60 14 54 0F 01 54 4F 01 01 01")));
    ASSERT_EQ(message.commands.front().items.size(), 3u);
    EXPECT_EQ(message.commands.front().cmdId, std::nullopt);
    EXPECT_EQ(message.commands.front().items[0], Item());
    EXPECT_EQ(message.commands.front().items[1].data, QByteArray(""));
    EXPECT_EQ(message.commands.front().items[2].data, QByteArray(""));
}

TEST(WbxmlReader, SkipsElementsUnusedInDM)
{
    // Delete: NoResp, Archive, SftDel, Cred(Data), Item(Target(LocURI, Filter(Record)),
    // Meta(Anchor(Next), Version, Mem(FreeMem), FieldLevel), SourceParent(LocURI))
    const Message message =
        decoded(messageWbxml(bytes("50 4B 03 '1' 00 01 1D 07 26 4E 4F 03 'x' 00 01 01"
                                   " 54 6E 57 03 'u' 00 01 76 37 01 01"
                                   "  5A 00 01 45 4F 03 '1' 00 01 01 54 03 '1' 00 01 4D 09 01 16 01"
                                   "  00 00 79 17 01"
                                   " 01 01")));
    ASSERT_EQ(message.commands.size(), 1u);
    Command expected;
    expected.kind = CommandKind::Delete;
    expected.cmdId = QStringLiteral("1");
    expected.items.emplace_back();
    expected.items.front().target.emplace();
    expected.items.front().target->locUri = QStringLiteral("u");
    expected.items.front().meta.emplace();
    EXPECT_EQ(message.commands.front(), expected);
}

TEST(WbxmlReader, KeepsWhatIsNoDMCommandApart)
{
    // Map(CmdID), LocURI('x'), Get
    const Message message =
        decoded(messageWbxml(bytes("58 4B 03 '1' 00 01 59 19 01 01 57 03 'x' 00 01 13")));
    ASSERT_EQ(message.commands.size(), 3u);
    EXPECT_EQ(message.commands[0].kind, CommandKind::Unsupported);
    EXPECT_EQ(commandName(message.commands[0]), u"Map");
    EXPECT_EQ(message.commands[0].cmdId, QStringLiteral("1"));
    EXPECT_EQ(message.commands[1].kind, CommandKind::Unknown);
    EXPECT_EQ(commandName(message.commands[1]), u"LocURI");
    EXPECT_EQ(message.commands[2].kind, CommandKind::Get);
}

TEST(WbxmlReader, StaysOnACodePageUntilTheNextSwitch)
{
    // Two Metas; the second begins on page 0 after a superfluous switch, Item after Meta needs one.
    const Message message =
        decoded(messageWbxml(bytes("45 5A 00 01 47 03 'int' 00 01 01 00 01 00 00"
                                   " 54 5A 00 01 00 01 53 03 't' 00 01 01 00 00 34 01 01")));
    ASSERT_EQ(message.commands.size(), 1u);
    EXPECT_EQ(message.commands.front().meta->format, QStringLiteral("int"));
    EXPECT_EQ(message.commands.front().items.front().meta->type, QStringLiteral("t"));
    EXPECT_TRUE(message.commands.front().items.front().moreData);
}

// ---- what is refused

TEST(WbxmlReader, NamesTheByteOfAFault)
{
    const DecodeResult result = decodeWbxml(messageWbxml(bytes("53 4B 04")));
    ASSERT_FALSE(result);
    const auto &error = result.error();
    const qsizetype place = messageWbxml(bytes("53 4B 04")).size() - 2;
    EXPECT_EQ(error.offset, place);
    EXPECT_EQ(error.line, 0);
    EXPECT_EQ(error.toString().toStdString(),
              "byte " + std::to_string(place) + ": token 0x04 has no place in a SyncML message");
    EXPECT_EQ(error.header, samples::plainHeader());
}

TEST(WbxmlReader, RefusesEveryTruncation)
{
    const QByteArray whole = clientPackageBytes();
    for (qsizetype size = 0; size < whole.size(); ++size)
        EXPECT_EQ(errorOf(whole.first(size)).substr(0, 3), "400") << size;
}

TEST(WbxmlReader, RefusesBytesAfterTheEnd)
{
    EXPECT_EQ(errorOf(clientPackageBytes() + '\0'), "400 bytes after the end of the message");
    EXPECT_EQ(errorOf(bytes("02 A401 6A 00 01")), "400 an end without an element");
}

TEST(WbxmlReader, RefusesOtherDocumentsAndCharacterSets)
{
    EXPECT_EQ(errorOf(bytes("12 A401 6A 00 2D")),
              "415 WBXML of version byte 0x12 is not supported");
    EXPECT_EQ(errorOf(bytes("02 A403 6A 00 2D")), "415 public id 0x1203 is not SyncML");
    EXPECT_EQ(errorOf(bytes("02 05 6A 00 2D")), "415 public id 0x05 is not SyncML");
    EXPECT_EQ(errorOf(bytes("02 00 00 6A 1B '-//OMA//DTD-DM-DDF 1.2//EN' 00 2D")),
              "415 public id '-//OMA//DTD-DM-DDF 1.2//EN' is not SyncML");
    EXPECT_EQ(errorOf(bytes("02 00 00 6A 05 1B '[2J' 00 2D")),
              "415 public id '%1B%5B2J' is not SyncML");
    EXPECT_EQ(errorOf(bytes("02 00 00 6A 8140") + QByteArray(191, 'x') + bytes("00 2D")),
              "415 public id '" + std::string(64, 'x') + "' is not SyncML");
    EXPECT_EQ(errorOf(bytes("02 00 05 6A 02 'x' 00 2D")), "400 no string at 5 of the string table");
    EXPECT_EQ(errorOf(bytes("02 A401 04 00 2D")),
              "415 character set 4 is not supported, only UTF-8 (106) is");
    EXPECT_EQ(errorOf(bytes("02 A401 6A 00 2C")), "400 the document is SyncHdr, not SyncML");
}

TEST(WbxmlReader, RefusesUnknownTagsAndPages)
{
    EXPECT_EQ(errorOf(messageWbxml(bytes("30"))), "400 tag 0x30 of code page 0 is not known");
    EXPECT_EQ(errorOf(messageWbxml(bytes("7D 01"))), "400 tag 0x3d of code page 0 is not known");
    EXPECT_EQ(errorOf(messageWbxml(bytes("00 01 57 01"))),
              "400 tag 0x17 of code page 1 is not known");
    EXPECT_EQ(errorOf(messageWbxml(bytes("00 02 60 01"))),
              "400 tag 0x20 of code page 2 is not known");
    EXPECT_EQ(errorOf(messageWbxml(bytes("00 FF 13"))),
              "400 tag 0x13 of code page 255 is not known");
}

TEST(WbxmlReader, RefusesTokensThatHaveNoPlace)
{
    for (const char *const token :
         {"04 00", "40 'x' 00", "41 'x' 00", "42 'x' 00", "43 05 01", "44 00 01", "80 00", "81 00",
          "82 00", "84 00", "C0", "C1", "C2", "C4 00", "93 05 01", "D3 05 01 01"}) {
        SCOPED_TRACE(token);
        const std::string error = errorOf(messageWbxml(bytes(token)));
        EXPECT_EQ(error.substr(0, 10), "400 token ") << error;
        EXPECT_NE(error.find("has no place in a SyncML message"), std::string::npos) << error;
    }
}

TEST(WbxmlReader, RefusesElementsInsideTextsAndTextBetweenElements)
{
    EXPECT_EQ(errorOf(messageWbxml(bytes("60 54 4F 53 01 01 01 01"))),
              "400 Get inside Data, which holds text only");
    EXPECT_EQ(errorInCmdId(bytes("15")), "400 Lang inside CmdID, which holds text only");
    EXPECT_EQ(errorOf(messageWbxml(bytes("03 'x' 00"))), "400 text where only elements can stand");
    EXPECT_EQ(errorOf(messageWbxml(bytes("03 ' ' 00"))), "no error");
}

TEST(WbxmlReader, RefusesTextsThatXMLCouldNotCarry)
{
    EXPECT_EQ(errorInCmdId(bytes("03 FF 00")), "400 CmdID is not text in UTF-8");
    EXPECT_EQ(errorInCmdId(bytes("C3 02 '1' 00")), "400 CmdID is not text in UTF-8");
    EXPECT_EQ(errorInCmdId(bytes("C3 01 1B")), "400 CmdID is not text in UTF-8");
    EXPECT_EQ(errorInCmdId(bytes("03 C3 00 03 A9 00")), "no error"); // a character in two pieces
}

TEST(WbxmlReader, RefusesEntitiesThatAreNoCharacters)
{
    EXPECT_EQ(errorInCmdId(bytes("02 00")), "400 entity 0 is not a character");
    EXPECT_EQ(errorInCmdId(bytes("02 83B000")), "400 entity 55296 is not a character"); // D800
    EXPECT_EQ(errorInCmdId(bytes("02 C48000")), "400 entity 1114112 is not a character");
    EXPECT_EQ(errorInCmdId(bytes("02 8FFFFFFF7F")), "400 entity 4294967295 is not a character");
    // Cut to its lower bits it would be U+10000.
    EXPECT_EQ(errorInCmdId(bytes("02 A0848000")), "400 entity 67174400 is not a character");
    EXPECT_EQ(errorInCmdId(bytes("02 9080808000")), "400 a number of more than 32 bits");
    EXPECT_EQ(errorInCmdId(bytes("02 8FFFFFFFFF7F")), "400 a number of more than 32 bits");
}

TEST(WbxmlReader, RefusesLengthsAndReferencesBeyondTheEnd)
{
    EXPECT_EQ(errorOf(bytes("02 A401 6A 05 'abc' 00")),
              "400 5 bytes announced, but only 4 are left");
    EXPECT_EQ(errorOf(bytes("02 A401 6A 8FFFFFFF7F")),
              "400 4294967295 bytes announced, but only 0 are left");
    EXPECT_EQ(errorInCmdId(bytes("83 00")), "400 no string at 0 of the string table");
    EXPECT_EQ(errorOf(bytes("02 A401 6A 03 'abc' 6D 83 01")),
              "400 no string at 1 of the string table"); // not ended inside the table
    EXPECT_EQ(errorInCmdId(bytes("C3 7F '1'")).substr(0, 24), "400 127 bytes announced,");
    EXPECT_EQ(errorOf(messageWbxml(bytes("53 4B")).chopped(2) + bytes("03 'abc'")),
              "400 the message breaks off");
}

TEST(WbxmlReader, RefusesASecondElementWhereOneCanBe)
{
    EXPECT_EQ(errorOf(messageWbxml(bytes("53 0B 0B 01"))), "400 a second CmdID in one Get");
    EXPECT_EQ(errorOf(messageWbxml(bytes("53 54 0F 0F 01 01"))), "400 a second Data in one Item");
}

// ---- hostile messages, each of which brings a widely used decoder down

TEST(HostileWbxml, EntityWithALargeNumber)
{
    const QByteArray message = bytes("02 A401 6A 00 6D 6C 71 02 8FFFFFFF7F 01 01 6B 12 01 01");
    EXPECT_EQ(errorOf(message), "400 entity 4294967295 is not a character");
}

TEST(HostileWbxml, DataThatLooksLikeTheEndOfDataStaysData)
{
    const QByteArray attack = "]]></Data></Item></Add><Delete><CmdID>6</CmdID><Item><Target>"
                              "<LocURI>./A</LocURI></Target></Item></Delete>";
    Message message = samples::messageWithData(attack);
    const EncodeResult encoded = encodeWbxml(message);
    ASSERT_TRUE(encoded);
    EXPECT_EQ(decoded(*encoded), message);
    const EncodeResult xml = encodeXml(decoded(*encoded));
    ASSERT_TRUE(xml);
    EXPECT_EQ(decode_result::message(decodeXml(*xml)), message);
}

TEST(HostileWbxml, TwoPiecesOfDataDoNotSwallowTheCommandsThatFollow)
{
    // Add(CmdID, Item(Data(opaque, opaque))), Delete(CmdID, Item), Get(CmdID, Item)
    const Message message =
        decoded(messageWbxml(bytes("45 4B 03 '1' 00 01 54 4F C3 01 'a' C3 01 'b' 01 01 01"
                                   "50 4B 03 '2' 00 01 14 01"
                                   "53 4B 03 '3' 00 01 14 01")));
    ASSERT_EQ(message.commands.size(), 3u);
    EXPECT_EQ(message.commands[0].items.front().data, QByteArray("ab"));
    EXPECT_EQ(message.commands[1].kind, CommandKind::Delete);
    EXPECT_EQ(message.commands[2].kind, CommandKind::Get);
}

TEST(HostileWbxml, ElementsNested200KBDeep)
{
    const std::string tooDeep = "416 more than 64 elements inside each other";
    for (const char *const tag :
         {"64", "48", "53", "54", "6D"}) { // Sequence, Atomic, Get, Item, SyncML
        SCOPED_TRACE(tag);
        EXPECT_EQ(errorOf(bytes(prologue) + bytes("6D") + bytes(tag).repeated(200'000)), tooDeep);
        EXPECT_EQ(errorOf(messageWbxml(bytes(tag).repeated(200'000))), tooDeep);
    }
    // Sequence(CmdID(CmdID(...: a text has no children, so the second is the fault.
    EXPECT_EQ(errorOf(messageWbxml(bytes("64") + bytes("4B").repeated(200'000))),
              "400 CmdID inside CmdID, which holds text only");
}

TEST(HostileWbxml, StringTableReferencesThatExpandToAGigabyte)
{
    // 8 kB of string table, referred to 131 kB / 2 times.
    const QByteArray table = QByteArray(8191, 'x') + '\0';
    const QByteArray references = bytes("83 00").repeated(65'536);
    const QByteArray start = bytes("02 A401 6A C000") + table;
    EXPECT_EQ(errorOf(start + bytes("6D") + bytes(plainHeader) + bytes("6B 60 54 4F") + references +
                      bytes("01 01 01 01 01")),
              "416 more than 4194304 bytes of text");
    // The same in an element that is skipped, and where no text belongs.
    EXPECT_EQ(errorOf(start + bytes("6D 78") + references), "416 more than 4194304 bytes of text");
    EXPECT_EQ(errorOf(start + bytes("6D") + references), "400 text where only elements can stand");
}

TEST(HostileWbxml, ElementsOfOneByteEach)
{
    EXPECT_EQ(errorOf(messageWbxml(bytes("13").repeated(200'000))), "416 more than 20000 commands");
    EXPECT_EQ(errorOf(messageWbxml(bytes("53") + bytes("14").repeated(200'000))),
              "416 more than 50000 items and references");
    EXPECT_EQ(errorOf(messageWbxml(bytes("69") + bytes("2F").repeated(200'000))),
              "416 more than 50000 items and references");
    EXPECT_EQ(errorOf(messageWbxml(bytes("69") + bytes("28").repeated(200'000))),
              "416 more than 50000 items and references");
    EXPECT_EQ(errorOf(messageWbxml(bytes("53 5A 00 01") + bytes("06").repeated(200'000))),
              "416 more than 50000 items and references");
    EXPECT_EQ(errorOf(bytes(prologue) + bytes("6D") + bytes("00 00").repeated(200'000)),
              "400 the message breaks off");
}

TEST(WbxmlLimits, BoundTheBytes)
{
    Limits limits;
    limits.messageBytes = clientPackageBytes().size();
    EXPECT_EQ(errorOf(clientPackageBytes(), limits), "no error");
    --limits.messageBytes;
    EXPECT_EQ(errorOf(clientPackageBytes(), limits).substr(0, 20), "416 the message has ");
}

TEST(WbxmlLimits, AMessageAtEveryLimitIsTaken)
{
    // SyncML, SyncBody, 61 Sequences, Get: 64 deep, 62 commands.
    Limits limits;
    limits.commands = 62;
    const QByteArray body = bytes("64").repeated(61) + bytes("13") + bytes("01").repeated(61);
    EXPECT_EQ(errorOf(messageWbxml(body), limits), "no error");
    limits.commands = 61;
    EXPECT_EQ(errorOf(messageWbxml(body), limits), "416 more than 61 commands");
    EXPECT_EQ(errorOf(messageWbxml(bytes("64") + body + bytes("01"))),
              "416 more than 64 elements inside each other");
}

} // namespace
