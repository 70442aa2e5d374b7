#pragma once

/// Switches standard input to binary mode.
void SetStandardInputBinary();
