/// What the server does for one client.
#pragma once

#include "tools/server/reader_pool.h"
#include "tools/wire/local_connection.h"

namespace reading_service {

/// How long a client may take for its greeting, and for taking an answer.
inline constexpr std::chrono::milliseconds longestGreeting{5000};
inline constexpr std::chrono::milliseconds longestAnswering{2000};

/// `confirmations` is that of plate_reading::ReadingStream. Answers a client until it goes, stays silent where it must
/// speak, or says what no client says. Throws std::exception for want of memory alone.
void ServeClient(wire::Connection& connection, ReaderPool& readers, int confirmations);

}  // namespace reading_service
