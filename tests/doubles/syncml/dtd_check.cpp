#include "dtd_check.h"

#include <QHash>
#include <QRegularExpression>
#include <QXmlStreamReader>
#include <vector>

namespace dtd_check {
namespace {

// Content models of the SyncML 1.2 DTD over the names of the children, each followed by a blank.
// Elements that are not listed hold text or nothing.
const QHash<QString, QString> &contentModels()
{
    static const QString itemCommand = QStringLiteral("CmdID (NoResp )?(Cred )?(Meta )?(Item )+");
    static const QString innerCommand =
        QStringLiteral("(Add|Alert|Atomic|Copy|Delete|Exec|Get|Map|Replace|Sequence|Sync) ");
    static const QHash<QString, QString> models{
        {QStringLiteral("SyncML"), QStringLiteral("SyncHdr SyncBody ")},
        {QStringLiteral("SyncHdr"),
         QStringLiteral("VerDTD VerProto SessionID MsgID Target Source (RespURI )?(NoResp )?"
                        "(Cred )?(Meta )?")},
        {QStringLiteral("SyncBody"),
         QStringLiteral("((Alert|Atomic|Copy|Exec|Get|Map|Put|Results|Search|Sequence|Status|Sync|"
                        "Add|Move|Replace|Delete) )+(Final )?")},
        {QStringLiteral("Target"), QStringLiteral("LocURI (LocName )?(Filter )?")},
        {QStringLiteral("Source"), QStringLiteral("LocURI (LocName )?")},
        {QStringLiteral("Cred"), QStringLiteral("(Meta )?Data ")},
        {QStringLiteral("Chal"), QStringLiteral("Meta ")},
        {QStringLiteral("Meta"),
         QStringLiteral("(Format )?(Type )?(Mark )?(Size )?(Anchor )?(Version )?(NextNonce )?"
                        "(MaxMsgSize )?(MaxObjSize )?(EMI )*(Mem )?")},
        {QStringLiteral("Item"),
         QStringLiteral("(Target )?(Source )?(SourceParent )?(TargetParent )?(Meta )?(Data )?"
                        "(MoreData )?")},
        {QStringLiteral("Add"), itemCommand},
        {QStringLiteral("Copy"), itemCommand},
        {QStringLiteral("Replace"), itemCommand},
        {QStringLiteral("Delete"), QStringLiteral("CmdID (NoResp )?(Archive )?(SftDel )?(Cred )?"
                                                  "(Meta )?(Item )+")},
        {QStringLiteral("Get"), QStringLiteral("CmdID (NoResp )?(Lang )?(Cred )?(Meta )?(Item )+")},
        {QStringLiteral("Exec"),
         QStringLiteral("CmdID (NoResp )?(Cred )?(Meta )?(Correlator )?Item ")},
        {QStringLiteral("Alert"),
         QStringLiteral("CmdID (NoResp )?(Cred )?(Data )?(Correlator )?(Item )*")},
        {QStringLiteral("Atomic"),
         QStringLiteral("CmdID (NoResp )?(Meta )?(%1)+").arg(innerCommand)},
        {QStringLiteral("Sequence"),
         QStringLiteral("CmdID (NoResp )?(Meta )?(%1)+").arg(innerCommand)},
        {QStringLiteral("Status"),
         QStringLiteral("CmdID MsgRef CmdRef Cmd (TargetRef )*(SourceRef )*(Cred )?(Chal )?Data "
                        "(Item )*")},
        {QStringLiteral("Results"), QStringLiteral("CmdID (MsgRef )?CmdRef (Meta )?(TargetRef )?"
                                                   "(SourceRef )?(Item )+")},
    };
    return models;
}

struct OpenElement {
    QString name;
    QString children;
    bool insideMeta;
};

} // namespace

std::string firstFault(const QByteArray &xml)
{
    QXmlStreamReader reader(xml);
    std::vector<OpenElement> open;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            const QString name = reader.name().toString();
            const bool insideMeta =
                !open.empty() && (open.back().insideMeta || open.back().name == u"Meta");
            const QStringView expected = insideMeta ? u"syncml:metinf" : u"SYNCML:SYNCML1.2";
            if (reader.namespaceUri() != expected)
                return "namespace of " + name.toStdString() + " is " +
                       reader.namespaceUri().toString().toStdString();
            if (!open.empty())
                open.back().children += name + u' ';
            open.push_back({name, QString(), insideMeta});
        } else if (reader.isEndElement()) {
            const OpenElement &ended = open.back();
            const QRegularExpression model(
                QRegularExpression::anchoredPattern(contentModels().value(ended.name)));
            if (!model.match(ended.children).hasMatch())
                return ended.name.toStdString() + " holds: " + ended.children.toStdString();
            open.pop_back();
        }
    }
    return reader.hasError() ? reader.errorString().toStdString() : std::string();
}

std::string tree(const QByteArray &xml)
{
    QXmlStreamReader reader(xml);
    std::string lines;
    std::string text;
    int depth = 0;
    bool leaf = false;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            lines += std::string(static_cast<std::size_t>(depth), ' ') +
                     reader.name().toString().toStdString() + '\n';
            ++depth;
            text.clear();
            leaf = true;
        } else if (reader.isCharacters()) {
            text += reader.text().toString().toStdString();
        } else if (reader.isEndElement()) {
            if (leaf && !text.empty())
                lines += std::string(static_cast<std::size_t>(depth), ' ') + '"' + text + "\"\n";
            --depth;
            text.clear();
            leaf = false;
        }
    }
    return reader.hasError() ? reader.errorString().toStdString() : lines;
}

} // namespace dtd_check
