#include "service/AdminSlices.h"

#include <algorithm>

#include "admin/AdminProtocol.h"

namespace Vellmark::Service {

namespace {

Vellmark::Admin::Reply Refused(std::string const& why) {
    Vellmark::Admin::Reply reply;
    reply.set_ok(false);
    reply.set_error(why);
    return reply;
}

}  // namespace

AdminSlices::Step AdminSlices::Receive(std::uint64_t id, Vellmark::Admin::Request const& request) {
    Step step;
    if (request.has_nextpart()) {
        auto found = m_sessions.find(id);
        if (found == m_sessions.end() || found->second.replySent >= found->second.reply.size()) {
            step.reply = Refused("no reply has slices left to send");
        } else {
            step.reply = NextSlice(found->second);
        }
        return step;
    }
    if (!request.has_part()) {
        step.run = request;
        return step;
    }
    Session& session = m_sessions[id];
    if (session.request.size() + request.part().size() > kMaxRequestBytes) {
        session.request.clear();
        step.reply = Refused("a request of more than " + std::to_string(kMaxRequestBytes) +
                             " bytes is not taken");
        return step;
    }
    session.request += request.part();
    if (request.more()) {
        step.reply.set_ok(true);
        return step;
    }
    Vellmark::Admin::Request whole;
    bool const parsed = whole.ParseFromString(session.request);
    session.request.clear();
    if (!parsed || whole.has_part() || whole.has_nextpart()) {
        step.reply = Refused("the slices do not make an admin request");
        return step;
    }
    step.run = std::move(whole);
    return step;
}

Vellmark::Admin::Reply AdminSlices::Send(std::uint64_t id, Vellmark::Admin::Reply const& reply,
                                         std::size_t maxFrameBytes) {
    if (Vellmark::Admin::FitsOneFrame(reply, maxFrameBytes)) return reply;
    Session& session = m_sessions[id];
    session.reply = reply.SerializeAsString();
    session.replySent = 0;
    session.sliceBytes = Vellmark::Admin::SliceBytes(maxFrameBytes);
    return NextSlice(session);
}

Vellmark::Admin::Reply AdminSlices::NextSlice(Session& session) {
    std::size_t const size = std::min(session.sliceBytes, session.reply.size() - session.replySent);
    Vellmark::Admin::Reply slice;
    slice.set_part(session.reply.substr(session.replySent, size));
    session.replySent += size;
    if (session.replySent < session.reply.size()) {
        slice.set_more(true);
    } else {
        session.reply.clear();
        session.replySent = 0;
    }
    return slice;
}

}  // namespace Vellmark::Service
