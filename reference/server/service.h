/// The recognition server without the plate reader.
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
    std::size_t readers = std::thread::hardware_concurrency();  ///< maximum; at least one
    std::size_t maxConnections = 256;                           ///< further ones receive Busy
    /// A client that sends no request for this long is disconnected when another needs its place.
    std::chrono::milliseconds silenceTimeout{60'000};
    int confirmations = 1;                          ///< for the plate_reading::ReadingStream of each connection
    std::chrono::milliseconds idleTimeout{60'000};  ///< time without a connection after which Run returns
    std::chrono::milliseconds nameTimeout{3'000};   ///< wait for a server that is still ending
};

enum class End {
    Stopped,    ///< Stop was called
    Idle,       ///< no client has been connected for idleTimeout
    NameTaken,  ///< another server is listening
};

/// Listens before the first reader exists, serves each client on its own thread, and shares one pool of readers.
class Service {
  public:
    Service(Settings settings, ReaderFactory factory);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Serves clients; closes all connections and joins all threads before it returns. Once. Throws std::exception.
    End Run();

    /// Makes the current or a later Run return as soon as the frames being read are done. Any thread.
    void Stop();

  private:
    struct Client {
        std::atomic<transport::Deadline> lastRequest = transport::Clock::now();
        std::optional<transport::Connection> connection;  // empty when the thread is about to end
        std::thread thread;
    };

    bool OpenListener();
    End Listen(ReaderPool& readers);
    bool StartClient(transport::Connection& connection, ReaderPool& readers);
    void DisconnectSilentClient();
    void Serve(Client& client, ReaderPool& readers);
    void JoinEnded();
    void DisconnectClients();

    const Settings settings_;
    const ReaderFactory factory_;

    std::mutex mutex_;  // guards all below, except for Run's use of the listener that it created
    std::condition_variable stopping_;
    bool stopped_ = false;
    std::optional<transport::Listener> listener_;  // created and destroyed by Run's thread, under the mutex
    std::list<Client> clients_;                    // added and joined by Run's thread
    std::size_t connections_ = 0;
    transport::Deadline lastConnection_;  // when the last one was closed
};

}  // namespace reading_service
