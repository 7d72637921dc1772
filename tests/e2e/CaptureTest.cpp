// vellmarkctl monitor for scripts and for Wireshark: --json writes one JSON object per
// frame and line, --pcap a pcapng capture that tshark opens with the project's dissector
// (wireshark/vellmark.lua) and the tree's schemas; both are masked like the text output.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <sys/stat.h>

#include <cstdio>
#include <regex>
#include <sstream>

#include "platform/log/Redact.h"
#include "tests/e2e/ServiceFixture.h"
#include "tests/support/JsonFields.h"

namespace Vellmark::EndToEnd {
namespace {

using google::protobuf::Value;

std::vector<std::string> Lines(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::string ReadAll(std::string const& path) {
    std::string text;
    EXPECT_EQ(Vellmark::Json::ReadFile(path, text), "") << path;
    return text;
}

// `text` in single quotes for the shell.
std::string ShellWord(std::string const& text) {
    std::string quoted = "'";
    for (char const c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// The seed's secrets, in clear.
std::vector<std::string> Secrets() {
    auto const seed = SeedDocument();
    return Vellmark::Admin::SecretValues(seed);
}

void ExpectNoSecret(std::string const& where, std::string const& text) {
    for (auto const& secret : Secrets()) {
        EXPECT_EQ(text.find(secret), std::string::npos)
            << where << " holds \"" << secret << "\" in clear";
    }
}

class Capture : public ServiceTest {
protected:
    // Starts vellmarkctl monitor with `options` and waits until it watches.
    std::unique_ptr<ChildProcess> StartMonitor(std::vector<std::string> const& options) {
        std::vector<std::string> arguments{"--runtime-dir", Folder(), "--timeout", "0", "monitor"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto monitor = std::make_unique<ChildProcess>(VELLMARKCTL_PATH, arguments);
        EXPECT_TRUE(monitor->WaitForError("watching the traffic", kBound)) << monitor->Errors();
        return monitor;
    }

    // A GetSources request and its answer go through the endpoint.
    void GetSources() {
        auto get = Ctl({"get", "sources"});
        ASSERT_EQ(get->ExitCode(), 0) << get->Errors();
    }
};

TEST_F(Capture, JsonLinesAreObjectsWithEveryFieldAndTheMaskedPayload) {
    StartService();
    auto monitor = StartMonitor({"--json", "--count", "2"});
    GetSources();
    ASSERT_EQ(monitor->ExitCode(), 0) << monitor->Errors();

    auto const lines = Lines(monitor->Output());
    ASSERT_EQ(lines.size(), 2u) << monitor->Output();
    std::regex const rfc3339(R"(\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}\.\d{6}Z)");
    for (auto const& line : lines) {
        TestJson::Fields fields;
        ASSERT_TRUE(TestJson::ParseObject(line, fields)) << line;
        for (char const* name : {"time", "direction", "session", "kind", "messageId", "messageName",
                                 "requestNumber", "payloadType", "payload"}) {
            EXPECT_EQ(fields.count(name), 1u) << name << " missing in " << line;
        }
        EXPECT_TRUE(std::regex_match(fields.at("time").string_value(), rfc3339)) << line;
        EXPECT_EQ(fields.at("session").kind_case(), Value::kNumberValue) << line;
        EXPECT_EQ(fields.at("messageId").number_value(), 1) << line;
        EXPECT_EQ(fields.at("messageName").string_value(), "VELLMARK_MESSAGE_GET_SOURCES");
        EXPECT_EQ(fields.at("payloadType").string_value(), "sources");
        EXPECT_EQ(fields.at("payload").kind_case(), Value::kStructValue) << line;
    }
    TestJson::Fields request;
    TestJson::Fields response;
    ASSERT_TRUE(TestJson::ParseObject(lines[0], request));
    ASSERT_TRUE(TestJson::ParseObject(lines[1], response));
    EXPECT_EQ(request.at("direction").string_value(), "in");
    EXPECT_EQ(request.at("kind").string_value(), "request");
    EXPECT_EQ(response.at("direction").string_value(), "out");
    EXPECT_EQ(response.at("kind").string_value(), "response");
    EXPECT_EQ(request.at("requestNumber").number_value(),
              response.at("requestNumber").number_value());

    // The payload is the answer, masked as the text output masks it.
    std::string payload;
    ASSERT_TRUE(
        google::protobuf::util::MessageToJsonString(response.at("payload").struct_value(), &payload)
            .ok());
    VellmarkPB::sources printed;
    ASSERT_EQ(Vellmark::Json::Parse(payload, printed), "") << payload;
    VellmarkPB::sources masked = SeedDocument().sources();
    Vellmark::Admin::Mask(masked);
    EXPECT_TRUE(Same(printed, masked)) << payload;
    ExpectNoSecret("monitor --json", monitor->Output());
}

TEST_F(Capture, TheTextOutputCarriesTheDate) {
    StartService();
    auto monitor = StartMonitor({"--count", "1"});
    GetSources();
    ASSERT_EQ(monitor->ExitCode(), 0) << monitor->Errors();
    std::regex const line(
        R"(\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}\.\d{6}Z <- #\d+ request 1 VELLMARK_MESSAGE_GET_SOURCES sources \{\}\n)");
    EXPECT_TRUE(std::regex_match(monitor->Output(), line)) << monitor->Output();
}

TEST_F(Capture, AnUnwritableCaptureIsRefusedBeforeConnecting) {
    // No service: the path is refused before any connection is tried.
    std::string const path = Folder() + "/no-such-folder/capture.pcapng";
    auto monitor = Ctl({"monitor", "--pcap", path});
    EXPECT_EQ(monitor->ExitCode(), 2) << monitor->Errors();
    EXPECT_NE(monitor->Errors().find(path), std::string::npos) << monitor->Errors();
    EXPECT_NE(monitor->Errors().find("No such file or directory"), std::string::npos)
        << monitor->Errors();
    EXPECT_EQ(Ctl({"monitor", "--json", "--pcap", "-"})->ExitCode(), 2);
}

TEST_F(Capture, CtrlCLeavesAWholePrivateCaptureOfEveryFrameShown) {
    StartService();
    std::string const path = Folder() + "/capture.pcapng";
    WriteFile("capture.pcapng", "an older file, readable by all");
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    auto monitor = StartMonitor({"--pcap", path});
    GetSources();
    ASSERT_TRUE(monitor->WaitForOutput("-> #", kBound)) << monitor->Output();
    monitor->Signal(SIGINT);
    ASSERT_TRUE(monitor->Wait(kBound).has_value());

    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    std::string const capture = ReadAll(path);
    // A section header, an interface, then one packet block per frame, each whole.
    ASSERT_GE(capture.size(), 12u);
    EXPECT_EQ(capture.compare(0, 4, "\x0A\x0D\x0D\x0A", 4), 0);
    std::size_t blocks = 0;
    std::size_t at = 0;
    while (at + 12 <= capture.size()) {
        std::uint32_t length = 0;
        for (int i = 3; i >= 0; --i) {
            length = length << 8 | static_cast<unsigned char>(capture[at + 4 + i]);
        }
        ASSERT_GE(length, 12u);
        ASSERT_LE(at + length, capture.size()) << "a block is cut short";
        at += length;
        ++blocks;
    }
    EXPECT_EQ(at, capture.size());
    EXPECT_EQ(blocks, 2 + Lines(monitor->Output()).size()) << monitor->Output();
}

TEST_F(Capture, ACaptureOnStandardOutputIsAllItCarries) {
    StartService();
    auto monitor = StartMonitor({"--pcap", "-", "--count", "2"});
    GetSources();
    ASSERT_EQ(monitor->ExitCode(), 0) << monitor->Errors();
    std::string const capture = monitor->Output();
    ASSERT_GE(capture.size(), 4u);
    EXPECT_EQ(capture.compare(0, 4, "\x0A\x0D\x0D\x0A", 4), 0);
    EXPECT_EQ(capture.find("VELLMARK_MESSAGE_GET_SOURCES"), std::string::npos);  // no line
    EXPECT_NE(capture.find(SeedDocument().sources().source(0).name().text()), std::string::npos);
    ExpectNoSecret("monitor --pcap -", capture);
}

// Runs tshark with the dissector and the tree's schemas on `capture`; its output as PDML.
std::string Dissect(std::string const& capture, std::string const& errors) {
    std::string const source = VELLMARK_SOURCE_DIR;
    std::string command = std::string("timeout 120 ") + ShellWord(VELLMARK_TSHARK) + " -n -r " +
                          ShellWord(capture) + " -X " +
                          ShellWord("lua_script:" + source + "/wireshark/vellmark.lua") +
                          " -o protobuf.pbf_as_hf:TRUE";
    // The product's schemas are loaded; the ones they import are found when needed.
    for (auto const& [folder, loadAll] :
         std::vector<std::pair<std::string, bool>>{{source + "/Protobufs", true},
                                                   {source + "/lan", true},
                                                   {source + "/platform/log", false},
                                                   {VELLMARK_PROTOBUF_SCHEMAS, false}}) {
        command += " -o " + ShellWord("uat:protobuf_search_paths:\"" + folder + "\",\"" +
                                      (loadAll ? "TRUE" : "FALSE") + "\"");
    }
    command += " -T pdml 2>" + ShellWord(errors);
    std::string output;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[4096];
        for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
            output.append(buffer, n);
        }
        EXPECT_EQ(::pclose(pipe), 0) << command;
    } else {
        ADD_FAILURE() << "cannot run " << command;
    }
    return output;
}

// The packets of a PDML document, each as its text.
std::vector<std::string> Packets(std::string const& pdml) {
    std::vector<std::string> packets;
    for (auto at = pdml.find("<packet>"); at != std::string::npos;) {
        auto const end = pdml.find("</packet>", at);
        if (end == std::string::npos) break;
        packets.push_back(pdml.substr(at, end - at));
        at = pdml.find("<packet>", end);
    }
    return packets;
}

// True when `packet` has a field named `name` whose value is shown as `shown`.
bool HasField(std::string const& packet, std::string const& name, std::string const& shown) {
    std::string const opening = "<field name=\"" + name + "\"";
    for (auto at = packet.find(opening); at != std::string::npos;
         at = packet.find(opening, at + 1)) {
        auto const end = packet.find('>', at);
        if (packet.substr(at, end - at).find(" show=\"" + shown + "\"") != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST_F(Capture, TsharkShowsACapturedGetSourcesWithItsDecodedPayload) {
    std::string const tshark = VELLMARK_TSHARK;
    if (tshark.empty() || ::access(tshark.c_str(), X_OK) != 0) {
        GTEST_SKIP() << "tshark is not installed (Debian package tshark; scripts/install-deps)";
    }
    StartService();
    std::string const path = Folder() + "/capture.pcapng";
    auto monitor = StartMonitor({"--pcap", path, "--count", "2"});
    GetSources();
    ASSERT_EQ(monitor->ExitCode(), 0) << monitor->Errors();

    std::string const errors = Folder() + "/tshark.err";
    auto const pdml = Dissect(path, errors);
    auto const packets = Packets(pdml);
    ASSERT_EQ(packets.size(), 2u) << pdml << ReadAll(errors);
    std::string const name = "VELLMARK_MESSAGE_GET_SOURCES";
    EXPECT_TRUE(HasField(packets[0], "vellmark.kind", "1")) << packets[0];
    EXPECT_TRUE(HasField(packets[0], "vellmark.message_id", "1")) << packets[0];
    EXPECT_NE(packets[0].find("Message identifier: " + name), std::string::npos) << packets[0];
    EXPECT_TRUE(HasField(packets[1], "vellmark.kind", "2")) << packets[1];
    EXPECT_TRUE(HasField(packets[1], "vellmark.message_id", "1")) << packets[1];
    EXPECT_NE(packets[1].find("Message identifier: " + name), std::string::npos) << packets[1];
    EXPECT_TRUE(HasField(packets[1], "vellmark.request_number", "1")) << packets[1];
    EXPECT_TRUE(HasField(packets[1], "vellmark.payload_type", "sources")) << packets[1];
    // The answer's sources, decoded by the protobuf dissector from the schemas.
    auto const seed = SeedDocument();
    ASSERT_GT(seed.sources().source_size(), 0);
    EXPECT_TRUE(HasField(packets[1], "pbf.VellmarkPB.VellmarkSource.source.Name.text",
                         seed.sources().source(0).name().text()))
        << packets[1];
    // Masked identifiers are what it carries.
    EXPECT_TRUE(HasField(packets[1], "pbf.VellmarkPB.VellmarkSource.source.id",
                         Redact::RedactID(seed.sources().source(0).id(), '-')))
        << packets[1];
    ExpectNoSecret("the capture", ReadAll(path));
    ExpectNoSecret("tshark's view of the capture", pdml);
    EXPECT_EQ(ReadAll(errors).find("rror"), std::string::npos) << ReadAll(errors);
}

}  // namespace
}  // namespace Vellmark::EndToEnd
