// Errors for input the library refuses, and their log form.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/CallIfSet.h"
#include "client/internal/LogLine.h"

namespace {
// The general error class of every input the library refuses itself.
constexpr int kInputError = VellmarkPB::CODE_INVALID_INPUT;
}  // namespace

void VellmarkClientAPI::CreateErrorMsg(VellmarkPB::Error& error, VellmarkPB::Code code) {
    LogLine(DPrint::Info, "CreateErrorMsg", "CreateErrorMsg");
    error.set_code(kInputError);
    error.set_subcode(code);
    auto const* name = VellmarkPB::Code_descriptor()->FindValueByNumber(code);
    error.set_message("Input data error: " + (name ? name->name() : std::string()));
}

void VellmarkClientAPI::PrintErrorMessage(VellmarkPB::Error const& error) {
    char const* const function = "PrintErrorMessage";
    if (error.has_code()) LogLine(DPrint::Detail, function, "Error code: ", error.code());
    if (error.has_subcode()) LogLine(DPrint::Detail, function, "Error subcode: ", error.subcode());
    if (error.has_message()) LogLine(DPrint::Detail, function, "Error message: ", error.message());
    if (error.has_productguid()) {
        LogLine(DPrint::Detail, function, "Product GUID: ", error.productguid());
    }
}

void VellmarkClientAPI::RefuseInput(VellmarkPB::Code code,
                                    Callback<VellmarkPB::Error> const& onError) {
    VellmarkPB::Error error;
    CreateErrorMsg(error, code);
    CallIfSet(onError, error);
}
