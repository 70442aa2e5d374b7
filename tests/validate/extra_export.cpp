// A fourth function beside the three of the contract.

#if defined(_WIN32)
extern "C" __declspec(dllexport) int ResetModule();
#else
extern "C" __attribute__((visibility("default"))) int ResetModule();
#endif

int ResetModule() {
    return 0;
}
