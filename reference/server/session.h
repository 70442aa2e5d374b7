/// Serves one client.
#pragma once

#include <atomic>
#include <chrono>

#include "reference/server/reader_pool.h"
#include "reference/transport/local_connection.h"

namespace reading_service {

/// How long a client may take to send its greeting and to receive a reply.
inline constexpr std::chrono::milliseconds greetingTimeout{5000};
inline constexpr std::chrono::milliseconds replyTimeout{2000};

/// Serves a client until it disconnects, sends no greeting in time, or sends an invalid message. Sets `lastRequest` to
/// the time of each request. `confirmations` is that of plate_reading::ReadingStream. Throws std::exception only on
/// allocation failure.
void ServeClient(transport::Connection& connection, ReaderPool& readers, int confirmations,
                 std::atomic<transport::Deadline>& lastRequest);

}  // namespace reading_service
