// Any bytes as a WAP push.

#include "require.h"
#include "wsp_push.h"

#include <cstddef>
#include <cstdint>

using namespace client::push;

namespace {

bool haveSameHeader(const WspPush &one, const WspPush &other)
{
    return one.transaction == other.transaction && one.mediaType == other.mediaType &&
           one.security == other.security && one.mac == other.mac &&
           one.application == other.application;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const auto push = readWspPush(bytes);
    if (!push) {
        require(push.error().startsWith(QStringLiteral("byte ")) || bytes.size() > WspPush::largest,
                "a refusal that does not say where");
        return 0;
    }
    require(looksLikePush(bytes), "a push that does not look like one");
    require(bytes.endsWith(push->body), "a body that is not the end of the push");
    const QByteArray header = bytes.chopped(push->body.size());
    const auto withOther = readWspPush(header + "another body");
    require(withOther && haveSameHeader(*push, *withOther) && withOther->body == "another body",
            "a header that depends on its body");
    require(!readWspPush(header.chopped(1)), "a header that is whole without its last byte");
    return 0;
}
