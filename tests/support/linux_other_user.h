/// A process of another user, which takes names before this user does. Requires root.
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

namespace test_support {

/// What another user can create at the path of this user's folder.
enum class Obstacle { Folder, File, LinkToOwnFolder, Socket };
inline constexpr std::array allObstacles = {Obstacle::Folder, Obstacle::File, Obstacle::LinkToOwnFolder,
                                            Obstacle::Socket};

class OtherUserProcess {
  public:
    static constexpr uid_t user = 65534;

    /// Runs the action in a process of the other user, which then waits for End. `check` runs at its end and returns
    /// whether it succeeded. Throws std::runtime_error.
    OtherUserProcess(const std::function<bool()>& action, const std::function<bool()>& check) {
        std::array<int, 2> report = {};
        std::array<int, 2> end = {};
        if (::pipe2(report.data(), O_CLOEXEC) != 0 || ::pipe2(end.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        process_ = ::fork();
        if (process_ == 0) {
            ::close(end[1]);
            char byte = 0;
            const bool isDone = ::setgroups(0, nullptr) == 0 && ::setresgid(user, user, user) == 0 &&
                                ::setresuid(user, user, user) == 0 && action() && ::write(report[1], &byte, 1) == 1;
            ::_exit(isDone && ::read(end[0], &byte, 1) == 0 && check() ? 0 : 1);
        }
        ::close(report[1]);
        ::close(end[0]);
        untilEnd_ = end[1];
        char byte = 0;
        const bool isReady = ::read(report[0], &byte, 1) == 1;
        ::close(report[0]);
        if (!isReady) {
            End();
            throw std::runtime_error("the action of the other user's process failed");
        }
    }
    ~OtherUserProcess() { End(); }
    OtherUserProcess(const OtherUserProcess&) = delete;
    OtherUserProcess& operator=(const OtherUserProcess&) = delete;

    /// Ends the process. Returns whether the action and the check succeeded.
    bool End() {
        if (untilEnd_ >= 0) {
            ::close(untilEnd_);
            untilEnd_ = -1;
            ::waitpid(process_, &status_, 0);
        }
        return status_ == 0;
    }

  private:
    pid_t process_ = 0;
    int untilEnd_ = -1;
    int status_ = -1;
};

/// Takes the name of this user's folder in a world-writable temporary folder, and in it the socket and the lock of a
/// server; also the server's name as an abstract socket. End succeeds when no client has connected.
class NameSquatter {
  public:
    NameSquatter(const std::filesystem::path& temporary, const std::string& serverName, Obstacle kind)
        : folder_(::open(temporary.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
          name_(serverName),
          obstacle_(kind),
          process_([this] { return CreateObstacle(); }, [this] { return HasNoClients(); }) {}
    ~NameSquatter() { ::close(folder_); }
    NameSquatter(const NameSquatter&) = delete;
    NameSquatter& operator=(const NameSquatter&) = delete;

    bool End() { return process_.End(); }

  private:
    static int Listen(const std::string& path, bool isFile) {
        const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::copy(path.begin(), path.end(), address.sun_path + (isFile ? 0 : 1));
        const std::size_t size = offsetof(sockaddr_un, sun_path) + path.size() + 1;
        const bool listens =
            ::bind(socket, reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(size)) == 0 &&
            ::listen(socket, 100) == 0;
        return listens ? socket : -1;
    }

    bool CreateObstacle() {
        ::umask(0);
        const std::string own = "vexlane-0";
        const std::string path = "/proc/self/fd/" + std::to_string(folder_) + '/' + own;
        abstractSocket_ = Listen(name_, false);
        switch (obstacle_) {
            case Obstacle::File:
                return ::openat(folder_, own.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0777) >= 0;
            case Obstacle::LinkToOwnFolder:
                return ::symlinkat("../own", folder_, own.c_str()) == 0;
            case Obstacle::Socket:
                fileSocket_ = Listen(path, true);
                return fileSocket_ >= 0;
            case Obstacle::Folder:
                break;
        }
        const bool isMade = ::mkdirat(folder_, own.c_str(), 0777) == 0;
        const int lock = ::open((path + "/." + name_).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        fileSocket_ = Listen(path + '/' + name_, true);
        return isMade && ::flock(lock, LOCK_EX | LOCK_NB) == 0 && fileSocket_ >= 0;
    }

    bool HasNoClients() const {
        return ::accept(fileSocket_, nullptr, nullptr) < 0 && ::accept(abstractSocket_, nullptr, nullptr) < 0;
    }

    const int folder_;
    const std::string name_;
    const Obstacle obstacle_;
    int fileSocket_ = -1;
    int abstractSocket_ = -1;
    OtherUserProcess process_;
};

}  // namespace test_support
