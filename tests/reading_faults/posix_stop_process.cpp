#include <signal.h>

#include <fstream>
#include <string>

#include "tests/reading_faults/faults_fixture.h"

namespace reading_faults {

void StopProcess(servers::ProcessId process) {
    ::kill(process, SIGSTOP);
    EXPECT_TRUE(ComesTrue([process] {
        std::ifstream file("/proc/" + std::to_string(process) + "/stat");
        std::string text;
        std::getline(file, text);
        const std::size_t close = text.rfind(')');
        return close != std::string::npos && text.compare(close, 3, ") T") == 0;
    }));
}

}  // namespace reading_faults
