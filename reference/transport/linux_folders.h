/// The folders on Linux in which this user's servers listen. They belong to the user and are closed to others, so other
/// users cannot take a name there, replace a socket or connect to it.
///
/// One is "vexlane" in the folder named by XDG_RUNTIME_DIR, if that belongs to the user; one is "vexlane-" and the
/// user's number in the temporary folder (TMPDIR, else /tmp). A server listens in both, so that clients whose
/// environment lacks one of the variables find it.
///
/// In the temporary folder another user can create that name first. A folder, file or link that does not meet these
/// conditions is skipped: the server creates a folder with a random name, and clients find it by its owner.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "reference/transport/linux_descriptor.h"

namespace transport {

/// Calls `visit` with each existing folder until it returns true; returns whether it has. Creates none. Throws
/// std::system_error when this process has no descriptor or memory left.
bool VisitFolders(const std::function<bool(int folder)>& visit);

/// Opens all folders that it can, at least one; creates missing ones. Throws std::system_error.
std::vector<Owned> MakeFolders();

/// The address of a socket, valid while its folder is open.
class SocketAddress {
  public:
    /// Returns nothing for an invalid socket name. The length of the folder's own path does not matter.
    static std::optional<SocketAddress> Of(int folder, const std::string& name);

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    socklen_t Size() const { return sizeof address_; }

  private:
    sockaddr_un address_ = {};
};

}  // namespace transport
