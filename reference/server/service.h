/// The recognition server, apart from what reads the plates.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "reference/server/reader_pool.h"
#include "reference/transport/local_connection.h"

namespace reading_service {

struct Settings {
    std::string name = transport::ServerName();
    std::size_t readers = std::thread::hardware_concurrency();  ///< at most; at least one
    std::size_t mostConnections = 256;                          ///< further ones are told that the server is busy
    /// A client that asks for nothing for so long gives its place to one that needs it.
    std::chrono::milliseconds longestSilence{60'000};
    int confirmations = 1;                                ///< plate_reading::ReadingStream, for each connection
    std::chrono::milliseconds longestIdle{60'000};        ///< without any connection
    std::chrono::milliseconds longestWaitForName{3'000};  ///< for a server that is still ending
};

enum class End {
    Told,       ///< Stop was called
    Idle,       ///< nobody has been connected for long enough
    NameTaken,  ///< another server listens
};

/// Listens at once, serves each client on a thread of its own, and takes the readers for their frames from one pool.
class Service {
  public:
    Service(Settings settings, ReaderFactory factory);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Serves, and ends all connections and threads before it comes back. Once. Throws std::exception.
    End Run();

    /// Lets Run come back, now or when it is called, as soon as the frames in hand are done. Any thread.
    void Stop();

  private:
    struct Client {
        std::atomic<transport::Deadline> lastRequest = transport::Clock::now();
        std::optional<transport::Connection> connection;  // until its thread is about to end
        std::thread thread;
    };

    bool OpenListener();
    End Listen(ReaderPool& readers);
    bool StartClient(transport::Connection& connection, ReaderPool& readers);
    void EndSilentClient();
    void Serve(Client& client, ReaderPool& readers);
    void JoinEnded();
    void EndClients();

    const Settings settings_;
    const ReaderFactory factory_;

    std::mutex mutex_;  // guards all below, but for what Run's thread alone does with the listener
    std::condition_variable stopping_;
    bool stopped_ = false;
    std::optional<transport::Listener> listener_;  // made and ended by Run's thread, under the mutex
    std::list<Client> clients_;                    // made and joined by Run's thread
    std::size_t connections_ = 0;
    transport::Deadline lastConnection_;  // when the last one ended
};

}  // namespace reading_service
