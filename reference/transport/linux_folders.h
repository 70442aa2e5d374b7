/// The folders on Linux in which this user's servers listen. They belong to the user and let in nobody else, so nobody
/// else can take a name there, replace what has it or connect to it.
///
/// One is "vexlane" in the folder that XDG_RUNTIME_DIR names, if that is the user's own; one is "vexlane-" and the
/// user's number in the temporary folder (TMPDIR, else /tmp). A server listens in both, so that it is found by clients
/// whose environment lacks one of the variables.
///
/// In the temporary folder anybody can be there first. A folder, file or link of that name that is not as it must be is
/// passed by: the server makes a folder of a further name that nobody could know before, and clients look for those by
/// their owner.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "reference/transport/linux_descriptor.h"

namespace transport {

/// Shows each of the folders that is there to `visit`, until it returns true; returns whether it has. Makes none.
/// Throws std::system_error when this process has no descriptor for one.
bool VisitFolders(const std::function<bool(int folder)>& visit);

/// All of them, at least one; makes those that are not there. Throws std::system_error.
std::vector<Owned> MakeFolders();

/// Where a socket lies, for as long as its folder is open.
class SocketAddress {
  public:
    /// Nothing for what is no name of a socket. However long the folder's own path is, the address has room for it.
    static std::optional<SocketAddress> Of(int folder, const std::string& name);

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    socklen_t Size() const { return sizeof address_; }

  private:
    sockaddr_un address_ = {};
};

}  // namespace transport
