#include <fcntl.h>
#include <io.h>
#include <stdio.h>

#include "tests/cross_platform/binary_input.h"

void SetStandardInputBinary() {
    _setmode(_fileno(stdin), _O_BINARY);
}
