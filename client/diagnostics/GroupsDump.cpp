// The field-by-field dump of the groups; its levels are fixed whatever level is asked for.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"
#include "platform/log/ProtoToMarkup.h"

void VellmarkClientAPI::PrintGroupsProtobuf(VellmarkPB::VellmarkGroups const& groups,
                                            DPrint::Level const&) {
    // No line of the dump is coarser than this one: when it is not written, none is, and an
    // update costs no test per field.
    if (!VellmarkClientLog().IsLog(DPrint::Info)) return;
    char const* const function = "PrintGroupsProtobuf";
    auto const detail = DPrint::Detail;
    LogLine(DPrint::Info, function, " Number of groups: ", groups.groups_size());
    for (int g = 0; g < groups.groups_size(); ++g) {
        auto const& group = groups.groups(g);
        // The JSON is rendered only when the line is written.
        if (VellmarkClientLog().IsLog(detail)) {
            LogLine(detail, function, " group ", g,
                    " settings: ", ProtoToMarkup::ToJson(group.settings(), false, false, false));
        }
        LogLine(detail, function, " group ", g, " groupid: ", group.groupid());
        for (int m = 0; m < group.members_size(); ++m) {
            auto const& member = group.members(m);
            LogLine(detail, function, " group ", g, " member ", m,
                    " productid: ", member.productid());
            LogLine(detail, function, " group ", g, " member ", m,
                    " subgroupid: ", member.subgroupid());
            LogLine(detail, function, " group ", g, " member ", m, " role: ", member.role());
        }
    }
}
