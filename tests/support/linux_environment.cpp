#include <stdlib.h>
#include <time.h>

#include "tests/support/environment.h"

namespace test_support {

void SetEnvironment(const char* name, const std::string& value) {
    setenv(name, value.c_str(), 1);
}

void UnsetEnvironment(const char* name) {
    unsetenv(name);
}

void ReadTimeZone() {
    tzset();
}

}  // namespace test_support
