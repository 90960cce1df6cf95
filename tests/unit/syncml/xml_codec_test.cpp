// Reading and writing XML.

#include "xml_codec.h"

#include "decode_result.h"
#include "sample_messages.h"

#include <gtest/gtest.h>

using namespace syncml;

namespace {

constexpr auto plainHeaderXml =
    "<SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto><SessionID>A1</SessionID>"
    "<MsgID>1</MsgID><Target><LocURI>IMEI:493005100592800</LocURI></Target>"
    "<Source><LocURI>http://dm.example/dm</LocURI></Source></SyncHdr>";

QByteArray messageXml(const QByteArray &body)
{
    return QByteArray("<SyncML xmlns='SYNCML:SYNCML1.2'>") + plainHeaderXml + "<SyncBody>" + body +
           "</SyncBody></SyncML>";
}

Message decoded(const QByteArray &xml)
{
    return decode_result::message(decodeXml(xml));
}

std::string errorOf(const QByteArray &xml, const Limits &limits = {})
{
    return decode_result::error(decodeXml(xml, limits));
}

/// The only command of a message with that body.
Command commandIn(const QByteArray &body)
{
    const Message message = decoded(messageXml(body));
    if (message.commands.size() != 1) {
        ADD_FAILURE() << message.commands.size() << " commands";
        return {};
    }
    return message.commands.front();
}

/// Data of the only item of a Replace whose Data element is `dataElement`.
std::optional<QByteArray> dataIn(const QByteArray &dataElement)
{
    const Command command =
        commandIn("<Replace><CmdID>1</CmdID><Item>" + dataElement + "</Item></Replace>");
    if (command.items.size() != 1) {
        ADD_FAILURE() << command.items.size() << " items";
        return {};
    }
    return command.items.front().data;
}

Meta metaIn(const QByteArray &metaElement)
{
    const Command command = commandIn("<Add><CmdID>1</CmdID>" + metaElement + "<Item/></Add>");
    if (!command.meta) {
        ADD_FAILURE() << "no Meta";
        return {};
    }
    return *command.meta;
}

// ---- what is written

TEST(XmlWriter, WritesAClientPackage)
{
    Message message;
    message.header = samples::plainHeader();
    Command status;
    status.kind = CommandKind::Status;
    status.cmdId = QStringLiteral("1");
    status.msgRef = QStringLiteral("2");
    status.cmdRef = QStringLiteral("0");
    status.cmd = QStringLiteral("SyncHdr");
    status.targetRefs = {QStringLiteral("IMEI:1")};
    status.sourceRefs = {QStringLiteral("http://x/")};
    status.data = QByteArray("212");
    Command results;
    results.kind = CommandKind::Results;
    results.cmdId = QStringLiteral("2");
    results.msgRef = QStringLiteral("2");
    results.cmdRef = QStringLiteral("4");
    Item item;
    item.source.emplace();
    item.source->locUri = QStringLiteral("./A");
    item.meta.emplace();
    item.meta->format = QStringLiteral("node");
    item.meta->type = QStringLiteral("text/plain");
    item.data = QByteArray("B&C/D");
    results.items = {item};
    item.meta.reset();
    item.data = QByteArray("");
    results.items.push_back(item);
    message.commands = {status, results};
    message.final = true;

    const EncodeResult encoded = encodeXml(message);
    ASSERT_TRUE(encoded);
    EXPECT_EQ(
        encoded->toStdString(),
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><SyncML xmlns=\"SYNCML:SYNCML1.2\">"
        "<SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto><SessionID>A1</SessionID>"
        "<MsgID>1</MsgID><Target><LocURI>IMEI:493005100592800</LocURI></Target>"
        "<Source><LocURI>http://dm.example/dm</LocURI></Source></SyncHdr>"
        "<SyncBody><Status><CmdID>1</CmdID><MsgRef>2</MsgRef><CmdRef>0</CmdRef><Cmd>SyncHdr</Cmd>"
        "<TargetRef>IMEI:1</TargetRef><SourceRef>http://x/</SourceRef><Data>212</Data></Status>"
        "<Results><CmdID>2</CmdID><MsgRef>2</MsgRef><CmdRef>4</CmdRef><Item><Source>"
        "<LocURI>./A</LocURI></Source><Meta><Format xmlns=\"syncml:metinf\">node</Format>"
        "<Type xmlns=\"syncml:metinf\">text/plain</Type></Meta><Data>B&amp;C/D</Data></Item>"
        "<Item><Source><LocURI>./A</LocURI></Source><Data/></Item></Results><Final/></SyncBody>"
        "</SyncML>\n");
}

TEST(XmlWriter, WritesCarriageReturnsAsReferences)
{
    const EncodeResult encoded = encodeXml(samples::messageWithData("a\r\nb\r"));
    ASSERT_TRUE(encoded);
    EXPECT_TRUE(encoded->contains("<Data>a&#13;\nb&#13;</Data>")) << encoded->toStdString();
}

TEST(XmlWriter, WritesLinesForPeopleAndTextsAsTheyAre)
{
    Message message = samples::messageWithData("a\n b");
    message.commands.front().items.front().meta.emplace();
    message.final = false;
    const EncodeResult encoded = encodeXml(message, XmlLayout::Indented);
    ASSERT_TRUE(encoded);
    const qsizetype body = encoded->indexOf("  <SyncBody>");
    EXPECT_TRUE(
        encoded->startsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                            "<SyncML xmlns=\"SYNCML:SYNCML1.2\">\n  <SyncHdr>\n    <VerDTD>"));
    EXPECT_EQ(encoded->sliced(body).toStdString(), "  <SyncBody>\n"
                                                   "    <Replace>\n"
                                                   "      <CmdID>1</CmdID>\n"
                                                   "      <Item>\n"
                                                   "        <Target>\n"
                                                   "          <LocURI>./A/value</LocURI>\n"
                                                   "        </Target>\n"
                                                   "        <Meta/>\n"
                                                   "        <Data>a\n b</Data>\n"
                                                   "      </Item>\n"
                                                   "    </Replace>\n"
                                                   "  </SyncBody>\n"
                                                   "</SyncML>\n");
    EXPECT_EQ(decoded(*encoded), message);
}

TEST(XmlWriter, RefusesDataThatIsNotText)
{
    for (const QByteArray &bytes :
         {QByteArray("\xFF\xFE"), QByteArray("a\0b", 3), QByteArray("\x1B"), QByteArray("\xC3"),
          QByteArray("\xED\xA0\x80"), QByteArray("\xEF\xBF\xBE"), QByteArray("\xEF\xBF\xBF")}) {
        EXPECT_FALSE(fitsXml(bytes));
        const EncodeResult encoded = encodeXml(samples::messageWithData(bytes));
        ASSERT_FALSE(encoded) << bytes.toHex().toStdString();
        EXPECT_EQ(encoded.error().text, u"Replace 1 has a Data that cannot be written as text");
    }
}

TEST(XmlWriter, TakesAllText)
{
    for (const QByteArray &bytes :
         {QByteArray(""), QByteArray("\t\r\n "), QByteArray("\xEF\xBB\xBF"),
          QByteArray("\xF0\x9F\x93\xB6"), QByteArray("\x7F\xC2\x80"), QByteArray("]]>")})
        EXPECT_TRUE(fitsXml(bytes)) << bytes.toHex().toStdString();
}

// ---- what is taken

TEST(XmlReader, TakesChildrenInAnyOrder)
{
    const Message inOrder = decoded(messageXml(
        "<Status><CmdID>1</CmdID><MsgRef>1</MsgRef><CmdRef>0</CmdRef><Cmd>SyncHdr</Cmd>"
        "<TargetRef>a</TargetRef><Chal><Meta><Type>t</Type></Meta></Chal><Data>401</Data></Status>"
        "<Get><CmdID>2</CmdID><Meta><Type>t</Type></Meta><Item/></Get><Final/>"));
    const Message shuffled = decoded(
        QByteArray("<SyncML><SyncBody><Final/>"
                   "<Status><Data>401</Data><TargetRef>a</TargetRef><Cmd>SyncHdr</Cmd>"
                   "<Chal><Meta><Type>t</Type></Meta></Chal><CmdRef>0</CmdRef><MsgRef>1</MsgRef>"
                   "<CmdID>1</CmdID></Status>"
                   "<Get><Item/><Meta><Type>t</Type></Meta><CmdID>2</CmdID></Get></SyncBody>"
                   "<SyncHdr><Source><LocURI>http://dm.example/dm</LocURI></Source>"
                   "<Target><LocURI>IMEI:493005100592800</LocURI></Target><MsgID>1</MsgID>"
                   "<SessionID>A1</SessionID><VerProto>DM/1.2</VerProto><VerDTD>1.2</VerDTD>"
                   "</SyncHdr></SyncML>"));
    EXPECT_EQ(inOrder, shuffled);
    EXPECT_EQ(inOrder.commands.size(), 2u);
    EXPECT_EQ(inOrder.header, samples::plainHeader());
}

TEST(XmlReader, TakesMetaWithAndWithoutMetInf)
{
    const Meta bare = metaIn("<Meta><Type xmlns='syncml:metinf'>text/plain</Type>"
                             "<Format xmlns='syncml:metinf'>chr</Format></Meta>");
    EXPECT_EQ(bare.type, QStringLiteral("text/plain"));
    EXPECT_EQ(bare.format, QStringLiteral("chr"));
    EXPECT_EQ(metaIn("<Meta><MetInf xmlns='syncml:metinf'><Format>chr</Format>"
                     "<Type>text/plain</Type></MetInf></Meta>"),
              bare);
    EXPECT_EQ(metaIn("<Meta><Format>chr</Format><Type>text/plain</Type></Meta>"), bare);
    EXPECT_EQ(metaIn("<Meta><m:MetInf xmlns:m='syncml:metinf'><m:Type>text/plain</m:Type>"
                     "</m:MetInf><Format>chr</Format></Meta>"),
              bare);
}

TEST(XmlReader, ReadsFormatInAnyCase)
{
    EXPECT_EQ(metaIn("<Meta><Format>Chr</Format></Meta>").format, QStringLiteral("chr"));
    EXPECT_EQ(metaIn("<Meta><Format> B64\n</Format></Meta>").format, QStringLiteral("b64"));
    EXPECT_EQ(metaIn("<Meta><Type>Text/Plain</Type></Meta>").type, QStringLiteral("Text/Plain"));
}

TEST(XmlReader, CutsWhiteSpaceAroundIdsAndAddresses)
{
    const Command get = commandIn(
        "\n <Get>\n <CmdID>\n 5 </CmdID> <Item>\t<Target><LocURI>\r\n   ./A/with blank/B \t"
        "</LocURI></Target></Item></Get>\n");
    EXPECT_EQ(get.cmdId, QStringLiteral("5"));
    ASSERT_EQ(get.items.size(), 1u);
    EXPECT_EQ(get.items.front().target->locUri, u"./A/with blank/B");
}

TEST(XmlReader, KeepsWhiteSpaceOfDataLocNameAndCorrelator)
{
    const Command exec =
        commandIn("<Exec><CmdID>1</CmdID><Correlator> c </Correlator><Item><Source>"
                  "<LocURI> u </LocURI><LocName> n </LocName></Source><Data>\n d </Data></Item>"
                  "</Exec>");
    EXPECT_EQ(exec.correlator, QStringLiteral(" c "));
    EXPECT_EQ(exec.items.front().source->locName, QStringLiteral(" n "));
    EXPECT_EQ(exec.items.front().data, QByteArray("\n d "));
}

TEST(XmlReader, KeepsIdsAsText)
{
    const Command status =
        commandIn("<Status><CmdID>007</CmdID><MsgRef>+1</MsgRef>"
                  "<CmdRef>c1a5e7f0-0d0e-4b7f</CmdRef><Cmd>Get</Cmd><Data>200</Data></Status>");
    EXPECT_EQ(status.cmdId, QStringLiteral("007"));
    EXPECT_EQ(status.msgRef, QStringLiteral("+1"));
    EXPECT_EQ(status.cmdRef, QStringLiteral("c1a5e7f0-0d0e-4b7f"));
}

TEST(XmlReader, TakesAnyPrefixAndNamespace)
{
    const Message expected =
        decoded(messageXml("<Alert><CmdID>1</CmdID><Data>1223</Data></Alert>"));
    QByteArray prefixed = messageXml("<Alert><CmdID>1</CmdID><Data>1223</Data></Alert>");
    prefixed.replace("</", "<\x01").replace("<", "<s:").replace("<s:\x01", "</s:");
    prefixed.replace("xmlns=", "xmlns:s=");
    EXPECT_EQ(decoded(prefixed), expected);
    QByteArray otherNamespace = messageXml("<Alert><CmdID>1</CmdID><Data>1223</Data></Alert>");
    otherNamespace.replace("SYNCML:SYNCML1.2", "syncml:syncml1.2");
    EXPECT_EQ(decoded(otherNamespace), expected);
}

TEST(XmlReader, TellsMissingFromEmpty)
{
    EXPECT_EQ(dataIn(""), std::nullopt);
    EXPECT_EQ(dataIn("<Data/>"), QByteArray(""));
    EXPECT_EQ(dataIn("<Data></Data>"), QByteArray(""));
    EXPECT_EQ(commandIn("<Get><Item/></Get>").cmdId, std::nullopt);
    EXPECT_EQ(commandIn("<Get><CmdID/><Item/></Get>").cmdId, QString());
    EXPECT_EQ(commandIn("<Get><Item/></Get>").items.front(), Item());
}

TEST(XmlReader, ReadsDataAsTextAndAsCDATA)
{
    EXPECT_EQ(dataIn("<Data>a&lt;b&amp;c&#xE9;&#128246;</Data>"),
              QByteArray("a<b&c\xC3\xA9\xF0\x9F\x93\xB6"));
    EXPECT_EQ(dataIn("<Data><![CDATA[a<b&c]]></Data>"), QByteArray("a<b&c"));
    EXPECT_EQ(dataIn("<Data>1<![CDATA[2]]>3<!-- no -->4<?no?><![CDATA[]]>5</Data>"),
              QByteArray("12345"));
    EXPECT_EQ(dataIn("<Data><![CDATA[]]]]><![CDATA[></Data><Delete/>]]></Data>"),
              QByteArray("]]></Data><Delete/>"));
}

TEST(XmlReader, KeepsMarkupInsideDataAsItsText)
{
    EXPECT_EQ(dataIn("<Data><MgmtTree><VerDTD>1.2</VerDTD><Node><NodeName>a &amp; b</NodeName>"
                     "<Value/></Node></MgmtTree></Data>"),
              QByteArray("<MgmtTree><VerDTD>1.2</VerDTD><Node><NodeName>a &amp; b</NodeName>"
                         "<Value/></Node></MgmtTree>"));
    EXPECT_EQ(dataIn("<Data> \n<DevInf xmlns='syncml:devinf' a=\"x &lt; 'y'\"><Man>M</Man>"
                     "<!-- no --><![CDATA[<&>]]></DevInf> </Data>"),
              QByteArray(" \n<DevInf xmlns=\"syncml:devinf\" a=\"x &lt; 'y'\"><Man>M</Man>"
                         "&lt;&amp;&gt;</DevInf> "));
    EXPECT_EQ(dataIn("<Data>1 &lt; 2<Data>3</Data></Data>"), QByteArray("1 &lt; 2<Data>3</Data>"));
}

TEST(XmlReader, KeepsAttributesOfXMLItselfInsideData)
{
    EXPECT_EQ(dataIn("<Data><x xml:lang='en' xml:space=\"preserve\"/></Data>"),
              QByteArray("<x xml:lang=\"en\" xml:space=\"preserve\"/>"));
}

TEST(XmlReader, KeepsTheDeclarationsThatMarkupInsideDataNeeds)
{
    const Message message = decoded(QByteArray(
        "<s:SyncML xmlns:s='SYNCML:SYNCML1.2' xmlns:t='syncml:dmddf1.2'><s:SyncHdr/>"
        "<s:SyncBody><s:Add><s:CmdID>1</s:CmdID><s:Item><s:Data><t:MgmtTree><t:Node/>"
        "<u:x xmlns:u='urn:u' s:y='1'><u:z/></u:x><t:w/></t:MgmtTree><t:second/></s:Data>"
        "</s:Item></s:Add></s:SyncBody></s:SyncML>"));
    EXPECT_EQ(
        message.commands.front().items.front().data,
        QByteArray("<t:MgmtTree xmlns:t=\"syncml:dmddf1.2\"><t:Node/>"
                   "<u:x xmlns:u=\"urn:u\" xmlns:s=\"SYNCML:SYNCML1.2\" s:y=\"1\"><u:z/></u:x>"
                   "<t:w/></t:MgmtTree><t:second xmlns:t=\"syncml:dmddf1.2\"/>"));
}

TEST(XmlReader, SkipsElementsThatAreUnknownOrUnusedInDM)
{
    const Command plain = commandIn("<Delete><CmdID>1</CmdID><Item><Target><LocURI>./A</LocURI>"
                                    "</Target></Item></Delete>");
    EXPECT_EQ(
        commandIn("<Delete><CmdID>1</CmdID><NoResp/><Archive/><SftDel/><Cred><Data>x</Data></Cred>"
                  "<Lang>en</Lang><x:new xmlns:x='urn:x'>text<CmdID>9</CmdID></x:new><Item><Target>"
                  "<LocURI>./A</LocURI><Filter><Record/></Filter></Target><SourceParent><LocURI>x"
                  "</LocURI></SourceParent><Meta><Version>1</Version><Anchor><Next>1</Next>"
                  "</Anchor><Mem><FreeMem>1</FreeMem></Mem></Meta></Item></Delete>"),
        [&] {
            Command withMeta = plain;
            withMeta.items.front().meta.emplace();
            return withMeta;
        }());
}

TEST(XmlReader, SkipsWhatItDoesNotKnowInHeaderChallengeAndCredentials)
{
    const Message message = decoded(QByteArray(
        "<SyncML><y/><SyncHdr><NoResp/><MsgID>5</MsgID><Cred><y>1</y><Data>d</Data></Cred>"
        "<y><MsgID>6</MsgID></y></SyncHdr><SyncBody><Status><Chal><y/><Meta><Type>t</Type>"
        "</Meta></Chal></Status></SyncBody></SyncML>"));
    EXPECT_EQ(message.header.msgId, u"5");
    EXPECT_EQ(message.header.cred->data, QByteArray("d"));
    ASSERT_EQ(message.commands.size(), 1u);
    EXPECT_EQ(message.commands.front().chal->meta.type, QStringLiteral("t"));
}

TEST(XmlReader, CarriesVersionsOfOtherProtocols)
{
    QByteArray xml = messageXml("<Get><CmdID>1</CmdID><Item/></Get>");
    xml.replace("1.2</VerDTD>", "1.1</VerDTD>").replace("DM/1.2", "DM/1.1");
    const Message message = decoded(xml);
    EXPECT_EQ(message.header.verDtd, u"1.1");
    EXPECT_EQ(message.header.verProto, u"DM/1.1");
}

TEST(XmlReader, TakesAnEmptyBodyAndAnEmptyHeader)
{
    const Message message = decoded("<SyncML><SyncHdr/><SyncBody><Final/></SyncBody></SyncML>");
    EXPECT_EQ(message.header, SyncHdr());
    EXPECT_TRUE(message.commands.empty());
    EXPECT_TRUE(message.final);
}

TEST(XmlReader, TakesAByteOrderMarkAndADocumentTypeWithoutDeclarations)
{
    const QByteArray xml = messageXml("<Get><CmdID>1</CmdID><Item/></Get>");
    const Message expected = decoded(xml);
    EXPECT_EQ(decoded("\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?>\n" + xml), expected);
    EXPECT_EQ(decoded("<?xml version='1.0'?>\n<!-- a [ -->\n<!DOCTYPE SyncML PUBLIC "
                      "'-//SYNCML//DTD SyncML 1.2//EN' 'http://example/[x]/syncml.dtd'>\n" +
                      xml + "\n<!-- end -->\n"),
              expected);
}

TEST(XmlReader, KeepsWhatIsNoDMCommandApart)
{
    const Message message = decoded(messageXml(
        "<Put><CmdID>1</CmdID><Item/></Put><add><CmdID> 2</CmdID>text<b>x</b><CmdID>9</CmdID></add>"
        "<Sync><CmdID>3</CmdID><Add><CmdID>4</CmdID></Add></Sync><LocURI>./A</LocURI>"
        "<LocURI>./B</LocURI>"
        "<Sequence><CmdID>5</CmdID><NoResp/><Meta/><Status><CmdID>6</CmdID></Status>"
        "<Foo/><Search><CmdID>7</CmdID></Search></Sequence>"));
    ASSERT_EQ(message.commands.size(), 6u);
    EXPECT_EQ(message.commands[0].kind, CommandKind::Unsupported);
    EXPECT_EQ(commandName(message.commands[0]), u"Put");
    EXPECT_EQ(message.commands[0].cmdId, QStringLiteral("1"));
    EXPECT_EQ(message.commands[1].kind, CommandKind::Unknown);
    EXPECT_EQ(commandName(message.commands[1]), u"add");
    EXPECT_EQ(message.commands[1].cmdId, QStringLiteral("2"));
    EXPECT_EQ(message.commands[2].kind, CommandKind::Unsupported);
    EXPECT_EQ(message.commands[2].cmdId, QStringLiteral("3"));
    EXPECT_EQ(message.commands[3].kind, CommandKind::Unknown);
    EXPECT_EQ(commandName(message.commands[3]), u"LocURI");
    EXPECT_EQ(message.commands[3].cmdId, std::nullopt);
    const Command &sequence = message.commands[5];
    EXPECT_EQ(commandName(sequence), u"Sequence");
    ASSERT_EQ(sequence.commands.size(), 3u);
    EXPECT_EQ(sequence.commands[0].kind, CommandKind::Status);
    EXPECT_EQ(commandName(sequence.commands[1]), u"Foo");
    EXPECT_EQ(sequence.commands[2].kind, CommandKind::Unsupported);
}

// ---- what is refused

TEST(XmlReader, NamesLineAndColumnOfAFault)
{
    const DecodeResult result =
        decodeXml("<SyncML>\n <SyncHdr>\n  <VerDTD>1.2</VerDTD>x\n </SyncHdr></SyncML>");
    ASSERT_FALSE(result);
    const auto &error = result.error();
    EXPECT_EQ(error.status, 400);
    EXPECT_EQ(error.line, 3);
    EXPECT_EQ(error.toString().toStdString(),
              "line 3, column 22: text where only elements can stand");
    EXPECT_FALSE(error.header.has_value());
}

TEST(XmlReader, CountsColumnsInCharacters)
{
    const DecodeResult result = decodeXml("<SyncML>\n<SyncHdr/><!-- \xC3\xA4\xF0\x9F\x93\xB6 -->x");
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().toString().toStdString(),
              "line 2, column 21: text where only elements can stand");
}

TEST(XmlReader, GivesTheHeaderOfAMessageThatIsBrokenLater)
{
    const DecodeResult result = decodeXml(messageXml("<Get><CmdID>1</CmdID>").chopped(30));
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().header, samples::plainHeader());
}

TEST(XmlReader, RefusesWhatIsNotWellFormed)
{
    const QByteArray xml = messageXml("<Get><CmdID>1</CmdID><Item/></Get><Final/>");
    for (qsizetype size = 0; size < xml.size(); ++size)
        EXPECT_EQ(errorOf(xml.first(size)).substr(0, 3), "400") << size;
    EXPECT_EQ(errorOf(xml + "<SyncML/>").substr(0, 3), "400");
    EXPECT_EQ(errorOf(xml + "text").substr(0, 3), "400");
    EXPECT_EQ(errorOf(messageXml("<Get><CmdID>&#1;</CmdID></Get>")).substr(0, 3), "400");
    EXPECT_EQ(errorOf(messageXml("<x:Get/>")).substr(0, 3), "400");
}

TEST(XmlReader, RefusesAMessageWithoutHeaderOrBody)
{
    EXPECT_EQ(errorOf("<SyncML><SyncBody/></SyncML>"), "400 the message has no SyncHdr");
    EXPECT_EQ(errorOf("<SyncML><SyncHdr/></SyncML>"), "400 the message has no SyncBody");
    EXPECT_EQ(errorOf("<MgmtTree/>"), "400 the document is MgmtTree, not SyncML");
    EXPECT_EQ(errorOf("<html/>"), "400 the document is html, not SyncML");
}

TEST(XmlReader, RefusesASecondElementWhereOneCanBe)
{
    EXPECT_EQ(errorOf(messageXml("<Get><CmdID>1</CmdID><CmdID>1</CmdID><Item/></Get>")),
              "400 a second CmdID in one Get");
    EXPECT_EQ(errorOf(messageXml("<Get><Item><Data/><Data/></Item></Get>")),
              "400 a second Data in one Item");
    EXPECT_EQ(errorOf(messageXml("<Get><Meta><Format/><MetInf><Format/></MetInf></Meta></Get>")),
              "400 a second Format in one MetInf");
    EXPECT_EQ(errorOf(messageXml("<Final/><Final/>")), "400 a second Final in one SyncBody");
    EXPECT_EQ(errorOf(messageXml("") + ""), "no error");
    QByteArray twoBodies = messageXml("");
    twoBodies.replace("</SyncML>", "<SyncBody/></SyncML>");
    EXPECT_EQ(errorOf(twoBodies), "400 a second SyncBody in one SyncML");
}

TEST(XmlReader, RefusesElementsInsideTextsAndTextBetweenElements)
{
    EXPECT_EQ(errorOf(messageXml("<Get><CmdID>1<Item/></CmdID></Get>")),
              "400 Item inside CmdID, which holds text only");
    EXPECT_EQ(errorOf(messageXml("<Get><CmdID>1</CmdID>2</Get>")),
              "400 text where only elements can stand");
    EXPECT_EQ(errorOf(messageXml("2")), "400 text where only elements can stand");
}

TEST(XmlReader, RefusesDeclarationsAndEntities)
{
    const QByteArray xml = messageXml("<Get><CmdID>&e;</CmdID><Item/></Get>");
    const std::string refusal = "400 the document type has declarations of its own";
    EXPECT_EQ(errorOf("<!DOCTYPE SyncML [<!ENTITY e 'x'>]>" + xml), refusal);
    EXPECT_EQ(errorOf("<!DOCTYPE SyncML [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>" + xml),
              refusal);
    EXPECT_EQ(
        errorOf("<?xml version='1.0'?> <!-- > --> <?pi > ?>\n<!DOCTYPE SyncML PUBLIC \"'\" '>'"
                "\n[<!ENTITY % e 'x'> %e;]>" +
                xml),
        refusal);
    EXPECT_EQ(errorOf("\xEF\xBB\xBF<!DOCTYPE SyncML []>" + xml), refusal);
    EXPECT_EQ(errorOf("<!DOCTYPE SyncML SYSTEM 'http://example/x.dtd'>" + xml),
              "400 the entity e is not known");
    EXPECT_EQ(errorOf(xml).substr(0, 3), "400");
    EXPECT_EQ(errorOf(messageXml("<Get><Item><Data>&e;</Data></Item></Get>")).substr(0, 3), "400");
}

TEST(XmlReader, RefusesOtherEncodingsThanUTF8)
{
    const QByteArray xml = messageXml("<Get><CmdID>1</CmdID><Item/></Get>");
    EXPECT_EQ(errorOf("<?xml version='1.0' encoding='ISO-8859-1'?>" + xml),
              "415 the encoding ISO-8859-1 is not supported, only UTF-8 is");
    EXPECT_EQ(errorOf("<?xml version='1.0' encoding='UTF-16'?>" + xml),
              "415 the encoding UTF-16 is not supported, only UTF-8 is");
    EXPECT_EQ(errorOf(messageXml("<Get><CmdID>\xE9</CmdID></Get>")),
              "415 the message is not in UTF-8");
    EXPECT_EQ(errorOf("<?xml version='1.0' encoding='us-ascii'?>" + xml), "no error");
}

// ---- limits

QByteArray nested(const QByteArray &outer, int times, const QByteArray &inner)
{
    const qsizetype nameEnd = outer.indexOf('>');
    return outer.repeated(times) + inner +
           QByteArray("</" + outer.sliced(1, nameEnd - 1) + ">").repeated(times);
}

TEST(XmlLimits, BoundTheBytes)
{
    const QByteArray xml = messageXml("<Get><CmdID>1</CmdID><Item/></Get>");
    Limits limits;
    limits.messageBytes = xml.size();
    EXPECT_EQ(errorOf(xml, limits), "no error");
    --limits.messageBytes;
    EXPECT_EQ(errorOf(xml, limits), "416 the message has " + std::to_string(xml.size()) +
                                        " bytes, more than the " + std::to_string(xml.size() - 1) +
                                        " that are taken");
}

TEST(XmlLimits, BoundTheDepth)
{
    Limits limits;
    limits.depth = 10;
    const std::string tooDeep = "416 more than 10 elements inside each other";
    // SyncML and SyncBody are around, Get inside.
    EXPECT_EQ(errorOf(messageXml(nested("<Sequence>", 7, "<Get/>")), limits), "no error");
    EXPECT_EQ(errorOf(messageXml(nested("<Sequence>", 8, "<Get/>")), limits), tooDeep);
    // An element that is skipped: SyncML, SyncBody, Get around.
    EXPECT_EQ(errorOf(messageXml("<Get>" + nested("<x>", 7, "") + "</Get>"), limits), "no error");
    EXPECT_EQ(errorOf(messageXml("<Get>" + nested("<x>", 8, "") + "</Get>"), limits), tooDeep);
    // Markup inside Data: SyncML, SyncBody, Get, Item, Data around.
    const auto get = [](const QByteArray &data) {
        return messageXml("<Get><Item><Data>" + data + "</Data></Item></Get>");
    };
    EXPECT_EQ(errorOf(get(nested("<x>", 5, "")), limits), "no error");
    EXPECT_EQ(errorOf(get(nested("<x>", 6, "")), limits), tooDeep);
}

TEST(XmlLimits, BoundTheCommands)
{
    Limits limits;
    limits.commands = 3;
    EXPECT_EQ(errorOf(messageXml("<Get/><Sequence><Get/></Sequence>"), limits), "no error");
    EXPECT_EQ(errorOf(messageXml("<Get/><Sequence><Get/><Foo/></Sequence>"), limits),
              "416 more than 3 commands");
}

TEST(XmlLimits, BoundTheItems)
{
    Limits limits;
    limits.items = 4;
    const QByteArray four =
        "<Status><TargetRef/><SourceRef/><Item><Meta><EMI/></Meta></Item></Status>";
    EXPECT_EQ(errorOf(messageXml(four), limits), "no error");
    EXPECT_EQ(errorOf(messageXml(four + "<Get><Item/></Get>"), limits),
              "416 more than 4 items and references");
    EXPECT_EQ(errorOf(messageXml(four + "<Status><TargetRef/></Status>"), limits),
              "416 more than 4 items and references");
}

TEST(XmlLimits, BoundTheTexts)
{
    Limits limits;
    limits.textBytes = 100; // the header's texts have 52
    EXPECT_EQ(errorOf(messageXml("<Get><CmdID>" + QByteArray(48, 'x') + "</CmdID></Get>"), limits),
              "no error");
    EXPECT_EQ(errorOf(messageXml("<Get><CmdID>" + QByteArray(49, 'x') + "</CmdID></Get>"), limits),
              "416 more than 100 bytes of text");
}

TEST(XmlLimits, BoundTheAttributesOfATag)
{
    Limits limits;
    limits.attributes = 2;
    EXPECT_EQ(errorOf(messageXml("<Get\n a='>' b = \"'c=''\" ><CmdID d='' e=''/></Get>"), limits),
              "no error");
    EXPECT_EQ(errorOf(messageXml("<!-- 'a' 'b' 'c' --><?x 'a' 'b' 'c'?><Get><Item><Data>'a' 'b' 'c'"
                                 "<![CDATA[<a b='' c='' d=''/>]]></Data></Item></Get>"),
                      limits),
              "no error");
    const DecodeResult result = decodeXml(messageXml("\n <Get a='' b='' c=''/>"), limits);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().status, 416);
    EXPECT_EQ(result.error().toString().toStdString(), "line 2, column 1: more than 2 attributes");
    EXPECT_EQ(errorOf(messageXml("<!-- --><![CDATA[]]><?x?><Get a='' b='' c=''/>"), limits),
              "416 more than 2 attributes");
    EXPECT_EQ(errorOf(messageXml("<!--><Get a='' b='' c=''/>-->"), limits), "no error");
}

TEST(XmlLimits, StopATagOf4MBOfAttributes)
{
    QByteArray tag = "<Get";
    for (int number = 0; tag.size() < 4'000'000; ++number)
        tag += " a" + QByteArray::number(number) + "=''";
    EXPECT_EQ(errorOf(messageXml(tag + "/>")), "416 more than 32 attributes");
}

TEST(XmlLimits, StopDeclarationsThatExpandInsideData)
{
    const QByteArray xml =
        "<SyncML xmlns:p='" + QByteArray(100'000, 'u') + "'><SyncHdr/><SyncBody><Add><Item><Data>" +
        QByteArray("<p:x/>").repeated(10'000) + "</Data></Item></Add></SyncBody></SyncML>";
    EXPECT_EQ(errorOf(xml), "416 more than 4194304 bytes of text");
}

TEST(XmlLimits, Stop200KBOfNesting)
{
    EXPECT_EQ(errorOf(messageXml(QByteArray("<Atomic>").repeated(25'000))),
              "416 more than 64 elements inside each other");
    EXPECT_EQ(errorOf(messageXml("<Get>" + QByteArray("<a>").repeated(70'000))),
              "416 more than 64 elements inside each other");
    EXPECT_EQ(errorOf(messageXml("<Get><Item><Data>" + QByteArray("<a>").repeated(70'000))),
              "416 more than 64 elements inside each other");
}

// ---- what somebody who means harm sends

TEST(HostileXml, EntitiesThatGrowAreRefusedBeforeTheyDo)
{
    QByteArray laughs = "<!DOCTYPE SyncML [<!ENTITY l0 'ha'>";
    for (int level = 1; level < 30; ++level)
        laughs += "<!ENTITY l" + QByteArray::number(level) + " '" +
                  QByteArray("&l" + QByteArray::number(level - 1) + ';').repeated(10) + "'>";
    const QByteArray blowUp = "<!DOCTYPE SyncML [<!ENTITY e '" + QByteArray(100'000, 'a') + "'>]>";
    const QByteArray message = messageXml("<Get><CmdID>&l29;</CmdID></Get>");
    const std::string refusal = "400 the document type has declarations of its own";
    EXPECT_EQ(errorOf(laughs + "]>" + message), refusal);
    EXPECT_EQ(errorOf(blowUp + messageXml(QByteArray("&e;").repeated(10'000))), refusal);
    EXPECT_EQ(errorOf("<!DOCTYPE SyncML [<!ENTITY % p SYSTEM 'file:///dev/zero'> %p;]>" + message),
              refusal);
}

TEST(HostileXml, EntityOfAnAttributeIsNotLeftOut)
{
    const QByteArray type = "<!DOCTYPE SyncML SYSTEM 'http://example/x.dtd'>";
    const auto data = [](const QByteArray &value) {
        return messageXml("<Add><CmdID>1</CmdID><Item><Data><x a='1' b='" + value +
                          "'/></Data></Item></Add>");
    };
    EXPECT_EQ(errorOf(data("&e;")).substr(0, 3), "400");
    EXPECT_EQ(errorOf(type + data("&lt;&e;")), "400 an attribute has an entity that is not known");
    EXPECT_EQ(errorOf(type + data("&#38;e;&amp;e;&lt;&gt;&quot;&apos;")), "no error");
}

TEST(HostileXml, BytesThatAreNotUtf8AreRefused)
{
    for (const QByteArray &bytes :
         {QByteArray("\xFF"), QByteArray("\xC0\x80"), QByteArray("\xE0\x80\xAF"),
          QByteArray("\xED\xA0\x80"), QByteArray("\xF4\x90\x80\x80"), QByteArray("\xC3"),
          QByteArray("\x80")})
        EXPECT_EQ(errorOf(messageXml("<Get><Item><Data>" + bytes + "</Data></Item></Get>")),
                  "415 the message is not in UTF-8")
            << bytes.toHex().toStdString();
}

TEST(HostileXml, CharactersThatXmlDoesNotKnowAreRefused)
{
    for (const QByteArray &bytes :
         {QByteArray("\0", 1), QByteArray("\x01"), QByteArray("\x1F"), QByteArray("\xEF\xBF\xBE"),
          QByteArray("\xEF\xBF\xBF"), QByteArray("&#0;"), QByteArray("&#x1F;"),
          QByteArray("&#xD800;"), QByteArray("&#xFFFE;"), QByteArray("&#x110000;")})
        for (const QByteArray &xml :
             {messageXml("<Get><Item><Data>" + bytes + "</Data></Item></Get>"),
              messageXml("<Get><Item><Data><x a='" + bytes + "'/></Data></Item></Get>")})
            EXPECT_EQ(errorOf(xml).substr(0, 3), "400") << bytes.toHex().toStdString();
}

TEST(HostileXml, OtherVersionsAreRefused)
{
    const QByteArray xml = messageXml("<Get><CmdID>1</CmdID><Item/></Get>");
    EXPECT_EQ(errorOf("<?xml version='1.1'?>" + xml), "400 XML of version 1.1 is not supported");
    EXPECT_EQ(errorOf("<?xml version='1.0' standalone='no'?>" + xml), "no error");
}

TEST(HostileXml, LimitsHoldAfterAVeryLongToken)
{
    const QByteArray comment = "<!--" + QByteArray(2'000'000, 'x') + "-->";
    EXPECT_EQ(errorOf(messageXml(comment + QByteArray("<Atomic>").repeated(100'000))),
              "416 more than 64 elements inside each other");
    Limits limits;
    limits.textBytes = 1000;
    EXPECT_EQ(
        errorOf(messageXml(comment + "<Get><CmdID>" + QByteArray(2000, 'x') + "</CmdID></Get>"),
                limits),
        "416 more than 1000 bytes of text");
}

TEST(HostileXml, ReadsTheSameWhereverAPieceEnds)
{
    const QByteArray body =
        "<Add><CmdID>1</CmdID><Item><Target><LocURI>./\xC3\xA4&amp;</LocURI>"
        "</Target><Data>a\r\n<x xmlns:p='u' p:b='&lt;'><![CDATA[<]]>\xF0\x9F\x93"
        "\xB6</x>&#13;</Data></Item></Add>";
    const Message expected = decoded(messageXml(body));
    ASSERT_EQ(expected.commands.front().items.front().data,
              QByteArray("a\n<x xmlns:p=\"u\" p:b=\"&lt;\">&lt;\xF0\x9F\x93\xB6</x>&#13;"));
    constexpr qsizetype pieceBytes = 16 * 1024;
    const qsizetype before = messageXml("").indexOf("</SyncBody>") + 7;
    for (qsizetype cut = 0; cut <= body.size(); ++cut) {
        const QByteArray filler(pieceBytes - before - cut, 'x');
        EXPECT_EQ(decoded(messageXml("<!--" + filler + "-->" + body)), expected) << cut;
    }
}

TEST(HostileXml, ReadsALongTextAsItIs)
{
    QByteArray data;
    for (int number = 0; data.size() < 300'000; ++number)
        data += QByteArray::number(number) + (number % 7 ? " \xC3\xA4" : "\n");
    EXPECT_EQ(dataIn("<Data>" + data + "</Data>"), data);
}

} // namespace
