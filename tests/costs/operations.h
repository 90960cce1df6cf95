// The operations whose costs are counted.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace costs {

struct Operation {
    std::string name;
    int profiles; ///< that are stored
    /// Brings the handset to where the operation starts; its result carries the operation out.
    std::function<std::function<void()>()> prepare;
};

std::vector<Operation> AllOperations();

} // namespace costs
