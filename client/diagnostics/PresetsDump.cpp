// The field-by-field dump of a presets list.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"

void VellmarkClientAPI::PrintPresets(VellmarkPB::VellmarkPresets const& presets) {
    // No line of the dump is coarser than this one: when it is not written, none is, and an
    // update costs no test per field.
    if (!VellmarkClientLog().IsLog(DPrint::Flow)) return;
    char const* const function = "PrintPresets";
    auto const detail = DPrint::Detail;
    LogLine(DPrint::Flow, function, "preset_size: ", presets.presets_size());
    for (int i = 0; i < presets.presets_size(); ++i) {
        auto const& entry = presets.presets(i);
        LogLine(detail, function, "Vellmark preset_size index: ", i);
        LogLine(detail, function, "Preset number (key): ", entry.key());
        auto const& value = entry.value();
        LogLine(detail, function, "createdon: ", value.createdon());
        LogLine(detail, function, "updatedon: ", value.updatedon());
        for (auto const& action : value.actions()) {
            auto const& metadata = action.metadata();
            auto const& item = action.payload().contentitem();
            LogLine(detail, function, "actionType: ", action.actiontype());
            LogLine(detail, function, "metaData - subtype(): ", metadata.subtype());
            LogLine(detail, function, "metaData - name(): ", metadata.name());
            LogLine(detail, function, "metaData - image(): ", metadata.image());
            LogLine(detail, function, "metaData - accountid(): ", metadata.accountid());
            LogLine(detail, function, "containerart(): ", item.containerart());
            LogLine(detail, function, "location(): ", item.location());
            LogLine(detail, function, "name(): ", item.name());
            LogLine(detail, function, "presetable: ", item.presetable());
            LogLine(detail, function, "source: ", item.source());
            LogLine(detail, function, "sourceaccount: ", item.sourceaccount());
            LogLine(detail, function, "type: ", item.type());
        }
    }
}
