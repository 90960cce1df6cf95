// What napictl tells the shell. The manual lists the same numbers.
#pragma once

enum ExitStatus {
    ExitOk = 0,            ///< everything was done
    ExitFailed = 1,        ///< an operation failed; stderr names what and why
    ExitUsage = 2,         ///< the command line is wrong; nothing was done
    ExitStoreUnusable = 3, ///< the profile store cannot be read or written
};
