#include "command_table.h"
#include "completion.h"
#include "program.h"
#include "second_look_process.h"

#include <cstring>

int main(int argc, char *argv[])
{
    if (argc == 3 && std::strcmp(argv[1], client::secondLookWord) == 0)
        client::runSecondLook(argv[2]);
    return commandline::run(argc, argv, client::cli::program(), client::cli::execute,
                            client::cli::completeArgument);
}
