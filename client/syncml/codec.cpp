#include "codec.h"

#include "element_sink.h"
#include "element_source.h"
#include "message_writer.h"
#include "wbxml_codec.h"
#include "xml_codec.h"
#include "xml_text.h"

namespace syncml {

std::optional<Encoding> recogniseEncoding(const QByteArray &bytes)
{
    constexpr QByteArrayView byteOrderMark("\xEF\xBB\xBF");
    constexpr unsigned char versionEnd = 0x10; // WBXML 1.x has the major version less one above

    QByteArrayView text(bytes);
    if (text.startsWith(byteOrderMark))
        text = text.sliced(byteOrderMark.size());
    // White space first: 0x09, 0x0A and 0x0D could be WBXML versions too, of which there are none.
    if (withoutOuterBlanks(text).startsWith('<'))
        return Encoding::Xml;
    if (!bytes.isEmpty() && static_cast<unsigned char>(bytes.front()) < versionEnd)
        return Encoding::Wbxml;
    return std::nullopt;
}

DecodeResult decode(const QByteArray &bytes, const Limits &limits)
{
    if (const std::optional<Encoding> encoding = recogniseEncoding(bytes))
        return *encoding == Encoding::Xml ? decodeXml(bytes, limits) : decodeWbxml(bytes, limits);
    DecodeError error;
    error.status = bytes.isEmpty() ? 400 : 415;
    error.text = bytes.isEmpty() ? QStringLiteral("the message is empty")
                                 : QStringLiteral("the message is neither XML nor WBXML");
    return support::Unexpected(std::move(error));
}

std::unique_ptr<ElementSource> makeTreeSource(const QByteArray &bytes, const Limits &limits)
{
    const std::optional<Encoding> encoding = recogniseEncoding(bytes);
    if (!encoding)
        return nullptr;
    return *encoding == Encoding::Xml ? makeXmlSource(bytes, limits)
                                      : makeWbxmlTreeSource(bytes, limits);
}

EncodeResult encode(const Message &message, Encoding encoding, XmlLayout layout)
{
    return encoding == Encoding::Xml ? encodeXml(message, layout) : encodeWbxml(message);
}

namespace {

std::unique_ptr<ElementSink> makeSink(Encoding encoding)
{
    return encoding == Encoding::Xml ? makeXmlSink() : makeWbxmlSink();
}

} // namespace

support::Expected<qsizetype, EncodeError> sizeInMessage(const Command &command, Encoding encoding)
{
    return sizeOf(command, *makeSink(encoding));
}

support::Expected<qsizetype, EncodeError> sizeInMessage(const Item &item, Encoding encoding)
{
    return sizeOf(item, *makeSink(encoding));
}

support::Expected<qsizetype, EncodeError> referenceSizeInMessage(const QString &uri,
                                                                 Encoding encoding)
{
    return sizeOfReference(uri, *makeSink(encoding));
}

void fitEncoding(Command &command, Encoding encoding)
{
    for (Item &item : command.items) {
        if (encoding != Encoding::Xml || !item.data || fitsXml(*item.data))
            continue;
        item.data = item.data->toBase64();
        if (!item.meta)
            item.meta.emplace();
        item.meta->format = QStringLiteral("b64");
    }
}

} // namespace syncml
