// The field-by-field dump of the product settings.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include <iomanip>

#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"

void VellmarkClientAPI::PrintProductSettingsProtobuff(VellmarkPB::ProductSettings settings) {
    // No line of the dump is coarser than this one: when it is not written, none is, and an
    // update costs no test per field.
    if (!VellmarkClientLog().IsLog(DPrint::Flow)) return;
    char const* const function = "PrintProductSettingsProtobuff";
    auto const detail = DPrint::Detail;
    LogLine(DPrint::Flow, function, "PrintProductSettingsProtobuff");
    LogLine(detail, function, "product name: ", settings.productname());
    LogLine(detail, function, "language: ", settings.language());
    LogLine(detail, function, "name: ", settings.name());
    LogLine(detail, function, "productType: ", settings.producttype());
    LogLine(detail, function, "productID: ", settings.productid());
    LogLine(detail, function, "timeFormat: ", static_cast<int>(settings.timeformat()));
    LogLine(detail, function, "timeZone: ", settings.timezone());
    if (settings.has_ttspromptlanguage()) {
        LogLine(DPrint::Info, function, "ttsPromptLanguage: ", settings.ttspromptlanguage());
    }
    if (settings.has_ttspromptenabled()) {
        LogLine(DPrint::Info, function, "ttspromptenabled: ", std::boolalpha,
                settings.ttspromptenabled());
    }
}
