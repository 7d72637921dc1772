#pragma once
// AdminSlices: the service's half of admin messages too big for one frame
// (VellmarkAdmin.proto): it joins the slices of a Request and keeps a Reply that does not
// fit, handing it out slice by slice. Per admin connection; used on the service's task only.
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminProtocol.h"

namespace Vellmark::Service {

class AdminSlices {
public:
    // A Request whose slices are joined may be at most this big.
    static constexpr std::size_t kMaxRequestBytes = Vellmark::Admin::kMaxAdminRequestBytes;

    // What a Request received on connection `session` asks for: a whole Request to run, or
    // the Reply to send at once (the acknowledgement of a slice, the next slice of a Reply,
    // a refusal).
    struct Step {
        std::optional<Vellmark::Admin::Request> run;
        Vellmark::Admin::Reply reply;
    };
    Step Receive(std::uint64_t session, Vellmark::Admin::Request const& request);

    // What to send for `reply` on connection `session` to a client that takes frames of
    // `maxFrameBytes`: the Reply itself, or its first slice.
    Vellmark::Admin::Reply Send(std::uint64_t session, Vellmark::Admin::Reply const& reply,
                                std::size_t maxFrameBytes);

    // The connection has ended.
    void Forget(std::uint64_t session) { m_sessions.erase(session); }

private:
    struct Session {
        std::string request;        // slices of a Request received so far
        std::string reply;          // a Reply that did not fit one frame
        std::size_t replySent = 0;  // how much of it went out
        std::size_t sliceBytes = 0;
    };
    Vellmark::Admin::Reply NextSlice(Session& session);

    std::map<std::uint64_t, Session> m_sessions;
};

}  // namespace Vellmark::Service
