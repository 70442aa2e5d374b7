// What the library is linked against on Linux: an engine's name and its two functions. The library takes whichever
// engine has that name when it is loaded.
#include "engine/engine_records.h"

int Recognize2(YUV420_IMG*, IMG*, tagRECT*, RPLATE*, int) {
    return 0;
}

bool SetPlateRange(int, int) {
    return true;
}
