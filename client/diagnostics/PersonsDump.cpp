// The dump of the persons list: each entry's key is the person, its value the role.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"

void VellmarkClientAPI::PrintPersonsInfoProtobuff(VellmarkPB::persons const& persons) {
    // No line of the dump is coarser than this one: when it is not written, none is, and an
    // update costs no test per field.
    if (!VellmarkClientLog().IsLog(DPrint::Info)) return;
    char const* const function = "PrintPersonsInfoProtobuff";
    LogLine(DPrint::Info, function, "PrintPersonsInfoProtobuff");
    for (auto const& person : persons.person()) {
        LogLine(DPrint::Detail, function, "Role: ", person.value());
        LogLine(DPrint::Detail, function, "tarvPersonID: ", person.key());
    }
}
