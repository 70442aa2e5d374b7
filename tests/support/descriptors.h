/// What this process holds open.
#pragma once

#include <set>

namespace test_support {

/// Numbers of the open descriptors.
std::set<int> OpenDescriptors();

/// Whether every one of them is closed in a program that this process starts.
bool StayBehind(const std::set<int>& descriptors);

/// Files and memory that are mapped, in pieces.
int Mappings();

/// Memory in use, in KiB; 0 where a sanitizer keeps what was given back.
long ResidentKilobytes();

}  // namespace test_support
