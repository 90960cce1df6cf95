#include "round_trip.h"

#include "require.h"
#include "wbxml_codec.h"
#include "xml_codec.h"

#include <utility>

using namespace syncml;

namespace fuzz {
namespace {

DecodeResult decodeAs(const QByteArray &bytes, Encoding encoding)
{
    return encoding == Encoding::Xml ? decodeXml(bytes) : decodeWbxml(bytes);
}

void checkError(const DecodeError &error)
{
    require(error.status == 400 || error.status == 415 || error.status == 416,
            "an error without a known status");
    require(!error.text.isEmpty(), "an error without a text");
}

/// Readers take more than writers write (commands without CmdID or Item, and the like).
void removeWhatIsNotWritable(Message &message, Encoding encoding)
{
    if (encode(message, encoding))
        return;
    Message single;
    single.header = message.header;
    std::erase_if(message.commands, [&](const Command &command) {
        single.commands = {command};
        return !encode(single, encoding);
    });
}

void checkRewritten(Message message, Encoding encoding)
{
    removeWhatIsNotWritable(message, encoding);
    if (message.commands.empty())
        return;
    const EncodeResult written = encode(message, encoding);
    require(bool(written), "commands that can be written alone cannot be written together");
    const auto &bytes = *written;
    require(recogniseEncoding(bytes) == encoding, "what was written is not recognised");
    const DecodeResult readAgain = decodeAs(bytes, encoding);
    require(bool(readAgain), "what was written cannot be read");
    require(*readAgain == message, "what was written reads as another message");
}

} // namespace

void checkRoundTrip(const std::uint8_t *data, std::size_t size, Encoding encoding)
{
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const DecodeResult result = decodeAs(input, encoding);
    if (!result) {
        checkError(result.error());
        return;
    }
    const auto &message = *result;
    checkRewritten(message, Encoding::Xml);
    checkRewritten(message, Encoding::Wbxml);
}

} // namespace fuzz
