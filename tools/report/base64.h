/// Base64, as data addresses contain it.
#pragma once

#include <string>
#include <string_view>

namespace report {

std::string Base64Of(std::string_view bytes);

}  // namespace report
