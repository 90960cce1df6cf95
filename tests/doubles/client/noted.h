// Errors of calls that a test expects to succeed, or to fail, and wants to read afterwards.
#pragma once

#include "expected.h"

#include <QString>
#include <utility>

/// The result of a call as it is. A failure's reason is noted in error.
template <class T>
support::Expected<T, QString> noted(support::Expected<T, QString> result, QString &error)
{
    error = result ? QString() : result.error();
    return result;
}

/// What a call has made; null, with the reason in error, when it has failed.
template <class Pointer>
Pointer madeOrNull(support::Expected<Pointer, QString> made, QString &error)
{
    if (made)
        return *std::move(made);
    error = made.error();
    return Pointer();
}
