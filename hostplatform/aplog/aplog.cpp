#include "aplog.h"

FILE *libaplog_to_module_ptr = nullptr;
