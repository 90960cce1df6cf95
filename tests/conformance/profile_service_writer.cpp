// The other process of the tests of the profile service: creates COUNT profiles PREFIX0, PREFIX1
// ... and exits with the number of calls that failed.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "napi.h"

int main(int argc, char *argv[])
{
    if (argc != 3)
        return 125;
    const int count = std::atoi(argv[2]);
    int failures = 0;
    for (int index = 0; index < count; ++index) {
        NAP_PROFILE_S record = {};
        record.creation = 1;
        const std::string name = argv[1] + std::to_string(index);
        failures += NAPI_CreateProfile(name.c_str(), &record, 0, 0) != 0 ? 1 : 0;
        failures += NAPI_ModifyProfile(name.c_str(), &record, 0, 0) != 0 ? 1 : 0;
    }
    return std::min(failures, 124);
}
