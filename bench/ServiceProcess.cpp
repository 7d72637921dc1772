#include "bench/ServiceProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "VellmarkAdmin.pb.h"
#include "admin/Json.h"
#include "bench/Payload.h"

extern char** environ;

namespace Vellmark::Bench {

ServiceProcess::ServiceProcess(std::string const& program,
                               std::vector<std::string> const& options) {
    char pattern[] = "/tmp/vellmark-bench-XXXXXX";
    char const* made = ::mkdtemp(pattern);
    if (!made)
        throw std::runtime_error(std::string("cannot make a folder: ") + std::strerror(errno));
    m_folder = made;

    Vellmark::Admin::StoreDocument document;
    *document.mutable_sources() = MakeSources();
    std::string const seed = m_folder + "/seed.json";
    std::ofstream(seed) << Vellmark::Json::Print(document, false);

    std::string const log = m_folder + "/vellmarkd.log";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    // Warnings and errors only: the bench measures the service's work, not its logging.
    std::vector<std::string> words = {program,  "--db",        m_folder + "/store.db",
                                      "--seed", seed,          "--runtime-dir",
                                      m_folder, "--log-level", "1"};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    int const error =
        ::posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        m_pid = -1;
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
        throw std::runtime_error("cannot start " + program + ": " + std::strerror(error));
    }
}

ServiceProcess::~ServiceProcess() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGTERM);
        int status = 0;
        while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::string ServiceProcess::LogTail() const {
    std::ifstream in(m_folder + "/vellmarkd.log");
    std::stringstream text;
    text << in.rdbuf();
    std::string all = text.str();
    return all.size() > 2000 ? all.substr(all.size() - 2000) : all;
}

}  // namespace Vellmark::Bench
