#include "header_status.h"

namespace client {

DmStatus statusOfHeader(const syncml::SyncHdr &header)
{
    if (header.verDtd != QLatin1String(dtdVersion))
        return DmStatus::DtdVersionNotSupported;
    if (header.verProto != QLatin1String(protocolVersion))
        return DmStatus::ProtocolVersionNotSupported;
    return DmStatus::Ok;
}

syncml::Command headerStatus(const syncml::SyncHdr &header, DmStatus status)
{
    syncml::Command answer;
    answer.kind = syncml::CommandKind::Status;
    answer.cmdRef = QStringLiteral("0");
    answer.cmd = QStringLiteral("SyncHdr");
    answer.targetRefs = {header.target.locUri};
    answer.sourceRefs = {header.source.locUri};
    answer.data = QByteArray::number(static_cast<int>(status));
    return answer;
}

} // namespace client
