#include "tests/cross_platform/binary_input.h"

// As it always does.
void TakeStandardInputAsBytes() {}
