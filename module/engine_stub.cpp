// A library with the engine's name and its two functions, to link against. At run time the library loads the real
// engine by that name.
#include "engine/engine_records.h"

int Recognize2(YUV420_IMG*, IMG*, tagRECT*, RPLATE*, int) {
    return 0;
}

bool SetPlateRange(int, int) {
    return true;
}
