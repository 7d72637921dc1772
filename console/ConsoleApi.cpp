#include "console/ConsoleApi.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "admin/MessageTable.h"
#include "console/JsonDocument.h"
#include "console/StoreEdits.h"
#include "tools/MonitorFormat.h"
#include "tools/PcapngWriter.h"

namespace Vellmark::Console {

namespace {

using Vellmark::Admin::AdminError;

Answer Json(int status, std::string body) {
    Answer answer;
    answer.status = status;
    answer.body = std::move(body);
    return answer;
}

Answer Error(int status, std::string const& why) {
    return Json(status, ConsoleApi::ErrorJson(why));
}

// The service could not be asked: not there, or it closed the connection.
Answer Unreachable(AdminError const& error) {
    return Error(503, error.what());
}

// The numbers of a JSON array of non-negative integers, or nothing when `text` is not one.
std::optional<std::vector<std::uint64_t>> Numbers(std::string const& text) {
    std::vector<std::uint64_t> numbers;
    std::size_t at = text.find_first_not_of(" \t\r\n");
    if (at == std::string::npos || text[at] != '[') return std::nullopt;
    ++at;
    bool expectNumber = true;
    bool closed = false;
    while (at < text.size()) {
        char const c = text[at];
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            ++at;
        } else if (c == ']' && (!expectNumber || numbers.empty())) {
            closed = true;
            ++at;
            break;
        } else if (c == ',' && !expectNumber) {
            expectNumber = true;
            ++at;
        } else if (c >= '0' && c <= '9' && expectNumber) {
            std::uint64_t number = 0;
            std::size_t digits = 0;
            for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, ++digits) {
                if (digits >= 19) return std::nullopt;
                number = number * 10 + static_cast<std::uint64_t>(text[at] - '0');
            }
            numbers.push_back(number);
            expectNumber = false;
        } else {
            return std::nullopt;
        }
    }
    if (!closed || text.find_first_not_of(" \t\r\n", at) != std::string::npos) return std::nullopt;
    return numbers;
}

// `events` as the bytes of a pcapng capture, written through the monitor's writer into a
// private folder of its own.
std::string CaptureBytes(std::vector<Vellmark::Admin::TrafficEvent> const& events) {
    char const* base = ::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/vellmark-console-XXXXXX";
    if (!::mkdtemp(pattern.data())) {
        throw Vellmark::Ctl::PcapngWriter::Error("cannot make a folder for the capture: " +
                                                 std::string(std::strerror(errno)));
    }
    std::string const path = pattern + "/capture.pcapng";
    std::string bytes;
    try {
        {
            Vellmark::Ctl::PcapngWriter writer(path);
            for (auto const& event : events) {
                std::string const frame = Vellmark::Ctl::WireFrame(event);
                if (frame.empty()) continue;
                writer.Write(Vellmark::Ctl::EventMicros(event), frame,
                             event.direction() == "in"
                                 ? Vellmark::Ctl::PcapngWriter::Direction::Inbound
                                 : Vellmark::Ctl::PcapngWriter::Direction::Outbound,
                             "session " + std::to_string(event.session()));
            }
        }
        std::ifstream in(path, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        bytes = text.str();
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove_all(pattern, ignored);
        throw;
    }
    std::error_code ignored;
    std::filesystem::remove_all(pattern, ignored);
    return bytes;
}

}  // namespace

ConsoleApi::ConsoleApi(AdminLink& link, TrafficFeed& feed, std::chrono::milliseconds pushBound)
    : m_link(link), m_feed(feed), m_pushBound(pushBound) {}

std::string ConsoleApi::ErrorJson(std::string const& text) {
    google::protobuf::Struct error;
    Field(error, "error") = Text(text);
    return ToJson(error);
}

Answer ConsoleApi::Overview() const {
    google::protobuf::Struct overview;
    Field(overview, "endpoint") = Text(m_link.Path());
    auto* resources = Field(overview, "resources").mutable_list_value();
    for (auto const& resource : Vellmark::Admin::Resources()) {
        auto& entry = *resources->add_values()->mutable_struct_value();
        Field(entry, "name") = Text(resource.name);
        Field(entry, "updateId") = Number(resource.updateId);
        Field(entry, "updateName") = Text(Vellmark::Admin::MessageName(resource.updateId));
        Field(entry, "queryId") = Number(resource.queryId);
    }
    auto& accounts = *resources->add_values()->mutable_struct_value();
    Field(accounts, "name") = Text(kServiceAccounts);
    Field(accounts, "updateId") = Number(0);
    Field(accounts, "queryId") = Number(0);
    auto* messages = Field(overview, "messages").mutable_list_value();
    for (auto const& message : Vellmark::Admin::MessageTable()) {
        auto& entry = *messages->add_values()->mutable_struct_value();
        Field(entry, "id") = Number(message.id);
        Field(entry, "name") = Text(Vellmark::Admin::MessageName(message.id));
        Field(entry, "role") = Text(Vellmark::Admin::RoleName(message.role));
        Field(entry, "errorInReply") = Flag(message.errorInReply);
        Field(entry, "errorId") = Number(message.errorId);
        Field(entry, "request") = Text(message.request ? message.request->name() : "");
        Field(entry, "reply") = Text(message.reply ? message.reply->name() : "");
    }
    return Json(200, ToJson(overview));
}

std::string ConsoleApi::Fetch(std::string const& resource, google::protobuf::Message& message) {
    Vellmark::Admin::Request request;
    request.mutable_get()->set_resource(resource);
    auto const reply = m_link.Call(request);
    if (!reply.ok()) return "vellmarkd refused: " + reply.error();
    std::string const problem = Vellmark::Json::Parse(reply.json(), message);
    if (!problem.empty())
        return "vellmarkd sent what is not a " + resource + " document: " + problem;
    return {};
}

Answer ConsoleApi::Read(std::string const& resource) {
    auto message = NewResourceMessage(resource);
    if (!message) return Error(404, "no resource \"" + resource + "\"");
    try {
        std::string const problem = Fetch(resource, *message);
        if (!problem.empty()) return Error(502, problem);
    } catch (AdminError const& error) {
        return Unreachable(error);
    }
    return Json(200, MaskedJson(*message));
}

std::string ConsoleApi::Prepare(std::string const& resource, std::string const& json,
                                google::protobuf::Message& edited, int& status) {
    status = 400;
    std::string problem = Vellmark::Json::Parse(json, edited);
    if (!problem.empty()) return "not a " + resource + " document: " + problem;
    std::unique_ptr<google::protobuf::Message> stored(edited.New());
    problem = Fetch(resource, *stored);
    if (!problem.empty()) {
        status = 502;
        return problem;
    }
    return RestoreMasked(edited, *stored);
}

Answer ConsoleApi::Check(std::string const& resource, std::string const& json) {
    return Edit(resource, json, false);
}

Answer ConsoleApi::Write(std::string const& resource, std::string const& json) {
    return Edit(resource, json, true);
}

Answer ConsoleApi::Edit(std::string const& resource, std::string const& json, bool save) {
    auto edited = NewResourceMessage(resource);
    if (!edited) return Error(404, "no resource \"" + resource + "\"");
    try {
        int status = 200;
        std::string const problem = Prepare(resource, json, *edited, status);
        if (!problem.empty()) return Error(status, problem);
        if (save) {
            Vellmark::Admin::Request request;
            request.mutable_put()->set_resource(resource);
            request.mutable_put()->set_json(Vellmark::Json::Print(*edited, false));
            auto const reply = m_link.Call(request);
            if (!reply.ok()) return Error(400, "vellmarkd refused: " + reply.error());
        }
    } catch (AdminError const& error) {
        return Unreachable(error);
    }
    return Json(200, "{\"ok\":true}");
}

Answer ConsoleApi::RedactedExport() {
    Vellmark::Admin::StoreDocument document;
    try {
        Vellmark::Admin::Request request;
        request.set_exportstore(true);
        auto const reply = m_link.Call(request);
        if (!reply.ok()) return Error(502, "vellmarkd refused: " + reply.error());
        std::string const problem = Vellmark::Json::Parse(reply.json(), document);
        if (!problem.empty())
            return Error(502, "vellmarkd sent what is not a store document: " + problem);
    } catch (AdminError const& error) {
        return Unreachable(error);
    }
    Answer answer = Json(200, MaskedJson(document));
    answer.filename = "vellmark-store-redacted.json";
    return answer;
}

Answer ConsoleApi::Seed(std::string const& json) {
    // Checked here first, so that the page hears the schema's words for what is wrong.
    Vellmark::Admin::StoreDocument document;
    std::string const problem = Vellmark::Json::Parse(json, document);
    if (!problem.empty()) return Error(400, "not a store document: " + problem);
    try {
        Vellmark::Admin::Request request;
        request.mutable_seed()->set_json(Vellmark::Json::Print(document, false));
        auto const reply = m_link.Call(request);
        if (!reply.ok()) return Error(400, "vellmarkd refused: " + reply.error());
    } catch (AdminError const& error) {
        return Unreachable(error);
    }
    return Json(200, "{\"ok\":true}");
}

Answer ConsoleApi::Command(std::string const& json) {
    Vellmark::Admin::Request request;
    std::string const problem = Vellmark::Json::Parse(json, request);
    if (!problem.empty()) return Error(400, "not an admin request: " + problem);
    using Request = Vellmark::Admin::Request;
    switch (request.command_case()) {
        case Request::kFailNext:
        case Request::kDelay:
        case Request::kDropConnections:
        case Request::kListAcknowledgements:
        case Request::kPush:
            break;
        default:
            // The store's reads and writes mask and restore (Read, Write); the rest is the
            // console's own business (monitor, slices).
            return Error(400,
                         "the console takes only failNext, delay, dropConnections, push and "
                         "listAcknowledgements here");
    }
    request.clear_pretty();
    try {
        auto const reply =
            request.has_push() ? m_link.CallAlone(request, m_pushBound) : m_link.Call(request);
        return Json(reply.ok() ? 200 : 400, Vellmark::Json::Print(reply, false));
    } catch (AdminError const& error) {
        return Unreachable(error);
    }
}

Answer ConsoleApi::Capture(std::string const& numbers) {
    auto const wanted = Numbers(numbers);
    if (!wanted) return Error(400, "a capture takes a JSON array of frame numbers");
    Answer answer;
    try {
        answer.body = CaptureBytes(m_feed.Kept(*wanted));
    } catch (Vellmark::Ctl::PcapngWriter::Error const& error) {
        return Error(500, error.what());
    }
    answer.contentType = "application/octet-stream";
    answer.filename = "vellmark-traffic.pcapng";
    return answer;
}

}  // namespace Vellmark::Console
