// A server that serves no clients: runs until it is terminated.

#include <windows.h>

int main() {
    Sleep(INFINITE);
}
