// Waiting for something that the event loop brings.
#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <chrono>

namespace client {

/// Runs the event loop until the condition holds.
/// @return false when it did not for so long that it never will
template <class Condition>
bool waitUntil(Condition condition)
{
    const QDeadlineTimer never(std::chrono::minutes(1));
    while (!condition()) {
        if (never.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 50);
    }
    return true;
}

} // namespace client
