/// The trained networks, as ONNX files embedded in the program.
#pragma once

#include <vector>

namespace plate_reading {

std::vector<unsigned char> DetectorNetwork();
std::vector<unsigned char> ReaderNetwork();

}  // namespace plate_reading
