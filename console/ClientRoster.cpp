#include "console/ClientRoster.h"

#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <pwd.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <vector>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"

namespace Vellmark::Console {

namespace {

google::protobuf::Value Number(double value) {
    google::protobuf::Value v;
    v.set_number_value(value);
    return v;
}

google::protobuf::Value Text(std::string const& value) {
    google::protobuf::Value v;
    v.set_string_value(value);
    return v;
}

}  // namespace

ClientRoster::ClientRoster(UserName user, ProgramName program)
    : m_user(std::move(user)), m_program(std::move(program)) {}

void ClientRoster::Count(Vellmark::Admin::TrafficEvent const& event) {
    std::string update;
    bool const acknowledgement =
        event.direction() == "in" && event.kind() == "one-way" &&
        event.messageid() == VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED;
    if (acknowledgement) {
        VellmarkPB::CloudSyncReceived received;
        if (Vellmark::Json::Parse(event.payloadjson(), received).empty()) {
            update = Vellmark::Admin::MessageName(static_cast<unsigned int>(received.messageid()));
        }
        if (update.empty()) update = "(unnamed)";
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    auto& seen = m_seen[event.session()];
    ++seen.frames;
    seen.recent = true;
    seen.lastFrame = event.time();
    if (acknowledgement) {
        ++seen.acknowledged;
        ++seen.updates[update];
    }
}

std::string ClientRoster::Render(Vellmark::Admin::ClientList const& clients) {
    google::protobuf::Struct document;
    auto* list = (*document.mutable_fields())["clients"].mutable_list_value();
    std::set<std::uint64_t> listed;
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto const& client : clients.clients()) {
        listed.insert(client.session());
        Seen const& seen = m_seen[client.session()];
        auto& fields = *list->add_values()->mutable_struct_value()->mutable_fields();
        fields["session"] = Number(static_cast<double>(client.session()));
        fields["pid"] = Number(client.pid());
        fields["uid"] = Number(client.uid());
        fields["user"] = Text(m_user ? m_user(client.uid()) : "");
        fields["program"] = Text(m_program ? m_program(client.pid()) : "");
        fields["connectedAt"] = Text(client.connectedat());
        fields["requests"] = Number(static_cast<double>(client.requests()));
        fields["frames"] = Number(static_cast<double>(seen.frames));
        fields["acknowledged"] = Number(static_cast<double>(seen.acknowledged));
        fields["lastFrame"] = Text(seen.lastFrame);
        auto& updates = *fields["subscriptions"].mutable_struct_value()->mutable_fields();
        for (auto const& [name, count] : seen.updates) {
            updates[name] = Number(static_cast<double>(count));
        }
    }
    // A session that sent frames since the last list may be too new to be in this one.
    for (auto it = m_seen.begin(); it != m_seen.end();) {
        bool const keep = listed.count(it->first) || it->second.recent;
        it->second.recent = false;
        it = keep ? std::next(it) : m_seen.erase(it);
    }
    std::string json;
    google::protobuf::util::MessageToJsonString(document, &json);
    return json;
}

std::string ClientRoster::SystemUserName(std::uint32_t uid) {
    long const size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(static_cast<uid_t>(uid), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        !found) {
        return {};
    }
    return found->pw_name;
}

std::string ClientRoster::SystemProgramName(std::int32_t pid) {
    if (pid <= 0) return {};
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

}  // namespace Vellmark::Console
