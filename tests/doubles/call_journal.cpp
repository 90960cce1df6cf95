#include "call_journal.h"

#include <algorithm>
#include <iterator>

namespace doubles {

std::vector<std::string> CallJournal::Only(const std::vector<std::string> &calls) const
{
    std::vector<std::string> found;
    std::copy_if(m_lines.begin(), m_lines.end(), std::back_inserter(found),
                 [&calls](const std::string &line) {
                     const std::string call = line.substr(0, line.find('('));
                     return std::find(calls.begin(), calls.end(), call) != calls.end();
                 });
    return found;
}

} // namespace doubles
