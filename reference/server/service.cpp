#include "reference/server/service.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "reference/server/session.h"
#include "reference/transport/messages.h"

namespace reading_service {

namespace {

constexpr std::chrono::milliseconds namePause{10};

// Said to clients that are not served.
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
        return stopped_ ? End::Told : End::NameTaken;
    }
    ReaderPool readers(settings_.readers, factory_);
    // Whatever happens, nobody reads with readers that have gone.
    const auto endAll = [&] {
        {
            const std::lock_guard lock(mutex_);
            listener_.reset();
        }
        readers.Stop();
        EndClients();
    };
    try {
        const End end = Listen(readers);
        endAll();
        return end;
    } catch (...) {
        endAll();
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

// False when another server keeps the name, and when told to stop meanwhile.
bool Service::OpenListener() {
    const transport::Deadline deadline = transport::Clock::now() + settings_.longestWaitForName;
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
        stopping_.wait_for(lock, namePause, [this] { return stopped_; });
    }
    return false;
}

End Service::Listen(ReaderPool& readers) {
    for (;;) {
        JoinEnded();
        const transport::Deadline now = transport::Clock::now();
        transport::Deadline deadline = now + settings_.longestIdle;
        {
            const std::lock_guard lock(mutex_);
            if (stopped_) {
                return End::Told;
            }
            if (connections_ == 0) {
                deadline = lastConnection_ + settings_.longestIdle;
                if (now >= deadline) {
                    return End::Idle;
                }
            }
        }
        std::optional<transport::Connection> connection = listener_->Accept(deadline, BusyMessage());
        if (connection && !StartClient(*connection, readers)) {
            // A new connection has room for the message, so that nobody is waited for.
            connection->Send(BusyMessage(), transport::Clock::now());
        }
    }
}

// Takes the connection; false when its client cannot be served.
bool Service::StartClient(transport::Connection& connection, ReaderPool& readers) {
    const std::lock_guard lock(mutex_);
    if (connections_ >= settings_.mostConnections) {
        EndSilentClient();
        return false;
    }
    const std::size_t before = clients_.size();
    try {
        Client& client = clients_.emplace_back();
        client.thread = std::thread([this, &client, &readers] { Serve(client, readers); });
    } catch (const std::exception& error) {
        clients_.resize(before);
        LogError(std::string("a client cannot be served: ") + error.what());
        return false;
    }
    // Its thread waits for the mutex before it looks.
    clients_.back().connection = std::move(connection);
    ++connections_;
    return true;
}

// Of the clients that have been silent for too long, ends the one that has been so the longest. Without it, clients
// that connect and ask for nothing would take all places for ever. A client whose camera pauses connects again with its
// next frame. REQUIRES: mutex.
void Service::EndSilentClient() {
    const transport::Deadline now = transport::Clock::now();
    const auto lastRequest = [](const Client& client) {
        return client.connection ? client.lastRequest.load() : transport::noDeadline;
    };
    const auto silent = std::ranges::min_element(clients_, {}, lastRequest);
    if (silent != clients_.end() && silent->connection &&
        now - silent->lastRequest.load() >= settings_.longestSilence) {
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
        LogError(std::string("a client is served no longer: ") + error.what());
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

void Service::EndClients() {
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
