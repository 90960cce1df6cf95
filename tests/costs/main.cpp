// What each operation of the plug-in asks of the world around it.
//
//   plugin-costs            prints the counts, one line an operation
//   plugin-costs FILE       compares them with the lines of the file; exit status 1 when they
//   differ
//
// Run by callgrind it also leaves a dump for each operation; the script instructions adds those up.
#include "callgrind.h"
#include "counted_handset.h"
#include "expected_lines.h"
#include "heap_count.h"
#include "operations.h"

#include "aplog.h"

#include <cstdio>
#include <sstream>

namespace {

/// Carries one operation out and counts. What it needed before is warm: it has run once.
costs::Counts Count(const costs::Operation &operation)
{
    operation.prepare()();
    const std::function<void()> run = operation.prepare();
    const std::string dumpName = operation.name + ' ' + std::to_string(operation.profiles);
    const costs::Counts before = costs::CountsNow();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    costs::counting = true;
    run();
    costs::counting = false;
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(dumpName.c_str());
    costs::Counts counts = costs::CountsNow();
    counts.calls -= before.calls;
    counts.flushes -= before.flushes;
    counts.bytesWritten -= before.bytesWritten;
    counts.allocations -= before.allocations;
    return counts;
}

std::string LineOf(const costs::Operation &operation, const costs::Counts &counts)
{
    std::ostringstream line;
    line << operation.name << ' ' << operation.profiles << ": " << counts.calls << " calls, "
         << counts.flushes << " flushes, " << counts.bytesWritten << " bytes written, "
         << counts.allocations << " allocations";
    return line.str();
}

} // namespace

int main(int argc, char **argv)
{
    libaplog_to_module_ptr = std::fopen("/dev/null", "w");
    std::vector<std::string> lines;
    for (const costs::Operation &operation : costs::AllOperations())
        lines.push_back(LineOf(operation, Count(operation)));
    return costs::CompareWithFile(lines, argc, argv);
}
