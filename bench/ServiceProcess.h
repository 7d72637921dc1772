#pragma once
// ServiceProcess: vellmarkd started by a bench in a private runtime folder of its own, on a
// store seeded with the bench's sources. Its output goes to a log in that folder.
#include <sys/types.h>

#include <string>
#include <vector>

namespace Vellmark::Bench {

class ServiceProcess {
public:
    // Makes the folder, seeds the store and starts `program`, with `options` besides the
    // bench's own. Throws std::runtime_error when any of that fails. The client finds it once
    // IPCDirectory uses Folder().
    explicit ServiceProcess(std::string const& program,
                            std::vector<std::string> const& options = {});
    // Stops the service (SIGTERM) and removes the folder.
    ~ServiceProcess();
    ServiceProcess(ServiceProcess const&) = delete;
    ServiceProcess& operator=(ServiceProcess const&) = delete;

    std::string const& Folder() const { return m_folder; }
    pid_t Pid() const { return m_pid; }
    // The end of the service's log, to show when it did not come up.
    std::string LogTail() const;

private:
    std::string m_folder;
    pid_t m_pid = -1;
};

}  // namespace Vellmark::Bench
