// From the tags of a provisioning document to the document: what both encodings have in common.
#pragma once

#include "provisioning_document.h"

namespace client::bootstrap {

enum class DocumentElement { Document, Characteristic, Parm };

/// The element of that name.
std::optional<DocumentElement> documentElementNamed(QByteArrayView name);

/// The attributes of one tag.
class TagAttributes {
public:
    /// @return why the tag cannot have this attribute; empty when it can
    QString set(QByteArrayView name, QByteArrayView utf8, const ProvisioningLimits &limits);

    std::optional<QString> type;
    std::optional<QString> name;
    std::optional<QString> value;
    std::optional<QString> version;
};

/// Puts a document together. Each step says why it cannot be done; empty when it can.
class DocumentBuilder {
public:
    explicit DocumentBuilder(const ProvisioningLimits &limits) : m_limits(limits) {}

    QString open(DocumentElement element, TagAttributes attributes);
    QString close();
    /// Whether the document element was opened and closed.
    bool isComplete() const { return m_hasDocument && m_open.empty(); }

    ProvisioningDocument take() { return std::move(m_document); }

private:
    QString openDocument(const TagAttributes &attributes);
    QString openCharacteristic(TagAttributes attributes);
    QString openParm(TagAttributes attributes);

    const ProvisioningLimits m_limits;
    ProvisioningDocument m_document;
    std::vector<DocumentElement> m_open;
    std::vector<Characteristic> m_characteristics; ///< that are open, the outermost first
    int m_elements = 0;
    bool m_hasDocument = false;
};

/// Each reads a whole document of its encoding, as readProvisioningDocument does.
support::Expected<ProvisioningDocument, QString>
readProvisioningXml(const QByteArray &bytes, const ProvisioningLimits &limits);
support::Expected<ProvisioningDocument, QString>
readProvisioningWbxml(const QByteArray &bytes, const ProvisioningLimits &limits);

} // namespace client::bootstrap
