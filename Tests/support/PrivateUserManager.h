#pragma once

// A systemd user manager for tests and benchmarks of service units. When the process can reach its
// user's manager ($XDG_RUNTIME_DIR/systemd/private), that one is used. Otherwise, when root (as in
// CI, where PID 1 is no systemd), a private `systemd --user` is started in a mount namespace of its
// own: a tmpfs on /run/systemd holds the "system" marker that systemd looks for, and a temporary
// folder holds its runtime, home and config folders, which XDG_RUNTIME_DIR, HOME, XDG_CONFIG_HOME
// and DBUS_SESSION_BUS_ADDRESS name for this process until the manager is stopped. The process
// itself keeps its namespaces. When neither is possible, available() is false and reason() says why.

#include "support/PeerProcess.h"
#include "support/ScratchFolder.h"

#include <string>

namespace zon::test {

class PrivateUserManager {
public:
    PrivateUserManager();
    // Stops a private manager (which stops its units) and puts the environment back.
    ~PrivateUserManager();
    PrivateUserManager(const PrivateUserManager&) = delete;
    PrivateUserManager& operator=(const PrivateUserManager&) = delete;

    bool available() const { return available_; }
    const std::string& reason() const { return reason_; }
    // A folder for unit files, removed at the end.
    const std::string& unitFolder() const { return unitFolder_; }
    // Writes unitFolder()/name, a service that sleeps for a long time, and answers its path.
    std::string writeSleeperUnit(const std::string& name) const;

private:
    bool startPrivateManager();

    ScratchFolder folder_;
    ScopedEnvironment environment_;
    PeerProcess manager_;
    std::string unitFolder_;
    bool available_ = false;
    std::string reason_;
};

// `systemctl --user disable --now path`, quietly: stops the unit and removes its link.
void disableUnitFile(const std::string& path);

// The main pid of a unit as the manager reports it ("systemctl --user show -p MainPID"); 0 when
// it has none.
int unitMainPid(const std::string& unit);

} // namespace zon::test
