/// An engine that says which one it is.
#pragma once

extern "C" const char* TestEngineName();
