// Reads inputs of every kind, for callgrind to count the instructions of each.
//
//   parsing-costs SIZE...     has every parser read an input of about that many bytes, and leaves a
//                             callgrind dump "PARSER SIZE" for each
//
// The inputs are the ones that a parser which looks back over what it has read is slowest with:
// very many small pieces, or one very large one.
#include "access_control.h"
#include "account_tree.h"
#include "accounts.h"
#include "answer_queue.h"
#include "callgrind.h"
#include "codec.h"
#include "dm_message.h"
#include "known_secrets.h"
#include "message_scan.h"
#include "node_uri.h"
#include "node_value.h"
#include "notification_message.h"
#include "package.h"
#include "profile_json.h"
#include "property_store.h"
#include "provider_database.h"
#include "provisioning_document.h"
#include "record_reader.h"
#include "record_text.h"
#include "serialised_objects.h"
#include "settings_format.h"
#include "terminal.h"
#include "tnds.h"
#include "tnds_reader.h"
#include "user_interaction.h"
#include "words.h"
#include "wsp_push.h"

#include <QFile>
#include <QTemporaryDir>
#include <cstdio>
#include <functional>
#include <limits>

namespace {

// ---- Inputs --------------------------------------------------------------------------------------

using MakePiece = std::function<QByteArray(int)>;

/// Pieces, numbered from 0, until there are that many bytes.
QByteArray pieces(qsizetype size, const MakePiece &piece)
{
    QByteArray bytes;
    for (int i = 0; bytes.size() < size; ++i)
        bytes += piece(i);
    return bytes;
}

MakePiece numbered(const char *before, const char *after)
{
    return [=](int i) { return before + QByteArray::number(i) + after; };
}

QByteArray nested(qsizetype size, const MakePiece &open, const QByteArray &close)
{
    QByteArray bytes;
    int depth = 0;
    for (; bytes.size() < size; ++depth)
        bytes += open(depth);
    return bytes + close.repeated(depth);
}

QByteArray xmlMessage(const QByteArray &commands)
{
    return "<SyncML xmlns='SYNCML:SYNCML1.2'><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2"
           "</VerProto><SessionID>1</SessionID><MsgID>1</MsgID><Target><LocURI>d</LocURI></Target>"
           "<Source><LocURI>s</LocURI></Source></SyncHdr><SyncBody>" +
           commands + "<Final/></SyncBody></SyncML>";
}

QByteArray replaceWith(const QByteArray &data)
{
    return xmlMessage("<Replace><CmdID>1</CmdID><Item><Target><LocURI>./a</LocURI></Target><Data>" +
                      data + "</Data></Item></Replace>");
}

QByteArray inWbxml(const QByteArray &xml)
{
    const syncml::DecodeResult message = syncml::decode(xml);
    return *syncml::encode(*message, syncml::Encoding::Wbxml);
}

QByteArray manyItems(qsizetype size)
{
    return xmlMessage(
        "<Get><CmdID>1</CmdID>" +
        pieces(size, numbered("<Item><Target><LocURI>./a/", "</LocURI></Target></Item>")) +
        "</Get>");
}

QByteArray serialisedTree(const QByteArray &nodes)
{
    return "<MgmtTree xmlns='syncml:dmddf1.2'><VerDTD>1.2</VerDTD>" + nodes + "</MgmtTree>";
}

QByteArray leaves(qsizetype size)
{
    return pieces(size, numbered("<Node><NodeName>n",
                                 "</NodeName><RTProperties><Format><chr/></Format><Type>"
                                 "<MIME>text/plain</MIME></Type></RTProperties>"
                                 "<Value>v</Value></Node>"));
}

QByteArray folderOf(const QByteArray &nodes, const QByteArray &name = {})
{
    return "<Node><NodeName>" + name +
           "</NodeName><RTProperties><Format><node/></Format><Type><DDFName/></Type>"
           "</RTProperties>" +
           nodes + "</Node>";
}

QByteArray serialisedLeavesInWbxml(qsizetype size)
{
    constexpr char documentType[] = "-//OMA//DTD-DM-DDF 1.2//EN";
    QByteArray bytes = QByteArray::fromHex("0200006a1b") + QByteArray(documentType);
    bytes += QByteArray::fromHex("000002607703") + "1.2" + QByteArray::fromHex("0001");
    bytes += pieces(size, [](int i) { // a Node with its NodeName, Format chr, and Value
        return QByteArray::fromHex("646603") + 'n' + QByteArray::number(i) +
               QByteArray::fromHex("00016f5c0b01017603") + 'v' + QByteArray::fromHex("000101");
    });
    return bytes + '\x01';
}

QByteArray addTo(const QByteArray &uri, const QByteArray &tree)
{
    return xmlMessage("<Add><CmdID>1</CmdID><Item><Target><LocURI>" + uri +
                      "</LocURI></Target><Meta><Format xmlns='syncml:metinf'>xml</Format>"
                      "<Type xmlns='syncml:metinf'>application/vnd.syncml.dmtnds+xml</Type></Meta>"
                      "<Data>" +
                      tree + "</Data></Item></Add>");
}

QByteArray provisioningXml(const QByteArray &content)
{
    return "<wap-provisioningdoc version='1.0'>" + content + "</wap-provisioningdoc>";
}

/// Parms of a characteristic.
QByteArray provisioningInWbxml(const QByteArray &parms)
{
    return QByteArray::fromHex("030b6a0045c65003410001") + parms + QByteArray::fromHex("0101");
}

/// A number as WSP has it: seven bits in a byte, and a bit that says that there are more.
QByteArray wspNumber(qsizetype number)
{
    QByteArray bytes(1, static_cast<char>(number & 0x7F));
    for (qsizetype rest = number >> 7; rest != 0; rest >>= 7)
        bytes.prepend(static_cast<char>(0x80 | (rest & 0x7F)));
    return bytes;
}

QByteArray push(const QByteArray &header, const QByteArray &body)
{
    return QByteArray::fromHex("0106") + wspNumber(header.size()) + header + body;
}

QByteArray record(const QByteArray &events)
{
    return "{\"t\":0,\"event\":\"run\",\"format\":1}\n" + events;
}

// ---- Parsers -------------------------------------------------------------------------------------

void requireMessage(const QByteArray &bytes)
{
    const syncml::DecodeResult result = syncml::decode(bytes);
    if (!result)
        qFatal("no message: %s", qPrintable(result.error().toString()));
}

void decode(const QByteArray &bytes)
{
    (void)syncml::decode(bytes);
}

void readAcl(const QByteArray &bytes)
{
    if (const auto list = client::AccessControlList::parse(bytes); !list)
        qFatal("no list: %s", qPrintable(list.error()));
}

void readBinary(const QByteArray &bytes)
{
    if (!client::parseValue(DmtData::Bin, bytes))
        qFatal("no binary value");
}

void readText(const QByteArray &bytes)
{
    if (!client::parseValue(DmtData::String, bytes))
        qFatal("no text");
}

void readAddress(const QByteArray &bytes)
{
    if (!client::parseAddress(QString::fromUtf8(bytes), client::UriLimits()))
        qFatal("no address");
}

void readFile(const QByteArray &bytes,
              const std::function<bool(const QString &file, QString &error)> &load)
{
    const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("input")));
    QString error;
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.flush() ||
        !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) || !load(file.fileName(), error))
        qFatal("cannot be read: %s", qPrintable(error));
}

void readProperties(const QByteArray &bytes)
{
    readFile(bytes, [](const QString &file, QString &error) {
        const auto properties = client::PropertyStore::load(file, {});
        error = properties ? QString() : properties.error();
        return bool(properties);
    });
}

void readAccounts(const QByteArray &bytes)
{
    readFile(bytes, [](const QString &file, QString &error) {
        const client::AccountStore accounts = client::AccountStore::load(file);
        error = accounts.damage();
        return error.isEmpty() && accounts.damagedAccounts().empty();
    });
}

void readProfiles(const QByteArray &bytes)
{
    if (const auto profiles = parseProfiles(bytes); !profiles)
        qFatal("no profiles: %s", qPrintable(profiles.error()));
}

void readProviders(const QByteArray &bytes)
{
    static_cast<void>(parseProviderDatabase(bytes));
}

void readSettings(const QByteArray &bytes)
{
    formatSettings(parseSettings(bytes).groups);
}

void splitLine(const QByteArray &bytes)
{
    if (!client::cli::splitWords(bytes))
        qFatal("no words");
}

void fillMessages(const QByteArray &bytes)
{
    const syncml::DecodeResult decoded = syncml::decode(bytes);
    const auto &message = *decoded;
    syncml::Command status;
    status.kind = syncml::CommandKind::Status;
    status.cmdRef = QStringLiteral("1");
    status.msgRef = QStringLiteral("1");
    status.cmd = QStringLiteral("Get");
    status.data = "200";
    for (const syncml::Item &item : message.commands[0].items)
        status.targetRefs.push_back(item.target->locUri);
    syncml::Command results;
    results.kind = syncml::CommandKind::Results;
    results.cmdRef = QStringLiteral("1");
    results.items = message.commands[0].items;
    client::AnswerQueue queue;
    queue.push(std::move(status));
    queue.push(std::move(results));
    constexpr qsizetype serversLimit = 2000;
    for (client::AnswerQueue::Filled filled = client::AnswerQueue::Filled::Part;
         filled == client::AnswerQueue::Filled::Part;) {
        syncml::Message answer;
        answer.header = message.header;
        filled = queue.fill(answer, syncml::Encoding::Xml, serversLimit);
    }
}

/// Keeps what is written to it.
class PlainTree final : public DmtRWPluginTree {
public:
    static JemSmartPtr<PlainTree> create()
    {
        const JemSmartPtr<PlainTree> tree(new PlainTree);
        tree->Init("");
        JemSmartPtr<DmtNode> node;
        tree->CreateInteriorNodeInternal("", node, DMStringVector());
        tree->CreateLeafNodeInternal("leaf", node, DmtData("x"));
        return tree;
    }
};

/// Answers a package on a tree whose leaf ./t/leaf can be written.
void runPackage(const QByteArray &bytes)
{
    client::ManagementTree tree(client::hostInfo("id"));
    tree.mount(client::NodeUri({"t"}), PlainTree::create(),
               {.acl = *client::AccessControlList::parse("Get=*&Replace=*&Add=*")});
    const syncml::DecodeResult decoded = syncml::decode(bytes);
    if (!client::answerPackage(*decoded, tree, syncml::Encoding::Xml).allSucceeded)
        qFatal("not everything succeeded");
}

/// Writes a leaf for each name of an address, and the tree as a document.
void writeTree(const QByteArray &address)
{
    client::ManagementTree tree(client::hostInfo("id"));
    const JemSmartPtr<PlainTree> leaves = PlainTree::create();
    const auto names = client::parseAddress(QString::fromUtf8(address), client::UriLimits());
    for (const QByteArray &name : names->node.names()) {
        JemSmartPtr<DmtNode> node;
        leaves->CreateLeafNodeInternal(name.constData(), node, DmtData("x"));
    }
    tree.mount(client::NodeUri({"t"}), leaves);
    const client::TreeView view(tree, client::Principal::owner());
    const auto listing =
        view.list(*view.find(client::NodeUri({"t"})), client::TreeView::Values::Read);
    const auto content = client::parseTndsRequest(QStringLiteral("TNDS"));
    const auto document =
        client::tndsDocument(view, listing, *content, std::numeric_limits<qsizetype>::max());
    if (!document || document->size() < address.size())
        qFatal("no document");
}

void readSerialisedTree(const QByteArray &bytes)
{
    if (const auto nodes = client::readTnds(bytes); !nodes)
        qFatal("no tree: %s", qPrintable(nodes.error().reason));
}

void readUnfinishedTree(const QByteArray &bytes)
{
    static_cast<void>(client::readTnds(bytes));
}

void readObjects(const QByteArray &bytes)
{
    const auto nodes = client::bootstrap::readDmMessage(bytes);
    if (!nodes)
        qFatal("no objects: %s", qPrintable(nodes.error()));
    if (const auto document = client::bootstrap::documentOfObjects(*nodes); !document)
        qFatal("no document: %s", qPrintable(document.error()));
}

void readProvisioning(const QByteArray &bytes)
{
    client::bootstrap::ProvisioningLimits limits;
    limits.elements = std::numeric_limits<int>::max();
    limits.valueBytes = std::numeric_limits<qsizetype>::max();
    const auto document = client::bootstrap::readProvisioningDocument(bytes, limits);
    if (!document)
        qFatal("no document: %s", qPrintable(document.error()));
}

void readPush(const QByteArray &bytes)
{
    if (const auto push = client::push::readWspPush(bytes); !push)
        qFatal("no push: %s", qPrintable(push.error()));
}

void readNotification(const QByteArray &bytes)
{
    static_cast<void>(client::notification::readNotification(bytes));
}

void tellRecord(const QByteArray &bytes)
{
    readFile(bytes, [](const QString &file, QString &error) {
        auto reader = client::RecordReader::open(file);
        if (!reader) {
            error = reader.error();
            return false;
        }
        for (;;) {
            const auto event = reader->next();
            if (!event)
                error = event.error();
            if (!event || !*event)
                return bool(event);
            client::eventLines(**event);
        }
    });
}

/// As the recorder looks at a message before it writes it down.
void maskMessage(const QByteArray &bytes)
{
    const auto encoding = bytes.startsWith('<') ? syncml::Encoding::Xml : syncml::Encoding::Wbxml;
    client::KnownSecrets known;
    known.add("a secret");
    client::secretSpans(bytes, encoding, {});
    client::unreadSecretSpans(bytes, encoding, known, {});
    client::possiblySecretSpans(bytes, encoding);
}

void maskText(const QByteArray &bytes)
{
    client::KnownSecrets known;
    known.add("xxxxxxxxxxxxxxxy");
    known.add("xy");
    known.masked(bytes);
}

struct Parser {
    const char *name;
    std::function<QByteArray(qsizetype size)> input;
    void (*read)(const QByteArray &);
};

const Parser parsers[] = {
    {"acl-of-many-servers",
     [](qsizetype size) { return "Get=x" + pieces(size, numbered("+server", "")); }, readAcl},
    {"acl-of-one-server-again-and-again",
     [](qsizetype size) { return "Get=a" + QByteArray("&Get=a+b").repeated(size / 8); }, readAcl},
    {"binary-value", [](qsizetype size) { return QByteArray("QUJD").repeated(size / 4); },
     readBinary},
    {"binary-value-with-blanks",
     [](qsizetype size) { return QByteArray("QUJD\r\n ").repeated(size / 7); }, readBinary},
    {"text-value", [](qsizetype size) { return QByteArray("\xC3\xA4").repeated(size / 2); },
     readText},
    {"address-of-many-names", [](qsizetype size) { return "." + pieces(size, numbered("/n", "")); },
     readAddress},
    {"address-of-escapes",
     [](qsizetype size) { return "./" + QByteArray("%41").repeated(size / 3); }, readAddress},
    {"xml-commands",
     [](qsizetype size) {
         return xmlMessage(
             pieces(size, numbered("<Get><CmdID>", "</CmdID><Item><Target><LocURI>./a"
                                                   "</LocURI></Target></Item></Get>")));
     },
     requireMessage},
    {"xml-items", manyItems, requireMessage},
    {"xml-data", [](qsizetype size) { return replaceWith(QByteArray(size, 'x')); }, requireMessage},
    {"xml-entities",
     [](qsizetype size) { return replaceWith(QByteArray("&amp;").repeated(size / 5)); },
     requireMessage},
    {"xml-character-references",
     [](qsizetype size) { return replaceWith(QByteArray("&#13;").repeated(size / 5)); },
     requireMessage},
    {"xml-cdata-sections",
     [](qsizetype size) { return replaceWith(QByteArray("<![CDATA[x]]>").repeated(size / 13)); },
     requireMessage},
    {"xml-comments",
     [](qsizetype size) { return replaceWith(QByteArray("<!--x-->").repeated(size / 8)); },
     requireMessage},
    {"xml-comment-never-closed",
     [](qsizetype size) { return replaceWith(QByteArray("<!-- -").repeated(size / 6)); }, decode},
    {"xml-quotes-never-closed",
     [](qsizetype size) { return replaceWith(QByteArray("<a b='").repeated(size / 6)); }, decode},
    {"xml-lines",
     [](qsizetype size) { return replaceWith(QByteArray("a\r\n").repeated(size / 3)); },
     requireMessage},
    {"xml-markup-in-data",
     [](qsizetype size) {
         return replaceWith(pieces(size, numbered("<b xmlns:p='u'><p:c d='", "'/></b>")));
     },
     requireMessage},
    {"xml-namespaces-of-siblings",
     [](qsizetype size) {
         return replaceWith(pieces(size, [](int i) {
             const QByteArray n = QByteArray::number(i);
             return "<p" + n + ":b xmlns:p" + n + "='u'/>";
         }));
     },
     requireMessage},
    {"xml-nested-without-end",
     [](qsizetype size) { return replaceWith(QByteArray("<a>").repeated(size / 3)); }, decode},
    {"xml-attributes-of-one-tag",
     [](qsizetype size) { return replaceWith("<a" + pieces(size, numbered(" b", "=''")) + "/>"); },
     decode},
    {"wbxml-items", [](qsizetype size) { return inWbxml(manyItems(size)); }, requireMessage},
    {"wbxml-data", [](qsizetype size) { return inWbxml(replaceWith(QByteArray(size, 'x'))); },
     requireMessage},
    {"answers-in-small-messages", manyItems, fillMessages},
    {"package-of-reads",
     [](qsizetype size) {
         return xmlMessage(pieces(size, numbered("<Get><CmdID>", "</CmdID><Item><Target><LocURI>"
                                                                 "./DevInfo/DevId</LocURI></Target>"
                                                                 "</Item></Get>")));
     },
     runPackage},
    {"package-of-one-atomic",
     [](qsizetype size) {
         return xmlMessage(
             "<Atomic><CmdID>a</CmdID>" +
             pieces(size, numbered("<Replace><CmdID>", "</CmdID><Item><Target><LocURI>./t/leaf"
                                                       "</LocURI></Target><Data>y</Data></Item>"
                                                       "</Replace>")) +
             "</Atomic>");
     },
     runPackage},
    {"serialised-tree", [](qsizetype size) { return "." + pieces(size / 4, numbered("/n", "")); },
     writeTree},
    {"serialised-leaves-to-be-read", [](qsizetype size) { return serialisedTree(leaves(size)); },
     readSerialisedTree},
    {"serialised-value-of-escapes",
     [](qsizetype size) {
         return serialisedTree("<Node><NodeName>n</NodeName><Value>" +
                               QByteArray("&#38;").repeated(size / 5) + "</Value></Node>");
     },
     readSerialisedTree},
    {"serialised-tree-in-base64",
     [](qsizetype size) { return serialisedTree(leaves(size * 3 / 4)).toBase64(); },
     readSerialisedTree},
    {"serialised-tree-never-closed",
     [](qsizetype size) {
         return "<MgmtTree>" + QByteArray("<Node><NodeName/></Node><Node>").repeated(size / 30);
     },
     readUnfinishedTree},
    {"serialised-leaves-in-wbxml", serialisedLeavesInWbxml, readSerialisedTree},
    {"serialised-tree-that-is-added",
     [](qsizetype size) { return addTo("./t/x", serialisedTree(folderOf(leaves(size)))); },
     runPackage},
    {"serialised-objects-for-the-inbox",
     [](qsizetype size) { return addTo("./Inbox", serialisedTree(folderOf(leaves(size), "o"))); },
     readObjects},
    {"provisioning-parms",
     [](qsizetype size) {
         return provisioningXml("<characteristic type='NAPDEF'>" +
                                pieces(size, numbered("<parm name='NAPID' value='", "'/>")) +
                                "</characteristic>");
     },
     readProvisioning},
    {"provisioning-characteristics",
     [](qsizetype size) {
         return provisioningXml(pieces(size, numbered("<characteristic type='T", "'/>")));
     },
     readProvisioning},
    {"provisioning-value-of-escapes",
     [](qsizetype size) {
         return provisioningXml("<characteristic type='NAPDEF'><parm name='NAME' value='" +
                                QByteArray("&amp;").repeated(size / 5) + "'/></characteristic>");
     },
     readProvisioning},
    {"provisioning-in-wbxml",
     [](qsizetype size) {
         const QByteArray parm = QByteArray::fromHex("87070603410001");
         return provisioningInWbxml(parm.repeated(size / parm.size()));
     },
     readProvisioning},
    {"provisioning-value-in-pieces",
     [](qsizetype size) {
         const QByteArray piece = QByteArray::fromHex("034100");
         return provisioningInWbxml(QByteArray::fromHex("870706") +
                                    piece.repeated(size / piece.size()) + '\x01');
     },
     readProvisioning},
    {"push-of-many-headers",
     [](qsizetype size) {
         return push("\xC4" + QByteArray("X\0y\0", 4).repeated(size / 4), "body");
     },
     readPush},
    {"push-of-many-parameters",
     [](qsizetype size) {
         constexpr char lengthFollows = 0x1F;
         const QByteArray content = "\xC4" + QByteArray("x\0y\0", 4).repeated(size / 4);
         return push(lengthFollows + wspNumber(content.size()) + content, "body");
     },
     readPush},
    {"notification-that-is-too-long",
     [](qsizetype size) { return push(QByteArray::fromHex("c4af87"), QByteArray(size, '\x02')); },
     readNotification},
    {"record-of-many-events",
     [](qsizetype size) {
         return record(
             pieces(size, numbered("{\"event\":\"wait\",\"reason\":\"x\",\"us\":1,\"t\":", "}\n")));
     },
     tellRecord},
    {"record-of-one-long-event",
     [](qsizetype size) {
         // A file hands out the first 16 KiB of a line faster than the rest.
         const qsizetype farBeyondTheBuffer = 16 * size;
         return record("{\"t\":1,\"event\":\"wait\",\"us\":1,\"reason\":\"" +
                       QByteArray("\\u001b").repeated(farBeyondTheBuffer / 6) + "\"}\n");
     },
     tellRecord},
    {"recorded-message-in-xml", manyItems, maskMessage},
    {"recorded-message-in-wbxml", [](qsizetype size) { return inWbxml(manyItems(size)); },
     maskMessage},
    {"recorded-comments-never-closed",
     [](qsizetype size) { return replaceWith(QByteArray("<!-- a sec").repeated(size / 10)); },
     maskMessage},
    {"recorded-quotes-never-closed",
     [](qsizetype size) { return replaceWith(QByteArray("<a b='").repeated(size / 6)); },
     maskMessage},
    {"recorded-tree-that-is-added",
     [](qsizetype size) { return addTo("./t/x", serialisedTree(folderOf(leaves(size)))); },
     maskMessage},
    {"text-that-is-nearly-a-secret", [](qsizetype size) { return QByteArray(size, 'x'); },
     maskText},
    {"interaction-options", [](qsizetype size) { return pieces(size, numbered("MINDT=", "&")); },
     [](const QByteArray &bytes) { client::parseInteractionOptions(bytes); }},
    {"properties-file",
     [](qsizetype size) {
         return "{" + pieces(size, numbered("\"./n", "\":{\"title\":\"x\"},")).chopped(1) + "}";
     },
     readProperties},
    {"accounts-file",
     [](qsizetype size) {
         return "{" +
                pieces(size, numbered("\"n", "\":{\"address\":\"http://h/\",\"server-id\":\"s\"},"))
                    .chopped(1) +
                "}";
     },
     readAccounts},
    {"profiles-as-json",
     [](qsizetype size) {
         return "[" + pieces(size, numbered("{\"name\":\"n", "\"},")).chopped(1) + "]";
     },
     readProfiles},
    {"json-text-of-escapes",
     [](qsizetype size) {
         return "[{\"name\":\"n\",\"gprs\":{\"address\":\"" +
                QByteArray("\\u0041").repeated(size / 6) + "\"}}]";
     },
     readProfiles},
    {"json-members-in-falling-order",
     [](qsizetype size) {
         const int last = 10'000'000;
         return "{" +
                pieces(size, [](int i) { return "\"" + QByteArray::number(last - i) + "\":{},"; })
                    .chopped(1) +
                "}";
     },
     [](const QByteArray &bytes) { static_cast<void>(parseProfiles(bytes)); }},
    {"providers",
     [](qsizetype size) {
         return "<serviceproviders format='2.0'><country code='de'><provider><name>n</name><gsm>" +
                pieces(size, numbered("<apn value='", "'><name>x</name></apn>")) +
                "</gsm></provider></country></serviceproviders>";
     },
     readProviders},
    {"provider-of-many-elements",
     [](qsizetype size) {
         return "<serviceproviders format='2.0'>" + nested(size, numbered("<a", ">"), QByteArray());
     },
     readProviders},
    {"provider-of-many-attributes",
     [](qsizetype size) {
         return "<serviceproviders format='2.0'><country" + pieces(size, numbered(" a", "=''")) +
                "/></serviceproviders>";
     },
     readProviders},
    {"provider-of-nested-namespaces",
     [](qsizetype size) {
         return "<serviceproviders xmlns:p='u' format='2.0'>" +
                nested(size, numbered("<p:a xmlns:n", "='u'>"), "</p:a>") + "</serviceproviders>";
     },
     readProviders},
    {"settings-entries",
     [](qsizetype size) { return "[g]\n" + pieces(size, numbered("key", "=value\n")); },
     readSettings},
    {"settings-groups", [](qsizetype size) { return pieces(size, numbered("[g", "]\nk=v\n")); },
     readSettings},
    {"settings-escapes",
     [](qsizetype size) { return "[g]\nk=" + QByteArray("\\n").repeated(size / 2) + "\n"; },
     readSettings},
    {"line-of-one-word", [](qsizetype size) { return "add " + QByteArray(size, 'x'); }, splitLine},
    {"line-of-many-words", [](qsizetype size) { return QByteArray("xy ").repeated(size / 3); },
     splitLine},
    {"text-for-a-terminal",
     [](qsizetype size) { return QByteArray("\xC3\xA4\x1B").repeated(size / 3); },
     [](const QByteArray &bytes) { commandline::printable(bytes); }},
};

void count(const Parser &parser, qsizetype size)
{
    const QByteArray input = parser.input(size);
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    parser.read(input);
    CALLGRIND_TOGGLE_COLLECT;
    const QByteArray name = QByteArray(parser.name) + ' ' + QByteArray::number(size);
    CALLGRIND_DUMP_STATS_AT(name.constData());
}

} // namespace

int main(int argc, char **argv)
{
    for (const Parser &parser : parsers) {
        std::printf("%s\n", parser.name);
        std::fflush(stdout);
        for (int i = 1; i < argc; ++i)
            count(parser, QByteArray(argv[i]).toLongLong());
    }
}
