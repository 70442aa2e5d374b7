/// A case: one statement about the library, and the code that checks it.
#pragma once

#include <cstdint>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace validate {

class Session;

struct Case {
    int level = 1;
    std::string sentence;                 ///< what holds for a correct library; unique
    std::function<void(Session&)> check;  ///< throws Unexpected when it does not hold
};

// Each group of cases has its own file.
std::vector<Case> ModuleCases();
std::vector<Case> DetectorCases();
std::vector<Case> SettingsCases();
std::vector<Case> FrameCases();
std::vector<Case> EventCases();
std::vector<Case> HostCases();
std::vector<Case> ThreadCases();
/// The only case that depends on the seed.
Case RandomCase(std::uint64_t seed);

/// The reason why a case fails.
class Unexpected : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

inline void Expect(bool holds, const std::string& expectation) {
    if (!holds) {
        throw Unexpected(expectation);
    }
}

template <class Value>
std::string Shown(const Value& value) {
    std::ostringstream text;
    if constexpr (std::is_convertible_v<Value, std::string>) {
        text << '"' << value << '"';
    } else {
        text << value;
    }
    return text.str();
}

/// `what` names the value: "the error code after a null buffer".
template <class Actual, class Expected>
void ExpectEqual(const std::string& what, const Actual& actual, const Expected& expected) {
    if (!(actual == expected)) {
        throw Unexpected(what + " is " + Shown(actual) + " instead of " + Shown(expected));
    }
}

}  // namespace validate
