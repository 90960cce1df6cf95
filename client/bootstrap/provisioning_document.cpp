#include "provisioning_document.h"

#include "document_builder.h"
#include "xml_text.h"

namespace client::bootstrap {

std::optional<DocumentEncoding> recogniseDocument(const QByteArray &bytes)
{
    constexpr QByteArrayView byteOrderMark("\xEF\xBB\xBF");
    constexpr char lastWbxmlVersion = 3; // 1.3
    QByteArrayView begin(bytes);
    if (begin.startsWith(byteOrderMark))
        begin = begin.sliced(byteOrderMark.size());
    if (syncml::withoutOuterBlanks(begin).startsWith('<'))
        return DocumentEncoding::Xml;
    if (!bytes.isEmpty() && bytes[0] > 0 && bytes[0] <= lastWbxmlVersion)
        return DocumentEncoding::Wbxml;
    return std::nullopt;
}

support::Expected<ProvisioningDocument, QString>
readProvisioningDocument(const QByteArray &bytes, const ProvisioningLimits &limits)
{
    if (bytes.size() > limits.bytes)
        return support::Unexpected(
            QStringLiteral("the document has more than %1 bytes").arg(limits.bytes));
    const auto encoding = recogniseDocument(bytes);
    if (!encoding)
        return support::Unexpected(QStringLiteral("the document is neither XML nor WBXML"));
    return *encoding == DocumentEncoding::Xml ? readProvisioningXml(bytes, limits)
                                              : readProvisioningWbxml(bytes, limits);
}

} // namespace client::bootstrap
