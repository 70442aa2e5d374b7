/// An engine that returns its own name.
#pragma once

extern "C" const char* TestEngineName();
