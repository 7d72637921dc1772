// The field-by-field dump of a sources list; identifiers masked at level 3.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"
#include "platform/log/Redact.h"

void VellmarkClientAPI::PrintSourcesProtobuf(VellmarkPB::sources const& sources,
                                             DPrint::Level const& level) {
    // No line of the dump is coarser than this one: when it is not written, none is, and an
    // update costs no test per field.
    if (!VellmarkClientLog().IsLog(DPrint::Flow)) return;
    char const* const function = "PrintSourcesProtobuf";
    auto const detail = DPrint::Detail;
    LogLine(DPrint::Flow, function, "PrintSourcesProtobuf");
    LogLine(DPrint::Flow, function, " Number of sources: ", sources.source_size());
    for (auto const& source : sources.source()) {
        LogLine(detail, function, " source id: ", source.id());
        LogLine(detail, function, " source type: ", source.type());
        LogLine(detail, function, " source name: ", source.name().text());
        LogLine(detail, function, " source username: ", source.username().text());
        LogLine(detail, function, " source sourceproviderid: ", source.sourceproviderid().text());
        if (level == DPrint::Info && VellmarkClientLog().IsLog(DPrint::Info)) {
            LogLine(DPrint::Info, function,
                    " source accountid: ", Redact::RedactID(source.accountid().text(), '-'));
            LogLine(DPrint::Info, function,
                    " tarv personid: ", Redact::RedactID(source.tarvpersonid(), '-'));
        } else if (level == DPrint::Detail) {
            LogLine(detail, function, " source accountid: ", source.accountid().text());
            LogLine(detail, function, " tarv personid: ", source.tarvpersonid());
        }
        LogLine(detail, function, " source credential type: ", source.credential().type());
        // Labelled "source text" although it is the credential's text.
        LogLine(detail, function, " source text: ", source.credential().text());
        // The value line comes ahead of its key name.
        for (auto const& setting : source.sourcesettings().source_setting()) {
            LogLine(detail, function, " source settings value: ", setting.value().text());
            LogLine(detail, function, " source settings keyname: ", setting.keyname().text());
        }
    }
}
