/// What the server does for one client.
#pragma once

#include <atomic>
#include <chrono>

#include "reference/server/reader_pool.h"
#include "reference/transport/local_connection.h"

namespace reading_service {

/// How long a client may take for its greeting, and for taking an answer.
inline constexpr std::chrono::milliseconds longestGreeting{5000};
inline constexpr std::chrono::milliseconds longestAnswering{2000};

/// `confirmations` is that of plate_reading::ReadingStream. Serves a client until it goes, does not greet in time, or
/// sends an invalid message; `lastRequest` is set to the time of each of its requests. Throws std::exception on
/// allocation failure alone.
void ServeClient(transport::Connection& connection, ReaderPool& readers, int confirmations,
                 std::atomic<transport::Deadline>& lastRequest);

}  // namespace reading_service
