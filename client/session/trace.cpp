#include "trace.h"

#include "credentials.h"
#include "dm_status.h"
#include "foreign_text.h"
#include "secret_item.h"
#include "secret_mask.h"
#include "user_interaction.h"
#include "xml_codec.h"

#include <QFileInfo>
#include <QXmlStreamWriter>
#include <unistd.h>

namespace client {

using namespace syncml;
using support::secretMask;

namespace {

// ---- Writing -------------------------------------------------------------------------------------

/// Writes what a message has, complete or not, in the order of the DTD.
class ReadableWriter {
public:
    ReadableWriter(QByteArray &out, const AlertIds &secretQuestions)
        : m_xml(&out), m_secretQuestions(secretQuestions)
    {
        m_xml.setAutoFormatting(true);
        m_xml.setAutoFormattingIndent(2);
    }

    void write(const syncml::Message &message)
    {
        m_xml.writeStartElement(QStringLiteral("SyncML"));
        writeHeader(message.header);
        m_xml.writeStartElement(QStringLiteral("SyncBody"));
        for (const Command &command : message.commands)
            writeCommand(command);
        if (message.final)
            m_xml.writeEmptyElement(QStringLiteral("Final"));
        m_xml.writeEndElement();
        m_xml.writeEndElement();
    }

private:
    void writeHeader(const syncml::SyncHdr &header)
    {
        m_xml.writeStartElement(QStringLiteral("SyncHdr"));
        text("VerDTD", header.verDtd);
        text("VerProto", header.verProto);
        text("SessionID", header.sessionId);
        text("MsgID", header.msgId);
        location("Target", header.target);
        location("Source", header.source);
        text("RespURI", header.respUri);
        if (header.cred) {
            m_xml.writeStartElement(QStringLiteral("Cred"));
            meta(header.cred->meta);
            data(header.cred->data, true);
            m_xml.writeEndElement();
        }
        meta(header.meta);
        m_xml.writeEndElement();
    }

    void writeCommand(const Command &command)
    {
        m_xml.writeStartElement(printableName(syncml::commandName(command)));
        text("CmdID", command.cmdId);
        text("MsgRef", command.msgRef);
        text("CmdRef", command.cmdRef);
        text("Cmd", command.cmd);
        for (const QString &ref : command.targetRefs)
            text("TargetRef", ref);
        for (const QString &ref : command.sourceRefs)
            text("SourceRef", ref);
        if (command.chal) {
            m_xml.writeStartElement(QStringLiteral("Chal"));
            meta(command.chal->meta);
            m_xml.writeEndElement();
        }
        meta(command.meta);
        if (command.data) {
            data(*command.data, false);
            if (command.kind == CommandKind::Status)
                writeMeaning(command.data->toInt());
        }
        if (command.correlator)
            text("Correlator", *command.correlator);
        for (const Item &item : command.items)
            writeItem(command, item);
        for (const Command &inner : command.commands)
            writeCommand(inner);
        m_xml.writeEndElement();
    }

    void writeItem(const Command &command, const Item &item)
    {
        const bool answersSecretQuestion =
            command.kind == CommandKind::Status &&
            m_secretQuestions.contains(
                {command.msgRef.value_or(QString()), command.cmdRef.value_or(QString())});
        m_xml.writeStartElement(QStringLiteral("Item"));
        if (item.target)
            location("Target", *item.target);
        if (item.source)
            location("Source", *item.source);
        meta(item.meta);
        if (item.data)
            data(*item.data, answersSecretQuestion || mayHoldSecret(command, item));
        if (item.moreData)
            m_xml.writeEmptyElement(QStringLiteral("MoreData"));
        m_xml.writeEndElement();
    }

    void location(const char *name, const syncml::Location &location)
    {
        m_xml.writeStartElement(QString::fromLatin1(name));
        text("LocURI", location.locUri);
        if (location.locName)
            text("LocName", *location.locName);
        m_xml.writeEndElement();
    }

    void meta(const support::Boxed<Meta> &meta)
    {
        if (!meta)
            return;
        m_xml.writeStartElement(QStringLiteral("Meta"));
        text("Format", meta->format);
        text("Type", meta->type);
        text("Mark", meta->mark);
        text("Size", meta->size);
        if (meta->nextNonce)
            text("NextNonce", QString::fromUtf8(*meta->nextNonce));
        text("MaxMsgSize", meta->maxMsgSize);
        text("MaxObjSize", meta->maxObjSize);
        for (const QString &emi : meta->emi)
            text("EMI", emi);
        m_xml.writeEndElement();
    }

    void text(const char *name, const std::optional<QString> &content)
    {
        if (!content)
            return;
        const QByteArray bytes = content->toUtf8();
        m_xml.writeTextElement(QString::fromLatin1(name), readable(bytes));
    }

    void data(const QByteArray &bytes, bool isSecret)
    {
        // An empty secret is none, and worth seeing.
        const bool isMasked = isSecret && !bytes.isEmpty();
        m_xml.writeTextElement(QStringLiteral("Data"),
                               isMasked ? QString::fromLatin1(secretMask) : readable(bytes));
        if (!isMasked && !syncml::fitsXml(bytes))
            m_xml.writeComment(QStringLiteral(" %1 bytes, in base64 ").arg(bytes.size()));
    }

    void writeMeaning(int code)
    {
        const QString words = meaning(static_cast<DmStatus>(code));
        if (!words.isEmpty())
            m_xml.writeComment(u' ' + words + u' ');
    }

    /// Only lines of the trace itself begin at its margin.
    static QString readable(const QByteArray &bytes)
    {
        const QByteArray text = syncml::fitsXml(bytes) ? bytes : bytes.toBase64();
        return QString::fromUtf8(text).replace(u'\n', QStringLiteral("\n    "));
    }

    /// An unknown element's name comes from the server; from WBXML it could be any text.
    static QString printableName(QString name)
    {
        name.removeIf([](QChar character) { return !character.isLetterOrNumber(); });
        return name.isEmpty() || !name[0].isLetter() ? QStringLiteral("Unknown") : name;
    }

    QXmlStreamWriter m_xml;
    const AlertIds &m_secretQuestions;
};

} // namespace

QByteArray readableMessage(const syncml::Message &message, const AlertIds &secretQuestions)
{
    QByteArray text;
    ReadableWriter(text, secretQuestions).write(message);
    return text.trimmed() + '\n';
}

// ---- The file ------------------------------------------------------------------------------------

namespace {

constexpr auto ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

QByteArray encodingName(const QByteArray &body)
{
    const auto encoding = syncml::recogniseEncoding(body);
    if (!encoding)
        return "neither XML nor WBXML";
    return *encoding == syncml::Encoding::Xml ? "XML" : "WBXML";
}

QByteArray printableLine(const QByteArray &text)
{
    return QByteArray::fromStdString(foreign_text::printable(text.toStdString()));
}

/// The end of the line that announces a message, and the line of its HMAC header, whose proof is
/// masked.
QByteArray sizeAndProof(const QByteArray &body, const std::optional<QByteArray> &hmac)
{
    const QByteArray size =
        ", " + QByteArray::number(body.size()) + " bytes of " + encodingName(body) + '\n';
    if (!hmac)
        return size;
    const auto parsed = parseHmacHeader(*hmac);
    return size + hmacHeaderName + ": username=\"" +
           (parsed ? printableLine(parsed->userName) : QByteArray("?")) + "\", mac=" + secretMask +
           '\n';
}

} // namespace

support::Expected<std::unique_ptr<TraceWriter>, QString> TraceWriter::open(const QString &file)
{
    std::unique_ptr<TraceWriter> trace(new TraceWriter(file));
    if (file == u"-") {
        trace->m_file.setFileName(QStringLiteral("standard output"));
        if (trace->m_file.open(STDOUT_FILENO, QIODevice::WriteOnly))
            return trace;
        return support::Unexpected(trace->problem());
    }
    // A file that is there keeps its permissions unless they are changed before the first byte; a
    // device is everybody's.
    if (!trace->m_file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        (QFileInfo(file).isFile() && !trace->m_file.setPermissions(ownerOnly)))
        return support::Unexpected(trace->problem());
    return trace;
}

void TraceWriter::messageSent(const TransportRequest &request, const syncml::Message &message)
{
    write("==> message " + printableLine(message.header.msgId.toUtf8()) + " to " +
          request.url.toEncoded() + sizeAndProof(request.body, request.hmac) +
          readableMessage(message, m_secretQuestions) + '\n');
}

void TraceWriter::messageReceived(const TransportResponse &response,
                                  const syncml::DecodeResult *decoded)
{
    const QByteArray from = " from " + response.url.toEncoded();
    if (!decoded) {
        write("<== empty answer" + from + "\n\n");
        return;
    }
    const QByteArray size = sizeAndProof(response.body, response.hmac);
    if (!*decoded) {
        // Secrets in it could not be told apart, so it is not shown.
        write("<== unreadable answer" + from + size +
              printableLine(decoded->error().toString().toUtf8()) + "\n\n");
        return;
    }
    const auto &message = **decoded;
    rememberSecretQuestions(message.header.msgId, message.commands);
    write("<== message " + printableLine(message.header.msgId.toUtf8()) + from + size +
          readableMessage(message, m_secretQuestions) + '\n');
}

void TraceWriter::rememberSecretQuestions(const QString &msgId,
                                          const std::vector<Command> &commands)
{
    for (const Command &command : commands) {
        if (asksForSecret(command))
            m_secretQuestions.emplace(msgId, command.cmdId.value_or(QString()));
        rememberSecretQuestions(msgId, command.commands);
    }
}

void TraceWriter::note(const QString &text)
{
    write("-- " + printableLine(text.toUtf8()) + "\n\n");
}

void TraceWriter::write(const QByteArray &text)
{
    const QByteArray harmless =
        QByteArray::fromStdString(foreign_text::printableLines(text.toStdString()));
    const bool isWritten = m_file.write(harmless) == harmless.size() && m_file.flush();
    if (!isWritten && !m_lossReason)
        m_lossReason = problem();
}

QString TraceWriter::problem() const
{
    return QStringLiteral("cannot write %1: %2").arg(m_file.fileName(), m_file.errorString());
}

} // namespace client
