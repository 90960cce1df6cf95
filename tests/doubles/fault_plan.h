// Which calls of a test fail, and how.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace doubles {

/// How a call that a fault hits ends.
enum class FaultKind {
    /// The call reports failure and writes no output: a profile-service or engine call returns the
    /// fault's status, a settings call false (a query: nothing found), an allocation null.
    Fails,
    /// The call reports success, but does nothing and writes no output.
    SucceedsUntouched,
};

/// One planned failure. A call's site is its name as the journal has it ("flush"); the sites "new"
/// and "new[]" are the allocations with std::nothrow, and an engine allocation's site is its file
/// and line ("dmvector:394").
struct Fault {
    std::string site; ///< empty: every site but the engine's allocations
    int nth = 1;      ///< first call that is hit, counted from 1 since the fault was planned
    bool fromThenOn = false;
    FaultKind kind = FaultKind::Fails;
    int status = 99; ///< of a call that returns one
};

class FaultPlan {
public:
    static constexpr int STATUS = 99; ///< what a failing call returns unless a test asks for more

    /// The nth call of the site from now on fails.
    void Fail(const std::string &site, int nth = 1, int status = STATUS)
    {
        Add({site, nth, false, FaultKind::Fails, status});
    }
    /// The nth call of the site from now on and all that follow fail.
    void FailFrom(const std::string &site, int nth = 1, int status = STATUS)
    {
        Add({site, nth, true, FaultKind::Fails, status});
    }
    /// The nth call of the site from now on reports success and does nothing.
    void LeaveUntouched(const std::string &site, int nth = 1)
    {
        Add({site, nth, false, FaultKind::SucceedsUntouched, 0});
    }
    void Add(const Fault &fault) { m_planned.push_back({fault, 0}); }
    void Clear();

    /// Calls that faults have hit.
    int Fired() const { return m_fired; }
    /// Calls of a site since the start, or since Clear.
    int Calls(const std::string &site) const;
    /// Every site that was called.
    std::set<std::string> Sites() const;

    /// Told of every call with its site, and whether a fault hits it. May be empty.
    std::function<void(const std::string &site, bool hit)> observer;

    /// For the doubles: counts a call, and tells how it ends unless it is carried out.
    std::optional<Fault> Next(const std::string &site);
    /// For the doubles: whether some fault waits for this very site.
    bool Names(const std::string &site) const;

private:
    struct Planned {
        Fault fault;
        int calls;
    };

    std::vector<Planned> m_planned;
    std::map<std::string, int> m_calls;
    int m_fired = 0;
};

} // namespace doubles
