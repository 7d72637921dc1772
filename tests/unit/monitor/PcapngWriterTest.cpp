// The capture file: blocks a pcapng reader takes, one packet per frame with its time and
// direction, private to its owner, and a clear error for a path that cannot be written.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tools/PcapngWriter.h"

namespace Vellmark::Ctl {
namespace {

std::uint32_t Read32(std::string const& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}
std::uint16_t Read16(std::string const& bytes, std::size_t at) {
    return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[at]) |
                                      static_cast<unsigned char>(bytes[at + 1]) << 8);
}

struct Block {
    std::uint32_t type;
    std::string body;
};

// The blocks of a capture; fails on a block whose two lengths disagree or that is cut.
std::vector<Block> Blocks(std::string const& file) {
    std::vector<Block> blocks;
    std::size_t at = 0;
    while (at < file.size()) {
        EXPECT_LE(at + 12, file.size());
        if (at + 12 > file.size()) break;
        std::uint32_t const length = Read32(file, at + 4);
        EXPECT_EQ(length % 4, 0u);
        EXPECT_LE(at + length, file.size());
        if (length < 12 || at + length > file.size()) break;
        EXPECT_EQ(Read32(file, at + length - 4), length);
        blocks.push_back({Read32(file, at), file.substr(at + 8, length - 12)});
        at += length;
    }
    return blocks;
}

// The options of a block body from `at`: code and value.
std::vector<std::pair<std::uint16_t, std::string>> Options(std::string const& body,
                                                           std::size_t at) {
    std::vector<std::pair<std::uint16_t, std::string>> options;
    while (at + 4 <= body.size()) {
        std::uint16_t const code = Read16(body, at);
        std::uint16_t const length = Read16(body, at + 2);
        if (code == 0) break;
        options.emplace_back(code, body.substr(at + 4, length));
        at += 4 + (length + 3u) / 4 * 4;
    }
    return options;
}

class Pcapng : public ::testing::Test {
protected:
    Pcapng() {
        char pattern[] = "/tmp/vellmark-pcapng-XXXXXX";
        char* made = ::mkdtemp(pattern);
        m_folder = made ? made : "";
    }
    ~Pcapng() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    std::string Path(std::string const& name) const { return m_folder + "/" + name; }
    static std::string Contents(std::string const& path) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

private:
    std::string m_folder;
};

TEST_F(Pcapng, HoldsASectionAnInterfaceAndOnePacketPerFrame) {
    std::string const path = Path("capture.pcapng");
    std::string const first("\x05\x08\x01\x10\x07\x1a", 6);
    std::string const second = "a frame of odd length";
    std::int64_t const micros = 1795493549228073;  // 2026-11-24T04:12:29.228073Z
    {
        PcapngWriter writer(path);
        writer.Write(micros, first, PcapngWriter::Direction::Inbound, "session 3");
        writer.Write(micros + 404, second, PcapngWriter::Direction::Outbound, "");
        // Each packet is in the file as soon as it is written.
        EXPECT_EQ(Blocks(Contents(path)).size(), 4u);
    }
    auto const blocks = Blocks(Contents(path));
    ASSERT_EQ(blocks.size(), 4u);

    EXPECT_EQ(blocks[0].type, 0x0A0D0D0Au);
    EXPECT_EQ(Read32(blocks[0].body, 0), 0x1A2B3C4Du);
    EXPECT_EQ(Read16(blocks[0].body, 4), 1);  // version 1.0
    EXPECT_EQ(Read16(blocks[0].body, 6), 0);

    EXPECT_EQ(blocks[1].type, 1u);
    EXPECT_EQ(Read16(blocks[1].body, 0), PcapngWriter::kLinkType);
    EXPECT_EQ(PcapngWriter::kLinkType, 147);  // LINKTYPE_USER0, which the dissector claims

    for (std::size_t i = 2; i < 4; ++i) {
        auto const& body = blocks[i].body;
        std::string const& data = i == 2 ? first : second;
        EXPECT_EQ(blocks[i].type, 6u);
        EXPECT_EQ(Read32(body, 0), 0u);  // the interface
        std::uint64_t const stamp =
            static_cast<std::uint64_t>(Read32(body, 4)) << 32 | Read32(body, 8);
        EXPECT_EQ(stamp, static_cast<std::uint64_t>(micros + (i == 2 ? 0 : 404)));
        EXPECT_EQ(Read32(body, 12), data.size());
        EXPECT_EQ(Read32(body, 16), data.size());
        EXPECT_EQ(body.substr(20, data.size()), data);
        auto const options = Options(body, 20 + (data.size() + 3) / 4 * 4);
        ASSERT_GE(options.size(), 1u);
        EXPECT_EQ(options[0].first, 2);  // the direction in the packet's flags
        EXPECT_EQ(Read32(options[0].second, 0), i == 2 ? 1u : 2u);
        if (i == 2) {
            ASSERT_EQ(options.size(), 2u);
            EXPECT_EQ(options[1], std::make_pair(std::uint16_t{1}, std::string("session 3")));
        } else {
            EXPECT_EQ(options.size(), 1u);
        }
    }
}

TEST_F(Pcapng, IsPrivateEvenWhereAnOpenFileWas) {
    std::string const path = Path("old.pcapng");
    std::ofstream(path) << "something else entirely";
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    { PcapngWriter writer(path); }
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(Blocks(Contents(path)).size(), 2u);  // the old contents are gone
}

TEST_F(Pcapng, APathThatCannotBeWrittenIsNamedWithTheReason) {
    std::string const path = Path("missing/capture.pcapng");
    try {
        PcapngWriter writer(path);
        ADD_FAILURE() << "no error for " << path;
    } catch (PcapngWriter::Error const& error) {
        std::string const what = error.what();
        EXPECT_NE(what.find(path), std::string::npos) << what;
        EXPECT_NE(what.find("No such file or directory"), std::string::npos) << what;
    }
    EXPECT_THROW(PcapngWriter{Path("")}, PcapngWriter::Error);  // the folder itself
}

}  // namespace
}  // namespace Vellmark::Ctl
