/// evaluate_test_server FILE obey|ignore|end: a server that writes its process id to a file, and then runs until
/// SIGTERM, ignores SIGTERM, or exits at once with status 7.
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

int main(int argumentCount, char** arguments) {
    if (argumentCount != 3) {
        return 64;
    }
    const std::string file = arguments[1];
    const std::string mode = arguments[2];
    if (mode == "ignore") {
        std::signal(SIGTERM, SIG_IGN);
    }
    // The file is complete as soon as it exists.
    std::ofstream(file + ".part") << ::getpid() << "\n";
    std::filesystem::rename(file + ".part", file);
    std::cout << "output of the server" << std::endl;
    if (mode == "end") {
        return 7;
    }
    for (;;) {
        ::pause();
    }
}
