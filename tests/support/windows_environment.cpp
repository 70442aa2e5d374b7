#include <stdlib.h>
#include <time.h>

#include "tests/support/environment.h"

namespace test_support {

// Changes the C library's variables and the system's, which child processes inherit.
void SetEnvironment(const char* name, const std::string& value) {
    _putenv_s(name, value.c_str());
}

void UnsetEnvironment(const char* name) {
    _putenv_s(name, "");
}

void ReadTimeZone() {
    _tzset();
}

}  // namespace test_support
