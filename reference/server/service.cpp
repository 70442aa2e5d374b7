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

Service::Service(Settings chosenSettings, ReaderFactory readerFactory)
    : settings(std::move(chosenSettings)), factory(std::move(readerFactory)) {}

Service::~Service() = default;

End Service::Run() {
    if (!OpenListener()) {
        const std::lock_guard lock(mutex);
        return stopped ? End::Told : End::NameTaken;
    }
    ReaderPool readers(settings.readers, factory);
    // Whatever happens, nobody reads with readers that have gone.
    const auto endAll = [&] {
        {
            const std::lock_guard lock(mutex);
            listener.reset();
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
    const std::lock_guard lock(mutex);
    stopped = true;
    stopping.notify_all();
    if (listener) {
        listener->Shutdown();
    }
}

// False when another server keeps the name, and when told to stop meanwhile.
bool Service::OpenListener() {
    const transport::Deadline deadline = transport::Clock::now() + settings.longestWaitForName;
    std::unique_lock lock(mutex);
    while (!stopped) {
        listener = transport::Listener::Open(settings.name);
        if (listener) {
            lastConnection = transport::Clock::now();
            return true;
        }
        if (transport::Clock::now() >= deadline) {
            return false;
        }
        stopping.wait_for(lock, namePause, [this] { return stopped; });
    }
    return false;
}

End Service::Listen(ReaderPool& readers) {
    for (;;) {
        JoinEnded();
        const transport::Deadline now = transport::Clock::now();
        transport::Deadline deadline = now + settings.longestIdle;
        {
            const std::lock_guard lock(mutex);
            if (stopped) {
                return End::Told;
            }
            if (connections == 0) {
                deadline = lastConnection + settings.longestIdle;
                if (now >= deadline) {
                    return End::Idle;
                }
            }
        }
        std::optional<transport::Connection> connection = listener->Accept(deadline, BusyMessage());
        if (connection && !StartClient(*connection, readers)) {
            // A new connection has room for the message, so that nobody is waited for.
            connection->Send(BusyMessage(), nullptr, transport::Clock::now());
        }
    }
}

// Takes the connection; false when its client cannot be served.
bool Service::StartClient(transport::Connection& connection, ReaderPool& readers) {
    const std::lock_guard lock(mutex);
    if (connections >= settings.mostConnections) {
        EndSilentClient();
        return false;
    }
    const std::size_t before = clients.size();
    try {
        Client& client = clients.emplace_back();
        client.thread = std::thread([this, &client, &readers] { Serve(client, readers); });
    } catch (const std::exception& error) {
        clients.resize(before);
        Complain(std::string("a client cannot be served: ") + error.what());
        return false;
    }
    // Its thread waits for the mutex before it looks.
    clients.back().connection = std::move(connection);
    ++connections;
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
    const auto silent = std::ranges::min_element(clients, {}, lastRequest);
    if (silent != clients.end() && silent->connection && now - silent->lastRequest.load() >= settings.longestSilence) {
        silent->connection->Shutdown();
    }
}

void Service::Serve(Client& client, ReaderPool& readers) {
    transport::Connection* connection = nullptr;
    {
        const std::lock_guard lock(mutex);
        connection = &*client.connection;
    }
    try {
        ServeClient(*connection, readers, settings.confirmations, client.lastRequest);
    } catch (const std::exception& error) {
        Complain(std::string("a client is served no longer: ") + error.what());
    }
    const std::lock_guard lock(mutex);
    client.connection.reset();
    --connections;
    lastConnection = transport::Clock::now();
}

void Service::JoinEnded() {
    std::list<Client> ended;
    {
        const std::lock_guard lock(mutex);
        for (auto client = clients.begin(); client != clients.end();) {
            const auto next = std::next(client);
            if (!client->connection) {
                ended.splice(ended.end(), clients, client);
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
        const std::lock_guard lock(mutex);
        for (Client& client : clients) {
            if (client.connection) {
                client.connection->Shutdown();
            }
        }
    }
    for (Client& client : clients) {
        client.thread.join();
    }
    clients.clear();
}

}  // namespace reading_service
