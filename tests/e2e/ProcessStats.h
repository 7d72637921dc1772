#pragma once
// What a test reads of a running process in /proc: its CPU time, whether any of its threads
// is running or waiting to run, its threads' names, its open descriptors, its resident memory.
#include <dirent.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace Vellmark::EndToEnd {

// The fields of a /proc/.../stat line after the command's closing parenthesis (from the
// state on: [0] is field 3 of proc(5)); empty when it cannot be read.
inline std::vector<std::string> StatFields(std::string const& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    auto const end = line.rfind(')');
    if (end == std::string::npos) return {};
    std::istringstream rest(line.substr(end + 1));
    std::vector<std::string> fields;
    for (std::string field; rest >> field;) fields.push_back(field);
    return fields;
}

// User and system CPU time of `pid`, all threads, in seconds; -1 when unreadable.
inline double CpuSeconds(pid_t pid) {
    auto const fields = StatFields("/proc/" + std::to_string(pid) + "/stat");
    if (fields.size() < 13) return -1;
    double const ticks = std::stod(fields[11]) + std::stod(fields[12]);  // utime, stime
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// The entries of a folder, "." and ".." left out.
inline std::vector<std::string> Entries(std::string const& folder) {
    std::vector<std::string> names;
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (dirent const* entry = ::readdir(dir)) {
            std::string const name = entry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        ::closedir(dir);
    }
    return names;
}

// True when a thread of `pid` is running or waiting for a processor (state R). A process
// that spins shows so however busy the machine is, where its CPU share would fall.
inline bool AnyThreadRunnable(pid_t pid) {
    std::string const tasks = "/proc/" + std::to_string(pid) + "/task/";
    for (auto const& thread : Entries(tasks)) {
        auto const fields = StatFields(tasks + thread + "/stat");
        if (!fields.empty() && fields[0] == "R") return true;
    }
    return false;
}

// The names of the threads of `pid` (their comm).
inline std::vector<std::string> ThreadNames(pid_t pid) {
    std::string const tasks = "/proc/" + std::to_string(pid) + "/task/";
    std::vector<std::string> names;
    for (auto const& thread : Entries(tasks)) {
        std::ifstream comm(tasks + thread + "/comm");
        std::string name;
        if (std::getline(comm, name)) names.push_back(name);
    }
    return names;
}

inline std::size_t OpenDescriptors(pid_t pid) {
    return Entries("/proc/" + std::to_string(pid) + "/fd").size();
}

}  // namespace Vellmark::EndToEnd
