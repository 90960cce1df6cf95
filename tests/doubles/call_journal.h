// What the plug-in asked of the world around it, in order.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace doubles {

/// One text line a call, written as the call with its arguments: `NAPI_ReadProfile("Office")`.
/// README.md lists the form of every line.
class CallJournal {
public:
    void Add(std::string line) { m_lines.push_back(std::move(line)); }

    /// The calls since the last Take or Clear.
    const std::vector<std::string> &Lines() const { return m_lines; }

    /// As Lines, and starts the next page.
    std::vector<std::string> Take() { return std::exchange(m_lines, {}); }

    /// The lines whose call is one of these, in order: Only({"flush"}).
    std::vector<std::string> Only(const std::vector<std::string> &calls) const;

    void Clear() { m_lines.clear(); }

private:
    std::vector<std::string> m_lines;
};

} // namespace doubles
