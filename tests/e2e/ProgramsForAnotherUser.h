#pragma once
// ProgramsForAnotherUser: runs this build's vellmarkd and vellmarkctl (and vellmark-console,
// for a test program that knows its path: VELLMARK_CONSOLE_PATH) as another user (user
// 65534 by default), through util-linux's setpriv, which only root may do.
//
// That user may not reach the build tree: a checkout in root's home (0700 on Debian), or in
// a `mktemp -d` folder, is closed to it, and its programs would fail to load their
// libraries (exit 127). So the first use copies the programs, and the libraries of this
// build that they load (as the dynamic loader lists them), into a folder of this process
// under /tmp, made 0755 and owned by root: the other user may run the copy, not change it.
// The copy is said on the test's standard output, checked by starting each program as that
// user, and removed when the process ends. Programs start from the copy with
// LD_LIBRARY_PATH naming its libraries. Nothing depends on the folders above the checkout.
//
// A test that runs a program as another user starts it here, and its suite's name ends in
// "AsAnotherUser": tests/CMakeLists.txt labels such tests `as-another-user`, and
// scripts/test-from-private-clone runs them again from a clone inside a 0700 folder.
//
// Not thread-safe: one test thread uses it.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/e2e/ChildProcess.h"

namespace Vellmark::EndToEnd {

// Who a program runs as: a user, its group, and its supplementary groups (none: cleared).
struct AnotherUser {
    unsigned uid = 65534;
    unsigned gid = 65534;
    std::vector<unsigned> groups;
};

class ProgramsForAnotherUser {
public:
    // True when this process may run programs as another user: as root, with setpriv, and
    // with this build's programs running on this machine (not under an emulator).
    static bool Possible() {
        return ::geteuid() == 0 && ::access(kSetpriv, X_OK) == 0 && kChildLauncher.empty();
    }

    // The process's copy, made on first use. Throws std::runtime_error, saying why, when
    // it cannot be made or does not start as the other user.
    static ProgramsForAnotherUser const& Get() {
        static ProgramsForAnotherUser const programs;
        return programs;
    }

    // Starts `program` (one of Programs()) of the copy as `user`.
    std::unique_ptr<ChildProcess> Start(std::string const& program,
                                        std::vector<std::string> const& arguments,
                                        AnotherUser const& user = AnotherUser()) const {
        std::vector<std::string> words{"--reuid", std::to_string(user.uid), "--regid",
                                       std::to_string(user.gid)};
        if (user.groups.empty()) {
            words.push_back("--clear-groups");
        } else {
            std::string list;
            for (auto const group : user.groups) {
                list += (list.empty() ? "" : ",") + std::to_string(group);
            }
            words.insert(words.end(), {"--groups", list});
        }
        words.push_back(Path(program));
        words.insert(words.end(), arguments.begin(), arguments.end());
        ChildLaunch launch;
        launch.environment = m_environment;
        launch.environment.push_back("LD_LIBRARY_PATH=" + m_folder + "/lib");
        launch.hostProgram = true;  // setpriv; the copy's programs run on this machine
        return std::make_unique<ChildProcess>(kSetpriv, words, launch);
    }

    // The copy of `program`.
    std::string Path(std::string const& program) const {
        for (std::string const& built : Programs()) {
            if (std::filesystem::path(built).filename() == program) {
                return m_folder + "/bin/" + program;
            }
        }
        throw std::invalid_argument("no copy of " + program + " for another user");
    }
    std::string const& Folder() const { return m_folder; }

    ~ProgramsForAnotherUser() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    ProgramsForAnotherUser(ProgramsForAnotherUser const&) = delete;
    ProgramsForAnotherUser& operator=(ProgramsForAnotherUser const&) = delete;

private:
    static constexpr char kSetpriv[] = "/usr/bin/setpriv";

    // The programs of this build that are copied, by their paths in the build tree.
    static std::vector<std::string> Programs() {
        return {VELLMARKD_PATH, VELLMARKCTL_PATH
#ifdef VELLMARK_CONSOLE_PATH
                ,
                VELLMARK_CONSOLE_PATH
#endif
        };
    }

    ProgramsForAnotherUser() {
        if (!Possible()) throw std::runtime_error("cannot run a program as another user here");
        // /tmp, not TMPDIR: a private TMPDIR would close the copy to the other user too.
        char pattern[] = "/tmp/vellmark-programs-XXXXXX";
        char const* made = ::mkdtemp(pattern);
        if (!made) throw std::runtime_error("cannot make a folder under /tmp for the programs");
        m_folder = made;
        try {
            CopyAndCheck();
        } catch (...) {
            std::error_code ignored;
            std::filesystem::remove_all(m_folder, ignored);
            throw;
        }
    }

    void CopyAndCheck() {
        MakeFolder(m_folder);
        MakeFolder(m_folder + "/bin");
        MakeFolder(m_folder + "/lib");
        std::size_t libraries = 0;
        std::string names;
        for (std::string const& program : Programs()) {
            std::string const name = std::filesystem::path(program).filename();
            names += (names.empty() ? "" : ", ") + name;
            Copy(program, Path(name));
            for (auto const& [soname, path] : LibrariesOfThisBuild(program)) {
                std::string const copy = m_folder + "/lib/" + soname;
                if (std::filesystem::exists(copy)) continue;
                Copy(path, copy);
                ++libraries;
            }
        }
        CopySanitizerSuppressions();
        if (!ReachableByOthers(m_folder)) {
            throw std::runtime_error("a folder above " + m_folder + " is closed to other users");
        }
        std::cout << "programs for another user: " << names << " and " << libraries
                  << " libraries of this build copied to " << m_folder
                  << " (0755), since that user may not reach the build tree" << std::endl;
        for (std::string const& program : Programs()) {
            auto const started = Start(std::filesystem::path(program).filename(), {"--version"});
            if (started->ExitCode() != 0) {
                throw std::runtime_error("the copy of " + program +
                                         " does not start as user 65534: " + started->Errors());
            }
        }
    }

    // A sanitizer's suppressions file named in its options lies in the checkout, which the
    // other user may not read either (and a sanitizer that cannot read it stops the
    // program): copied beside the programs, and the options the copy gets name the copy.
    void CopySanitizerSuppressions() {
        for (std::string const name :
             {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"}) {
            char const* value = std::getenv(name.c_str());
            if (!value) continue;
            std::string options = value;
            std::string const key = "suppressions=";
            auto const at = options.find(key);
            if (at == std::string::npos) continue;
            auto const start = at + key.size();
            auto const end = options.find(':', start);
            std::string const file =
                options.substr(start, end == std::string::npos ? std::string::npos : end - start);
            std::string const copy = m_folder + "/" + name + ".supp";
            Copy(file, copy);
            options.replace(start, file.size(), copy);
            m_environment.push_back(name + "=" + options);
        }
    }

    static void MakeFolder(std::string const& path) {
        std::filesystem::create_directories(path);
        if (::chmod(path.c_str(), 0755) != 0) throw std::runtime_error("cannot chmod " + path);
    }
    static void Copy(std::string const& from, std::string const& to) {
        std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
        if (::chmod(to.c_str(), 0755) != 0) throw std::runtime_error("cannot chmod " + to);
    }

    // The libraries of this build that `program` loads, by the name it asks for, as the
    // dynamic loader resolves them (ldd's way: LD_TRACE_LOADED_OBJECTS).
    static std::vector<std::pair<std::string, std::string>> LibrariesOfThisBuild(
        std::string const& program) {
        ChildLaunch launch;
        launch.environment = {"LD_TRACE_LOADED_OBJECTS=1"};
        ChildProcess listing(program, {}, launch);
        if (listing.ExitCode() != 0) {
            throw std::runtime_error("the loader cannot list what " + program +
                                     " loads: " + listing.Errors());
        }
        std::string const build = VELLMARK_BINARY_DIR "/";
        std::vector<std::pair<std::string, std::string>> libraries;
        std::istringstream lines(listing.Output());
        std::string soname, arrow, path;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            if (words >> soname >> arrow >> path && arrow == "=>" && path.rfind(build, 0) == 0) {
                libraries.emplace_back(soname, path);
            }
        }
        return libraries;
    }

    // True when every folder from `path` up lets other users through.
    static bool ReachableByOthers(std::filesystem::path path) {
        for (; !path.empty(); path = path.parent_path()) {
            struct stat status {};
            if (::stat(path.c_str(), &status) != 0 || (status.st_mode & S_IXOTH) == 0) {
                return false;
            }
            if (path == path.root_path()) break;
        }
        return true;
    }

    std::string m_folder;
    // What the programs of the copy get in their environment besides LD_LIBRARY_PATH.
    std::vector<std::string> m_environment;
};

}  // namespace Vellmark::EndToEnd
