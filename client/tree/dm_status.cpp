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
    {DmStatus::Accepted, "Accepted for Processing"},
    {DmStatus::Authenticated, "Authentication Accepted"},
    {DmStatus::ChunkAccepted, "Chunked Item Accepted"},
    {DmStatus::Cancelled, "Operation Cancelled"},
    {DmStatus::NotExecuted, "Not Executed"},
    {DmStatus::RolledBack, "Atomic Roll Back OK"},
    {DmStatus::NotModified, "Not Modified"},
    {DmStatus::BadRequest, "Bad Request"},
    {DmStatus::InvalidCredentials, "Invalid Credentials"},
    {DmStatus::Forbidden, "Forbidden"},
    {DmStatus::NotFound, "Not Found"},
    {DmStatus::NotAllowed, "Command Not Allowed"},
    {DmStatus::FeatureNotSupported, "Optional Feature Not Supported"},
    {DmStatus::MissingCredentials, "Missing Credentials"},
    {DmStatus::TimedOut, "Request Timeout"},
    {DmStatus::IncompleteCommand, "Incomplete Command"},
    {DmStatus::TooLarge, "Request Entity Too Large"},
    {DmStatus::UriTooLong, "URI Too Long"},
    {DmStatus::UnsupportedFormat, "Unsupported Format"},
    {DmStatus::RequestTooLarge, "Requested Size Too Big"},
    {DmStatus::AlreadyExists, "Already Exists"},
    {DmStatus::StoreFull, "Device Full"},
    {DmStatus::SizeMismatch, "Size Mismatch"},
    {DmStatus::PermissionDenied, "Permission Denied"},
    {DmStatus::CommandFailed, "Command Failed"},
    {DmStatus::NotImplemented, "Command Not Implemented"},
    {DmStatus::DtdVersionNotSupported, "DTD Version Not Supported"},
    {DmStatus::ProcessingError, "Processing Error"},
    {DmStatus::AtomicFailed, "Atomic Failed"},
    {DmStatus::DataStoreFailure, "Data Store Failure"},
    {DmStatus::ServerFailure, "Server Failure"},
    {DmStatus::ProtocolVersionNotSupported, "Protocol Version Not Supported"},
    {DmStatus::OperationCancelled, "Operation Cancelled Before Processing"},
    {DmStatus::RollBackFailed, "Atomic Roll Back Failed"},
    {DmStatus::AtomicResponseTooLarge, "Atomic Response Too Large"},
};

const StatusText *find(DmStatus status)
{
    const auto *const row = std::ranges::find(statusTexts, status, &StatusText::status);
    return row == std::end(statusTexts) ? nullptr : row;
}

} // namespace

QString meaning(DmStatus status)
{
    const StatusText *const row = find(status);
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

std::optional<DmStatus> parseStatus(const QByteArray &data)
{
    const QByteArray text = data.size() == 3 ? data : data.trimmed();
    const bool isDecimal = std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
    int code = 0;
    if (text.size() == 3 && isDecimal)
        for (const char digit : text)
            code = 10 * code + (digit - '0');
    return code >= 200 && code <= 599 ? std::optional(static_cast<DmStatus>(code)) : std::nullopt;
}

namespace {

QString refusedByThePlugin()
{
    return QStringLiteral("the plug-in refused it");
}

} // namespace

bool isRefusalWithoutReason(const Outcome &outcome)
{
    return outcome.status == DmStatus::CommandFailed && outcome.reason == refusedByThePlugin();
}

Outcome outcomeOfEngineCall(int engineStatus)
{
    if (engineStatus == 0)
        return {};
    const auto status = static_cast<DmStatus>(engineStatus);
    if (isRefusal(status) && find(status))
        return {status, QStringLiteral("refused by the node")};
    return {DmStatus::CommandFailed, refusedByThePlugin()};
}

} // namespace client
