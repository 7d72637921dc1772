#include "console/Console.h"

#include <iostream>

#include "admin/Json.h"
#include "console/JsonDocument.h"

namespace Vellmark::Console {

Console::Console(ConsoleOptions const& options)
    : m_options(options),
      m_feed(options.feed),
      m_roster(&ClientRoster::SystemUserName, &ClientRoster::SystemProgramName),
      m_link(
          options.bound,
          [this](Vellmark::Admin::TrafficEvent const& event) {
              m_roster.Count(event);
              m_feed.Publish(event);
          },
          [this](AdminLink::State const& state) { PublishStatus(state); }),
      m_api(m_link, m_feed, options.pushBound),
      m_http(m_api, m_feed, options.http) {
    PublishStatus({false, "not yet connected to " + m_link.Path()});
}

Console::~Console() {
    Stop();
}

std::string Console::Bind() {
    m_http.Bind(m_options.port);
    return m_http.Url();
}

void Console::Start() {
    m_link.Start();
    m_poller = std::thread([this] { Poll(); });
    m_server = std::thread([this] {
        if (!m_http.Listen()) std::cerr << "vellmark-console: the HTTP server stopped\n";
    });
}

void Console::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        m_stopped.notify_all();
    }
    m_http.Stop();
    if (m_server.joinable()) m_server.join();
    if (m_poller.joinable()) m_poller.join();
    m_link.Stop();
}

void Console::PublishStatus(AdminLink::State const& state) {
    google::protobuf::Struct status;
    Field(status, "watching") = Flag(state.watching);
    Field(status, "message") = Text(state.message);
    Field(status, "endpoint") = Text(m_link.Path());
    Field(status, "lost") = Number(static_cast<double>(state.lost));
    m_feed.PublishState("status", ToJson(status));
}

void Console::Poll() {
    std::string previous;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        lock.unlock();
        Vellmark::Admin::ClientList clients;
        try {
            Vellmark::Admin::Request request;
            request.set_listclients(true);
            auto const reply = m_link.Call(request);
            if (reply.ok()) Vellmark::Json::Parse(reply.json(), clients);
        } catch (Vellmark::Admin::AdminError const&) {
            // The watcher's state tells the page; the list shows nobody meanwhile.
        }
        std::string const json = m_roster.Render(clients);
        if (json != previous) m_feed.PublishState("clients", json);
        previous = json;
        lock.lock();
        m_stopped.wait_for(lock, m_options.clientPoll, [this] { return m_stopping; });
    }
}

}  // namespace Vellmark::Console
