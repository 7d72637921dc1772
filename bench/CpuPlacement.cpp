#include "bench/CpuPlacement.h"

#include <dirent.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Vellmark::Bench {
namespace {

// Sets the CPUs of every thread of `pid` (0: this process). A thread that ended meanwhile
// is no failure.
void SetProcessCpus(pid_t pid, cpu_set_t const& cpus) {
    std::string const folder =
        "/proc/" + (pid == 0 ? std::string("self") : std::to_string(pid)) + "/task";
    DIR* threads = ::opendir(folder.c_str());
    if (!threads) throw std::runtime_error("cannot list the threads in " + folder);
    while (dirent* thread = ::readdir(threads)) {
        if (thread->d_name[0] == '.') continue;
        auto const tid = static_cast<pid_t>(std::strtol(thread->d_name, nullptr, 10));
        if (::sched_setaffinity(tid, sizeof cpus, &cpus) != 0 && errno != ESRCH) {
            int const error = errno;
            ::closedir(threads);
            throw std::runtime_error("cannot set the CPUs of thread " + std::to_string(tid) + ": " +
                                     std::strerror(error));
        }
    }
    ::closedir(threads);
}

}  // namespace

CpuPlacement::CpuPlacement(int cpu) {
    CPU_ZERO(&m_all);
    if (::sched_getaffinity(0, sizeof m_all, &m_all) != 0) {
        throw std::runtime_error(std::string("sched_getaffinity: ") + std::strerror(errno));
    }
    if (cpu >= 0) {
        if (cpu >= CPU_SETSIZE || !CPU_ISSET(cpu, &m_all)) {
            throw std::runtime_error("CPU " + std::to_string(cpu) +
                                     " is not one this process may use");
        }
        m_cpu = cpu;
        return;
    }
    for (m_cpu = 0; m_cpu < CPU_SETSIZE && !CPU_ISSET(m_cpu, &m_all); ++m_cpu) {
    }
}

int CpuPlacement::UnpinnedCpus() const {
    return CPU_COUNT(&m_all);
}

void CpuPlacement::Pin(std::vector<pid_t> const& others) const {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(m_cpu, &one);
    SetProcessCpus(0, one);
    for (pid_t pid : others) SetProcessCpus(pid, one);
}

void CpuPlacement::Release(std::vector<pid_t> const& others) const {
    SetProcessCpus(0, m_all);
    for (pid_t pid : others) SetProcessCpus(pid, m_all);
}

}  // namespace Vellmark::Bench
