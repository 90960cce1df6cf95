// Status codes of DM commands, and how the client reports an outcome with its reason.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <utility>

namespace client {

/// Statuses of commands, and of the header of a message, numbered as the DM protocol numbers them.
enum class DmStatus : int {
    Ok = 200,
    Accepted = 202,
    Authenticated = 212,
    ChunkAccepted = 213,
    Cancelled = 214,
    NotExecuted = 215,
    RolledBack = 216,
    NotModified = 304,
    BadRequest = 400,
    InvalidCredentials = 401,
    Forbidden = 403,
    NotFound = 404,
    NotAllowed = 405,
    FeatureNotSupported = 406,
    MissingCredentials = 407,
    TimedOut = 408,
    IncompleteCommand = 412,
    TooLarge = 413,
    UriTooLong = 414,
    UnsupportedFormat = 415,
    RequestTooLarge = 416,
    AlreadyExists = 418,
    StoreFull = 420,
    SizeMismatch = 424,
    PermissionDenied = 425,
    CommandFailed = 500,
    NotImplemented = 501,
    DtdVersionNotSupported = 505,
    ProcessingError = 506,
    AtomicFailed = 507,
    DataStoreFailure = 510,
    ServerFailure = 511,
    ProtocolVersionNotSupported = 513,
    OperationCancelled = 514,
    RollBackFailed = 516,
    AtomicResponseTooLarge = 517,
};

/// Short English meaning of a status, such as "Not Found" for 404.
QString meaning(DmStatus status);

/// "404 Not Found"
QString describe(DmStatus status);

/// 2xx
constexpr bool succeeded(DmStatus status)
{
    return static_cast<int>(status) < 300;
}

/// 4xx or 5xx: the command was not done, or failed.
constexpr bool isRefusal(DmStatus status)
{
    return static_cast<int>(status) >= 400;
}

/// Whether the other side has to prove itself first.
constexpr bool isChallenge(DmStatus status)
{
    return status == DmStatus::InvalidCredentials || status == DmStatus::MissingCredentials;
}

/// A status as the Data of a Status has it: three digits from 200 to 599, with or without white
/// space around them. None for anything else.
std::optional<DmStatus> parseStatus(const QByteArray &data);

/// How one operation ended. The reason is a sentence for people, without a full stop; it is empty
/// on success and where the status says everything.
struct Outcome {
    DmStatus status = DmStatus::Ok;
    QString reason;

    explicit operator bool() const { return succeeded(status); }
};

/// Whether it says no more than that the plug-in refused.
bool isRefusalWithoutReason(const Outcome &outcome);

/// How an engine call ended by what it returned: 0 is 200, a failure code that is a status of its
/// own goes out as it is, and anything else (a plug-in's own 1) is 500.
Outcome outcomeOfEngineCall(int engineStatus);

/// "404 Not Found: no node ./X"
QString describe(const Outcome &outcome);

/// A value, or the outcome that says why there is none.
template <class T>
class Result : public support::Expected<T, Outcome> {
    using Base = support::Expected<T, Outcome>;

public:
    Result(T value) : Base(std::move(value)) {}
    Result(Outcome failure) : Base(support::Unexpected(std::move(failure))) {}

    /// 200 with a value.
    Outcome outcome() const { return *this ? Outcome() : this->error(); }
};

} // namespace client
