// Any bytes as a provisioning document, in XML or in WBXML.

#include "provisioning_plan.h"
#include "require.h"

#include <QSet>
#include <cstddef>
#include <cstdint>

using namespace client::bootstrap;

namespace {

/// An attribute, with every character that XML would change written as a reference.
QByteArray attribute(const char *name, const QString &value)
{
    QByteArray xml = QByteArray(" ") + name + "='";
    for (const uint character : value.toUcs4())
        xml += character >= ' ' && character < 0x7F && character != '&' && character != '<' &&
                       character != '\''
                   ? QByteArray(1, static_cast<char>(character))
                   : "&#" + QByteArray::number(character) + ';';
    return xml + '\'';
}

QByteArray toXml(const std::vector<Characteristic> &characteristics)
{
    QByteArray xml;
    for (const Characteristic &characteristic : characteristics) {
        xml += "<characteristic" + attribute("type", characteristic.type) + '>';
        for (const Parm &parm : characteristic.parms)
            xml += "<parm" + attribute("name", parm.name) +
                   (parm.value ? attribute("value", *parm.value) : QByteArray()) + "/>";
        xml += toXml(characteristic.parts) + "</characteristic>";
    }
    return xml;
}

void checkPlan(const ProvisioningDocument &document)
{
    const auto plan = planOf(document, {});
    if (!plan) {
        require(!plan.error().isEmpty(), "a plan that is refused without a reason");
        return;
    }
    QSet<QByteArray> names;
    QSet<QByteArray> nodes;
    for (const PlannedProfile &profile : plan->profiles) {
        require(!names.contains(profile.name), "two profiles of one name");
        names.insert(profile.name);
        require(profile.name.size() <= 63 && !profile.name.contains('/'), "a name of no profile");
        for (const PlannedNode &node : profile.nodes) {
            require(!nodes.contains(node.uri.toUri()), "a node that is added twice");
            nodes.insert(node.uri.toUri());
            require(node.value.size() < 100, "a value that is too long for its field");
        }
    }
    for (const PlannedAccount &planned : plan->accounts)
        require(client::checkComplete(planned.account) && client::checkAccountName(planned.name),
                "an account that cannot be kept");
    require(plan->acl.isEmpty() == plan->accounts.empty(), "rights for nobody");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const auto document = readProvisioningDocument(bytes);
    if (!document) {
        require(!document.error().isEmpty(), "a refusal without a reason");
        return 0;
    }
    // References take more room than what they stand for.
    ProvisioningLimits limits;
    limits.bytes = 64 * 1024 * 1024;
    const auto again = readProvisioningDocument(
        "<wap-provisioningdoc>" + toXml(document->characteristics) + "</wap-provisioningdoc>",
        limits);
    require(again && *again == *document, "a document that does not read back the same");
    checkPlan(*document);
    return 0;
}
