#include "expected_lines.h"

#include "heap_count.h"

#include <fstream>
#include <iostream>

namespace {

/// A build that does not see the heap compares the rest.
std::string Comparable(const std::string &line)
{
    return costs::CountsAllocations() ? line : line.substr(0, line.find_last_of(",:"));
}

} // namespace

int costs::CompareWithFile(const std::vector<std::string> &lines, int argc, char **argv)
{
    if (argc == 1) {
        for (const std::string &line : lines)
            std::cout << line << '\n';
        return 0;
    }
    std::ifstream file(argv[1]);
    if (!file) {
        std::cerr << argv[1] << ": cannot be read\n";
        return 2;
    }
    int differences = 0;
    for (const std::string &line : lines) {
        std::string wanted;
        std::getline(file, wanted);
        if (Comparable(line) != Comparable(wanted)) {
            ++differences;
            std::cerr << "expected " << wanted << "\n   found " << line << '\n';
        }
    }
    for (std::string line; std::getline(file, line); ++differences)
        std::cerr << "expected " << line << "\n   found nothing\n";
    if (differences > 0)
        std::cerr << differences
                  << " operations cost something else than before. If that is meant, "
                  << "replace the lines: " << argv[0] << " > " << argv[1] << '\n';
    return differences == 0 ? 0 : 1;
}
