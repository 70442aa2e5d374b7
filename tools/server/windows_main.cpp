// The recognition server: stays until it is terminated.

#include <windows.h>

int main() {
    Sleep(INFINITE);
}
