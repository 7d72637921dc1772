// vellmarkd's systemd units: systemd itself finds nothing wrong with them, their sockets are
// where clients look for the endpoints and carry the names vellmarkd serves them by, and
// installed under any prefix they start that prefix's program.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/e2e/SystemdSupport.h"

namespace Vellmark::EndToEnd {
namespace {

// The values of `key` in the unit file at `path`, in order.
std::vector<std::string> Values(std::string const& path, std::string const& key) {
    std::ifstream file(path);
    EXPECT_TRUE(file.good()) << "cannot read " << path;
    std::vector<std::string> values;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(key + "=", 0) == 0) values.push_back(line.substr(key.size() + 1));
    }
    return values;
}

std::string FirstWord(std::string const& text) {
    return text.substr(0, text.find(' '));
}

ChildLaunch Host() {
    ChildLaunch launch;
    launch.hostProgram = true;
    return launch;
}

// The exit code of systemd-analyze verify on the three units in `folder`; its complaints
// in `errors`.
int Verify(std::string const& folder, std::string& errors) {
    ChildProcess verify(SYSTEMD_ANALYZE_PATH,
                        {"verify", folder + "/vellmarkd.service", folder + "/vellmarkd.socket",
                         folder + "/vellmarkd-admin.socket"},
                        Host());
    int const code = verify.ExitCode(kBound);
    errors = verify.Errors();
    return code;
}

// `cmake --install` of the units alone under a prefix of its own, removed at the end.
class InstalledUnits : public ::testing::Test {
protected:
    InstalledUnits() {
        char pattern[] = "/tmp/vellmark-prefix-XXXXXX";
        m_prefix = ::mkdtemp(pattern);
    }
    ~InstalledUnits() override { std::filesystem::remove_all(m_prefix); }

    // Installs them; the folder they went to, or "" when they would go outside the prefix.
    std::string Install() {
        std::string const unitdir = VELLMARK_SYSTEMD_UNITDIR;
        if (!unitdir.empty() && unitdir.front() == '/') return {};
        ChildProcess install(
            VELLMARK_CMAKE_COMMAND,
            {"--install", VELLMARK_BINARY_DIR, "--prefix", m_prefix, "--component", "systemd"},
            Host());
        EXPECT_EQ(install.ExitCode(kBound), 0) << install.Errors();
        return m_prefix + "/" + unitdir;
    }
    std::string const& Prefix() const { return m_prefix; }

private:
    std::string m_prefix;
};

TEST(SystemdUnits, SystemdFindsNothingWrongWithThem) {
    if (std::strlen(SYSTEMD_ANALYZE_PATH) == 0) GTEST_SKIP() << "systemd-analyze is not installed";
    std::string errors;
    EXPECT_EQ(Verify(VELLMARK_BUILD_UNITS_DIR, errors), 0) << errors;
    EXPECT_EQ(errors, "");
}

TEST_F(InstalledUnits, EachSocketIsWhereClientsLookAndNamedForItsEndpoint) {
    std::string const installed = Install();
    if (installed.empty()) GTEST_SKIP() << "the units are installed outside the prefix";
    for (std::string const& folder : {std::string(VELLMARK_BUILD_UNITS_DIR), installed}) {
        for (auto const& [unit, endpoint] : std::vector<std::pair<std::string, std::string>>{
                 {"vellmarkd.socket", Admin::kServiceEndpoint},
                 {"vellmarkd-admin.socket", Admin::kAdminEndpoint}}) {
            SCOPED_TRACE(folder + "/" + unit);
            std::string const path = folder + "/" + unit;
            EXPECT_EQ(Values(path, "ListenStream"),
                      std::vector<std::string>{std::string(IPCDirectory::kDefaultRuntimeFolder) +
                                               "/" + endpoint + ".sock"});
            EXPECT_EQ(Values(path, "FileDescriptorName"), std::vector<std::string>{endpoint});
            EXPECT_EQ(Values(path, "Service"), std::vector<std::string>{"vellmarkd.service"});
            EXPECT_EQ(Values(path, "SocketMode"), std::vector<std::string>{"0660"});
        }
        auto const start = Values(folder + "/vellmarkd.service", "ExecStart");
        ASSERT_EQ(start.size(), 1u);
        EXPECT_NE(
            start[0].find(std::string(" --runtime-dir ") + IPCDirectory::kDefaultRuntimeFolder),
            std::string::npos)
            << start[0];
        EXPECT_EQ(Values(folder + "/vellmarkd.service", "Type"),
                  std::vector<std::string>{"notify"});
    }
    EXPECT_EQ(
        FirstWord(Values(std::string(VELLMARK_BUILD_UNITS_DIR) + "/vellmarkd.service", "ExecStart")
                      .at(0)),
        VELLMARKD_PATH);
}

TEST_F(InstalledUnits, UnderAnotherPrefixTheyStartThatPrefixsVellmarkd) {
    std::string const installed = Install();
    if (installed.empty()) GTEST_SKIP() << "the units are installed outside the prefix";
    std::string const program = Prefix() + "/" + VELLMARK_INSTALL_BINDIR + "/vellmarkd";
    EXPECT_EQ(FirstWord(Values(installed + "/vellmarkd.service", "ExecStart").at(0)), program);
    if (std::strlen(SYSTEMD_ANALYZE_PATH) == 0) GTEST_SKIP() << "systemd-analyze is not installed";
    // The program the prefix holds (this build's), as the whole install would put it.
    std::filesystem::create_directories(std::filesystem::path(program).parent_path());
    std::filesystem::create_symlink(VELLMARKD_PATH, program);
    std::string errors;
    EXPECT_EQ(Verify(installed, errors), 0) << errors;
    EXPECT_EQ(errors, "");
}

}  // namespace
}  // namespace Vellmark::EndToEnd
