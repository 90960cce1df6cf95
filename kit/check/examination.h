// A piece of a check in a process of its own: whatever the plug-in does there is a finding, and not
// the end of the program.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// Something that is not as it has to be. Empty texts are left out.
struct Finding {
    std::string node; ///< its address
    std::string slot; ///< or exported function, with its arguments
    std::string expected;
    std::string came;
};

/// What the process of an examination tells the one that waits for it.
class Witness {
public:
    /// Says what is called next, and that there is progress.
    void calls(const std::string &node, const std::string &slot);
    void find(const Finding &finding);
    /// A finding about what was called last.
    void find(const std::string &expected, const std::string &came);
    /// Whether something was found in this process.
    bool hasFound() const { return m_hasFound; }

private:
    friend class Examiner;
    Witness(void *progress, int findings) : m_progress(progress), m_findings(findings) {}

    void *m_progress; // shared with the other process
    int m_findings;   // a file
    bool m_hasFound = false;
};

enum class Copies {
    One, ///< all items in one process and on one copy of the state, until something ends it
    Each ///< every item in a process of its own, on a fresh copy
};

/// Runs examinations on copies of a state.
class Examiner {
public:
    struct Limits {
        int seconds = 10;         ///< that a call may take
        bool isSanitized = false; ///< sanitizers need all the addresses
    };

    /// @param state    folder with the state to begin with; empty for none
    Examiner(std::string state, Limits limits) : m_state(std::move(state)), m_limits(limits) {}

    /// @param examine  looks at the item with that number, from 0 on, in the other process, whose
    ///                 state is $KUB_STATE_DIR and whose folder and home are above it.
    ///                 @return false when there is none
    /// @return what was found; throws std::system_error when no process can be had
    std::vector<Finding> run(Copies copies,
                             const std::function<bool(Witness &, int item)> &examine);

private:
    std::string m_state;
    Limits m_limits;
};
