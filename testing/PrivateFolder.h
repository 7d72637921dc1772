#pragma once
// PrivateFolder: a new folder only its owner may enter (0700), removed with everything in
// it when the object goes.
#include <string>

namespace Vellmark::Testing {

class PrivateFolder {
public:
    // Makes "<$TMPDIR or /tmp>/<prefix>XXXXXX"; throws std::runtime_error saying why not.
    explicit PrivateFolder(std::string const& prefix);
    ~PrivateFolder();
    PrivateFolder(PrivateFolder const&) = delete;
    PrivateFolder& operator=(PrivateFolder const&) = delete;

    std::string const& Path() const { return m_path; }

private:
    std::string m_path;
};

}  // namespace Vellmark::Testing
