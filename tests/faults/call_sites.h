// The places in the plug-in's sources from which outside calls are made.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace faults {

/// Takes note of who calls: the return addresses on the stack, turned into lines at the end.
class CallSites {
public:
    /// To be called from within a call of the site.
    void Reached(const std::string &site, bool failed);

    /// Reads the sources for outside calls.
    /// @param calls  receives how many there are
    /// @return those that no fault has hit, a line each; empty when all were hit
    std::string NeverFailed(const std::string &sourceDirectory, std::size_t &calls) const;

private:
    using Stack = std::vector<void *>;
    std::map<std::pair<std::string, Stack>, bool> m_stacks; ///< whether it ever failed
};

} // namespace faults
