#include "tests/cross_platform/binary_input.h"

// Standard input is always binary on Linux.
void SetStandardInputBinary() {}
