/// What a test library shows to whoever loads it. On Windows a list of names decides that.
#pragma once

#ifdef _WIN32
#define HOST_TEST_EXPORT
#else
#define HOST_TEST_EXPORT __attribute__((visibility("default")))
#endif
