#include "document_builder.h"

#include "xml_text.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace client::bootstrap {

namespace {

constexpr std::pair<const char *, DocumentElement> elementNames[] = {
    {"wap-provisioningdoc", DocumentElement::Document},
    {"characteristic", DocumentElement::Characteristic},
    {"parm", DocumentElement::Parm},
};

struct AttributeRow {
    const char *name;
    std::optional<QString> TagAttributes::*field;
    qsizetype ProvisioningLimits::*longest;
};

constexpr AttributeRow attributeRows[] = {
    {"type", &TagAttributes::type, &ProvisioningLimits::nameBytes},
    {"name", &TagAttributes::name, &ProvisioningLimits::nameBytes},
    {"value", &TagAttributes::value, &ProvisioningLimits::valueBytes},
    {"version", &TagAttributes::version, &ProvisioningLimits::nameBytes},
};

QString notPlaced(DocumentElement element)
{
    const auto *const row =
        std::ranges::find(elementNames, element, [](auto &one) { return one.second; });
    return QStringLiteral("a %1 has no place here").arg(QString::fromLatin1(row->first));
}

} // namespace

std::optional<DocumentElement> documentElementNamed(QByteArrayView name)
{
    const auto *const row = std::ranges::find_if(
        elementNames, [name](const auto &one) { return name == QByteArrayView(one.first); });
    return row == std::end(elementNames) ? std::nullopt : std::optional(row->second);
}

QString TagAttributes::set(QByteArrayView attribute, QByteArrayView utf8,
                           const ProvisioningLimits &limits)
{
    const auto *const row =
        std::ranges::find_if(attributeRows, [attribute](const AttributeRow &one) {
            return attribute == QByteArrayView(one.name);
        });
    if (row == std::end(attributeRows))
        return QStringLiteral("an attribute that a provisioning document does not have");
    const QString shownName = QString::fromLatin1(row->name);
    if (this->*row->field)
        return QStringLiteral("the attribute %1 stands there twice").arg(shownName);
    if (utf8.size() > limits.*row->longest)
        return QStringLiteral("the attribute %1 has more than %2 bytes")
            .arg(shownName)
            .arg(limits.*row->longest);
    std::optional<QString> text = syncml::xmlTextFromUtf8(utf8);
    if (!text)
        return QStringLiteral("the attribute %1 is not UTF-8, or has a character that XML does not "
                              "have")
            .arg(shownName);
    this->*row->field = *std::move(text);
    return {};
}

QString DocumentBuilder::open(DocumentElement element, TagAttributes attributes)
{
    if (++m_elements > m_limits.elements)
        return QStringLiteral("more than %1 elements").arg(m_limits.elements);
    QString fault;
    switch (element) {
    case DocumentElement::Document:
        fault = openDocument(attributes);
        break;
    case DocumentElement::Characteristic:
        fault = openCharacteristic(std::move(attributes));
        break;
    case DocumentElement::Parm:
        fault = openParm(std::move(attributes));
        break;
    }
    m_open.push_back(element);
    return fault;
}

QString DocumentBuilder::openDocument(const TagAttributes &attributes)
{
    if (m_hasDocument)
        return notPlaced(DocumentElement::Document);
    m_hasDocument = true;
    if (attributes.type || attributes.name || attributes.value)
        return QStringLiteral("the document has an attribute of another element");
    return {};
}

QString DocumentBuilder::openCharacteristic(TagAttributes attributes)
{
    if (m_open.empty() || m_open.back() == DocumentElement::Parm)
        return notPlaced(DocumentElement::Characteristic);
    if (static_cast<int>(m_characteristics.size()) == m_limits.depth)
        return QStringLiteral("more than %1 characteristics inside each other").arg(m_limits.depth);
    if (!attributes.type)
        return QStringLiteral("a characteristic without a type");
    if (attributes.name || attributes.value || attributes.version)
        return QStringLiteral("a characteristic has an attribute of another element");
    m_characteristics.push_back({*std::move(attributes.type), {}, {}});
    return {};
}

QString DocumentBuilder::openParm(TagAttributes attributes)
{
    if (m_open.empty() || m_open.back() != DocumentElement::Characteristic)
        return notPlaced(DocumentElement::Parm);
    if (!attributes.name)
        return QStringLiteral("a parm without a name");
    if (attributes.type || attributes.version)
        return QStringLiteral("a parm has an attribute of another element");
    m_characteristics.back().parms.push_back(
        {*std::move(attributes.name), std::move(attributes.value)});
    return {};
}

QString DocumentBuilder::close()
{
    if (m_open.empty())
        return QStringLiteral("an end without an element");
    const DocumentElement element = m_open.back();
    m_open.pop_back();
    if (element != DocumentElement::Characteristic)
        return {};
    Characteristic closed = std::move(m_characteristics.back());
    m_characteristics.pop_back();
    auto &siblings =
        m_characteristics.empty() ? m_document.characteristics : m_characteristics.back().parts;
    siblings.push_back(std::move(closed));
    return {};
}

} // namespace client::bootstrap
