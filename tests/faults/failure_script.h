// What a failing call has to lead to, written down call by call.
//
// A script lists the outside calls of one operation in the order in which they are made. Each step
// says what follows when its call fails and when its call reports success without doing anything:
// the messages, and whether the operation ends there. Playing a script with a fault gives the
// status and the messages that the operation must give under that fault.
#pragma once

#include "fault_plan.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace faults {

using Lines = std::vector<std::string>;

/// How an operation goes on after a call.
struct Outcome {
    Lines messages = {};
    bool ends = false;
    int status = 0;             ///< of an operation that ends here
    std::string leavesOut = {}; ///< group of later steps that are not taken then
    std::string notes = {};     ///< a mark for later steps
};

/// Marks that earlier steps have left.
using Notes = std::set<std::string>;
using Follow = std::function<Outcome(const Notes &)>;

struct Step {
    std::string site; ///< as the fault plan names it; empty for a step without a call
    Follow fails;
    Follow untouched;
    Follow succeeds;
    std::set<std::string> groups = {}; ///< the step is left out with any of them
};

/// Messages of an operation's end, and its status.
struct Expected {
    int status = 0;
    Lines messages;
};

class Script {
public:
    /// A call whose failure ends the operation with status 1 and these messages. "%d" in a message
    /// stands for the status that the call failed with.
    Script &Ends(const std::string &site, const Lines &messages);
    /// A call whose failure changes nothing that can be told from status and messages.
    Script &Ignored(const std::string &site);
    /// A call whose failure only adds messages.
    Script &Warns(const std::string &site, const Lines &messages);
    Script &Add(const Step &step);

    /// What follows when the step added last reports success without doing anything; by default the
    /// operation goes on.
    Script &WhenUntouched(const Follow &follow);
    Script &WhenFailing(const Follow &follow);
    Script &WhenSucceeding(const Follow &follow);
    /// A step without a call.
    Script &Says(const Follow &follow);
    Script &Says(const Lines &messages);
    /// Puts every step so far into the group.
    Script &In(const std::string &group);
    Script &Append(const Script &other);

    /// The sites of the calls, in order.
    Lines Sites() const;

    /// @param fault  null: nothing fails
    Expected Play(const doubles::Fault *fault) const;

private:
    std::vector<Step> m_steps;
};

Follow Ending(const Lines &messages);
Follow Continuing(const Lines &messages = {}, const std::string &leavesOut = {},
                  const std::string &notes = {});

} // namespace faults
