#include "tools/host/failure.h"
#include "tools/host/snapshot_picture.h"

namespace plate_host {

void RequireSnapshotSupport() {
    throw Failure("cannot write snapshots: this program was built without cairo");
}

std::string DrawSnapshot(const Picture&, const std::vector<SnapshotTarget>&) {
    RequireSnapshotSupport();
    return {};
}

}  // namespace plate_host
