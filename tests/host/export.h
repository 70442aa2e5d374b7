/// Marks the exports of a test library. On Windows a .def file lists them.
#pragma once

#ifdef _WIN32
#define HOST_TEST_EXPORT
#else
#define HOST_TEST_EXPORT __attribute__((visibility("default")))
#endif
