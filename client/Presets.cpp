// Storing presets on the service.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/CallIfSet.h"
#include "client/internal/LogLine.h"

void VellmarkClientAPI::StorePresets(VellmarkPB::VellmarkPresets const& presets,
                                     Callback<VellmarkPB::VellmarkPresets> const& onStored) {
    Post([this, presets, stored = onStored]() mutable {
        m_storePresetsCallback.swap(stored);
        SendOrDefer(DPrint::Flow, "Not connected, queuing call to StorePresets", [this, presets] {
            LogLine(DPrint::Flow, "operator()",
                    "storing presets - received from product in lambda within StorePresets");
            PrintPresets(presets);
            m_router->SendRequest(VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS, presets,
                                  OnTask(&VellmarkClientAPI::PresetsStored));
        });
    });
}

// The subscriber hears of the stored list first, then the caller of StorePresets.
void VellmarkClientAPI::PresetsStored(VellmarkPB::VellmarkPresets const& presets) {
    LogLine(DPrint::Flow, "PresetsStored", "PresetsStored");
    CallIfSet(m_presetsSubscriber, presets);
    PrintPresets(presets);
    CallIfSet(m_storePresetsCallback, presets);
}
