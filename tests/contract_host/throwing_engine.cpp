// An engine that finds one plate in each frame, and whose functions throw as a Microsoft compiler's do.

#include "tests/contract_host/throwing_engine.h"

#include "engine/engine_records.h"
#include "tests/support/microsoft_exception.h"

using contract_host::EngineFunction;

extern "C" {
__declspec(dllexport) contract_host::ThrowingEngine throwingEngine = {EngineFunction::None, false, 0, 0};
}

namespace {

void Reach(EngineFunction function) {
    if (throwingEngine.thrower == function) {
        ++throwingEngine.thrown;
        microsoft_exception::Throw(&throwingEngine.destroyed);
    }
}

}  // namespace

int Recognize2(YUV420_IMG*, IMG*, tagRECT*, RPLATE* plates, int) {
    Reach(EngineFunction::Recognize);
    static int count = 0;
    if (!throwingEngine.isStationary) {
        count = (count + 1) % 8;
    }
    const int left = 20 + count % 4 * 150;
    const int top = 20 + count / 4 * 200;
    for (char& character : plates[0].text) {
        character = static_cast<char>('A' + count);
    }
    SetConfidenceSum(plates[0], 540);
    plates[0].corner1 = {left, top};
    plates[0].corner2 = {left, top + 30};
    plates[0].corner3 = {left + 100, top};
    plates[0].corner4 = {left + 100, top + 30};
    return 1;
}

bool SetPlateRange(int, int) {
    Reach(EngineFunction::SetRange);
    return true;
}
