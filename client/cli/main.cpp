#include "command_table.h"
#include "program.h"

int main(int argc, char *argv[])
{
    return commandline::run(argc, argv, client::cli::program(), client::cli::execute);
}
