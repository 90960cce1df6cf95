#include "provider_database.h"

#include "xml_guard.h"

#include <QXmlStreamReader>

namespace {

class DatabaseReader {
public:
    explicit DatabaseReader(const QByteArray &xml) : m_xml(xml)
    {
        // The format has no namespaces, whose names the reader looks up in every element around.
        m_xml.setNamespaceProcessing(false);
    }

    support::Expected<QList<Provider>, QString> read()
    {
        if (m_xml.readNextStartElement()) {
            if (m_xml.name() != u"serviceproviders")
                m_xml.raiseError(QStringLiteral("it is not a list of service providers"));
            else if (m_xml.attributes().value(QLatin1StringView("format")) != u"2.0")
                m_xml.raiseError(QStringLiteral("only format 2.0 is known"));
        }
        readEach(u"country", [this] { readCountry(); });
        if (m_xml.hasError())
            return support::Unexpected(
                QStringLiteral("line %1: %2").arg(m_xml.lineNumber()).arg(m_xml.errorString()));
        return m_providers;
    }

private:
    /// Reads the elements of that name in the current one.
    template <typename Read>
    void readEach(QStringView name, Read read)
    {
        while (m_xml.readNextStartElement()) {
            if (m_xml.name() == name)
                read();
            else
                m_xml.skipCurrentElement();
        }
    }

    void readCountry()
    {
        const QString country =
            m_xml.attributes().value(QLatin1StringView("code")).toString().toLower();
        readEach(u"provider", [&] { readProvider(country); });
    }

    void readProvider(const QString &country)
    {
        Provider provider;
        provider.country = country;
        while (m_xml.readNextStartElement()) {
            if (m_xml.name() == u"name")
                provider.names += readText();
            else if (m_xml.name() == u"gsm")
                readEach(u"apn", [&] { provider.accessPoints += readAccessPoint(); });
            else
                m_xml.skipCurrentElement();
        }
        if (!provider.accessPoints.isEmpty())
            m_providers += provider;
    }

    AccessPoint readAccessPoint()
    {
        AccessPoint accessPoint;
        accessPoint.apn = m_xml.attributes().value(QLatin1StringView("value")).trimmed().toString();
        while (m_xml.readNextStartElement()) {
            const QStringView element = m_xml.name();
            if (element == u"name" && accessPoint.name.isEmpty())
                accessPoint.name = readText();
            else if (element == u"username")
                accessPoint.userName = readText();
            else if (element == u"password")
                accessPoint.password = readText();
            else if (element == u"dns")
                accessPoint.dnsServers += readText();
            else if (element == u"mmsproxy")
                accessPoint.mmsProxy = readText();
            else if (element == u"usage")
                accessPoint.usage = readUsage();
            else
                m_xml.skipCurrentElement();
        }
        return accessPoint;
    }

    QString readUsage()
    {
        const QString usage = m_xml.attributes().value(QLatin1StringView("type")).toString();
        m_xml.skipCurrentElement();
        return usage;
    }

    QString readText()
    {
        return m_xml.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
    }

    QXmlStreamReader m_xml;
    QList<Provider> m_providers;
};

} // namespace

support::Expected<QList<Provider>, QString> parseProviderDatabase(const QByteArray &xml)
{
    constexpr qsizetype mostAttributes = 32; // no element of the format has more than two
    if (const auto refusal = guardXml(xml, mostAttributes))
        return support::Unexpected(
            QStringLiteral("line %1: %2").arg(refusal->line).arg(refusal->text));
    return DatabaseReader(xml).read();
}
