#pragma once

/// Standard input brings its bytes as they are, from now on.
void TakeStandardInputAsBytes();
