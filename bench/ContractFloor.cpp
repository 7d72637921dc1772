#include "bench/ContractFloor.h"

#include <chrono>
#include <memory>
#include <utility>

#include "VellmarkMessageId.pb.h"
#include "bench/FrameStream.h"
#include "bench/Payload.h"
#include "framework/AsyncCallback.h"
#include "framework/ipc/IPCMessageEnvelope.h"

namespace Vellmark::Bench {
namespace {

using Tarv::IPCFrame;

// A task whose queue the thread that posts runs itself: the entries cost what a task's
// entries cost, without a second thread.
class SameThreadTask final : public NotifyTargetTaskIF {
public:
    void PostCallbackEntry(std::shared_ptr<IL::CallbackEntry> entry) override {
        m_queued.push_back(std::move(entry));
    }
    CallbackConnection RegisterStopNotification(std::function<void()> const&) override {
        return CallbackConnection();
    }

    // Runs every queued entry, dropping each once run.
    void RunQueued() {
        m_running.swap(m_queued);
        for (auto& entry : m_running) {
            entry->Dispatch();
            entry.reset();
        }
        m_running.clear();
    }

private:
    std::vector<std::shared_ptr<IL::CallbackEntry>> m_queued;
    std::vector<std::shared_ptr<IL::CallbackEntry>> m_running;
};

// Decodes a frame's payload into the kept `message` and fires `callback` with it.
void Deliver(IPCFrame const& frame, VellmarkPB::sources& message,
             AsyncCallback<VellmarkPB::sources> const& callback) {
    message.ParsePartialFromString(frame.envelope().payload());
    callback(message);
}

}  // namespace

bool ContractRoundTrips(FloorServer& server, int count, std::vector<double>& samples) {
    using Clock = std::chrono::steady_clock;
    FrameStream stream(server.Fd());
    SameThreadTask task;
    int delivered = 0;
    AsyncCallback<VellmarkPB::sources> const callback(
        [&delivered](VellmarkPB::sources const& sources) { delivered = sources.source_size(); },
        &task);
    IPCFrame response;
    VellmarkPB::sources message;
    for (int i = 0; i < count; ++i) {
        auto const start = Clock::now();
        delivered = 0;
        if (!stream.Write(RequestFrame(static_cast<std::uint64_t>(i) + 1)) ||
            !stream.Read(response)) {
            return false;
        }
        Deliver(response, message, callback);
        task.RunQueued();
        if (delivered != kSourceCount) return false;
        samples.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    }
    return true;
}

bool ContractPush(FloorServer& server, std::uint32_t count, std::uint32_t window) {
    FrameStream stream(server.Fd());
    std::uint32_t const command[2] = {count, window};
    if (!stream.WriteBytes(reinterpret_cast<char const*>(command), sizeof command)) return false;
    SameThreadTask task;
    bool sent = true;
    AsyncCallback<VellmarkPB::sources> const callback(
        [&stream, &sent](VellmarkPB::sources const&) {
            VellmarkPB::CloudSyncReceived acknowledgement;
            acknowledgement.set_messageid(VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE);
            IPCMessageEnvelope envelope;
            envelope.SetPayload(acknowledgement);
            sent = sent &&
                   stream.Write(IPCFrame::ONE_WAY, VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED,
                                0, envelope.Base());
        },
        &task);
    IPCFrame update;
    VellmarkPB::sources message;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!stream.Read(update)) return false;
        Deliver(update, message, callback);
        task.RunQueued();
        if (!sent) return false;
    }
    return stream.Read(update) && update.envelope().message_id() == 0;
}

}  // namespace Vellmark::Bench
