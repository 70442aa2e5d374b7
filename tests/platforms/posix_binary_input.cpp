#include "tests/platforms/binary_input.h"

// As it always does.
void TakeStandardInputAsBytes() {}
