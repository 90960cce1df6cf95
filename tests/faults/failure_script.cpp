#include "failure_script.h"

#include <algorithm>

namespace faults {

Follow Ending(const Lines &messages)
{
    return [messages](const Notes &) { return Outcome{messages, true, 1}; };
}

Follow Continuing(const Lines &messages, const std::string &leavesOut, const std::string &notes)
{
    return [=](const Notes &) { return Outcome{messages, false, 0, leavesOut, notes}; };
}

Script &Script::Add(const Step &step)
{
    m_steps.push_back(step);
    return *this;
}

Script &Script::Ends(const std::string &site, const Lines &messages)
{
    return Add({site, Ending(messages), Continuing(), Continuing()});
}

Script &Script::Ignored(const std::string &site)
{
    return Add({site, Continuing(), Continuing(), Continuing()});
}

Script &Script::Warns(const std::string &site, const Lines &messages)
{
    return Add({site, Continuing(messages), Continuing(), Continuing()});
}

Script &Script::WhenUntouched(const Follow &follow)
{
    m_steps.back().untouched = follow;
    return *this;
}

Script &Script::WhenFailing(const Follow &follow)
{
    m_steps.back().fails = follow;
    return *this;
}

Script &Script::WhenSucceeding(const Follow &follow)
{
    m_steps.back().succeeds = follow;
    return *this;
}

Script &Script::Says(const Follow &follow)
{
    return Add({"", follow, follow, follow});
}

Script &Script::Says(const Lines &messages)
{
    return Says(Continuing(messages));
}

Script &Script::In(const std::string &group)
{
    for (Step &step : m_steps)
        step.groups.insert(group);
    return *this;
}

Script &Script::Append(const Script &other)
{
    m_steps.insert(m_steps.end(), other.m_steps.begin(), other.m_steps.end());
    return *this;
}

Lines Script::Sites() const
{
    Lines sites;
    for (const Step &step : m_steps)
        if (!step.site.empty())
            sites.push_back(step.site);
    return sites;
}

namespace {

std::string WithStatus(std::string message, int status)
{
    const std::size_t place = message.find("%d");
    if (place != std::string::npos)
        message.replace(place, 2, std::to_string(status));
    return message;
}

} // namespace

Expected Script::Play(const doubles::Fault *fault) const
{
    Expected expected;
    Notes notes;
    Notes leftOut;
    int calls = 0;
    for (const Step &step : m_steps) {
        if (std::any_of(step.groups.begin(), step.groups.end(),
                        [&leftOut](const std::string &group) { return leftOut.count(group) > 0; }))
            continue;
        const bool isSite = fault && !step.site.empty() && step.site == fault->site;
        calls += isSite ? 1 : 0;
        const bool isHit =
            isSite && (calls == fault->nth || (fault->fromThenOn && calls > fault->nth));
        const bool isUntouched = isHit && fault->kind == doubles::FaultKind::SucceedsUntouched;
        const Follow &follow = isUntouched ? step.untouched : isHit ? step.fails : step.succeeds;
        const Outcome outcome = follow(notes);
        for (const std::string &message : outcome.messages)
            expected.messages.push_back(WithStatus(message, fault ? fault->status : 0));
        if (outcome.ends) {
            expected.status = outcome.status;
            return expected;
        }
        if (!outcome.leavesOut.empty())
            leftOut.insert(outcome.leavesOut);
        if (!outcome.notes.empty())
            notes.insert(outcome.notes);
    }
    return expected;
}

} // namespace faults
