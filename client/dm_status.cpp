#include "dm_status.h"

#include <algorithm>
#include <iterator>

namespace client {

namespace {

struct StatusText {
    DmStatus status;
    const char *meaning;
};

constexpr StatusText statusTexts[] = {
    {DmStatus::Ok, "OK"},
    {DmStatus::NotExecuted, "Not Executed"},
    {DmStatus::BadRequest, "Bad Request"},
    {DmStatus::Forbidden, "Forbidden"},
    {DmStatus::NotFound, "Not Found"},
    {DmStatus::NotAllowed, "Command Not Allowed"},
    {DmStatus::FeatureNotSupported, "Optional Feature Not Supported"},
    {DmStatus::IncompleteCommand, "Incomplete Command"},
    {DmStatus::TooLarge, "Request Entity Too Large"},
    {DmStatus::UriTooLong, "URI Too Long"},
    {DmStatus::UnsupportedFormat, "Unsupported Format"},
    {DmStatus::AlreadyExists, "Already Exists"},
    {DmStatus::StoreFull, "Device Full"},
    {DmStatus::PermissionDenied, "Permission Denied"},
    {DmStatus::CommandFailed, "Command Failed"},
    {DmStatus::DtdVersionNotSupported, "DTD Version Not Supported"},
    {DmStatus::DataStoreFailure, "Data Store Failure"},
    {DmStatus::ProtocolVersionNotSupported, "Protocol Version Not Supported"},
};

const StatusText *find(int code)
{
    const auto *const row = std::find_if(
        std::begin(statusTexts), std::end(statusTexts),
        [code](const StatusText &text) { return static_cast<int>(text.status) == code; });
    return row == std::end(statusTexts) ? nullptr : row;
}

} // namespace

QString meaning(DmStatus status)
{
    const StatusText *const row = find(static_cast<int>(status));
    return row ? QString::fromLatin1(row->meaning) : QString();
}

QString describe(DmStatus status)
{
    return QStringLiteral("%1 %2").arg(static_cast<int>(status)).arg(meaning(status));
}

QString describe(const Outcome &outcome)
{
    const QString status = describe(outcome.status);
    return outcome.reason.isEmpty() ? status : status + QStringLiteral(": ") + outcome.reason;
}

DmStatus statusOfEngineCall(int engineStatus)
{
    if (engineStatus == 0)
        return DmStatus::Ok;
    const bool isFailureStatus = engineStatus >= 400 && find(engineStatus);
    return isFailureStatus ? static_cast<DmStatus>(engineStatus) : DmStatus::CommandFailed;
}

} // namespace client
