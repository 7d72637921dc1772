#include "testing/PrivateFolder.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace Vellmark::Testing {

PrivateFolder::PrivateFolder(std::string const& prefix) {
    char const* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + prefix + "XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder like " + pattern + ": " +
                                 std::strerror(errno));
    }
    m_path = buffer.data();
    // mkdtemp makes it 0700 already; said again so that no umask or platform can widen it.
    if (::chmod(m_path.c_str(), 0700) != 0) {
        int const error = errno;
        std::filesystem::remove(m_path);
        throw std::runtime_error("cannot make " + m_path + " private: " + std::strerror(error));
    }
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

}  // namespace Vellmark::Testing
