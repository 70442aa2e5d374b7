/// A client of the recognition server that says whatever it is told to, as no engine does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace test_support {

/// A descriptor or, on Windows, a handle: something that a message can bring along.
using Piece = std::intptr_t;

class RawClient {
  public:
    /// Throws std::runtime_error when nobody listens.
    explicit RawClient(const std::string& name);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    /// One message, with any number of pieces; false when the server takes none any more.
    bool Send(std::span<const std::uint8_t> message, const std::vector<Piece>& pieces = {});

    /// The next message; empty when there is none within a minute, and when the server has ended the connection.
    std::vector<std::uint8_t> Receive();

    /// Whether the server ends the connection within a minute.
    bool IsDropped();

  private:
    Piece connection_ = -1;
};

/// A piece, closed at its end.
class OwnPiece {
  public:
    explicit OwnPiece(Piece opened) : piece_(opened) {}
    OwnPiece(OwnPiece&& other) noexcept : piece_(std::exchange(other.piece_, -1)) {}
    OwnPiece& operator=(OwnPiece&&) = delete;
    ~OwnPiece();
    operator Piece() const { return piece_; }

  private:
    Piece piece_;
};

/// Memory as it may be handed over, which is told to have that size.
OwnPiece MakeMemory(std::int64_t size);

struct WrongPiece {
    const char* what;
    OwnPiece piece;
};

/// What is no memory of a fixed size, one of each kind; none of them smaller than a page where it has a size at all.
std::vector<WrongPiece> MakeWrongPieces();

}  // namespace test_support
