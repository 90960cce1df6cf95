#include "fault_plan.h"

#include <algorithm>

namespace doubles {

void FaultPlan::Clear()
{
    m_planned.clear();
    m_calls.clear();
    m_fired = 0;
}

int FaultPlan::Calls(const std::string &site) const
{
    const auto found = m_calls.find(site);
    return found == m_calls.end() ? 0 : found->second;
}

std::set<std::string> FaultPlan::Sites() const
{
    std::set<std::string> sites;
    for (const auto &[site, count] : m_calls)
        sites.insert(site);
    return sites;
}

std::optional<Fault> FaultPlan::Next(const std::string &site)
{
    ++m_calls[site];
    std::optional<Fault> hit;
    for (Planned &planned : m_planned) {
        const Fault &fault = planned.fault;
        if (!fault.site.empty() && fault.site != site)
            continue;
        ++planned.calls;
        if (planned.calls == fault.nth || (fault.fromThenOn && planned.calls > fault.nth))
            hit = fault;
    }
    m_fired += hit ? 1 : 0;
    if (observer)
        observer(site, hit.has_value());
    return hit;
}

bool FaultPlan::Names(const std::string &site) const
{
    return std::any_of(m_planned.begin(), m_planned.end(),
                       [&site](const Planned &planned) { return planned.fault.site == site; });
}

} // namespace doubles
