#include "ddf_check.h"

#include <QMap>
#include <QRegularExpression>
#include <QStringList>
#include <QXmlStreamReader>

namespace client {

namespace {

/// Children of an element, each followed by a comma, as a regular expression. An element that is
/// not in the table holds text only.
const QMap<QString, QString> contentModels = [] {
    const auto empty = QString();
    const auto formats = QStringLiteral("(b64|bin|bool|chr|int|node|null|xml|date|time|float),");
    QMap<QString, QString> models{
        {QStringLiteral("MgmtTree"), QStringLiteral("VerDTD,(Man,)?(Mod,)?(Node,)+")},
        {QStringLiteral("Node"),
         QStringLiteral("NodeName,(Path,)?(RTProperties,)?(DFProperties,)?((Node,)*|(Value,)?)")},
        {QStringLiteral("RTProperties"),
         QStringLiteral("(ACL,)?(Format,)?(Name,)?(Size,)?(Title,)?(TStamp,)?Type,(VerNo,)?")},
        {QStringLiteral("DFProperties"),
         QStringLiteral("AccessType,(DefaultValue,)?(Description,)?DFFormat,(Occurrence,)?(Scope,)?"
                        "(DFTitle,)?DFType,(CaseSense,)?")},
        {QStringLiteral("AccessType"),
         QStringLiteral("(Add,)?(Copy,)?(Delete,)?(Exec,)?(Get,)?(Replace,)?")},
        {QStringLiteral("DFFormat"), formats},
        {QStringLiteral("Format"), formats},
        {QStringLiteral("Occurrence"),
         QStringLiteral("(One|ZeroOrOne|ZeroOrMore|OneOrMore|ZeroOrN|OneOrN),")},
        {QStringLiteral("Scope"), QStringLiteral("(Permanent|Dynamic),")},
        {QStringLiteral("DFType"), QStringLiteral("(MIME,)+|DDFName,")},
        {QStringLiteral("Type"), QStringLiteral("MIME,|DDFName,")},
        {QStringLiteral("CaseSense"), QStringLiteral("(CS|CIS),")},
    };
    for (const char *const name :
         {"Add",       "Copy",    "Delete", "Exec", "Get",       "Replace",    "b64",
          "bin",       "bool",    "chr",    "int",  "node",      "null",       "xml",
          "date",      "time",    "float",  "One",  "ZeroOrOne", "ZeroOrMore", "OneOrMore",
          "Permanent", "Dynamic", "CS",     "CIS"})
        models.insert(QString::fromLatin1(name), empty);
    return models;
}();

const QStringList textElements = {
    QStringLiteral("VerDTD"),   QStringLiteral("Man"),         QStringLiteral("Mod"),
    QStringLiteral("NodeName"), QStringLiteral("Path"),        QStringLiteral("Value"),
    QStringLiteral("ACL"),      QStringLiteral("Name"),        QStringLiteral("Size"),
    QStringLiteral("Title"),    QStringLiteral("TStamp"),      QStringLiteral("VerNo"),
    QStringLiteral("MIME"),     QStringLiteral("DDFName"),     QStringLiteral("DefaultValue"),
    QStringLiteral("DFTitle"),  QStringLiteral("Description"),
};

class Check {
public:
    explicit Check(const QByteArray &document) : m_xml(document) {}

    std::vector<std::string> run()
    {
        m_xml.readNextStartElement();
        if (m_xml.name() != u"MgmtTree")
            fault(QStringLiteral("no MgmtTree"), {});
        element(QString());
        while (!m_xml.atEnd())
            m_xml.readNext();
        if (m_xml.hasError())
            fault(m_xml.errorString(), {});
        return m_faults;
    }

private:
    void element(const QString &parentPath)
    {
        const QString name = m_xml.name().toString();
        const QString path = parentPath + u'/' + name;
        const bool isText = textElements.contains(name);
        if (!isText && !contentModels.contains(name))
            fault(QStringLiteral("unknown"), path);
        if (name == u"Path" && path.count(QStringLiteral("/Node/")) > 1)
            fault(QStringLiteral("Path beneath another node"), path);
        QString children;
        while (!m_xml.atEnd()) {
            m_xml.readNext();
            if (m_xml.isEndElement())
                break;
            if (m_xml.isCharacters() && !m_xml.isWhitespace() && !isText)
                fault(QStringLiteral("text"), path);
            if (m_xml.isStartElement()) {
                children += m_xml.name().toString() + u',';
                element(path);
            }
        }
        const QRegularExpression model(
            QRegularExpression::anchoredPattern(contentModels.value(name)));
        if (!model.match(children).hasMatch())
            fault(QStringLiteral("children ") + children, path);
    }

    void fault(const QString &what, const QString &path)
    {
        m_faults.push_back((path + QStringLiteral(": ") + what).toStdString());
    }

    QXmlStreamReader m_xml;
    std::vector<std::string> m_faults;
};

} // namespace

std::vector<std::string> faultsOfDescription(const QByteArray &document)
{
    return Check(document).run();
}

} // namespace client
