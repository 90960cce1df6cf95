// What a fuzz target says when its oracle is not satisfied.
#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program with that sentence unless the condition holds.
inline void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}
