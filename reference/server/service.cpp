#include "reference/server/service.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "reference/server/session.h"
#include "reference/transport/messages.h"

namespace reading_service {

namespace {

constexpr std::chrono::milliseconds nameRetryInterval{10};

// Sent to clients that are not served.
const std::vector<std::uint8_t>& BusyMessage() {
    static const std::vector<std::uint8_t> message = transport::Encode({0, transport::Busy()});
    return message;
}

}  // namespace

Service::Service(Settings settings, ReaderFactory factory)
    : settings_(std::move(settings)), factory_(std::move(factory)) {}

Service::~Service() = default;

End Service::Run() {
    if (!OpenListener()) {
        const std::lock_guard lock(mutex_);
        return stopped_ ? End::Stopped : End::NameTaken;
    }
    ReaderPool readers(settings_.readers, factory_);
    // The clients' threads must end before the readers are destroyed, also after an exception.
    const auto stopAll = [&] {
        {
            const std::lock_guard lock(mutex_);
            listener_.reset();
        }
        readers.Stop();
        DisconnectClients();
    };
    try {
        const End end = Listen(readers);
        stopAll();
        return end;
    } catch (...) {
        stopAll();
        throw;
    }
}

void Service::Stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    stopping_.notify_all();
    if (listener_) {
        listener_->Shutdown();
    }
}

// Returns false when another server still has the name at the deadline, and after Stop.
bool Service::OpenListener() {
    const transport::Deadline deadline = transport::Clock::now() + settings_.nameTimeout;
    std::unique_lock lock(mutex_);
    while (!stopped_) {
        listener_ = transport::Listener::Open(settings_.name);
        if (listener_) {
            lastConnection_ = transport::Clock::now();
            return true;
        }
        if (transport::Clock::now() >= deadline) {
            return false;
        }
        stopping_.wait_for(lock, nameRetryInterval, [this] { return stopped_; });
    }
    return false;
}

End Service::Listen(ReaderPool& readers) {
    for (;;) {
        JoinEnded();
        const transport::Deadline now = transport::Clock::now();
        transport::Deadline deadline = now + settings_.idleTimeout;
        {
            const std::lock_guard lock(mutex_);
            if (stopped_) {
                return End::Stopped;
            }
            if (connections_ == 0) {
                deadline = lastConnection_ + settings_.idleTimeout;
                if (now >= deadline) {
                    return End::Idle;
                }
            }
        }
        std::optional<transport::Connection> connection = listener_->Accept(deadline, BusyMessage());
        if (connection && !StartClient(*connection, readers)) {
            // A new connection has buffer space for the message, so this does not wait.
            connection->Send(BusyMessage(), transport::Clock::now());
        }
    }
}

// Serves the client on a new thread. Returns false, and leaves the connection, when that is not possible.
bool Service::StartClient(transport::Connection& connection, ReaderPool& readers) {
    const std::lock_guard lock(mutex_);
    if (connections_ >= settings_.maxConnections) {
        DisconnectSilentClient();
        return false;
    }
    const std::size_t before = clients_.size();
    try {
        Client& client = clients_.emplace_back();
        client.thread = std::thread([this, &client, &readers] { Serve(client, readers); });
    } catch (const std::exception& error) {
        clients_.resize(before);
        LogError(std::string("cannot serve a client: ") + error.what());
        return false;
    }
    // The thread locks the mutex before it reads the connection.
    clients_.back().connection = std::move(connection);
    ++connections_;
    return true;
}

// Disconnects the client that has been silent the longest, if that is at least silenceTimeout. Otherwise clients that
// connect and send no request would occupy all places for ever. A client whose camera pauses connects again with its
// next frame. REQUIRES: mutex.
void Service::DisconnectSilentClient() {
    const transport::Deadline now = transport::Clock::now();
    const auto lastRequest = [](const Client& client) {
        return client.connection ? client.lastRequest.load() : transport::noDeadline;
    };
    const auto silent = std::ranges::min_element(clients_, {}, lastRequest);
    if (silent != clients_.end() && silent->connection &&
        now - silent->lastRequest.load() >= settings_.silenceTimeout) {
        silent->connection->Shutdown();
    }
}

void Service::Serve(Client& client, ReaderPool& readers) {
    transport::Connection* connection = nullptr;
    {
        const std::lock_guard lock(mutex_);
        connection = &*client.connection;
    }
    try {
        ServeClient(*connection, readers, settings_.confirmations, client.lastRequest);
    } catch (const std::exception& error) {
        LogError(std::string("a client was disconnected: ") + error.what());
    }
    const std::lock_guard lock(mutex_);
    client.connection.reset();
    --connections_;
    lastConnection_ = transport::Clock::now();
}

void Service::JoinEnded() {
    std::list<Client> ended;
    {
        const std::lock_guard lock(mutex_);
        for (auto client = clients_.begin(); client != clients_.end();) {
            const auto next = std::next(client);
            if (!client->connection) {
                ended.splice(ended.end(), clients_, client);
            }
            client = next;
        }
    }
    for (Client& client : ended) {
        client.thread.join();
    }
}

void Service::DisconnectClients() {
    {
        const std::lock_guard lock(mutex_);
        for (Client& client : clients_) {
            if (client.connection) {
                client.connection->Shutdown();
            }
        }
    }
    for (Client& client : clients_) {
        client.thread.join();
    }
    clients_.clear();
}

}  // namespace reading_service
