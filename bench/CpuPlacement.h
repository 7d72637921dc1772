#pragma once
// CpuPlacement: where transport_bench lets the processes of a path run. Unpinned, every
// thread of the bench and of the processes it started may run on any CPU the bench was
// given, as the system places them: a round trip then pays for waking the other process on
// another CPU. Pinned, every thread of all of them runs on one CPU: what is left is the
// processes' own work.
//
// A thread's CPUs are its own (sched_setaffinity); a process is pinned by setting them on
// each of its threads, and threads and processes started later inherit them from the
// thread that starts them.
#include <sched.h>
#include <sys/types.h>

#include <vector>

namespace Vellmark::Bench {

class CpuPlacement {
public:
    // Remembers the CPUs this process may run on; `cpu` is the one to pin to (-1: the first
    // of them).
    explicit CpuPlacement(int cpu = -1);

    // The CPU the pinned runs use.
    int PinnedCpu() const { return m_cpu; }
    // How many CPUs the unpinned runs may use.
    int UnpinnedCpus() const;

    // Puts every thread of this process and of `others` on PinnedCpu(). Throws
    // std::runtime_error when a process cannot be pinned.
    void Pin(std::vector<pid_t> const& others) const;
    // Gives every thread of this process and of `others` back the CPUs remembered.
    void Release(std::vector<pid_t> const& others) const;

private:
    cpu_set_t m_all;
    int m_cpu = 0;
};

}  // namespace Vellmark::Bench
