/// The trained networks, as ONNX files, and the formats of plate numbers, as a table; embedded in the program.
#pragma once

#include <string_view>
#include <vector>

namespace plate_reading {

std::vector<unsigned char> DetectorNetwork();
std::vector<unsigned char> ReaderNetwork();
std::string_view FormatsTable();

}  // namespace plate_reading
