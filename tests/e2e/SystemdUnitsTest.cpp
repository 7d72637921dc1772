// vellmarkd's systemd units: systemd itself finds nothing wrong with them, their sockets are
// where clients look for the endpoints and carry the names vellmarkd serves them by, and
// the installed units start the installed program.
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

TEST(SystemdUnits, SystemdFindsNothingWrongWithThem) {
    if (std::strlen(SYSTEMD_ANALYZE_PATH) == 0) GTEST_SKIP() << "systemd-analyze is not installed";
    std::string const folder = VELLMARK_BUILD_UNITS_DIR;
    ChildLaunch launch;
    launch.hostProgram = true;
    ChildProcess verify(SYSTEMD_ANALYZE_PATH,
                        {"verify", folder + "/vellmarkd.service", folder + "/vellmarkd.socket",
                         folder + "/vellmarkd-admin.socket"},
                        launch);
    EXPECT_EQ(verify.ExitCode(kBound), 0) << verify.Errors();
    EXPECT_EQ(verify.Errors(), "");
}

TEST(SystemdUnits, EachSocketIsWhereClientsLookAndNamedForItsEndpoint) {
    for (std::string const folder : {VELLMARK_BUILD_UNITS_DIR, VELLMARK_INSTALL_UNITS_DIR}) {
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
    EXPECT_EQ(FirstWord(Values(std::string(VELLMARK_INSTALL_UNITS_DIR) + "/vellmarkd.service",
                               "ExecStart")
                            .at(0)),
              VELLMARK_INSTALLED_VELLMARKD);
    EXPECT_EQ(
        FirstWord(Values(std::string(VELLMARK_BUILD_UNITS_DIR) + "/vellmarkd.service", "ExecStart")
                      .at(0)),
        VELLMARKD_PATH);
}

}  // namespace
}  // namespace Vellmark::EndToEnd
