#include "console/HttpFront.h"

#include <httplib.h>
#include <sys/socket.h>

#include <stdexcept>

#include "console/Assets.h"

namespace Vellmark::Console {

namespace {

// The page may load and reach nothing but this server, and nobody may frame it.
constexpr char kContentPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; font-src 'none'; frame-ancestors 'none'; base-uri 'none'; "
    "form-action 'none'";

std::string Escaped(std::string const& text) {
    std::string out;
    for (char const c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string RefusalPage(std::string const& reason) {
    return "<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\"><title>403 Forbidden: "
           "vellmark-console</title></head><body><h1>403 Forbidden</h1><p>" +
           Escaped(reason) + "</p></body></html>\n";
}

void Send(httplib::Response& response, Answer const& answer) {
    response.status = answer.status;
    if (!answer.filename.empty()) {
        response.set_header("Content-Disposition",
                            "attachment; filename=\"" + answer.filename + "\"");
    }
    response.set_content(answer.body, answer.contentType);
}

std::string ContentType(Asset const& asset) {
    std::string type = asset.contentType;
    if (type.rfind("text/", 0) == 0) type += "; charset=utf-8";
    return type;
}

}  // namespace

HttpFront::HttpFront(ConsoleApi& api, TrafficFeed& feed, Limits limits)
    : m_api(api), m_feed(feed), m_limits(limits), m_server(std::make_unique<httplib::Server>()) {
    std::size_t const threads = m_limits.threads;
    m_server->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
    // SO_REUSEADDR only: httplib's default adds SO_REUSEPORT, which would let another
    // socket bind the same port beside ours.
    m_server->set_socket_options([listening = m_listening](socket_t socket) {
        int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        listening->store(socket);
    });
    m_server->set_payload_max_length(m_limits.bodyBytes);
    m_server->set_keep_alive_timeout(2);
    m_server->set_read_timeout(5);
    m_server->set_write_timeout(5);
    m_server->set_default_headers({{"Content-Security-Policy", kContentPolicy},
                                   {"X-Content-Type-Options", "nosniff"},
                                   {"X-Frame-Options", "DENY"},
                                   {"Referrer-Policy", "no-referrer"},
                                   {"Cache-Control", "no-store"},
                                   {"Cross-Origin-Resource-Policy", "same-origin"}});
}

HttpFront::~HttpFront() {
    Stop();
}

std::uint16_t HttpFront::Bind(std::uint16_t port) {
    // Loopback only: the console is for a browser on this machine, or one that reaches it
    // through ssh -L.
    int const bound = port == 0 ? m_server->bind_to_any_port("127.0.0.1")
                                : (m_server->bind_to_port("127.0.0.1", port) ? port : -1);
    if (bound <= 0) {
        m_listening->store(-1);  // httplib closed what it made
        throw std::runtime_error("cannot listen on 127.0.0.1:" + std::to_string(port) +
                                 " (is the port taken? --port 0 picks a free one)");
    }
    m_policy = std::make_unique<AccessPolicy>(NewToken(), static_cast<std::uint16_t>(bound));
    Route();
    return static_cast<std::uint16_t>(bound);
}

std::string HttpFront::Url() const {
    return m_policy ? m_policy->Url() : std::string();
}

bool HttpFront::Listen() {
    return m_server->listen_after_bind();
}

void HttpFront::Stop() {
    m_feed.CloseAll();
    // httplib's stop() does nothing until its loop has begun, so a stop that comes first
    // would leave the loop to block in accept() for good. A listening socket that is shut
    // down fails every accept(), now or later: the loop ends whenever it starts, and closes
    // the socket itself.
    int const socket = m_listening->exchange(-1);
    if (socket >= 0) ::shutdown(socket, SHUT_RDWR);
}

void HttpFront::Route() {
    using httplib::Request;
    using httplib::Response;
    AccessPolicy const& policy = *m_policy;
    m_server->set_pre_routing_handler([&policy](Request const& request, Response& response) {
        AccessRequest access;
        access.method = request.method;
        access.path = request.path;
        access.host = request.get_header_value("Host");
        access.origin = request.get_header_value("Origin");
        access.cookie = request.get_header_value("Cookie");
        access.tokenParam = request.get_param_value("token");
        access.authorization = request.get_header_value("Authorization");
        access.fetchSite = request.get_header_value("Sec-Fetch-Site");
        auto const decision = policy.Decide(access);
        using Verdict = AccessDecision::Verdict;
        switch (decision.verdict) {
            case Verdict::Refuse:
                response.status = 403;
                response.set_content(RefusalPage(decision.reason), "text/html; charset=utf-8");
                return httplib::Server::HandlerResponse::Handled;
            case Verdict::RedirectWithCookie:
                response.set_header("Set-Cookie", policy.CookieHeader());
                response.set_redirect("/", 303);
                return httplib::Server::HandlerResponse::Handled;
            case Verdict::AllowAndSetCookie:
                response.set_header("Set-Cookie", policy.CookieHeader());
                break;
            case Verdict::Allow:
                break;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });

    auto serveAsset = [](Request const& request, Response& response) {
        Asset const* asset = FindAsset(request.path);
        if (!asset) {
            response.status = 404;
            response.set_content(ConsoleApi::ErrorJson("no file " + request.path),
                                 "application/json");
            return;
        }
        response.set_content(reinterpret_cast<char const*>(asset->data), asset->size,
                             ContentType(*asset));
    };
    m_server->Get("/", serveAsset);
    m_server->Get("/assets/.*", serveAsset);

    ConsoleApi& api = m_api;
    m_server->Get("/api/overview",
                  [&api](Request const&, Response& response) { Send(response, api.Overview()); });
    m_server->Get(R"(/api/store/([a-z-]+))", [&api](Request const& request, Response& response) {
        Send(response, api.Read(request.matches[1]));
    });
    m_server->Post(R"(/api/store/([a-z-]+)/check)",
                   [&api](Request const& request, Response& response) {
                       Send(response, api.Check(request.matches[1], request.body));
                   });
    m_server->Put(R"(/api/store/([a-z-]+))", [&api](Request const& request, Response& response) {
        Send(response, api.Write(request.matches[1], request.body));
    });
    m_server->Get("/api/export", [&api](Request const&, Response& response) {
        Send(response, api.RedactedExport());
    });
    m_server->Post("/api/seed", [&api](Request const& request, Response& response) {
        Send(response, api.Seed(request.body));
    });
    m_server->Post("/api/command", [&api](Request const& request, Response& response) {
        Send(response, api.Command(request.body));
    });
    m_server->Post("/api/capture", [&api](Request const& request, Response& response) {
        Send(response, api.Capture(request.body));
    });
    m_server->Get("/api/clients", [this](Request const&, Response& response) {
        std::string const clients = m_feed.State("clients");
        response.set_content(clients.empty() ? "{\"clients\":[]}" : clients, "application/json");
    });

    TrafficFeed& feed = m_feed;
    auto const heartbeat = m_limits.heartbeat;
    m_server->Get("/api/events", [&feed, heartbeat](Request const&, Response& response) {
        auto stream = feed.Open();
        if (!stream) {
            response.status = 503;
            response.set_content(ConsoleApi::ErrorJson("too many pages are open on this console"),
                                 "application/json");
            return;
        }
        auto first = std::make_shared<bool>(true);
        response.set_chunked_content_provider(
            "text/event-stream",
            [stream, first, heartbeat](std::size_t, httplib::DataSink& sink) {
                std::string text = *first ? "retry: 2000\n\n" : "";
                *first = false;
                text += stream->Next(heartbeat);
                if (stream->Closed()) return false;
                // A comment line when there is nothing to say: a page that went away is
                // noticed by the write that fails.
                if (text.empty()) text = ": alive\n\n";
                return sink.write(text.data(), text.size());
            },
            [&feed, stream](bool) { feed.Close(stream); });
    });

    m_server->set_exception_handler(
        [](Request const&, Response& response, std::exception_ptr error) {
            std::string what = "the console failed";
            try {
                if (error) std::rethrow_exception(error);
            } catch (std::exception const& e) {
                what += std::string(": ") + e.what();
            } catch (...) {
            }
            response.status = 500;
            response.set_content(ConsoleApi::ErrorJson(what), "application/json");
        });
    m_server->set_error_handler([](Request const& request, Response& response) {
        if (!response.body.empty()) return;
        response.set_content(ConsoleApi::ErrorJson("no " + request.method + " " + request.path),
                             "application/json");
    });
}

}  // namespace Vellmark::Console
