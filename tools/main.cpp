#include "napictl.h"
#include "program.h"

int main(int argc, char *argv[])
{
    return commandline::run(argc, argv, napictlProgram(), executeNapictl, completeNapictlArgument);
}
