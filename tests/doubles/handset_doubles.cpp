#include "handset_doubles.h"

#include "dmnative_control.h"

#include <cstdlib>
#include <iostream>

namespace doubles {

namespace {

HandsetDoubles *g_current = nullptr;

HandsetDoubles &Required()
{
    if (!g_current) {
        std::cerr << "a double was called outside the life of HandsetDoubles\n";
        std::abort();
    }
    return *g_current;
}

std::optional<int> JournalEngineCall(std::string_view call, std::string_view path)
{
    const std::string name(call.substr(call.rfind(':') + 1)); // "Tree::SetNode" is SetNode here
    g_current->journal.Add(name + "(\"" + std::string(path) + "\")");
    const std::optional<Fault> fault = g_current->faults.Next(name);
    return fault ? std::optional<int>(fault->status) : std::nullopt;
}

std::string SiteOf(std::string_view file, int line)
{
    return std::string(file) + ":" + std::to_string(line);
}

bool FailEngineAllocation(std::string_view file, int line, std::size_t)
{
    const std::string site = SiteOf(file, line);
    return g_current->faults.Names(site) && g_current->faults.Next(site).has_value();
}

} // namespace

AllocationWatch::AllocationWatch()
{
    dmnative_control::SetAllocationFault(
        [this](std::string_view file, int line, std::size_t bytes) {
            m_blocks.push_back({SiteOf(file, line), bytes});
            return false;
        });
}

AllocationWatch::~AllocationWatch()
{
    dmnative_control::SetAllocationFault(FailEngineAllocation);
}

std::vector<std::string> AllocationWatch::SitesOfSize(std::size_t bytes) const
{
    std::vector<std::string> sites;
    for (const Block &block : m_blocks)
        if (block.bytes == bytes)
            sites.push_back(block.site);
    return sites;
}

HandsetDoubles::HandsetDoubles()
{
    if (g_current) {
        std::cerr << "two Handsets at a time\n";
        std::abort();
    }
    g_current = this;
    ObserveEngine();
    dmnative_control::SetAllocationFault(FailEngineAllocation);
}

HandsetDoubles::~HandsetDoubles()
{
    dmnative_control::SetAllocationFault({});
    dmnative_control::SetEngineCallObserver({});
    g_current = nullptr;
}

void HandsetDoubles::ObserveEngine()
{
    dmnative_control::SetEngineCallObserver(JournalEngineCall);
}

HandsetDoubles *HandsetDoubles::Current()
{
    return g_current;
}

ProfileServiceDouble &ProfileService()
{
    return Required().napi;
}

SettingsDouble &Settings()
{
    return Required().settings;
}

} // namespace doubles
