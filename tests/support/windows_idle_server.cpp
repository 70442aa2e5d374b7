// A server that serves nobody: stays until it is terminated.

#include <windows.h>

int main() {
    Sleep(INFINITE);
}
