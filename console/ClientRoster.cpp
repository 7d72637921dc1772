#include "console/ClientRoster.h"

#include <pwd.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <vector>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "console/JsonDocument.h"

namespace Vellmark::Console {

namespace {}  // namespace

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
    auto* list = Field(document, "clients").mutable_list_value();
    std::set<std::uint64_t> listed;
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto const& client : clients.clients()) {
        listed.insert(client.session());
        Seen const& seen = m_seen[client.session()];
        auto& entry = *list->add_values()->mutable_struct_value();
        Field(entry, "session") = Number(static_cast<double>(client.session()));
        Field(entry, "pid") = Number(client.pid());
        Field(entry, "uid") = Number(client.uid());
        Field(entry, "user") = Text(m_user ? m_user(client.uid()) : "");
        Field(entry, "program") = Text(m_program ? m_program(client.pid()) : "");
        Field(entry, "connectedAt") = Text(client.connectedat());
        Field(entry, "requests") = Number(static_cast<double>(client.requests()));
        Field(entry, "frames") = Number(static_cast<double>(seen.frames));
        Field(entry, "acknowledged") = Number(static_cast<double>(seen.acknowledged));
        Field(entry, "lastFrame") = Text(seen.lastFrame);
        auto& updates = *Field(entry, "subscriptions").mutable_struct_value();
        for (auto const& [name, count] : seen.updates) {
            Field(updates, name) = Number(static_cast<double>(count));
        }
    }
    // A session that sent frames since the last list may be too new to be in this one.
    for (auto it = m_seen.begin(); it != m_seen.end();) {
        bool const keep = listed.count(it->first) || it->second.recent;
        it->second.recent = false;
        it = keep ? std::next(it) : m_seen.erase(it);
    }
    return ToJson(document);
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
